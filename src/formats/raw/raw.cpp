// Files that are nothing but samples, and the last-resort import of files that no format matches. The
// encoding is not in the file: it stands in the row's variant word.
#include "formats/raw/raw.h"

#include "base/host.h"
#include "base/last_error.h"
#include "base/path.h"
#include "dsp/kernels/sample_convert.h"
#include "formats/format_choice.h"
#include "model/plain_layout.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <vector>

namespace vimbo {

namespace {

constexpr std::uint32_t kPlainRateHz = 44100;
constexpr std::uint32_t kTelephonyRateHz = 8000;
constexpr std::uint32_t kLayoutFlags = kSourceSequentialStereo | kSourceUnsigned | kSourceBigEndian;
/// Frames converted at a time; even, as packed samples come in pairs.
constexpr std::uint64_t kPieceFrames = 8192;

/// Keeps one channel of interleaved stereo frames, at the front of the span.
std::span<float> KeepChannel(std::span<float> stereo, std::size_t channel) noexcept
{
    const std::size_t frames = stereo.size() / 2;
    for (std::size_t i = 0; i < frames; ++i)
        stereo[i] = stereo[i * 2 + channel];
    return stereo.first(frames);
}

/// Writes samples that follow one another: all of a source, or one plane of it.
bool WriteRun(FileObject& file, FrameSource& source, const SampleLayout& layout,
              std::optional<std::size_t> plane)
{
    const std::uint64_t most = std::min(std::uint64_t{source.Frames()}, kPieceFrames);
    std::vector<float> samples(static_cast<std::size_t>(most * source.Channels()));
    std::vector<std::byte> bytes(static_cast<std::size_t>(StoredBytes(layout.coding, samples.size())));
    DeltaState state;
    for (std::uint64_t done = 0; done < source.Frames(); done += kPieceFrames) {
        const std::uint64_t frames = std::min(source.Frames() - done, kPieceFrames);
        auto piece = std::span(samples).first(static_cast<std::size_t>(frames * source.Channels()));
        if (!source.Read(static_cast<std::uint32_t>(done), piece))
            return false;
        if (plane)
            piece = KeepChannel(piece, *plane);
        const auto out =
            std::span(bytes).first(static_cast<std::size_t>(StoredBytes(layout.coding, piece.size())));
        EncodeSamples(layout, piece, out, state);
        if (!file.WriteAll(out))
            return Fail(u"Writing to file failed");
    }
    return true;
}

/// Makes the one waveform of a file whose samples start at 0.
bool AddWaveform(Collection& collection, const FileObject& file, DataFormat format, std::uint32_t flags,
                 std::uint32_t rateHz)
{
    const std::uint64_t size = file.Size();
    const unsigned bits = DataFormatBits(format);
    // Whole frames of one channel. All formats here have 1, 2, 4 or 8 bytes a sample.
    const std::uint64_t wholeFrames = size / (bits / 8);
    if (wholeFrames == 0)
        return Fail(u"Zero length");
    constexpr std::uint64_t kMostFrames = std::numeric_limits<std::uint32_t>::max();
    if (wholeFrames > kMostFrames)
        collection.GetHost().ShowMessage(u"The file is too long for one waveform; its end is left out",
                                         u"Raw samples", MessageIcon::Warning);
    auto& wave = collection.Create<Waveform>(collection.GetName());
    wave.SetSourceFormat(format, flags);
    wave.rateHz = rateHz;
    wave.channels = 1;
    wave.frames = static_cast<std::uint32_t>(std::min(wholeFrames, kMostFrames));
    wave.sourceOffset = 0;
    wave.sourceBytes = std::uint64_t{wave.frames} * (bits / 8);
    return true;
}

enum RawAnswer : std::size_t { kOk, kAlwaysOk, kCancel, kAlwaysCancel };

bool WantsRawImport(Host& host, std::u16string_view path)
{
    constexpr std::string_view kKey = "raw-import";
    std::size_t answer = kCancel;
    if (const auto remembered = host.RememberedAnswer(kKey)) {
        answer = *remembered;
    } else {
        Question question;
        question.key = kKey;
        question.text =
            u"The selected file can not be detected as any of the supported import types. Select OK to "
            u"read it as raw data...\n\nYou'll need to adjust the data format on the 'Source' tab of the "
            u"waveform properties.";
        question.title = path.substr(GetFileName(path));
        question.buttons = {u"OK", u"Allways OK", u"Cancel", u"Allways Cancel"};
        question.defaultButton = kCancel;
        answer = host.Ask(question);
        if (answer == kAlwaysOk || answer == kAlwaysCancel)
            host.RememberAnswer(kKey, answer);
    }
    return answer == kOk || answer == kAlwaysOk;
}

} // namespace

bool WriteSamples(FileObject& file, FrameSource& source, DataFormat format, std::uint32_t flags)
{
    const std::optional<SampleLayout> layout = PlainLayout(format, flags);
    if (!layout)
        return Fail(u"Invalid format for generic import function!");
    if (source.Channels() != 2 || (flags & kSourceSequentialStereo) == 0)
        return WriteRun(file, source, *layout, std::nullopt);
    return WriteRun(file, source, *layout, 0) && WriteRun(file, source, *layout, 1);
}

bool ReadRaw(Collection& collection, FileObject& file, std::uint32_t variant)
{
    const DataFormat format = FirstFormatOf(variant);
    const std::optional<SampleLayout> layout = PlainLayout(format, variant);
    if (!layout || StoredBits(layout->coding) % 8 != 0)
        return Fail(u"Invalid format for generic import function!");
    const std::uint32_t rateHz = (variant & kRawTelephony) != 0 ? kTelephonyRateHz : kPlainRateHz;
    return AddWaveform(collection, file, format, variant & kLayoutFlags, rateHz);
}

bool WriteRaw(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    auto& wave = static_cast<Waveform&>(root);
    const auto frames = OpenFramesForWriter(wave, choice);
    if (!frames)
        return false;
    float kbit = 0;
    const DataFormat format = PickDataFormat(wave, choice, kbit, nullptr);
    return WriteSamples(file, *frames, format, choice.variant & kLayoutFlags);
}

bool ReadUnrecognized(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    if (!WantsRawImport(collection.GetHost(), file.Path()))
        return true;
    return AddWaveform(collection, file, DataFormat::Pcm8, 0, kPlainRateHz);
}

} // namespace vimbo
