// The `vimbo` command.
#include "cli/commands.h"
#include "cli/process_memory.h"

int main(int argc, char** argv)
{
    vimbo::cli::PrepareHeap();
    return vimbo::cli::RunProgram(argc, argv);
}
