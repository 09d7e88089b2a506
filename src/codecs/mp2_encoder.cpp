#include "codecs/mp2_encoder.h"

#include "base/last_error.h"
#include "codecs/codec_library.h"
#include "codecs/mpeg_tables.h"

#include <twolame.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace vimbo {
namespace {

// clang-format off
#define VIMBO_TWOLAME_FUNCTIONS(X) \
    X(twolame_init) X(twolame_init_params) X(twolame_close) X(twolame_set_verbosity) X(twolame_set_mode) \
    X(twolame_set_num_channels) X(twolame_set_in_samplerate) X(twolame_set_out_samplerate) \
    X(twolame_set_bitrate) X(twolame_encode_buffer_float32_interleaved) X(twolame_encode_flush)
// clang-format on

struct TwolameFunctions {
    VIMBO_TWOLAME_FUNCTIONS(VIMBO_FUNCTION_MEMBER)
};
using TwolameLibrary = CodecLibrary<TwolameFunctions>;
constexpr TwolameLibrary::Names kTwolameNames = {VIMBO_TWOLAME_FUNCTIONS(VIMBO_FUNCTION_NAME)};
#undef VIMBO_TWOLAME_FUNCTIONS

constexpr std::array<std::uint32_t, 6> kRatesHz = {16000, 22050, 24000, 32000, 44100, 48000};
constexpr std::uint32_t kLowestMpeg1 = 32000;
constexpr std::size_t kPieceFrames = 1152;
/// One MPEG frame has up to 1728 bytes, and a piece completes no more than one.
constexpr std::size_t kPieceBytes = 4096;

/// Null with the Last error text if the library is missing.
const TwolameFunctions* GetTwolame() noexcept
{
    static TwolameLibrary library("libtwolame.so.0", kTwolameNames);
    const TwolameFunctions* functions = library.Get();
    if (functions == nullptr)
        Fail(u"You need to install the free tooLameF.dll encoder add-on if you wish to compress MP3-audio.");
    return functions;
}

/// ISO/IEC 11172-3, 2.4.2.3: the lowest rates are for one channel, and the highest ones for two.
bool IsPermitted(unsigned kbit, unsigned channels) noexcept
{
    constexpr std::array kMonoOnly = {32u, 48u, 56u, 80u};
    constexpr unsigned kMostMono = 192;
    return channels == 1 ? kbit <= kMostMono : std::ranges::find(kMonoOnly, kbit) == kMonoOnly.end();
}

unsigned PickKbit(const Mp2Settings& settings) noexcept
{
    const bool isLow = settings.rateHz < kLowestMpeg1;
    unsigned picked = 0;
    for (const unsigned kbit : (isLow ? mpeg::kBitRatesLow : mpeg::kBitRates)[1]) {
        if (kbit == 0 || (!isLow && !IsPermitted(kbit, settings.channels)))
            continue;
        picked = kbit;
        if (kbit >= settings.kbit)
            break;
    }
    return picked;
}

} // namespace

std::uint32_t NearestMp2Rate(std::uint32_t rateHz) noexcept
{
    return NearestRate(kRatesHz, rateHz);
}

struct Mp2Encoder::State {
    struct Close {
        const TwolameFunctions* twolame;
        void operator()(twolame_options* old) const noexcept { twolame->twolame_close(&old); }
    };

    const TwolameFunctions* twolame = nullptr;
    std::unique_ptr<twolame_options, Close> options;
    ByteSink* sink = nullptr;
    std::uint64_t position = 0;
    unsigned channels = 1;
    unsigned kbit = 0;
    std::vector<float> piece;
    std::array<unsigned char, kPieceBytes> bytes;

    bool Configure(const Mp2Settings& settings) noexcept;
    bool PutBytes(int count);
};

bool Mp2Encoder::State::Configure(const Mp2Settings& settings) noexcept
{
    twolame_options* to = options.get();
    const int rate = static_cast<int>(settings.rateHz);
    channels = settings.channels;
    kbit = PickKbit(settings);
    twolame->twolame_set_verbosity(to, 0);
    twolame->twolame_set_mode(to, channels == 1 ? TWOLAME_MONO : TWOLAME_JOINT_STEREO);
    twolame->twolame_set_num_channels(to, static_cast<int>(channels));
    twolame->twolame_set_in_samplerate(to, rate);
    twolame->twolame_set_out_samplerate(to, rate);
    twolame->twolame_set_bitrate(to, static_cast<int>(kbit));
    return twolame->twolame_init_params(to) == 0;
}

bool Mp2Encoder::State::PutBytes(int count)
{
    if (count < 0)
        return Fail(u"Stream error");
    const auto size = static_cast<std::size_t>(count);
    if (!sink->Write(position, std::as_bytes(std::span(bytes).first(size))))
        return Fail(u"Couldn't write to file!");
    position += size;
    return true;
}

Mp2Encoder::Mp2Encoder() : state_(std::make_unique<State>()) {}

Mp2Encoder::~Mp2Encoder() = default;

bool Mp2Encoder::Start(const Mp2Settings& settings, ByteSink& sink)
{
    State& state = *state_;
    state.twolame = GetTwolame();
    if (state.twolame == nullptr)
        return false;
    state.options = {state.twolame->twolame_init(), State::Close{state.twolame}};
    if (state.options == nullptr)
        return Fail(u"Out of memory");
    state.sink = &sink;
    const bool isRate = std::ranges::find(kRatesHz, settings.rateHz) != kRatesHz.end();
    return (isRate && state.Configure(settings)) || Fail(u"Format not supported by MP2 encoder");
}

unsigned Mp2Encoder::Kbit() const noexcept
{
    return state_->kbit;
}

bool Mp2Encoder::Put(std::span<const float> samples)
{
    State& state = *state_;
    while (!samples.empty()) {
        const auto part = samples.first(std::min(samples.size(), kPieceFrames * state.channels));
        // What is louder than full scale would wrap around, and what is no number ends up anywhere.
        state.piece.resize(part.size());
        std::ranges::transform(part, state.piece.begin(), [](float sample) {
            return std::isnan(sample) ? 0.0f : std::clamp(sample, -1.0f, 1.0f);
        });
        if (!state.PutBytes(state.twolame->twolame_encode_buffer_float32_interleaved(
                state.options.get(), state.piece.data(), static_cast<int>(part.size() / state.channels),
                state.bytes.data(), static_cast<int>(state.bytes.size()))))
            return false;
        samples = samples.subspan(part.size());
    }
    return true;
}

bool Mp2Encoder::Finish()
{
    State& state = *state_;
    return state.PutBytes(state.twolame->twolame_encode_flush(state.options.get(), state.bytes.data(),
                                                              static_cast<int>(state.bytes.size())));
}

} // namespace vimbo
