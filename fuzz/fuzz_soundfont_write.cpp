// Collections made from any bytes as SoundFont banks: what is written reads back, and writes the same again.
#include "base/text.h"
#include "formats/soundfont/soundfont.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/instrument.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace vimbo {
namespace {

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Numbers off the input; 0 when it has ended.
class Source {
public:
    explicit Source(std::span<const std::byte> bytes) noexcept : in_(bytes) {}
    bool IsEmpty() const noexcept { return in_.Left() == 0; }
    unsigned Byte() noexcept
    {
        std::uint8_t value = 0;
        static_cast<void>(in_.Read(value));
        return value;
    }
    std::uint8_t Midi() noexcept { return static_cast<std::uint8_t>(Byte() & 127); }
    float Float() noexcept
    {
        F32le value;
        static_cast<void>(in_.Read(value));
        return value.Get();
    }
    std::u16string Name()
    {
        std::u16string name;
        for (unsigned left = Byte() % 26; left > 0; --left)
            name.push_back(static_cast<char16_t>(Byte() + (Byte() % 16 == 0 ? 256 : 0)));
        return name;
    }

private:
    ByteReader in_;
};

void AddWave(Collection& items, Source& in)
{
    auto& wave = items.Create<Waveform>(in.Name());
    wave.channels = static_cast<std::uint8_t>(1 + in.Byte() % 2);
    wave.frames = in.Byte();
    wave.rateHz = 1 + in.Byte() * 200;
    wave.rootKey = in.Midi();
    wave.loop.type = static_cast<LoopType>(in.Byte() % 4);
    wave.loop.start = in.Byte();
    wave.loop.end = in.Byte();
    wave.volume = static_cast<float>(in.Byte() % 20);
    wave.saveFormat = in.Byte() % 4 == 0 ? SaveFormat::Pcm24 : SaveFormat::Pcm16;
    for (float& sample : wave.LockSamplesForWrite())
        sample = static_cast<float>(static_cast<int>(in.Byte()) - 128) / 128;
}

void AddRegion(Layer& layer, const std::vector<Waveform*>& waves, Source& in)
{
    const Waveform* wave = waves.empty() ? nullptr : waves[in.Byte() % waves.size()];
    Region& region = layer.AddRegion(wave != nullptr ? wave->Handle() : NO_ITEM, {in.Midi(), in.Midi()},
                                     {in.Midi(), in.Midi()});
    for (unsigned left = in.Byte() % 12; left > 0; --left) {
        const auto id = static_cast<ParamId>(in.Byte());
        region.SetParam(id, in.Float());
    }
    region.startOffset = static_cast<std::int32_t>(in.Byte() % 8);
    region.endOffset = -static_cast<std::int32_t>(in.Byte() % 8);
}

void Build(Collection& items, Source& in)
{
    for (unsigned left = in.Byte() % 6; left > 0; --left)
        AddWave(items, in);
    const std::vector<Waveform*> waves = items.List<Waveform>();
    while (!in.IsEmpty()) {
        auto& instrument = items.Create<Instrument>(in.Name());
        instrument.location.word = in.Byte() << 14 | in.Byte() % 2 << 21 | in.Midi();
        instrument.channelFx[0].type = static_cast<ChannelFxType>(in.Byte() % 9);
        for (unsigned layers = in.Byte() % 4; layers > 0; --layers) {
            Layer& layer = instrument.AddLayer(in.Name());
            for (unsigned regions = in.Byte() % 5; regions > 0; --regions)
                AddRegion(layer, waves, in);
        }
    }
}

std::vector<std::byte> Write(Collection& items, const FormatChoice& choice)
{
    MemoryFile file;
    FormatChoice own = choice;
    Require(WriteSoundFont(items, file, own));
    return file.Release();
}

void Load(Collection& items, std::span<const std::byte> bytes, std::uint32_t variant)
{
    MemoryFile file(bytes);
    items.SetName(u"bank");
    items.loading = true;
    Require(ReadSoundFont(items, file, variant));
    items.loading = false;
    for (Waveform& wave : items.All<Waveform>()) {
        Require(file.Seek(wave.sourceOffset) && wave.importProc->load(wave, file));
        static_cast<void>(wave.LockSamplesForWrite());
    }
    FixUpItems(items, kPruneAll, AfterLoad::Yes, SourceHoldsStereo::No);
    Require(IsConsistent(items));
}

void Check(std::span<const std::byte> bytes)
{
    Source in(bytes);
    const unsigned kind = in.Byte() % 16;
    const bool isCompressed = kind == 0, isVersion1 = kind >= 9;
    constexpr std::uint32_t kPlain = FormatBit(DataFormat::Pcm16) | FormatBit(DataFormat::Pcm24) | kCapsMono;
    const FormatChoice choice{isCompressed ? kPlain | FormatBit(DataFormat::Compressed) : kPlain,
                              isCompressed ? kSoundFont3
                              : isVersion1 ? kSoundFont1
                                           : kSoundFont2,
                              0};
    const std::uint32_t readAs = isVersion1 ? kSoundFont1 : kSoundFont2;
    Collection items;
    Build(items, in);
    FixUpItems(items, kPruneAll, AfterLoad::No);
    if (isVersion1 &&
        std::ranges::none_of(items.List<Waveform>(), [](const Waveform* wave) { return wave->frames != 0; }))
        return; // refused
    // The first reading joins layers and names things anew; from then on nothing changes.
    Collection first, second;
    Load(first, Write(items, choice), readAs);
    const std::vector<std::byte> written = Write(first, choice);
    Load(second, written, readAs);
    Require(Write(second, choice) == written);
    Require(first.CountOf(ItemKind::Region) == second.CountOf(ItemKind::Region));
}

} // namespace
} // namespace vimbo

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4096)
        vimbo::Check(std::as_bytes(std::span(data, size)));
    return 0;
}
