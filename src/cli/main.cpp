// The `vimbo` command.
#include "cli/commands.h"

int main(int argc, char** argv)
{
    return vimbo::cli::RunProgram(argc, argv);
}
