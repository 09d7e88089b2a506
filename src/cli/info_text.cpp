#include "cli/info_text.h"

#include "base/text.h"
#include "cli/display.h"
#include "cli/music_text.h"
#include "cli/report_json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace vimbo::cli {

namespace {

constexpr std::size_t kPieceBytes = 65536;
constexpr std::size_t kLabelWidth = 12; ///< of labels, which are ASCII

void AddLine(std::string& out, std::size_t indent, std::string_view label, std::string_view text)
{
    const std::size_t padding = kLabelWidth - std::min(label.size(), kLabelWidth);
    out.append(indent, ' ').append(label).append(padding, ' ').append(text).append("\n");
}

void AddTexts(std::string& out, std::size_t indent, const TextItem& item)
{
    for (const auto& [key, text] : ListTexts(item))
        AddLine(out, indent, key, Printable(text));
    const auto image = item.GetImage();
    if (!image.empty())
        AddLine(out, indent, "image", fmt::format("{} bytes {}", image.size(), ImageMimeType(image)));
}

void AddWaveform(std::string& out, std::size_t number, const Waveform& wave)
{
    fmt::format_to(std::back_inserter(out), "  {}. {}\n", number, Printable(wave.GetName()));
    const double seconds = wave.rateHz == 0 ? 0 : static_cast<double>(wave.frames) / wave.rateHz;
    AddLine(out, 5, "length", fmt::format("{} frames, {:.3f} s at {} Hz", wave.frames, seconds, wave.rateHz));
    AddLine(out, 5, "samples",
            fmt::format("{}, {}", wave.channels == 1 ? "mono" : "stereo", DataFormatOf(wave)));
    AddLine(out, 5, "pitch", fmt::format("root key {}, fine tune {:+d} cents", wave.rootKey, wave.fineTune));
    AddLine(out, 5, "volume", fmt::format("{} dB", wave.volume));
    AddLine(out, 5, "loop", LoopText(wave.loop));
    for (const Marker& marker : wave.markers)
        AddLine(out, 5, "marker",
                marker.isRange
                    ? fmt::format("{} to {} {}", marker.position, marker.end, Printable(marker.name))
                    : fmt::format("{} {}", marker.position, Printable(marker.name)));
    AddTexts(out, 5, wave);
}

/// Prints the text so far if there is much of it, so that the text of a large bank needs little memory.
bool Flush(std::string& out, std::size_t most)
{
    if (out.size() <= most)
        return true;
    const bool good = WriteOut(out);
    out.clear();
    return good;
}

/// Nothing at all for kinds that the file does not hold.
template <class T>
bool AddList(std::string& out, std::string_view label, const Collection& collection)
{
    if (collection.CountOf(T::kKind) == 0)
        return true;
    AddLine(out, 2, label, std::to_string(collection.CountOf(T::kKind)));
    MusicText text(out);
    std::size_t number = 0;
    for (const T& item : collection.All<T>()) {
        text.Add(++number, item);
        if (!Flush(out, kPieceBytes))
            return false;
    }
    return true;
}

/// Down to the heading of the waveforms.
void AddHead(std::string& out, std::string_view file, const Collection& collection, int confidence)
{
    out = Printable(file) + "\n";
    std::string format = WideToUtf8(RowDescription(collection.formatRow));
    format +=
        fmt::format(" (row {}, {}", collection.formatRow, WideToUtf8(RowExtension(collection.formatRow)));
    if (confidence > 0)
        format += fmt::format(", confidence {}%", confidence);
    AddLine(out, 2, "format", format + ")");
    AddLine(out, 2, "name", Printable(collection.GetName()));
    AddTexts(out, 2, collection);
    AddLine(out, 2, "waveforms", std::to_string(collection.CountOf(ItemKind::Waveform)));
}

} // namespace

bool PrintFileText(std::string_view file, const Collection& collection, int confidence)
{
    std::string out;
    AddHead(out, file, collection, confidence);
    std::size_t number = 0;
    for (const Waveform& wave : collection.All<Waveform>()) {
        AddWaveform(out, ++number, wave);
        if (!Flush(out, kPieceBytes))
            return false;
    }
    return AddList<Instrument>(out, "instruments", collection) && AddList<Song>(out, "songs", collection) &&
           Flush(out, 0);
}

} // namespace vimbo::cli
