#include "synth/song_renderer.h"

#include "base/host.h"
#include "base/last_error.h"
#include "base/text.h"
#include "model/collection.h"
#include "model/song_merge.h"
#include "model/waveform.h"

#include <algorithm>
#include <array>
#include <set>

namespace vimbo::synth {
namespace {

constexpr double kSecondsBehind = 0.5; // of silence, where no tail is wanted
constexpr std::uint64_t kFramesPerProgress = 32768;
constexpr std::uint16_t kPatterns = 2;
constexpr std::uint32_t kQuietTail = 100; // blocks of silence that end a tail

/// A song of patterns is played one after another; the copy goes with its holder.
class PlayableSong {
public:
    explicit PlayableSong(Item& item)
        : track_(item.Kind() == ItemKind::Track ? &static_cast<Track&>(item) : nullptr)
    {
        song_ = track_ ? track_->Owner().Find<Song>(track_->Parent()) : static_cast<Song*>(&item);
        if (!track_ && song_->format == kPatterns) {
            copy_ = static_cast<Song*>(song_->Owner().CloneItem(*song_));
            ConvertToFormat0(*copy_);
        }
    }
    ~PlayableSong()
    {
        if (copy_)
            copy_->Owner().Destroy(copy_->Handle());
    }
    PlayableSong(const PlayableSong&) = delete;
    PlayableSong& operator=(const PlayableSong&) = delete;

    PreparedSong Prepare() const
    {
        return track_ ? PrepareTrack(*song_, *track_) : PrepareSong(copy_ ? *copy_ : *song_);
    }
    bool IsThere() const noexcept { return song_ != nullptr; }

private:
    Song* song_ = nullptr;
    Track* track_ = nullptr;
    Song* copy_ = nullptr;
};

/// Plays a prepared song into a sink.
class Player {
public:
    Player(SynthEngine& engine, WaveSink& sink, Host& host) : engine_(engine), sink_(sink), host_(host) {}

    RenderEnd Play(const PreparedSong& song, double tailSeconds, int onlyChannel)
    {
        const double total = song.Seconds() + kSecondsBehind;
        const auto blocks = static_cast<std::uint64_t>(engine_.BlockAt(total)) + 1;
        std::size_t next = 0;
        while (next < song.events.size()) {
            // Events of the coming block act at its start.
            const std::uint64_t block = sink_.Frames() / kBlockFrames;
            for (; next < song.events.size() && engine_.BlockAt(song.events[next].seconds) <= block; ++next)
                if (onlyChannel == kAllChannels || !IsNote(song.events[next].event) ||
                    static_cast<int>(song.events[next].event.Channel()) == onlyChannel)
                    engine_.Dispatch(song.events[next].event);
            if (next == song.events.size())
                break;
            if (const RenderEnd end = Step(static_cast<double>(block) / static_cast<double>(blocks));
                end != RenderEnd::Done)
                return end;
        }
        return tailSeconds > 0 ? PlayTail(tailSeconds) : FillTo(blocks);
    }

    /// Until all is quiet: what is held is let go first.
    RenderEnd PlayTail(double seconds)
    {
        for (std::size_t channel = 0; channel < engine_.Channels(); ++channel)
            for (const unsigned controller : {64u, 66u, 123u})
                engine_.Dispatch(SynthEvent::Make(0xB0 | (channel & 15), controller, 0,
                                                  static_cast<unsigned>(channel / kChannelsPerPort)));
        const std::uint64_t most = sink_.Frames() / kBlockFrames + engine_.BlockAt(seconds);
        std::uint32_t quiet = 0;
        while (quiet < kQuietTail && sink_.Frames() / kBlockFrames < most) {
            if (const RenderEnd end = Step(1); end != RenderEnd::Done)
                return end;
            quiet = engine_.VoiceCount() == 0 && engine_.LastPeak() < kInaudiblePeak ? quiet + 1 : 0;
        }
        return RenderEnd::Done;
    }

    std::size_t MostVoices() const noexcept { return mostVoices_; }

private:
    static constexpr float kInaudiblePeak = 1e-5f; // -100 dB

    static bool IsNote(SynthEvent event) noexcept { return event.Status() == 0x90 || event.Status() == 0x80; }

    RenderEnd FillTo(std::uint64_t blocks)
    {
        std::ranges::fill(block_, 0.0f);
        while (sink_.Frames() / kBlockFrames < blocks)
            if (!sink_.Put(block_))
                return RenderEnd::Failed;
        return RenderEnd::Done;
    }

    RenderEnd Step(double fraction)
    {
        if (sink_.Frames() >= nextLook_) {
            nextLook_ = sink_.Frames() + kFramesPerProgress;
            if (host_.IsCancelled())
                return RenderEnd::Aborted;
            host_.SetProgress(u"Rendering song to waveform...", fraction);
        }
        engine_.Render(block_);
        mostVoices_ = std::max(mostVoices_, engine_.VoiceCount());
        return sink_.Put(block_) ? RenderEnd::Done : RenderEnd::Failed;
    }

    SynthEngine& engine_;
    WaveSink& sink_;
    Host& host_;
    alignas(32) std::array<float, 2 * kBlockFrames> block_{};
    std::uint64_t nextLook_ = 0;
    std::size_t mostVoices_ = 0;
};

/// The result as a waveform; null with the Last error text.
Waveform* TakeWave(Item& item, WaveSink& sink, unsigned rateHz, const WaveSink::Finish& finish)
{
    Waveform& wave = item.Owner().Create<Waveform>(item.GetName());
    if (sink.Describe(wave, rateHz, finish)) {
        wave.Validate();
        return &wave;
    }
    item.Owner().Destroy(wave.Handle());
    return nullptr;
}

std::u16string DoneText(const Item& item, const Waveform& wave)
{
    return std::u16string(u"Done: Rendered ") +
           std::u16string(KindWord(static_cast<std::size_t>(item.Kind()))) + u" to waveform \"" +
           std::u16string(wave.GetName()) + u"\".";
}

} // namespace

RenderResult RenderSong(Item& item, const RenderSettings& settings, InstrumentSources sources,
                        ScratchFile& scratch, int onlyChannel)
{
    RenderResult result;
    Host& host = item.Owner().GetHost();
    const PlayableSong playable(item);
    if (!playable.IsThere()) {
        (void)Fail(u"Failed processing MIDI");
        host.SetStatus(u"Failed processing MIDI");
        return result;
    }
    const PreparedSong song = playable.Prepare();
    result.seconds = song.Seconds();
    if (song.events.empty() || result.seconds == 0) {
        host.SetStatus(u"Done: No notes to render!");
        result.end = RenderEnd::NoNotes;
        return result;
    }
    SynthEngine engine({.channels = song.ports * kChannelsPerPort,
                        .polyphony = settings.polyphony,
                        .rateHz = settings.rateHz,
                        .threads = settings.threads});
    engine.clampOutput = !settings.normalizePeak;
    engine.effectsOn = settings.effects;
    sources.own = &item.Owner();
    sources.host = &host;
    if (sources.gmBank.empty())
        sources.gmBank = settings.gmBank;
    result.instruments = PutSongInstruments(engine, song, sources);
    WaveSink sink;
    if (!scratch.Make() || !sink.Open(scratch.Path()))
        return result;
    host.SetStatus(u"Rendering song to waveform...");
    Player player(engine, sink, host);
    result.end = player.Play(song, settings.tailSeconds, onlyChannel);
    result.mostVoices = player.MostVoices();
    result.clipped = !settings.normalizePeak && engine.TakeClipped();
    if (result.end == RenderEnd::Aborted)
        host.SetStatus(u"Done: Rendered aborted!");
    if (result.end != RenderEnd::Done)
        return result;
    if (settings.normalizePeak)
        host.SetStatus(u"Normalizing Peak-value...");
    result.peak = sink.Peak();
    result.wave =
        TakeWave(item, sink, engine.RateHz(), {settings.normalizePeak, settings.gain, settings.trimSilence});
    if (result.wave)
        host.SetStatus(DoneText(item, *result.wave));
    else
        result.end = RenderEnd::Failed;
    return result;
}

std::vector<int> ChannelsWithNotes(Item& item)
{
    const PlayableSong playable(item);
    std::set<int> channels;
    if (playable.IsThere())
        for (const TimedEvent& timed : playable.Prepare().events)
            if (timed.event.Status() == 0x90 && timed.event.Data2() != 0)
                channels.insert(static_cast<int>(timed.event.Channel()));
    return {channels.begin(), channels.end()};
}

Waveform* RenderNote(Instrument& instrument, const Audition& note, const RenderSettings& settings,
                     ScratchFile& scratch)
{
    SynthEngine engine({.channels = 1, .polyphony = 1, .gain = 1, .rateHz = settings.rateHz, .threads = 1});
    engine.clampOutput = !settings.normalizePeak;
    engine.effectsOn = settings.effects;
    auto compiled = CompileInstrument(instrument, engine.Samples());
    compiled->patch = 0;
    engine.PutInstrument(std::move(compiled));
    engine.Dispatch(SynthEvent::Make(0xC0, 0));
    engine.Dispatch(SynthEvent::Make(0x90, note.key, note.velocity));
    WaveSink sink;
    if (!scratch.Make() || !sink.Open(scratch.Path()))
        return nullptr;
    alignas(32) std::array<float, 2 * kBlockFrames> block{};
    const std::uint32_t hold = engine.BlockAt(note.holdSeconds), all = engine.BlockAt(note.totalSeconds);
    for (std::uint32_t i = 0; i < all; ++i) {
        if (i == hold)
            engine.Dispatch(SynthEvent::Make(0x80, note.key));
        engine.Render(block);
        if (!sink.Put(block))
            return nullptr;
    }
    return TakeWave(instrument, sink, engine.RateHz(), {settings.normalizePeak, settings.gain, false});
}

} // namespace vimbo::synth
