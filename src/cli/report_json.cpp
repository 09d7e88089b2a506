#include "cli/report_json.h"

#include "base/text.h"
#include "cli/display.h"
#include "cli/format_lookup.h"
#include "cli/music_json.h"
#include "cli/notes_report.h"

#include <array>
#include <utility>

namespace vimbo::cli {

namespace {

constexpr std::array<std::pair<std::uint16_t, std::string_view>, 6> kTextKeys{{{kTextArtist, "artist"},
                                                                               {kTextComments, "comments"},
                                                                               {kTextCopyright, "copyright"},
                                                                               {kTextEngineer, "engineer"},
                                                                               {kTextProduct, "product"},
                                                                               {kTextSourcePath, "source"}}};

Json MarkersJson(const Waveform& wave)
{
    Json markers = Json::array();
    for (const Marker& marker : wave.markers)
        markers.push_back({{"name", WideToUtf8(marker.name)},
                           {"position", marker.position},
                           {"end", marker.isRange ? Json(marker.end) : Json(nullptr)}});
    return markers;
}

Json WaveformJson(const Waveform& wave)
{
    Json json;
    json["name"] = WideToUtf8(wave.GetName());
    json["frames"] = wave.frames;
    json["rate"] = wave.rateHz;
    json["channels"] = wave.channels;
    json["bits"] = wave.bits;
    json["dataFormat"] = DataFormatOf(wave);
    json["rootKey"] = wave.rootKey;
    json["fineTune"] = wave.fineTune;
    json["volume"] = ShortNumber(wave.volume);
    json["loop"] = LoopJson(wave.loop);
    json["markers"] = MarkersJson(wave);
    json["texts"] = TextsJson(wave);
    return json;
}

Json FormatJson(int row, int confidence)
{
    return {{"row", row},
            {"extension", WideToUtf8(RowExtension(row))},
            {"description", WideToUtf8(RowDescription(row))},
            {"confidence", confidence}};
}

Json SubFormatsJson(int row)
{
    Json list = Json::array();
    float kbit = 0;
    std::u16string name;
    for (std::uint32_t index = 0; GetSubFormat(row, index, kbit, name);)
        list.push_back({{"kbit", ShortNumber(kbit)}, {"name", WideToUtf8(name)}});
    return list;
}

std::string_view StatusWord(ReportStatus status) noexcept
{
    switch (status) {
    case ReportStatus::Converted:
        return "converted";
    case ReportStatus::Skipped:
        return "skipped";
    case ReportStatus::WouldConvert:
        return "would convert";
    case ReportStatus::Failed:
        break;
    }
    return "failed";
}

Json ReportJson(const ConvertReport& report, int row)
{
    Json json;
    json["input"] = PathToUtf8(report.input);
    json["output"] = report.output.empty() ? Json(nullptr) : Json(PathToUtf8(report.output));
    json["status"] = StatusWord(report.status);
    if (!report.error.empty())
        json["error"] = report.error;
    json["row"] = row;
    json["dataFormat"] = report.dataFormat.empty() ? Json(nullptr) : Json(report.dataFormat);
    json["channels"] = report.channels == 0 ? Json(nullptr) : Json(report.channels);
    json["bytes"] = report.bytes ? Json(*report.bytes) : Json(nullptr);
    json["report"] = NotesJson(report.notes);
    return json;
}

} // namespace

Json DescribeFileJson(std::string_view file, const Collection& collection, int confidence)
{
    Json json;
    json["file"] = PathToUtf8(file);
    json["format"] = FormatJson(collection.formatRow, confidence);
    json["name"] = WideToUtf8(collection.GetName());
    json["texts"] = TextsJson(collection);
    json["waveforms"] = Json::array();
    for (const Waveform& wave : collection.All<Waveform>())
        json["waveforms"].push_back(WaveformJson(wave));
    json["instruments"] = Json::array();
    for (const Instrument& instrument : collection.All<Instrument>())
        json["instruments"].push_back(InstrumentJson(instrument));
    json["songs"] = Json::array();
    for (const Song& song : collection.All<Song>())
        json["songs"].push_back(SongJson(song));
    return json;
}

Json FailedFileJson(std::string_view file, std::string_view error)
{
    return {{"file", PathToUtf8(file)}, {"error", error}};
}

Json DescribeRowJson(int row)
{
    const FormatRow& entry = *FindRow(row);
    Json json;
    json["index"] = row;
    json["extension"] = WideToUtf8(entry.extension);
    json["description"] = WideToUtf8(entry.description);
    json["read"] = entry.read != nullptr;
    json["write"] = entry.write != nullptr;
    json["kinds"] = KindWords(entry.kinds);
    json["dataFormats"] = DataFormatNames(entry.caps);
    json["mono"] = (entry.caps & kCapsMono) != 0;
    json["stereo"] = (entry.caps & (kCapsStereo | kCapsDualMono)) != 0;
    json["subFormats"] = SubFormatsJson(row);
    return json;
}

Json DescribeReportsJson(std::span<const JobResult> results, int row)
{
    Json list = Json::array();
    for (const JobResult& result : results) {
        for (const ConvertReport& report : result.reports)
            list.push_back(ReportJson(report, row));
    }
    return list;
}

std::string ToText(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::vector<std::pair<std::string, std::string>> ListTexts(const TextItem& item)
{
    std::vector<std::pair<std::string, std::string>> texts;
    for (const auto& [id, key] : kTextKeys) {
        if (item.HasText(id))
            texts.emplace_back(key, WideToUtf8(item.GetText(id)));
    }
    return texts;
}

std::string_view LoopTypeWord(LoopType type) noexcept
{
    constexpr std::array<std::string_view, 4> kWords{"off", "forward", "reverse", "alternating"};
    return kWords[static_cast<std::size_t>(type) % kWords.size()];
}

std::string DataFormatOf(const Waveform& wave)
{
    DataFormat format = wave.SourceFormat();
    if (format == DataFormat::None) {
        float kbit = 0;
        format = SaveFormatToDataFormat(wave.saveFormat, kbit);
    }
    return WideToUtf8(DataFormatName(format));
}

std::vector<std::string> KindWords(std::uint8_t kinds)
{
    std::vector<std::string> words;
    for (std::size_t kind = 0; kind < kItemKinds; ++kind) {
        if ((kinds >> kind & 1) != 0)
            words.push_back(WideToUtf8(KindWord(kind)));
    }
    return words;
}

} // namespace vimbo::cli
