// Writing one waveform as a plain AIFF file. All sizes are known before the first byte is written; the
// samples go from their source to the file in pieces.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "base/text.h"
#include "formats/aiff/aiff.h"
#include "formats/aiff/aiff_records.h"
#include "formats/aiff/aiff_units.h"
#include "formats/format_choice.h"
#include "formats/raw/raw.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace vimbo {
namespace {

constexpr std::uint8_t kDefaultRootKey = 60;

void WriteHead(ByteWriter& out, FourCc id, std::size_t bytes)
{
    out.Write(IffChunkHead{id, static_cast<std::uint32_t>(bytes)});
}

void WriteChunk(ByteWriter& out, FourCc id, const ByteWriter& body)
{
    WriteHead(out, id, body.Size());
    out.Append(body.Bytes());
    out.Fill(body.Size() & 1);
}

/// The entries of `MARK`. Ids count from 1.
class MarkList {
public:
    /// @return the mark's id, 0 if there is no room for it
    std::uint16_t Add(std::uint32_t frame, std::u16string_view name)
    {
        if (count_ == kMaxAiffMarks)
            return 0;
        const std::string text = MarkName(name);
        body_.Write(MarkHead{++count_, frame});
        body_.Write(static_cast<std::uint8_t>(text.size()));
        body_.Append(text);
        body_.Fill((text.size() & 1) == 0 ? 1 : 0); // even with the length byte
        return count_;
    }

    void WriteTo(ByteWriter& out) const
    {
        if (count_ == 0)
            return;
        ByteWriter body;
        body.Write(U16be(count_));
        body.Append(body_.Bytes());
        WriteChunk(out, FourCc{"MARK"}, body);
    }

private:
    std::uint16_t count_ = 0;
    ByteWriter body_;
};

InstLoop AddLoop(MarkList& marks, const AiffRange& range, LoopType type, std::u16string_view beginName,
                 std::u16string_view endName)
{
    InstLoop loop;
    loop.mode = LoopTypeToMode(type);
    loop.beginMark = marks.Add(range.begin, beginName);
    loop.endMark = marks.Add(range.end, endName);
    return loop;
}

/// Loops and markers as marks, and what refers to them.
void AddMarks(const Waveform& wave, std::uint32_t frames, MarkList& marks, AiffInst& inst)
{
    const auto range = AiffLoopRange(wave.loop, frames);
    const Marker* release = FindAiffReleaseLoop(wave, range.has_value());
    if (release != nullptr) {
        inst.sustain = AddLoop(marks, *range, wave.loop.type, u"sust loop begin", u"sust loop end");
        inst.release = AddLoop(marks, {release->position, release->end}, LoopType::Forward, u"rel loop begin",
                               u"rel loop end");
    } else if (range) {
        inst.sustain = AddLoop(marks, *range, wave.loop.type, u"beg loop", u"end loop");
    }
    for (const Marker& marker : wave.markers) {
        if (&marker == release)
            continue;
        marks.Add(marker.position, marker.name);
        if (marker.isRange)
            marks.Add(marker.end, marker.name.empty() ? marker.name : marker.name + u" end");
    }
}

void WriteInst(ByteWriter& out, const Waveform& wave, AiffInst inst)
{
    const bool isLooped = inst.sustain.mode.Get() != 0;
    const std::int16_t gainDb = GainToInst(wave.volume);
    if (!isLooped && wave.rootKey == kDefaultRootKey && wave.fineTune == 0 && gainDb == 0)
        return;
    inst.baseNote = static_cast<std::int8_t>(std::min<int>(wave.rootKey, 127));
    inst.detune = wave.fineTune;
    inst.gainDb = gainDb;
    WriteHead(out, FourCc{"INST"}, sizeof(inst));
    out.Write(inst);
}

void WriteTexts(ByteWriter& out, const Waveform& wave)
{
    for (const AiffText& row : kAiffTexts) {
        const std::string& text = wave.GetTextNarrow(row.text);
        if (text.empty())
            continue;
        ByteWriter body;
        body.Append(text);
        WriteChunk(out, row.id, body);
    }
}

void WriteCommon(ByteWriter& out, unsigned channels, std::uint32_t frames, unsigned bits,
                 std::uint32_t rateHz)
{
    CommBody common;
    common.channels = static_cast<std::int16_t>(channels);
    common.frames = frames;
    common.bits = static_cast<std::int16_t>(bits);
    common.rateHz = RateToExtended(rateHz);
    WriteHead(out, FourCc{"COMM"}, sizeof(common));
    out.Write(common);
}

/// What stands between the form's head and the samples.
ByteWriter MakeChunks(const Waveform& wave, unsigned channels, std::uint32_t frames, unsigned bits)
{
    ByteWriter chunks;
    MarkList marks;
    AiffInst inst;
    AddMarks(wave, frames, marks, inst);
    WriteTexts(chunks, wave);
    WriteCommon(chunks, channels, frames, bits, wave.rateHz);
    marks.WriteTo(chunks);
    WriteInst(chunks, wave, inst);
    return chunks;
}

bool Put(FileObject& file, std::span<const std::byte> bytes)
{
    return file.WriteAll(bytes) || Fail(u"Writing to file failed");
}

bool WriteWaveform(Waveform& wave, FileObject& file, FormatChoice choice)
{
    float kbit = 0;
    const DataFormat format = PickDataFormat(wave, choice, kbit, nullptr, choice.variant);
    if (format != DataFormat::Pcm8 && format != DataFormat::Pcm16 && format != DataFormat::Pcm24 &&
        format != DataFormat::Pcm32)
        return Fail(u"Unsupported subformat");
    std::unique_ptr<FrameSource> source;
    if (wave.frames != 0) {
        source = OpenFramesForWriter(wave, choice);
        if (source == nullptr)
            return false;
    }
    const unsigned channels = source != nullptr ? source->Channels() : PickChannels(wave, choice);
    const std::uint32_t frames = source != nullptr ? source->Frames() : 0;
    const unsigned bits = DataFormatBits(format);
    const std::uint64_t dataBytes = std::uint64_t{frames} * channels * (bits / 8);

    NoteAiffLosses(wave, format, channels, frames);
    const ByteWriter chunks = MakeChunks(wave, channels, frames, bits);
    const std::uint64_t soundBytes = sizeof(SsndHead) + dataBytes;
    const std::uint64_t formBytes =
        sizeof(FourCc) + chunks.Size() + sizeof(IffChunkHead) + soundBytes + (soundBytes & 1);
    if (formBytes > std::numeric_limits<std::uint32_t>::max())
        return Fail(u"AIFF files can not hold more than 4 GB");
    ByteWriter front;
    WriteHead(front, FourCc{"FORM"}, static_cast<std::size_t>(formBytes));
    front.Write(FourCc{"AIFF"});
    front.Append(chunks.Bytes());
    WriteHead(front, FourCc{"SSND"}, static_cast<std::size_t>(soundBytes));
    front.Write(SsndHead{});
    if (!Put(file, front.Bytes()) ||
        (source != nullptr && !WriteSamples(file, *source, format, kSourceBigEndian)))
        return false;
    constexpr std::byte kPad{0};
    return (soundBytes & 1) == 0 || Put(file, std::span(&kPad, 1));
}

} // namespace

bool WriteAiff(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    return WriteWaveform(static_cast<Waveform&>(root), file, choice);
}

} // namespace vimbo
