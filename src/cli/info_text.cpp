#include "cli/info_text.h"

#include "base/text.h"
#include "cli/display.h"
#include "cli/music_text.h"
#include "cli/report_json.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

namespace vimbo::cli {

namespace {

constexpr int kLabelWidth = 12;

void AddLine(std::string& out, int indent, std::string_view label, std::string_view text)
{
    fmt::format_to(std::back_inserter(out), "{:{}}{:{}}{}\n", "", indent, label, kLabelWidth, text);
}

void AddTexts(std::string& out, int indent, const TextItem& item)
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

/// Nothing at all for kinds that the file does not hold.
template <class T>
void AddList(std::string& out, std::string_view label, const Collection& collection,
             void (*add)(std::string&, std::size_t, const T&))
{
    if (collection.CountOf(T::kKind) == 0)
        return;
    AddLine(out, 2, label, std::to_string(collection.CountOf(T::kKind)));
    std::size_t number = 0;
    for (const T& item : collection.All<T>())
        add(out, ++number, item);
}

} // namespace

std::string DescribeFileText(std::string_view file, const Collection& collection, int confidence)
{
    std::string out = Printable(file) + "\n";
    std::string format = WideToUtf8(RowDescription(collection.formatRow));
    format +=
        fmt::format(" (row {}, {}", collection.formatRow, WideToUtf8(RowExtension(collection.formatRow)));
    if (confidence > 0)
        format += fmt::format(", confidence {}%", confidence);
    AddLine(out, 2, "format", format + ")");
    AddLine(out, 2, "name", Printable(collection.GetName()));
    AddTexts(out, 2, collection);
    AddLine(out, 2, "waveforms", std::to_string(collection.CountOf(ItemKind::Waveform)));
    std::size_t number = 0;
    for (const Waveform& wave : collection.All<Waveform>())
        AddWaveform(out, ++number, wave);
    AddList<Instrument>(out, "instruments", collection, AddInstrumentText);
    AddList<Song>(out, "songs", collection, AddSongText);
    return out;
}

} // namespace vimbo::cli
