#include "cli/cli_host.h"
#include "cli/commands.h"
#include "cli/display.h"
#include "cli/info_text.h"
#include "cli/interrupt.h"
#include "cli/process_memory.h"
#include "cli/report_json.h"

#include "base/last_error.h"
#include "base/text.h"
#include "formats/open.h"

#include <filesystem>
#include <system_error>

namespace vimbo::cli {

namespace {

bool Load(const std::string& file, AllowRaw allowRaw, Collection& collection, int& confidence)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (std::filesystem::is_directory(status))
        return Fail(u"Is a folder; name the files in it");
    if (std::filesystem::is_fifo(status) || std::filesystem::is_socket(status)) // would wait for a writer
        return Fail(u"Not a regular file");
    return LoadFile(collection, PathToWide(file), allowRaw, &confidence);
}

/// Shows one file; false if it could not be read or its description not be printed.
bool ShowFile(const std::string& file, std::size_t index, const InfoOptions& options, Console& console,
              Json& list)
{
    CliHost host(console, index, {options.answers, !options.json});
    auto owned = std::make_unique<Collection>();
    Collection& collection = *owned;
    collection.SetHost(host);
    int confidence = 0;
    ClearLastError();
    const bool loaded =
        Load(file, options.answers.raw ? AllowRaw::Yes : AllowRaw::No, collection, confidence);
    for (const HostMessage& message : host.TakeMessages())
        console.Say(message.severity, file, message.text);
    if (!loaded) {
        const std::string error = Printable(LastError());
        console.Say(Severity::Error, file, error);
        list.push_back(FailedFileJson(file, error));
        return false;
    }
    bool good = true;
    if (options.json)
        list.push_back(DescribeFileJson(file, collection, confidence));
    else
        good = PrintFileText(file, collection, confidence);
    if (index + 1 == options.files.size())
        LeaveToExit(std::move(owned));
    return good;
}

} // namespace

int RunInfo(const InfoOptions& options, Console& console)
{
    Json list = Json::array();
    bool good = true;
    for (std::size_t i = 0; i < options.files.size() && !IsInterrupted(); ++i)
        good = ShowFile(options.files[i], i, options, console, list) && good;
    if (options.json && !WriteOut(ToText(list)))
        good = false;
    return good && !IsInterrupted() ? kExitGood : kExitFailed;
}

} // namespace vimbo::cli
