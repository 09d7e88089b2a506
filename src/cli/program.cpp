#include "cli/commands.h"
#include "cli/interrupt.h"

#include <exception>
#include <new>

namespace vimbo::cli {

namespace {

int RunCommand(const Options& options, Console& console)
{
    switch (options.command) {
    case Command::Info:
        return RunInfo(options.info, console);
    case Command::Convert:
        return RunConvert(options.convert, console);
    case Command::Render:
        return RunRender(options.render, console);
    case Command::Verify:
        return RunVerify(options.verify, console);
    case Command::Formats:
        return RunFormats(options.formats, console);
    case Command::Settings:
        return RunSettings(options.settings, console);
    case Command::None:
        break;
    }
    return kExitUsage;
}

} // namespace

int RunProgram(int argc, const char* const* argv) noexcept
{
    try {
        const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
        Options options;
        if (const auto status = ParseCommandLine(arguments, options))
            return *status;
        WatchInterrupts();
        Console console(options.quiet, options.verbose);
        try {
            return RunCommand(options, console);
        } catch (const std::bad_alloc&) {
            console.Say(Severity::Error, "", "Out of memory");
        } catch (const std::exception& error) {
            console.Say(Severity::Error, "", error.what());
        }
    } catch (...) {
        // Not even a message could be made.
    }
    return kExitFailed;
}

} // namespace vimbo::cli
