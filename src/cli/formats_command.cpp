#include "cli/commands.h"
#include "cli/display.h"
#include "cli/format_lookup.h"
#include "cli/formats_document.h"
#include "cli/report_json.h"

#include "base/text.h"

#include <fmt/format.h>

#include <iterator>

namespace vimbo::cli {

namespace {

std::vector<int> AllRows()
{
    std::vector<int> rows;
    for (int row = 0; FindRow(row); ++row)
        rows.push_back(row);
    return rows;
}

std::vector<int> WantedRows(const FormatsOptions& options)
{
    const std::u16string extension = Utf8ToWide(options.extension);
    std::vector<int> rows = extension.empty() ? AllRows() : RowsWithExtension(extension);
    std::erase_if(rows, [&options](int row) {
        return (options.read && !FindRow(row)->read) || (options.write && !FindRow(row)->write);
    });
    return rows;
}

std::string RowJsonList(const std::vector<int>& rows)
{
    Json list = Json::array();
    for (const int row : rows)
        list.push_back(DescribeRowJson(row));
    return ToText(list);
}

std::string RowTable(const std::vector<int>& rows)
{
    std::string table = fmt::format("{:>3} {:9} {:2} {:43} {:29} {}\n", "Row", "Extension", "RW",
                                    "Description", "Holds", "Data formats");
    for (const int row : rows) {
        const FormatRow& entry = *FindRow(row);
        std::string line =
            fmt::format("{:>3} {:9} {}{} {:43} {:29} {}", row, WideToUtf8(entry.extension),
                        entry.read ? 'r' : '-', entry.write ? 'w' : '-', WideToUtf8(entry.description),
                        fmt::format("{}", fmt::join(KindWords(entry.kinds), ", ")),
                        fmt::join(DataFormatNames(entry.caps), ", "));
        line.erase(line.find_last_not_of(' ') + 1);
        table += line + "\n";
    }
    return table;
}

} // namespace

int RunFormats(const FormatsOptions& options, Console& console)
{
    if (options.markdown)
        return WriteOut(FormatsDocument()) ? kExitGood : kExitFailed;
    const std::u16string extension = Utf8ToWide(options.extension);
    if (!extension.empty() && RowsWithExtension(extension).empty()) {
        console.Say(Severity::Error, "",
                    fmt::format("no format has the extension \"{}\"{}", Printable(extension),
                                SuggestExtensions(extension)));
        return kExitUsage;
    }
    const std::vector<int> rows = WantedRows(options);
    return WriteOut(options.json ? RowJsonList(rows) : RowTable(rows)) ? kExitGood : kExitFailed;
}

} // namespace vimbo::cli
