// The software synthesizer: MIDI events in, blocks of stereo frames out.
#pragma once

#include "synth/channel_bus.h"
#include "synth/channel_state.h"
#include "synth/event_ring.h"
#include "synth/instrument_table.h"
#include "synth/worker_crew.h"

#include <atomic>
#include <span>
#include <string>
#include <vector>

namespace vimbo::synth {

/// All voices struck by one note event.
struct NoteGroup {
    bool isInUse = false;
    std::uint16_t firstVoice = kNoIndex;
    std::uint16_t channel = 0;
    std::uint16_t previous = kNoIndex, next = kNoIndex; ///< groups of the channel
    std::uint8_t key = 0;
    std::uint8_t velocity = 0; ///< 1 to 127
    bool isReleaseTrigger = false;
    bool isKeyUp = false;    ///< a note-off has found the group
    bool isReleased = false; ///< its voices know; always with isKeyUp
    bool isSostenutoHeld = false;
    const SynthInstrument* instrument = nullptr;
};

/// Renders blocks of 64 frames. Events are posted with a time and act at the start of their block. Everything
/// is deterministic: the same events give the same bits, whatever the number of threads.
///
/// Threads: one thread renders; PostEvent may be called from any. While `running` is set (somebody else's
/// thread renders), PutInstrument, RemoveInstrument and Seek hand their change to the rendering thread and
/// wait until it has taken it; these three are for one thread. A block allocates nothing, waits for no lock,
/// and makes no system call but to wake its own workers.
class SynthEngine {
public:
    struct Setup {
        unsigned channels = kChannelsPerPort;
        unsigned polyphony = 128;
        float gain = -1; ///< below 0: 1 / sqrt(polyphony)
        unsigned rateHz = 48000;
        unsigned threads = 0; ///< 0: as many as there are cores
        std::size_t voices = kVoices;
    };
    static constexpr std::size_t kVoices = 256; ///< whatever the polyphony
    static constexpr std::size_t kMinGroups = 128;
    using Block = std::span<float, 2 * kBlockFrames>;

    explicit SynthEngine(const Setup& setup);
    ~SynthEngine();
    SynthEngine(const SynthEngine&) = delete;
    SynthEngine& operator=(const SynthEngine&) = delete;

    // Set before blocks run, or by the thread that renders.
    std::atomic<bool> running{false};    ///< a thread renders by itself
    std::atomic<bool> clampOutput{true}; ///< limits frames to -1..1
    std::atomic<bool> effectsOn{true};
    std::atomic<bool> metersOn{false};

    unsigned RateHz() const noexcept { return static_cast<unsigned>(clock_.rateHz); }
    std::size_t Channels() const noexcept { return channels_.size(); }
    /// Another rate kills all notes and sets every effect up again. Not while blocks run.
    void SetSampleRate(unsigned rateHz);

    /// Queues an event for the block of a time. False if the queue is full.
    bool PostEvent(SynthEvent event, double seconds) noexcept;
    /// The same with milliseconds, to the nearest frame.
    bool PostEventMs(SynthEvent event, std::uint64_t milliseconds) noexcept;
    /// Block number of a time.
    std::uint32_t BlockAt(double seconds) const noexcept;
    /// Acts at once; only for the thread that renders, between blocks. Events for channels that the engine
    /// does not have are dropped.
    void Dispatch(SynthEvent event) noexcept;
    /// Drops what is queued and continues the count of time at `seconds`.
    void Seek(double seconds, bool shutVoices);

    /// Renders the next block of interleaved frames, finite and at most 24 dB over full scale.
    /// @return false if it is silence
    bool Render(Block out) noexcept;
    double PositionSeconds() const noexcept;

    /// Adds an instrument or replaces the one of its patch; voices that play go on with their regions.
    void PutInstrument(std::unique_ptr<SynthInstrument> instrument);
    /// Kills the notes of its channels.
    void RemoveInstrument(std::uint32_t patch);
    /// By the rules of a program change: the exact patch, then without bank LSB, then without bank MSB, then
    /// for drums program 0. Null if there is none. For the rendering thread, or while nothing runs.
    const SynthInstrument* FindInstrument(MidiLocation location) const noexcept;
    SampleStore& Samples() noexcept { return samples_; }

    std::size_t VoiceCount() const noexcept { return voiceCount_.load(std::memory_order_relaxed); }
    float LastPeak() const noexcept { return lastPeak_.load(std::memory_order_relaxed); }
    /// True if a sample went beyond full scale since the last call.
    bool TakeClipped() noexcept { return clipped_.exchange(false); }
    /// Peak of the channel's last block (with metersOn).
    float Meter(std::size_t channel) const noexcept;
    /// "12 regions -CLIPPING-"; empty while nothing sounds. Clears the clipped flag.
    std::u16string StatusText();

private:
    // Notes (engine_notes.cpp).
    struct Matches;
    void NoteOn(unsigned channel, bool isReleaseTrigger, unsigned key, unsigned velocity) noexcept;
    void BindFirst(ChannelState& state, unsigned channel) noexcept;
    bool GlideInstead(ChannelState& state, unsigned key) noexcept;
    void SelectRegions(ChannelState& state, bool isReleaseTrigger, unsigned key, unsigned velocity,
                       Matches& matches) noexcept;
    void ShutOlder(const ChannelState& state, bool isReleaseTrigger, unsigned key,
                   const Matches& matches) noexcept;
    void StartVoice(const ChannelState& state, std::uint16_t group, const SynthRegion& region,
                    unsigned struckKey, std::uint32_t seed) noexcept;
    void NoteOff(unsigned channel, unsigned key) noexcept;
    void KeyUp(std::uint16_t group) noexcept;
    void ReleaseGroup(std::uint16_t group, bool spawnReleaseRegions) noexcept;
    void ReleaseHeld(ChannelState& state) noexcept;
    std::uint16_t TakeGroup(unsigned channel) noexcept;
    bool StealGroup() noexcept;
    void KillGroup(std::uint16_t group) noexcept;
    void KillChannel(ChannelState& state) noexcept;
    void DropVoice(std::uint16_t voice) noexcept;
    template <class F>
    void ForEachVoice(const ChannelState& state, F f) noexcept;

    // Channel messages (engine_messages.cpp).
    void Control(ChannelState& state, unsigned channel, unsigned controller, unsigned value) noexcept;
    void ChangeProgram(ChannelState& state, unsigned channel, unsigned program) noexcept;
    void ResetControllers(ChannelState& state, unsigned channel) noexcept;
    void SetVolume(ChannelState& state) noexcept;
    void SetPan(ChannelState& state) noexcept;
    void SetModWheel(ChannelState& state) noexcept;
    void SetPitchBend(ChannelState& state, unsigned lsb, unsigned msb) noexcept;
    void EnterData(ChannelState& state) noexcept;
    void StepData(ChannelState& state, bool isUp) noexcept;
    void SetSustain(ChannelState& state, bool isDown) noexcept;
    void SetSostenuto(ChannelState& state, bool isDown) noexcept;
    void SetSoft(ChannelState& state, bool isDown) noexcept;
    void KeepFirstGroup(ChannelState& state) noexcept;
    void GlideTo(ChannelState& state, Ramp& ramp, float target, double factor) noexcept;

    // Blocks (engine_block.cpp).
    void StepRamps() noexcept;
    void PrepareBuses() noexcept;
    void PlanVoices() noexcept;
    void PlanParts() noexcept;
    void RunItem(std::size_t item) noexcept;
    void RunBatch(std::size_t batch) noexcept;
    void MixVoice(Voice& voice, const StereoBlock& raw, Subtotal& total, BusSum& part) noexcept;
    void RunBus(std::size_t channel) noexcept;
    void AddUp(std::size_t subtotal) noexcept;
    bool WriteTotal(Block out) noexcept;
    void MeasurePeak(Block out, bool sounds) noexcept;
    void DropDeadVoices() noexcept;

    // Changes from other threads (engine_instruments.cpp).
    struct Change;
    void HandOver(Change& change);
    void TakeChange() noexcept;
    void Apply(Change& change) noexcept;
    void Rebind(const SynthInstrument* from, const SynthInstrument* to) noexcept;
    void RebindVoice(Voice& voice, const SynthInstrument& to) noexcept;
    void Retire(InstrumentTable old, const SynthInstrument* instrument);
    void ReserveEffects(Change& change) const;
    void SetEffects(std::size_t channel, const SynthInstrument& instrument) noexcept;

    VoiceClock clock_;
    unsigned rampUnit_ = 18; ///< ticks in 1/40 second
    float masterGain_ = 1;
    SynthRandom random_;

    std::vector<ChannelState> channels_;
    std::vector<ChannelBus> buses_;
    std::vector<NoteGroup> groups_;
    std::size_t groupCount_ = 0;
    std::vector<Voice> voices_; ///< the first voiceCount_ sound; gaps are closed from the end
    std::atomic<std::size_t> voiceCount_{0};
    std::atomic<bool> hasDeadVoices_{false}; ///< a voice ended in this block

    // The order of work, made anew when voices come and go: voices of one filter kind stand side by side,
    // among them those of one channel.
    static constexpr std::size_t kBatchLanes = 16; ///< channels of voices; what fills the vector units
    /// What one thread does at a time.
    struct Batch {
        std::uint16_t first, count;         ///< in order_
        std::uint16_t firstPart, partCount; ///< in parts_
    };
    /// The voices of one channel in a batch: they are added up where they are rendered.
    struct Part {
        std::uint16_t channel, count;
    };
    bool planIsOld_ = true;
    std::vector<std::uint16_t> order_; ///< by filter, EQ and channel count, then by channel
    std::vector<Batch> batches_;
    std::size_t batchCount_ = 0;
    std::vector<Part> parts_; ///< in the order of the batches
    std::size_t partCount_ = 0;
    std::vector<BusSum> partSums_;
    std::vector<std::uint16_t> byChannel_; ///< voices, by channel, then by place in the pool
    std::vector<std::uint16_t> busParts_;  ///< parts, by channel, then in their order
    std::vector<std::uint16_t> busFirst_;  ///< where a channel's parts begin in busParts_
    std::vector<std::uint16_t> tailBuses_; ///< channels without voices whose effects ring
    std::size_t tailCount_ = 0;
    std::vector<Subtotal> subtotals_; ///< of the batches, then of the channels with effects
    std::size_t subtotalCount_ = 0;

    // What changes in every block: not on a line with what all threads read.
    alignas(kCacheLine) std::atomic<std::uint32_t> block_{0};
    std::atomic<float> lastPeak_{0};
    std::atomic<bool> clipped_{false};
    std::atomic<Change*> change_{nullptr};
    EventRing ring_;

    InstrumentTable instruments_;
    std::vector<InstrumentTable::Ref> retired_; ///< replaced, but orphans play them
    std::atomic<std::size_t> orphans_{0};       ///< voices whose region is gone
    SampleStore samples_;
    WorkerCrew crew_;
};

template <class F>
void SynthEngine::ForEachVoice(const ChannelState& state, F f) noexcept
{
    for (std::uint16_t g = state.firstGroup; g != kNoIndex; g = groups_[g].next)
        for (std::uint16_t v = groups_[g].firstVoice; v != kNoIndex; v = voices_[v].nextInGroup)
            f(voices_[v]);
}

} // namespace vimbo::synth
