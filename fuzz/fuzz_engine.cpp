// The synthesizer under any events and any values: no NaN, no Inf, no sample beyond +24 dB before the
// channel's own gain, and every block ends. Five bytes at a time: what to do, and four bytes of data.
#include "model/param.h"
#include "synth/engine.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

namespace {

using namespace vimbo;
using namespace vimbo::synth;

constexpr std::size_t kCommandBytes = 5;
constexpr std::size_t kMostBlocks = 1500;
constexpr float kLoudest = 15.85f;

std::shared_ptr<const SynthSample> Noise(unsigned channels)
{
    auto sample = SynthSample::Create(500, channels, 44100);
    SynthRandom random;
    for (float& frame : sample->Fill())
        frame = random.NextBipolar();
    sample->WrapLoop(3, LoopType::Forward);
    return sample;
}

SynthRegion Region(std::uint32_t id)
{
    static const std::shared_ptr<const SynthSample> kSamples[] = {Noise(1), Noise(2)};
    SynthRegion region;
    region.regionId = id;
    region.keys = region.velocities = {0, 127};
    region.fades = CrossFadeRanges(TriggerParams{});
    const auto values = DefaultArticulation().Values();
    std::copy(values.begin(), values.end(), region.params.begin());
    region.wave.sample = kSamples[id % 2];
    region.wave.end = region.wave.sample->Frames();
    region.wave.loopType = LoopType::Forward;
    region.wave.loopStart = 3;
    region.wave.loopEnd = 480;
    return region;
}

/// Values as they reach the engine: limited by the parameter table, or any bits at all.
void SetValue(SynthRegion& region, std::uint8_t id, std::uint32_t bits, bool isRaw)
{
    const ParamId param = id % kArticulationParams;
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    if (!isRaw) {
        ArticulationBlock block;
        block.Set(param, value);
        value = block[param];
    }
    region.params[param] = value;
}

class Session {
public:
    Session() : engine_({.channels = 2, .polyphony = 16, .gain = 1, .threads = 1})
    {
        engine_.clampOutput = false;
        for (std::uint32_t i = 0; i < 3; ++i)
            regions_.push_back(Region(i));
        Publish();
    }

    void Do(std::span<const std::uint8_t> command)
    {
        std::uint32_t bits = 0;
        std::memcpy(&bits, command.data() + 1, sizeof bits);
        switch (command[0] % 8) {
        case 0:
        case 1:
            SetValue(regions_[command[0] / 8 % regions_.size()], command[1], bits, command[0] % 8 == 1);
            isOld_ = true;
            break;
        case 2:
            SetEffect(command);
            break;
        case 3:
            SetLoop(command);
            break;
        case 4:
            Publish();
            Render(1 + command[1] % 40u);
            break;
        default:
            if (isOld_)
                Publish();
            engine_.Dispatch(SynthEvent::Make((command[1] & 0x7F) | 0x80u, command[2], command[3]));
            Render(command[4] % 4u);
        }
    }

    void Render(std::size_t blocks)
    {
        alignas(32) std::array<float, 2 * kBlockFrames> out{};
        for (; blocks > 0 && blocks_ < kMostBlocks; --blocks, ++blocks_) {
            engine_.Render(out);
            for (const float sample : out)
                if (!(std::abs(sample) <= kLoudest))
                    std::abort();
        }
    }

private:
    void SetEffect(std::span<const std::uint8_t> command)
    {
        ChannelFx& effect = effects_[command[0] / 8 % effects_.size()];
        effect.type = static_cast<ChannelFxType>(command[1] % 10);
        effect.bytes[command[2] % 3] = command[3];
        const float kValues[] = {0, 1, -1, 0.5f, 1e9f, 1e-30f, NAN, INFINITY, 440, 0.01f};
        effect.values[command[2] % 5] = kValues[command[4] % std::size(kValues)];
        isOld_ = true;
    }

    void SetLoop(std::span<const std::uint8_t> command)
    {
        WaveSound& wave = regions_[command[0] / 8 % regions_.size()].wave;
        wave.loopType = static_cast<LoopType>(command[1] % 4);
        wave.breakOnRelease = (command[1] & 4) != 0;
        wave.loopStart = command[2] * 2.5 - 20;
        wave.loopEnd = command[3] * 2.5 - 20;
        wave.loopTuning = static_cast<float>(command[4]) / 8 - 16;
        isOld_ = true;
    }

    void Publish()
    {
        auto instrument = std::make_unique<SynthInstrument>();
        instrument->regions = regions_;
        instrument->effects = effects_;
        engine_.PutInstrument(std::move(instrument));
        isOld_ = false;
    }

    SynthEngine engine_;
    std::vector<SynthRegion> regions_;
    std::array<ChannelFx, kChannelFxSlots> effects_;
    bool isOld_ = false;
    std::size_t blocks_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Session session;
    std::span<const std::uint8_t> rest(data, size);
    for (; rest.size() >= kCommandBytes; rest = rest.subspan(kCommandBytes))
        session.Do(rest.first(kCommandBytes));
    session.Render(20);
    return 0;
}
