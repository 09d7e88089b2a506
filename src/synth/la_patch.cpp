#include "synth/la_patch.h"

#include "base/byte_reader.h"
#include "synth/patch_fields.h"

#include <cstring>

namespace vimbo::synth {
namespace {

struct LfoRecord {
    std::uint8_t shape, mode, stage;
    std::uint8_t reserved;
    F32le hz, delay, ramp;
};
static_assert(DiskRecord<LfoRecord> && sizeof(LfoRecord) == 16);

struct EqRecord {
    F32le hz, gainDb, q;
};

struct EnvelopeRecord {
    F32le startLevel;
    LevelPointRecord point[kLaPoints];
};
static_assert(DiskRecord<EnvelopeRecord> && sizeof(EnvelopeRecord) == 44);

struct BiasRecord {
    std::uint8_t key;
    std::uint8_t isAbove; ///< 1: above the key, others: below
};

struct PartialRecord {
    std::uint8_t flags;
    std::uint8_t waveform;
    std::uint8_t pitchLfo, pulseLfo, filterLfo, levelLfo;
    std::uint8_t resonanceCurve;
    BiasRecord filterBias, levelBias[2];
    std::uint8_t waveSplit[kWavesPerPartial - 1];
    F32le coarse, fine, keyFollow;
    F32le pitchDepth, velocityPitchDepth;
    F32le lfoPitch, wheelLfoPitch, touchLfoPitch;
    F32le pulseWidth, pulseSensitivity;
    F32le velocityPulse, touchPulse, lfoPulse;
    F32le cutoff, resonance, cutoffKeyFollow, filterBiasPerOctave;
    F32le filterDepth, velocityFilterDepth, filterKeyToTime;
    F32le lfoCutoff, touchCutoff;
    F32le levelDb, velocityDb, levelBiasPerOctave[2];
    F32le keyToTime, velocityToTime;
    F32le lfoLevel, touchLevel;
    EnvelopeRecord filterEnvelope, levelEnvelope;
    std::uint8_t reserved[56];
};
static_assert(DiskRecord<PartialRecord> && sizeof(PartialRecord) == 280);

// Bits of PartialRecord::flags.
constexpr std::uint8_t kEnabled = 1, kPcm = 2, kIgnoresBend = 4, kGentleFilter = 8;

/// All of a block but its wave references.
struct LaRecord {
    std::uint8_t structure;
    std::uint8_t eqMode[kLaEqBands];
    std::uint8_t reserved[5];
    F32le bendRange, balance, pitchKeyToTime;
    EnvelopeRecord pitchEnvelope;
    LfoRecord lfos[kLaLfos];
    EqRecord eq[kLaEqBands];
    PartialRecord partials[kLaPartials];
};
static_assert(DiskRecord<LaRecord> && sizeof(LaRecord) == SynthModel::kWaveReferenceOffset);

/// Between a record and a patch in the direction of `Transfer`.
template <class Transfer>
void TransferEnvelope(Transfer t, typename Transfer::template From<EnvelopeRecord>& r,
                      typename Transfer::template Of<LaEnvelope>& envelope, float lowest) noexcept
{
    t(r.startLevel, envelope.startLevel, lowest, 1);
    for (std::size_t i = 0; i < kLaPoints; ++i)
        TransferPoint(t, r.point[i], envelope.point[i], lowest);
}

template <class Transfer>
void TransferBias(Transfer t, typename Transfer::template From<BiasRecord>& r,
                  typename Transfer::template From<F32le>& perOctave,
                  typename Transfer::template Of<LaBias>& bias) noexcept
{
    t.Byte(r.key, bias.key, std::uint8_t{127});
    t.Bit(r.isAbove, 1, bias.isAbove);
    t(perOctave, bias.perOctave, -48, 48);
}

template <class Transfer>
void TransferPitch(Transfer t, typename Transfer::template From<PartialRecord>& r,
                   typename Transfer::template Of<LaPartial>& p) noexcept
{
    constexpr std::uint8_t kLastLfo = kLaLfos - 1;
    t.Bit(r.flags, kEnabled, p.isEnabled);
    t.Bit(r.flags, kPcm, p.isPcm);
    t.Bit(r.flags, kIgnoresBend, p.ignoresBend);
    t.Byte(r.waveform, p.waveform, LaWaveform::Square);
    t.Byte(r.pitchLfo, p.pitchLfo, kLastLfo);
    t.Byte(r.pulseLfo, p.pulseLfo, kLastLfo);
    for (std::size_t i = 0; i + 1 < kWavesPerPartial; ++i)
        t.Byte(r.waveSplit[i], p.waveSplit[i], std::uint8_t{127});
    t(r.coarse, p.coarse, -60, 60);
    t(r.fine, p.fine, -100, 100);
    t(r.keyFollow, p.keyFollow, -2, 2);
    t(r.pitchDepth, p.pitchDepth, -48, 48);
    t(r.velocityPitchDepth, p.velocityPitchDepth, -48, 48);
    t(r.lfoPitch, p.lfoPitch, -6, 6);
    t(r.wheelLfoPitch, p.wheelLfoPitch, -6, 6);
    t(r.touchLfoPitch, p.touchLfoPitch, -6, 6);
    t(r.pulseWidth, p.pulseWidth, 0, 1);
    t(r.pulseSensitivity, p.pulseSensitivity, -10, 0);
    t(r.velocityPulse, p.velocityPulse, -1, 1);
    t(r.touchPulse, p.touchPulse, -1, 1);
    t(r.lfoPulse, p.lfoPulse, -1, 1);
}

template <class Transfer>
void TransferFilter(Transfer t, typename Transfer::template From<PartialRecord>& r,
                    typename Transfer::template Of<LaPartial>& p) noexcept
{
    t.Bit(r.flags, kGentleFilter, p.filterIsGentle);
    t.Byte(r.filterLfo, p.filterLfo, std::uint8_t{kLaLfos - 1});
    t.Byte(r.resonanceCurve, p.resonanceCurve, std::uint8_t{31});
    TransferBias(t, r.filterBias, r.filterBiasPerOctave, p.filterBias);
    t(r.cutoff, p.cutoff, 0, 136);
    t(r.resonance, p.resonance, 0, 30);
    t(r.cutoffKeyFollow, p.cutoffKeyFollow, -2, 2);
    t(r.filterDepth, p.filterDepth, -48, 48);
    t(r.velocityFilterDepth, p.velocityFilterDepth, -48, 48);
    t.Factor(r.filterKeyToTime, p.filterKeyToTime);
    t(r.lfoCutoff, p.lfoCutoff, -48, 48);
    t(r.touchCutoff, p.touchCutoff, -48, 48);
    TransferEnvelope(t, r.filterEnvelope, p.filterEnvelope, -1);
}

template <class Transfer>
void TransferLevel(Transfer t, typename Transfer::template From<PartialRecord>& r,
                   typename Transfer::template Of<LaPartial>& p) noexcept
{
    t.Byte(r.levelLfo, p.levelLfo, std::uint8_t{kLaLfos - 1});
    t(r.levelDb, p.levelDb, -96, 12);
    t(r.velocityDb, p.velocityDb, -96, 96);
    for (std::size_t i = 0; i < p.levelBias.size(); ++i)
        TransferBias(t, r.levelBias[i], r.levelBiasPerOctave[i], p.levelBias[i]);
    t.Factor(r.keyToTime, p.keyToTime);
    t.Factor(r.velocityToTime, p.velocityToTime);
    t(r.lfoLevel, p.lfoLevel, -48, 48);
    t(r.touchLevel, p.touchLevel, -48, 48);
    TransferEnvelope(t, r.levelEnvelope, p.levelEnvelope, 0);
}

template <class Transfer>
void TransferPatch(Transfer t, typename Transfer::template From<LaRecord>& r,
                   typename Transfer::template Of<LaPatch>& p) noexcept
{
    t.Byte(r.structure, p.structure, LaStructure::Stereo);
    t(r.bendRange, p.bendRange, 0, 48);
    t(r.balance, p.balance, -1, 1);
    t.Factor(r.pitchKeyToTime, p.pitchKeyToTime);
    TransferEnvelope(t, r.pitchEnvelope, p.pitchEnvelope, -1);
    for (std::size_t i = 0; i < kLaLfos; ++i) {
        t.Byte(r.lfos[i].shape, p.lfos[i].shape, LaLfoShape::Random);
        t.Byte(r.lfos[i].mode, p.lfos[i].mode, LaLfoMode::TvaStage);
        t.Byte(r.lfos[i].stage, p.lfos[i].stage, std::uint8_t{kLaPoints});
        t(r.lfos[i].hz, p.lfos[i].hz, 0, 100);
        t(r.lfos[i].delay, p.lfos[i].delay, 0, 60);
        t(r.lfos[i].ramp, p.lfos[i].ramp, 0, 60);
    }
    for (std::size_t i = 0; i < kLaEqBands; ++i) {
        t.Byte(r.eqMode[i], p.eq[i].mode, LaEqMode::HighShelf);
        t(r.eq[i].hz, p.eq[i].hz, 10, 20000);
        t(r.eq[i].gainDb, p.eq[i].gainDb, -24, 24);
        t(r.eq[i].q, p.eq[i].q, 0.1f, 20);
    }
    for (std::size_t i = 0; i < kLaPartials; ++i) {
        TransferPitch(t, r.partials[i], p.partials[i]);
        TransferFilter(t, r.partials[i], p.partials[i]);
        TransferLevel(t, r.partials[i], p.partials[i]);
    }
}

bool HasBlockSize(std::span<const std::byte> block) noexcept
{
    return block.size() == SynthModel::BlockBytes(kLaModel);
}

} // namespace

std::optional<LaPatch> LaPatch::Parse(std::span<const std::byte> block) noexcept
{
    LaRecord record;
    if (!HasBlockSize(block) || !ByteReader(block).Read(record))
        return std::nullopt;
    LaPatch patch;
    TransferPatch(FromRecord{}, record, patch);
    return patch;
}

bool LaPatch::Store(std::span<std::byte> block) const noexcept
{
    if (!HasBlockSize(block))
        return false;
    LaRecord record{};
    TransferPatch(ToRecord{}, record, *this);
    std::memcpy(block.data(), &record, sizeof(record));
    return true;
}

std::optional<LaPatch> LaPatchOf(const SynthModel& model) noexcept
{
    return model.Model() == kLaModel ? LaPatch::Parse(model.Block()) : std::nullopt;
}

void StorePatch(SynthModel& model, const LaPatch& patch)
{
    if (model.Model() == kLaModel || model.SetModel(kLaModel))
        (void)patch.Store(model.Block());
}

std::size_t WaveAtKey(const LaPatch& patch, std::size_t partial, float key) noexcept
{
    std::size_t wave = 0;
    for (std::size_t i = 0; i + 1 < kWavesPerPartial; ++i) {
        const std::uint8_t split = patch.partials[partial].waveSplit[i];
        if (split != 0 && key >= static_cast<float>(split))
            wave = i + 1;
    }
    return partial * kWavesPerPartial + wave;
}

float ResonanceDb(const LaPartial& partial) noexcept
{
    constexpr float kHighest = 30;
    const float share = Limited(partial.resonance / kHighest, 0.0f, 1.0f);
    if (share == 0)
        return 0;
    return kHighest * static_cast<float>(PortablePower(share, 1 + partial.resonanceCurve / 8.0));
}

} // namespace vimbo::synth
