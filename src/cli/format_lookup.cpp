#include "cli/format_lookup.h"

#include "base/text.h"
#include "cli/display.h"
#include "formats/save.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <numeric>
#include <optional>

namespace vimbo::cli {

namespace {

constexpr std::size_t kMaxSuggestions = 5;

std::optional<int> ParseRowNumber(std::string_view text)
{
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && FindRow(number) ? std::optional(number) : std::nullopt;
}

std::u16string Fold(std::u16string_view text)
{
    std::u16string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(), FoldCase);
    return folded;
}

/// True if the row's description contains every blank-separated word.
bool HasAllWords(int row, std::u16string_view words)
{
    const std::u16string description = Fold(RowDescription(row));
    const std::u16string wanted = Fold(words);
    std::size_t from = wanted.find_first_not_of(u' ');
    while (from != std::u16string::npos) {
        const std::size_t to = std::min(wanted.find(u' ', from), wanted.size());
        if (description.find(wanted.substr(from, to - from)) == std::u16string::npos)
            return false;
        from = wanted.find_first_not_of(u' ', to);
    }
    return true;
}

bool IsWritable(int row)
{
    return FindRow(row)->write != nullptr;
}

std::string JoinRows(const std::vector<int>& rows)
{
    std::vector<std::string> names;
    for (const int row : rows)
        names.push_back(NameRow(row));
    return fmt::format("{}", fmt::join(names, ", "));
}

/// Least number of letters to insert, drop or change to get from `a` to `b`.
std::size_t EditDistance(std::u16string_view a, std::u16string_view b)
{
    std::vector<std::size_t> costs(b.size() + 1);
    std::iota(costs.begin(), costs.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = costs[0];
        costs[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = costs[j + 1];
            costs[j + 1] = std::min({changed, costs[j] + 1, diagonal + 1});
        }
    }
    return costs.back();
}

TypeLookup FindByWords(std::u16string_view extension, std::u16string_view words)
{
    std::vector<int> rows = RowsWithExtension(extension);
    if (rows.empty())
        return {-1, fmt::format("no format has the extension \"{}\"{}", Printable(extension),
                                SuggestExtensions(extension))};
    std::vector<int> writable;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(writable), IsWritable);
    if (writable.empty())
        return {-1, fmt::format("no \"{}\" format can be written yet; known are: {}", Printable(extension),
                                JoinRows(rows))};
    const auto found =
        std::find_if(writable.begin(), writable.end(), [words](int row) { return HasAllWords(row, words); });
    if (found == writable.end())
        return {-1, fmt::format("no writable \"{}\" format is described by \"{}\"; there are: {}",
                                Printable(extension), Printable(words), JoinRows(writable))};
    return {*found, ""};
}

/// Lower-case letters and digits, without a final "bit": "PCM 16-bit" and "pcm16" become equal.
std::u16string Squeeze(std::u16string_view name)
{
    std::u16string squeezed;
    for (const char16_t unit : Fold(name)) {
        if ((unit >= u'a' && unit <= u'z') || (unit >= u'0' && unit <= u'9'))
            squeezed += unit;
    }
    if (squeezed.ends_with(u"bit"))
        squeezed.resize(squeezed.size() - 3);
    return squeezed;
}

/// True for "mulaw" and "mulaw8".
bool LacksOnlyWidth(std::u16string_view wanted, std::u16string_view squeezed)
{
    constexpr std::u16string_view kDigits = u"0123456789";
    return squeezed.starts_with(wanted) && kDigits.find(wanted.back()) == std::u16string_view::npos &&
           squeezed.find_first_not_of(kDigits, wanted.size()) == std::u16string_view::npos;
}

/// Narrows the request to one encoding; returns a complaint or "".
std::string ApplyDataFormat(int row, DataFormat format, std::string_view name, FormatChoice& choice)
{
    if (format == DataFormat::None || (choice.caps & FormatBit(format)) == 0)
        return fmt::format("row {} cannot hold \"{}\"; it can hold: {}", NameRow(row), Printable(name),
                           fmt::join(DataFormatNames(choice.caps), ", "));
    choice.caps = (choice.caps & ~kDataFormatMask) | FormatBit(format);
    return "";
}

std::string ApplyChannels(int row, ChannelWish wish, FormatChoice& choice)
{
    if (wish == ChannelWish::Auto)
        return "";
    const std::uint32_t wanted = wish == ChannelWish::Mono ? kCapsMono : kCapsStereo;
    if ((choice.caps & wanted) == 0)
        return fmt::format("row {} cannot hold {} samples", NameRow(row),
                           wish == ChannelWish::Mono ? "mono" : "stereo");
    choice.caps = (choice.caps & ~kCapsChannels) | wanted;
    return "";
}

/// The value of a row's compressed setting of that name, such as "Vorbis quality 0.4"; 0 if there is none.
float FindSubFormat(int row, std::string_view wanted)
{
    const std::u16string name = Utf8ToWide(wanted);
    float value = 0;
    std::u16string candidate;
    for (std::uint32_t index = 0; GetSubFormat(row, index, value, candidate);)
        if (CompareNoCase(candidate, name) == 0)
            return value;
    return 0;
}

} // namespace

std::vector<int> RowsWithExtension(std::u16string_view extension)
{
    if (extension.starts_with(u'.'))
        extension.remove_prefix(1);
    std::vector<int> rows;
    for (int row = 0; FindRow(row); ++row) {
        if (CompareNoCase(RowExtension(row), extension) == 0)
            rows.push_back(row);
    }
    return rows;
}

TypeLookup FindType(std::string_view type)
{
    if (const auto number = ParseRowNumber(type)) {
        if (IsWritable(*number))
            return {*number, ""};
        return {-1, fmt::format("row {} cannot be written yet", NameRow(*number))};
    }
    const std::u16string wide = Utf8ToWide(type);
    const std::size_t colon = wide.find(u':');
    if (colon != std::u16string::npos)
        return FindByWords(std::u16string_view(wide).substr(0, colon),
                           std::u16string_view(wide).substr(colon + 1));
    const int waveRow = FindRowByExtension(wide, kKindWave);
    return waveRow >= 0 ? TypeLookup{waveRow, ""} : FindByWords(wide, u"");
}

std::string SuggestExtensions(std::u16string_view extension)
{
    const std::u16string wanted = Fold(extension);
    const std::size_t tolerance = wanted.size() > 3 ? 2 : 1;
    std::vector<std::pair<std::size_t, std::string>> close; // nearest first, then in the table's order
    int index = 0;
    EnumeratedRow row;
    while (EnumRowsForWrite(index, row)) {
        const std::pair candidate(EditDistance(wanted, row.extension), WideToUtf8(row.extension));
        if (candidate.first <= tolerance && std::find(close.begin(), close.end(), candidate) == close.end())
            close.push_back(candidate);
    }
    std::stable_sort(close.begin(), close.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    close.resize(std::min(close.size(), kMaxSuggestions));
    std::vector<std::string> names;
    for (auto& [distance, name] : close)
        names.push_back(std::move(name));
    return names.empty() ? "" : fmt::format("; did you mean {}?", fmt::join(names, ", "));
}

DataFormat FindDataFormat(std::string_view name)
{
    const std::u16string wide = Utf8ToWide(name);
    DataFormat found = DataFormatByName(wide);
    const std::u16string wanted = Squeeze(wide);
    if (found != DataFormat::None || wanted.empty())
        return found;
    for (unsigned code = 0; code < static_cast<unsigned>(DataFormat::None); ++code) {
        const auto format = static_cast<DataFormat>(code);
        const std::u16string squeezed = Squeeze(DataFormatName(format));
        if (squeezed == wanted)
            return format;
        if (LacksOnlyWidth(wanted, squeezed)) {
            if (found != DataFormat::None)
                return DataFormat::None; // exists in several widths
            found = format;
        }
    }
    return found;
}

ChoiceLookup MakeChoice(int row, std::string_view dataFormat, ChannelWish channels, float kbit)
{
    ChoiceLookup result{AutoChoice(row), ""};
    if (const float setting = FindSubFormat(row, dataFormat); setting > 0 && kbit == 0) {
        kbit = setting;
        dataFormat = {};
    }
    DataFormat format = dataFormat.empty() ? DataFormat::None : FindDataFormat(dataFormat);
    if (!dataFormat.empty()) {
        result.error = ApplyDataFormat(row, format, dataFormat, result.choice);
    } else if (kbit > 0) {
        format = DataFormat::Compressed;
        result.error = ApplyDataFormat(row, format, WideToUtf8(DataFormatName(format)), result.choice);
    }
    if (result.error.empty() && kbit > 0 && format != DataFormat::Compressed)
        result.error = fmt::format("--kbit is for compressed formats, not for \"{}\"", Printable(dataFormat));
    if (result.error.empty())
        result.error = ApplyChannels(row, channels, result.choice);
    result.choice.kbit = kbit;
    return result;
}

std::string NameRow(int row)
{
    return fmt::format("{} ({}, {})", row, WideToUtf8(RowExtension(row)), WideToUtf8(RowDescription(row)));
}

std::vector<std::string> DataFormatNames(std::uint32_t caps)
{
    std::vector<std::string> names;
    for (unsigned code = 0; code < static_cast<unsigned>(DataFormat::None); ++code) {
        if ((caps >> code & 1) != 0)
            names.push_back(WideToUtf8(DataFormatName(static_cast<DataFormat>(code))));
    }
    return names;
}

} // namespace vimbo::cli
