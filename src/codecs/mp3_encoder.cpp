#include "codecs/mp3_encoder.h"

#include "base/last_error.h"
#include "codecs/codec_library.h"
#include "codecs/mpeg_header.h"

#include <lame/lame.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {
namespace {

// clang-format off
#define VIMBO_LAME_FUNCTIONS(X) \
    X(get_lame_short_version) X(lame_close) X(lame_encode_buffer_ieee_float) \
    X(lame_encode_buffer_interleaved_ieee_float) X(lame_encode_flush) X(lame_get_VBR) \
    X(lame_get_VBR_mean_bitrate_kbps) X(lame_get_VBR_min_bitrate_kbps) X(lame_get_brate) \
    X(lame_get_encoder_delay) X(lame_get_encoder_padding) X(lame_get_framesize) X(lame_get_lametag_frame) \
    X(lame_get_out_samplerate) X(lame_get_scale) X(lame_init) X(lame_init_params) X(lame_set_VBR) \
    X(lame_set_VBR_mean_bitrate_kbps) X(lame_set_VBR_quality) X(lame_set_bWriteVbrTag) X(lame_set_brate) \
    X(lame_set_debugf) X(lame_set_errorf) X(lame_set_in_samplerate) X(lame_set_mode) X(lame_set_msgf) \
    X(lame_set_num_channels) X(lame_set_out_samplerate) X(lame_set_write_id3tag_automatic)
// clang-format on

struct LameFunctions {
    VIMBO_LAME_FUNCTIONS(VIMBO_FUNCTION_MEMBER)
};
using LameLibrary = CodecLibrary<LameFunctions>;
constexpr LameLibrary::Names kLameNames = {VIMBO_LAME_FUNCTIONS(VIMBO_FUNCTION_NAME)};
#undef VIMBO_LAME_FUNCTIONS

/// Null with the Last error text if the library is missing.
const LameFunctions* GetLame() noexcept
{
    static LameLibrary library("libmp3lame.so.0", kLameNames);
    const LameFunctions* functions = library.Get();
    if (functions == nullptr)
        Fail(u"You need to install the free Lame_Enc.dll encoder add-on if you wish to compress MP3-audio.");
    return functions;
}

constexpr std::array<std::uint32_t, 9> kRatesHz = {8000,  11025, 12000, 16000, 22050,
                                                   24000, 32000, 44100, 48000};
constexpr std::size_t kPieceFrames = 4096;
/// The library's own rule for what a piece may become, in lame.h.
constexpr std::size_t kPieceBytes = kPieceFrames * 5 / 4 + 7200;

/// The encoder does not expect what is no number.
float Limited(float sample, float gain) noexcept
{
    constexpr float kMost = 4.0f;
    return sample == sample ? std::clamp(sample * gain, -kMost, kMost) : 0.0f;
}

/// The library would print them.
void Ignore(const char*, va_list) {}

/// The first frame of streams whose own frames are too small for the library to put one ahead: silence of a
/// bit rate that gives room for the tag, as it stands ahead of streams of variable rate.
std::vector<std::byte> MakeInfoFrame(const Mp3Settings& settings, std::uint32_t mpegFrames,
                                     std::uint32_t delay, std::uint32_t padding,
                                     std::string_view libraryVersion)
{
    constexpr std::size_t kTagBytes = 12, kExtensionBytes = 36, kDelaysAt = 21, kEncoderBytes = 9;
    constexpr unsigned kLowestMpeg1 = 32000, kLowestMpeg2 = 16000, kHighestBitRate = 14;
    const unsigned version = settings.rateHz >= kLowestMpeg1 ? 3 : settings.rateHz >= kLowestMpeg2 ? 2 : 0;
    const unsigned shift = version == 3 ? 0 : version == 2 ? 1 : 2;
    const std::uint32_t rateHz = settings.rateHz << shift; // as in MPEG 1: 32000, 44100 or 48000
    const unsigned rate = rateHz < 44000 ? 2 : rateHz < 46000 ? 0 : 1;
    const unsigned mode = settings.channels == 1 ? 3 : 1;
    MpegHeader header;
    std::array<std::byte, kMpegHeaderBytes> head{};
    std::size_t tagAt = 0;
    for (unsigned bitRate = 1; bitRate <= kHighestBitRate; ++bitRate) {
        head = {std::byte{0xFF}, static_cast<std::byte>(0xE3 | version << 3),
                static_cast<std::byte>(bitRate << 4 | rate << 2), static_cast<std::byte>(mode << 6)};
        if (!ParseMpegHeader(head, header))
            return {};
        tagAt = kMpegHeaderBytes + header.SideInfoBytes();
        if (header.FrameBytes() >= tagAt + kTagBytes + kExtensionBytes)
            break;
    }
    std::vector<std::byte> frame(header.FrameBytes());
    std::ranges::copy(head, frame.begin());
    const auto put = [&frame](std::size_t at, std::string_view text) {
        std::ranges::transform(text, frame.begin() + static_cast<std::ptrdiff_t>(at),
                               [](char c) { return static_cast<std::byte>(c); });
    };
    const auto putNumber = [&frame](std::size_t at, std::uint32_t value, std::size_t count) {
        for (; count != 0; value >>= 8)
            frame[at + --count] = static_cast<std::byte>(value & 0xFF);
    };
    put(tagAt, settings.mode == Mp3RateMode::Constant ? "Info" : "Xing");
    putNumber(tagAt + 4, 1, 4); // which fields follow: the number of frames
    putNumber(tagAt + 8, mpegFrames, 4);
    put(tagAt + kTagBytes, ("LAME" + std::string(libraryVersion)).substr(0, kEncoderBytes));
    putNumber(tagAt + kTagBytes + kDelaysAt, delay << 12 | padding, 3);
    return frame;
}

} // namespace

std::uint32_t NearestMp3Rate(std::uint32_t rateHz) noexcept
{
    return NearestRate(kRatesHz, rateHz);
}

struct Mp3Encoder::State {
    struct Close {
        const LameFunctions* lame;
        void operator()(lame_global_flags* old) const noexcept { lame->lame_close(old); }
    };

    const LameFunctions* lame = nullptr;
    std::unique_ptr<lame_global_flags, Close> flags;
    ByteSink* sink = nullptr;
    std::uint64_t position = 0;
    Mp3Settings settings;
    unsigned channels = 1;
    float gain = 1;           ///< that makes up for the library's
    std::uint64_t frames = 0; ///< that were put in
    bool hasOwnInfo = false;  ///< the first frame is not the library's
    std::vector<float> piece;
    std::array<unsigned char, kPieceBytes> bytes;

    bool Configure() noexcept;
    bool WriteInfo();
    bool Write(std::uint64_t at, std::size_t count);
    bool PutBytes(int count);
};

bool Mp3Encoder::State::Configure() noexcept
{
    lame_global_flags* to = flags.get();
    const int rate = static_cast<int>(settings.rateHz);
    const int kbit = static_cast<int>(settings.kbit);
    lame->lame_set_errorf(to, Ignore);
    lame->lame_set_debugf(to, Ignore);
    lame->lame_set_msgf(to, Ignore);
    lame->lame_set_num_channels(to, static_cast<int>(settings.channels));
    lame->lame_set_in_samplerate(to, rate);
    lame->lame_set_out_samplerate(to, rate); // or it would lower the rate of what is to be small
    lame->lame_set_mode(to, settings.channels == 1 ? MONO : JOINT_STEREO);
    lame->lame_set_write_id3tag_automatic(to, 0);
    lame->lame_set_bWriteVbrTag(to, hasOwnInfo ? 0 : 1);
    switch (settings.mode) {
    case Mp3RateMode::Constant:
        lame->lame_set_VBR(to, vbr_off);
        lame->lame_set_brate(to, kbit);
        break;
    case Mp3RateMode::Average:
        lame->lame_set_VBR(to, vbr_abr);
        lame->lame_set_VBR_mean_bitrate_kbps(to, kbit);
        break;
    case Mp3RateMode::Variable:
        lame->lame_set_VBR(to, vbr_default);
        lame->lame_set_VBR_quality(to, settings.quality);
        break;
    }
    return lame->lame_init_params(to) >= 0 && lame->lame_get_out_samplerate(to) == rate;
}

bool Mp3Encoder::State::Write(std::uint64_t at, std::size_t count)
{
    return sink->Write(at, std::as_bytes(std::span(bytes).first(count))) || Fail(u"Couldn't write to file!");
}

/// Fills in the first frame, or makes room for it.
bool Mp3Encoder::State::WriteInfo()
{
    const auto number = [](int value) { return static_cast<std::uint32_t>(std::clamp(value, 0, 0xFFF)); };
    const std::uint32_t delay = number(lame->lame_get_encoder_delay(flags.get()));
    const std::uint32_t padding = number(lame->lame_get_encoder_padding(flags.get()));
    const auto perFrame = static_cast<std::uint32_t>(std::max(lame->lame_get_framesize(flags.get()), 1));
    const auto mpegFrames = static_cast<std::uint32_t>((frames + delay + padding) / perFrame);
    const std::vector<std::byte> frame =
        MakeInfoFrame(settings, mpegFrames, delay, padding, lame->get_lame_short_version());
    if (!sink->Write(0, frame))
        return Fail(u"Couldn't write to file!");
    position = std::max<std::uint64_t>(position, frame.size());
    return true;
}

bool Mp3Encoder::State::PutBytes(int count)
{
    if (count < 0)
        return Fail(u"Stream error");
    const auto size = static_cast<std::size_t>(count);
    if (!Write(position, size))
        return false;
    position += size;
    return true;
}

Mp3Encoder::Mp3Encoder() : state_(std::make_unique<State>()) {}

Mp3Encoder::~Mp3Encoder() = default;

bool Mp3Encoder::Start(const Mp3Settings& settings, ByteSink& sink)
{
    State& state = *state_;
    const LameFunctions* lame = GetLame();
    if (lame == nullptr)
        return false;
    state.lame = lame;
    state.flags = {lame->lame_init(), State::Close{lame}};
    if (state.flags == nullptr)
        return Fail(u"Out of memory");
    state.sink = &sink;
    state.settings = settings;
    state.channels = settings.channels;
    const bool isRate = std::ranges::find(kRatesHz, settings.rateHz) != kRatesHz.end();
    // The library's takes up to 192 bytes, and it leaves it out where the stream's frames have less.
    constexpr unsigned kRoomyKbit = 112;
    state.hasOwnInfo = settings.mode == Mp3RateMode::Constant && settings.kbit < kRoomyKbit;
    if (!isRate || !state.Configure())
        return Fail(u"Format not supported by MP3 encoder");
    // Most of its presets turn the sound down by 5 %, out of care for players that clip.
    const float scale = lame->lame_get_scale(state.flags.get());
    state.gain = scale > 0 ? 1 / scale : 1;
    return !state.hasOwnInfo || state.WriteInfo();
}

unsigned Mp3Encoder::Kbit() const noexcept
{
    const LameFunctions* lame = state_->lame;
    const lame_global_flags* flags = state_->flags.get();
    switch (lame->lame_get_VBR(flags)) {
    case vbr_off:
        return static_cast<unsigned>(lame->lame_get_brate(flags));
    case vbr_abr:
        return static_cast<unsigned>(lame->lame_get_VBR_mean_bitrate_kbps(flags));
    default:
        return static_cast<unsigned>(std::max(lame->lame_get_VBR_min_bitrate_kbps(flags), 0));
    }
}

bool Mp3Encoder::Put(std::span<const float> samples)
{
    State& state = *state_;
    const LameFunctions* lame = state.lame;
    while (!samples.empty()) {
        const std::size_t frames = std::min(samples.size() / state.channels, kPieceFrames);
        state.piece.resize(frames * state.channels);
        std::ranges::transform(samples.first(frames * state.channels), state.piece.begin(),
                               [&state](float sample) { return Limited(sample, state.gain); });
        const int count =
            state.channels == 1
                ? lame->lame_encode_buffer_ieee_float(
                      state.flags.get(), state.piece.data(), state.piece.data(), static_cast<int>(frames),
                      state.bytes.data(), static_cast<int>(state.bytes.size()))
                : lame->lame_encode_buffer_interleaved_ieee_float(
                      state.flags.get(), state.piece.data(), static_cast<int>(frames), state.bytes.data(),
                      static_cast<int>(state.bytes.size()));
        if (!state.PutBytes(count))
            return false;
        state.frames += frames;
        samples = samples.subspan(frames * state.channels);
    }
    return true;
}

bool Mp3Encoder::Finish()
{
    State& state = *state_;
    const LameFunctions* lame = state.lame;
    if (!state.PutBytes(lame->lame_encode_flush(state.flags.get(), state.bytes.data(),
                                                static_cast<int>(state.bytes.size()))))
        return false;
    if (state.hasOwnInfo)
        return state.WriteInfo();
    const std::size_t count =
        lame->lame_get_lametag_frame(state.flags.get(), state.bytes.data(), state.bytes.size());
    return count == 0 || count > state.bytes.size() || state.Write(0, count);
}

} // namespace vimbo
