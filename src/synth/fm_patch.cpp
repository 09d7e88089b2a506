#include "synth/fm_patch.h"

#include "base/byte_reader.h"
#include "synth/patch_fields.h"

#include <cstring>

namespace vimbo::synth {
namespace {

struct OperatorRecord {
    std::uint8_t flags;
    std::uint8_t oscillator;
    std::uint8_t shape;
    std::uint8_t sources;
    std::uint8_t points, holdPoint;
    std::uint8_t breakKey, leftKeys, rightKeys;
    std::uint8_t reserved[3];
    F32le ratio, detuneHz, fixedHz;
    F32le levelDb, velocityDb;
    F32le modulation, feedback;
    F32le leftDb, rightDb;
    F32le lfoDb;
    F32le keyToTime;
    F32le startPhase;
    F32le startLevel;
    LevelPointRecord point[kFmPoints];
};
static_assert(DiskRecord<OperatorRecord> && sizeof(OperatorRecord) == 96);

// Bits of OperatorRecord::flags.
constexpr std::uint8_t kEnabled = 1, kCarrier = 2, kKeepsPitch = 4, kLeftCurved = 8, kRightCurved = 16;
// Bit of FmRecord::flags.
constexpr std::uint8_t kVelocityToPitch = 1;

struct FmRecord {
    std::uint8_t flags;
    std::uint8_t lfoShape;
    std::uint8_t pitchPoints, pitchHoldPoint;
    std::int8_t transpose;
    std::uint8_t reserved[3];
    F32le bendRange;
    F32le pitchDepth, pitchKeyToTime, pitchStartLevel;
    LevelPointRecord pitchPoint[kFmPoints];
    F32le lfoHz, lfoDelay, lfoRamp;
    F32le lfoPitch, wheelLfoPitch, touchLfoPitch;
    std::uint8_t reserved2[40];
    OperatorRecord operators[kFmOperators];
    I16le table[kWaveTableSize];
};
static_assert(DiskRecord<FmRecord> && sizeof(FmRecord) == 824);

/// Between a record and a patch in the direction of `Transfer`.
template <class Transfer>
void TransferEnvelope(Transfer t, auto& startLevel, auto& points, auto& holdPoint, auto& point,
                      typename Transfer::template Of<FmEnvelope>& envelope, float lowest) noexcept
{
    t(startLevel, envelope.startLevel, lowest, 1.0f);
    t.Byte(points, envelope.points, std::uint8_t{kFmPoints});
    t.Byte(holdPoint, envelope.holdPoint, kNoHold);
    for (std::size_t i = 0; i < kFmPoints; ++i)
        TransferPoint(t, point[i], envelope.point[i], lowest);
}

template <class Transfer>
void TransferOperator(Transfer t, typename Transfer::template From<OperatorRecord>& r,
                      typename Transfer::template Of<FmOperator>& o) noexcept
{
    t.Bit(r.flags, kEnabled, o.isEnabled);
    t.Bit(r.flags, kCarrier, o.isCarrier);
    t.Bit(r.flags, kKeepsPitch, o.keepsPitch);
    t.Bit(r.flags, kLeftCurved, o.leftIsCurved);
    t.Bit(r.flags, kRightCurved, o.rightIsCurved);
    t.Byte(r.oscillator, o.oscillator, FmOscillator::Opl);
    t.Byte(r.shape, o.shape, std::uint8_t{kTableShapes - 1});
    t.Byte(r.sources, o.sources, std::uint8_t{(1u << kFmOperators) - 1});
    t.Byte(r.breakKey, o.breakKey, std::uint8_t{127});
    t.Byte(r.leftKeys, o.leftKeys, std::uint8_t{127});
    t.Byte(r.rightKeys, o.rightKeys, std::uint8_t{127});
    t(r.ratio, o.ratio, 0, 64);
    t(r.detuneHz, o.detuneHz, -1000, 1000);
    t(r.fixedHz, o.fixedHz, 0, 96000);
    t(r.levelDb, o.levelDb, -96, 12);
    t(r.velocityDb, o.velocityDb, -96, 96);
    t(r.modulation, o.modulation, 0, 4);
    t(r.feedback, o.feedback, 0, 4);
    t(r.leftDb, o.leftDb, -96, 96);
    t(r.rightDb, o.rightDb, -96, 96);
    t(r.lfoDb, o.lfoDb, -96, 96);
    t.Factor(r.keyToTime, o.keyToTime);
    t(r.startPhase, o.startPhase, 0, 1);
    TransferEnvelope(t, r.startLevel, r.points, r.holdPoint, r.point, o.envelope, 0);
}

template <class Transfer>
void TransferPatch(Transfer t, typename Transfer::template From<FmRecord>& r,
                   typename Transfer::template Of<FmPatch>& p) noexcept
{
    t.Bit(r.flags, kVelocityToPitch, p.velocityToPitchEnvelope);
    t.Byte(r.lfoShape, p.lfoShape, std::uint8_t{255});
    t.Byte(r.transpose, p.transpose, std::int8_t{60}, std::int8_t{-60});
    t(r.bendRange, p.bendRange, 0, 48);
    t(r.pitchDepth, p.pitchDepth, -48, 48);
    t.Factor(r.pitchKeyToTime, p.pitchKeyToTime);
    TransferEnvelope(t, r.pitchStartLevel, r.pitchPoints, r.pitchHoldPoint, r.pitchPoint, p.pitchEnvelope,
                     -1);
    t(r.lfoHz, p.lfoHz, 0, 100);
    t(r.lfoDelay, p.lfoDelay, 0, 60);
    t(r.lfoRamp, p.lfoRamp, 0, 60);
    t(r.lfoPitch, p.lfoPitch, -48, 48);
    t(r.wheelLfoPitch, p.wheelLfoPitch, -48, 48);
    t(r.touchLfoPitch, p.touchLfoPitch, -48, 48);
    for (std::size_t i = 0; i < kFmOperators; ++i)
        TransferOperator(t, r.operators[i], p.operators[i]);
    for (std::size_t i = 0; i < kWaveTableSize; ++i)
        t.Raw(r.table[i], p.table[i]);
}

} // namespace

std::optional<FmPatch> FmPatch::Parse(std::span<const std::byte> block) noexcept
{
    FmRecord record;
    if (block.size() != sizeof(record) || !ByteReader(block).Read(record))
        return std::nullopt;
    FmPatch patch;
    TransferPatch(FromRecord{}, record, patch);
    return patch;
}

bool FmPatch::Store(std::span<std::byte> block) const noexcept
{
    FmRecord record{};
    if (block.size() != sizeof(record))
        return false;
    TransferPatch(ToRecord{}, record, *this);
    std::memcpy(block.data(), &record, sizeof(record));
    return true;
}

std::optional<FmPatch> FmPatchOf(const SynthModel& model) noexcept
{
    return model.Model() == kFmModel ? FmPatch::Parse(model.Block()) : std::nullopt;
}

void StorePatch(SynthModel& model, const FmPatch& patch)
{
    if (model.Model() == kFmModel || model.SetModel(kFmModel))
        (void)patch.Store(model.Block());
}

FmSources SourcesOf(const FmPatch& patch, std::size_t operatorIndex) noexcept
{
    FmSources sources;
    const unsigned mask = patch.operators[operatorIndex].sources;
    for (std::size_t i = 0; i <= operatorIndex; ++i) {
        if ((mask >> i & 1) == 0 || !patch.operators[i].isEnabled)
            continue;
        if (sources.count == kFmMaxSources)
            break;
        if (i == operatorIndex)
            sources.isSelf = true;
        else
            sources.index[sources.count++] = static_cast<std::uint8_t>(i);
    }
    return sources;
}

} // namespace vimbo::synth
