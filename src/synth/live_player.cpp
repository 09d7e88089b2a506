#include "synth/live_player.h"

#include <algorithm>
#include <array>
#include <optional>

namespace vimbo::synth {
namespace {

constexpr unsigned kAllSoundOff = 120, kAllNotesOff = 123, kResetControllers = 121, kDrumFlag = 128;
constexpr unsigned kControllers = 129;
constexpr unsigned kPan = 10, kReverbSend = 91, kChorusSend = 93;
constexpr unsigned kDataMsb = 6, kDataLsb = 38, kRpnLsb = 100, kRpnMsb = 101;

SynthEvent ControlEvent(std::size_t channel, unsigned controller, unsigned value) noexcept
{
    return SynthEvent::Make(0xB0 | (channel % kChannelsPerPort), controller, value,
                            static_cast<unsigned>(channel / kChannelsPerPort));
}

bool IsNoteMessage(SynthEvent event) noexcept
{
    const unsigned status = event.Status();
    return status == 0x80 || status == 0x90 ||
           (status == 0xB0 && (event.Data1() == kAllSoundOff || event.Data1() == kAllNotesOff));
}

/// What a channel's messages up to some time have set, in the order in which it must be sent again.
class ChannelHistory {
public:
    void Take(SynthEvent event)
    {
        switch (event.Status()) {
        case 0xB0:
            TakeController(event);
            break;
        case 0xC0: // banks count only with a program
            program_ = event;
            programBanks_ = {controllers_[0], controllers_[32]};
            break;
        case 0xD0:
            touch_ = event;
            break;
        case 0xE0:
            bend_ = event;
            break;
        default:
            break;
        }
    }

    void Append(std::vector<SynthEvent>& out, std::size_t channel) const
    {
        const auto put = [&out](const std::optional<SynthEvent>& event) {
            if (event)
                out.push_back(*event);
        };
        if (program_) {
            put(programBanks_[0]);
            put(programBanks_[1]);
            put(controllers_[kDrumFlag]);
            put(program_);
        }
        for (const Rpn& rpn : rpns_) {
            out.push_back(ControlEvent(channel, kRpnMsb, rpn.number / 128));
            out.push_back(ControlEvent(channel, kRpnLsb, rpn.number % 128));
            put(rpn.msb);
            put(rpn.lsb);
        }
        for (const auto& event : controllers_)
            put(event);
        put(touch_);
        put(bend_);
    }

private:
    struct Rpn {
        unsigned number;
        std::optional<SynthEvent> msb, lsb;
    };

    void TakeController(SynthEvent event)
    {
        const unsigned controller = event.Data1();
        if (controller >= kControllers)
            return;
        if (controller == kResetControllers) {
            ResetControllers();
            return;
        }
        if (controller == kDataMsb || controller == kDataLsb) {
            TakeData(event);
            return;
        }
        controllers_[controller] = event;
    }

    /// Banks, drum flag, pan and the number of the parameter outlast a reset.
    void ResetControllers()
    {
        for (unsigned i = 0; i < kControllers; ++i)
            if (i != 0 && i != 32 && i != kPan && i != kReverbSend && i != kChorusSend && i != kDrumFlag &&
                i != kRpnLsb && i != kRpnMsb)
                controllers_[i].reset();
        touch_.reset();
        bend_.reset();
    }

    void TakeData(SynthEvent event)
    {
        const auto& msb = controllers_[kRpnMsb];
        const auto& lsb = controllers_[kRpnLsb];
        if (!msb || !lsb)
            return;
        const unsigned number = msb->Data2() * 128 + lsb->Data2();
        auto place = std::ranges::find(rpns_, number, &Rpn::number);
        if (place == rpns_.end())
            place = rpns_.insert(rpns_.end(), Rpn{number, {}, {}});
        (event.Data1() == kDataMsb ? place->msb : place->lsb) = event;
    }

    std::array<std::optional<SynthEvent>, kControllers> controllers_;
    std::array<std::optional<SynthEvent>, 2> programBanks_;
    std::optional<SynthEvent> program_, touch_, bend_;
    std::vector<Rpn> rpns_;
};

} // namespace

LivePlayer::LivePlayer(SynthEngine& engine, PreparedSong song)
    : engine_(engine), song_(std::move(song)), rows_(std::size_t{song_.ports} * kChannelsPerPort)
{
}

void LivePlayer::Play()
{
    if (state_ == State::Playing)
        return;
    MoveTo(position_);
    state_ = State::Playing;
    Tick();
}

void LivePlayer::Pause()
{
    if (state_ != State::Playing)
        return;
    position_ = engine_.PositionSeconds();
    SilenceAll();
    state_ = State::Paused;
}

void LivePlayer::Stop()
{
    SilenceAll();
    state_ = State::Stopped;
    position_ = 0;
}

void LivePlayer::Seek(double seconds)
{
    position_ = std::clamp(seconds, 0.0, song_.Seconds());
    if (state_ == State::Playing)
        MoveTo(position_);
}

/// The engine's clock goes on from there; what was posted ahead is dropped.
void LivePlayer::MoveTo(double seconds)
{
    engine_.Seek(seconds, true);
    for (Row& row : rows_)
        row.held.reset();
    QueueState(seconds);
    const auto first = std::ranges::lower_bound(song_.events, seconds, {}, &TimedEvent::seconds);
    next_ = static_cast<std::size_t>(first - song_.events.begin());
}

/// Defaults first, since what stood at a later place must not stay.
void LivePlayer::QueueState(double seconds)
{
    std::vector<ChannelHistory> histories(rows_.size());
    for (const TimedEvent& timed : song_.events) {
        if (timed.seconds >= seconds)
            break;
        if (timed.event.Channel() < histories.size())
            histories[timed.event.Channel()].Take(timed.event);
    }
    queue_.clear();
    queued_ = 0;
    constexpr unsigned kCentre = 64, kNull = 127;
    for (std::size_t c = 0; c < rows_.size(); ++c) {
        queue_.push_back(ControlEvent(c, kAllNotesOff, 0));
        queue_.push_back(ControlEvent(c, kResetControllers, 0));
        queue_.push_back(ControlEvent(c, kPan, kCentre));
        queue_.push_back(ControlEvent(c, kReverbSend, 0));
        queue_.push_back(ControlEvent(c, kChorusSend, 0));
        queue_.push_back(ControlEvent(c, kRpnMsb, kNull)); // no bend range, no tuning
        queue_.push_back(ControlEvent(c, kRpnLsb, kNull));
        queue_.push_back(ControlEvent(c, kDataMsb, 0));
        queue_.push_back(ControlEvent(c, kDrumFlag, c % kChannelsPerPort == kDrumChannel ? kNull : 0));
        histories[c].Append(queue_, c);
    }
}

void LivePlayer::Tick()
{
    if (state_ != State::Playing) {
        UpdateMeters();
        return;
    }
    position_ = engine_.PositionSeconds();
    if (PostSilences() && PostQueued())
        PostDue();
    UpdateMeters();
    if (next_ >= song_.events.size() && position_ > song_.Seconds())
        Stop();
}

bool LivePlayer::PostSilences()
{
    for (std::size_t c = 0; c < rows_.size(); ++c) {
        if (!rows_[c].silencePending)
            continue;
        if (!engine_.PostEvent(ControlEvent(c, kAllNotesOff, 0), position_))
            return false;
        rows_[c].silencePending = false;
        rows_[c].held.reset();
    }
    return true;
}

bool LivePlayer::PostQueued()
{
    for (; queued_ < queue_.size(); ++queued_)
        if (!engine_.PostEvent(queue_[queued_], position_))
            return false;
    return true;
}

/// A full ring is tried again at the next tick.
void LivePlayer::PostDue()
{
    const double until = position_ + kLookaheadSeconds;
    for (; next_ < song_.events.size() && song_.events[next_].seconds <= until; ++next_)
        if (!PostSongEvent(song_.events[next_]))
            return;
}

bool LivePlayer::PostSongEvent(const TimedEvent& timed)
{
    const SynthEvent event = timed.event;
    if (event.Channel() >= rows_.size())
        return true;
    Row& row = rows_[event.Channel()];
    if (IsNoteMessage(event) && IsSilenced(row))
        return true;
    if (!engine_.PostEvent(event, timed.seconds))
        return false;
    if (event.Status() == 0x90 && event.Data2() != 0)
        row.held.set(event.Data1() & 127);
    else if (event.Status() == 0x80 || event.Status() == 0x90)
        row.held.reset(event.Data1() & 127);
    return true;
}

void LivePlayer::SilenceAll()
{
    engine_.Seek(engine_.PositionSeconds(), false); // what was posted ahead
    queue_.clear();
    queued_ = 0;
    for (Row& row : rows_)
        row.silencePending = true;
    PostSilences();
}

std::vector<bool> LivePlayer::SilencedRows() const
{
    std::vector<bool> silenced;
    for (const Row& row : rows_)
        silenced.push_back(IsSilenced(row));
    return silenced;
}

void LivePlayer::SilenceNewlyMuted(const std::vector<bool>& before)
{
    hasSolo_ = std::ranges::any_of(rows_, &Row::solo);
    for (std::size_t c = 0; c < rows_.size(); ++c)
        if (IsSilenced(rows_[c]) && !before[c])
            rows_[c].silencePending = true;
}

void LivePlayer::SetMute(std::size_t channel, bool mute)
{
    const auto before = SilencedRows();
    rows_[channel].mute = mute;
    SilenceNewlyMuted(before);
}

void LivePlayer::SetSolo(std::size_t channel, bool solo)
{
    const auto before = SilencedRows();
    rows_[channel].solo = solo;
    SilenceNewlyMuted(before);
}

void LivePlayer::UpdateMeters()
{
    for (std::size_t c = 0; c < rows_.size(); ++c) {
        const float now = engine_.Meter(c);
        rows_[c].level = std::max(0.75f * rows_[c].level + 0.25f * now, now);
    }
}

std::size_t LivePlayer::Bar() const noexcept
{
    const auto behind = std::ranges::upper_bound(song_.bars, position_);
    return behind == song_.bars.begin() ? 0 : static_cast<std::size_t>(behind - song_.bars.begin()) - 1;
}

unsigned LivePlayer::Lamps(std::size_t channel) const noexcept
{
    const float level = rows_[channel].level;
    if (!(level > 0))
        return 0;
    const double x = PortableLog2(level) * 0.6931471805599453 * 1.6286043;
    return x < -9 ? 0 : x > -1 ? 8 : static_cast<unsigned>(x + 9.5);
}

} // namespace vimbo::synth
