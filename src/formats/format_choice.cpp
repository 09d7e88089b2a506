#include "formats/format_choice.h"

#include "base/last_error.h"
#include "base/text.h"

#include <bit>
#include <fmt/format.h>

namespace vimbo {

namespace {

constexpr float kDefaultKbit = 256;

constexpr std::uint32_t kLinearFormats = 0xFF; // PCM 8 to Float 64

bool HasFormat(std::uint32_t caps, DataFormat format) noexcept
{
    return format < DataFormat::None && (caps & FormatBit(format)) != 0;
}

DataFormat FormatAt(unsigned code) noexcept
{
    return static_cast<DataFormat>(code);
}

/// The next wider linear format, PCM 16 if none is wider, else whatever is lowest.
DataFormat WidenLinear(DataFormat wanted, std::uint32_t caps) noexcept
{
    if (wanted < DataFormat::Float64) {
        for (unsigned code = static_cast<unsigned>(wanted) + 1; code <= 7; ++code) {
            if (HasFormat(caps, FormatAt(code)))
                return FormatAt(code);
        }
    }
    return HasFormat(caps, DataFormat::Pcm16) ? DataFormat::Pcm16 : FirstFormatOf(caps);
}

/// The stand-in for a linear wish where only coded formats exist.
DataFormat PickCoded(DataFormat wanted, std::uint32_t caps, float& kbit) noexcept
{
    if (wanted == DataFormat::Pcm16 && HasFormat(caps, DataFormat::Delta16))
        return DataFormat::Delta16;
    if (wanted == DataFormat::Pcm8 && HasFormat(caps, DataFormat::Delta8))
        return DataFormat::Delta8;
    if (HasFormat(caps, DataFormat::Compressed)) {
        kbit = kDefaultKbit;
        return DataFormat::Compressed;
    }
    return FirstFormatOf(caps);
}

/// The setting at or above `kbit` that the enumerator offers, or its last one.
float NearestSetting(float kbit, SubFormatFn subFormats, std::uint32_t variant)
{
    float last = kbit;
    for (std::uint32_t index = 0;; ++index) {
        const float value = subFormats(index, variant, nullptr);
        if (!(value > 0))
            return last;
        last = value;
        if (value >= kbit)
            return value;
    }
}

/// True if `candidate` replaces `best` as the widest result of a set.
bool IsWider(DataFormat candidate, float candidateKbit, DataFormat best, float bestKbit) noexcept
{
    const auto isWideLinear = [](DataFormat format) {
        return format >= DataFormat::Pcm12 && format <= DataFormat::Float64;
    };
    const bool candidateLinear = isWideLinear(candidate);
    const bool bestLinear = isWideLinear(best);
    if (candidateLinear != bestLinear)
        return candidateLinear;
    if (candidate != best)
        return candidate > best;
    return candidate == DataFormat::Compressed && candidateKbit > bestKbit;
}

/// Calls `visit` with each waveform that saving `item` would write.
template <class Visit>
void ForEachWave(const Item& item, Visit visit)
{
    if (item.Kind() == ItemKind::Waveform) {
        visit(static_cast<const Waveform&>(item));
    } else if (item.Kind() == ItemKind::Collection) {
        for (const Waveform& wave : item.Owner().All<Waveform>())
            visit(wave);
    } else {
        for (ItemHandle child : item.Children()) {
            if (const Item* found = item.Owner().FindItem(child))
                ForEachWave(*found, visit);
        }
    }
}

/// Tells the host how far the reading of a waveform has come: what a writer has read, it is about to have
/// written.
class ReportingFrames final : public FrameSource {
public:
    ReportingFrames(std::unique_ptr<FrameSource> source, const Waveform& wave)
        : FrameSource(source->Frames(), source->Channels()), source_(std::move(source)),
          host_(wave.Owner().GetHost()), name_(wave.GetName())
    {
    }
    ~ReportingFrames() override { host_.SetProgress(u""); }

    bool Read(std::uint32_t first, std::span<float> out) override
    {
        Report(first);
        return source_->Read(first, out);
    }
    bool ReadStored(const SampleLayout& layout, std::uint32_t first, std::span<std::byte> out) override
    {
        Report(first);
        return source_->ReadStored(layout, first, out);
    }

private:
    void Report(std::uint32_t first) { host_.SetProgress(name_, static_cast<double>(first) / Frames()); }

    std::unique_ptr<FrameSource> source_;
    Host& host_;
    std::u16string name_;
};

std::u16string CompressedName(int row, float kbit)
{
    float value = 0;
    std::u16string name;
    for (std::uint32_t index = 0; GetSubFormat(row, index, value, name);) {
        if (value == kbit)
            return name;
    }
    return u"Compressed";
}

} // namespace

unsigned PickChannels(const Waveform& wave, const FormatChoice& choice) noexcept
{
    if (wave.channels == 1)
        return (choice.caps & kCapsMono) != 0 ? 1 : 2;
    return (choice.caps & kCapsStereo) != 0 ? 2 : 1;
}

FormatChoice ChoiceForEncoding(FormatChoice choice, DataFormat format) noexcept
{
    if (format >= DataFormat::Gsm && format <= DataFormat::Adpcm5)
        choice.caps = (choice.caps & ~kCapsChannels) | kCapsMono;
    return choice;
}

DataFormat PickDataFormat(const Waveform& wave, const FormatChoice& choice, float& kbit,
                          SubFormatFn subFormats, std::uint32_t variant)
{
    const std::uint32_t caps = choice.caps & kDataFormatMask;
    float wantedKbit = 0;
    const DataFormat wanted = SaveFormatToDataFormat(wave.saveFormat, wantedKbit);
    const bool otherRate = wanted == DataFormat::Compressed && choice.kbit != 0 && choice.kbit != wantedKbit;

    DataFormat picked;
    kbit = choice.kbit;
    if (HasFormat(caps, wanted) && !otherRate) {
        picked = wanted;
        kbit = wantedKbit;
    } else if (std::has_single_bit(caps)) {
        picked = FirstFormatOf(caps);
    } else if ((caps & kLinearFormats) != 0) {
        picked = WidenLinear(wanted, caps);
    } else {
        picked = PickCoded(wanted, caps, kbit);
    }

    if (picked != DataFormat::Compressed) {
        kbit = 0;
    } else if (subFormats) {
        kbit = NearestSetting(kbit > 0 ? kbit : kDefaultKbit, subFormats, variant);
    }
    return picked;
}

DataFormat PickDataFormatForSet(std::span<const Waveform* const> waves, const FormatChoice& choice,
                                float& kbit, SubFormatFn subFormats, std::uint32_t variant)
{
    const std::uint32_t caps = choice.caps & kDataFormatMask;
    kbit = choice.kbit;
    if (waves.empty())
        return FirstFormatOf(caps);
    if (waves.size() > 1 && std::has_single_bit(caps) && FirstFormatOf(caps) != DataFormat::Compressed)
        return FirstFormatOf(caps);
    DataFormat best = PickDataFormat(*waves.front(), choice, kbit, subFormats, variant);
    for (const Waveform* wave : waves.subspan(1)) {
        float candidateKbit = 0;
        const DataFormat candidate = PickDataFormat(*wave, choice, candidateKbit, subFormats, variant);
        if (IsWider(candidate, candidateKbit, best, kbit)) {
            best = candidate;
            kbit = candidateKbit;
        }
    }
    return best;
}

DataFormat DescribeDataFormat(int row, const Item& item, std::u16string& text)
{
    text.clear();
    const FormatRow* entry = FindRow(row);
    if (!entry)
        return DataFormat::None;
    std::uint32_t variant = 0;
    FormatChoice choice;
    choice.caps = GetRowCaps(row, variant);

    DataFormat common = DataFormat::None;
    float commonKbit = 0;
    bool first = true;
    bool mixed = false;
    ForEachWave(item, [&](const Waveform& wave) {
        float kbit = 0;
        const DataFormat format = PickDataFormat(wave, choice, kbit, entry->subFormats, variant);
        mixed = mixed || (!first && format != common);
        commonKbit = first || kbit == commonKbit ? kbit : 0; // several settings of one format
        common = format;
        first = false;
    });
    if (first && std::has_single_bit(choice.caps & kDataFormatMask))
        common = FirstFormatOf(choice.caps);
    if (mixed)
        return DataFormat::None;
    text = common == DataFormat::Compressed ? CompressedName(row, commonKbit)
                                            : std::u16string(DataFormatName(common));
    return common;
}

int DescribeChannelFormat(int row, const Item& item)
{
    std::uint32_t variant = 0;
    const std::uint32_t caps = GetRowCaps(row, variant);
    if (!FindRow(row))
        return 0;
    int common = 0;
    bool first = true;
    ForEachWave(item, [&](const Waveform& wave) {
        const bool stereo =
            wave.channels > 1 ? (caps & (kCapsStereo | kCapsDualMono)) != 0 : (caps & kCapsMono) == 0;
        const int value = stereo ? 2 : 1;
        common = first || common == value ? value : 0;
        first = false;
    });
    return common;
}

std::unique_ptr<FrameSource> OpenFramesForWriter(Waveform& wave, const FormatChoice& choice,
                                                 std::uint32_t rateHz)
{
    if (rateHz != 0 && rateHz != wave.rateHz) {
        Fail(Utf8ToWide(
            fmt::format("The format wants {} Hz, and the waveform has {} Hz. Resampling on saving is "
                        "not possible yet",
                        rateHz, wave.rateHz)));
        return nullptr;
    }
    auto source = wave.OpenFrames();
    if (!source)
        return nullptr;
    const unsigned channels = PickChannels(wave, choice);
    if (source->Channels() != channels)
        source = WithChannels(std::move(source), channels);
    return std::make_unique<ReportingFrames>(std::move(source), wave);
}

std::unique_ptr<FrameSource> OpenFramesOrNone(Waveform& wave, const FormatChoice& choice,
                                              std::uint32_t rateHz)
{
    class NoFrames final : public FrameSource {
    public:
        explicit NoFrames(unsigned channels) noexcept : FrameSource(0, channels) {}
        bool Read(std::uint32_t, std::span<float>) override { return true; }
    };
    if (wave.frames == 0)
        return std::make_unique<NoFrames>(PickChannels(wave, choice));
    return OpenFramesForWriter(wave, choice, rateHz);
}

} // namespace vimbo
