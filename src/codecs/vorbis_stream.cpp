#include "codecs/vorbis_stream.h"

#include "base/last_error.h"

#include <vorbis/codec.h>
#include <vorbis/vorbisenc.h>

// The header defines callbacks for stdio files that nobody uses here.
#define OV_EXCLUDE_STATIC_CALLBACKS
#include <vorbis/vorbisfile.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <limits>

namespace vimbo {

struct VorbisDecoder::State {
    ~State()
    {
        if (isOpen)
            ov_clear(&file);
    }

    OggVorbis_File file{};
    bool isOpen = false;
    ByteInput* input = nullptr;
    std::uint64_t position = 0; ///< in the input
    VorbisInfo info;
    bool hasRead = false; ///< frames came since the last seek
    /// A call failed. No other may follow: where the codebooks could not be made, the library takes empty
    /// ones for whole at the second attempt, and divides by zero (libvorbis issue 124).
    bool isBroken = false;

    bool ReadInfo();
    bool LinksAgree();

    static State& Of(void* client) noexcept { return *static_cast<State*>(client); }
    static std::size_t OnRead(void* buffer, std::size_t size, std::size_t count, void* client) noexcept;
    static int OnSeek(void* client, ogg_int64_t offset, int whence) noexcept;
    static long OnTell(void* client) noexcept { return static_cast<long>(Of(client).position); }
};

std::size_t VorbisDecoder::State::OnRead(void* buffer, std::size_t size, std::size_t count,
                                         void* client) noexcept
{
    State& state = Of(client);
    std::size_t got = 0;
    const std::span out(static_cast<std::byte*>(buffer), size * count);
    const bool good = state.input->Read(state.position, out, got);
    errno = good ? 0 : EIO; // which is how the library tells a failure from the end
    state.position += got;
    return good && size != 0 ? got / size : 0;
}

int VorbisDecoder::State::OnSeek(void* client, ogg_int64_t offset, int whence) noexcept
{
    State& state = Of(client);
    const auto size = static_cast<ogg_int64_t>(state.input->Size());
    const auto here = static_cast<ogg_int64_t>(state.position);
    const ogg_int64_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? here : size;
    if (offset < -from || offset > size - from)
        return -1;
    state.position = static_cast<std::uint64_t>(from + offset);
    return 0;
}

bool VorbisDecoder::State::LinksAgree()
{
    for (int link = 0; link < ov_streams(&file); ++link) {
        const vorbis_info* other = ov_info(&file, link);
        if (other == nullptr || other->channels != static_cast<int>(info.channels) ||
            other->rate != static_cast<long>(info.rateHz))
            return false;
    }
    return true;
}

bool VorbisDecoder::State::ReadInfo()
{
    const vorbis_info* first = ov_info(&file, 0);
    if (first == nullptr || first->channels < 1 || first->rate < 1 ||
        first->rate > std::numeric_limits<std::int32_t>::max())
        return Fail(u"Couldn't get Ogg stream info");
    info.channels = static_cast<unsigned>(first->channels);
    info.rateHz = static_cast<std::uint32_t>(first->rate);
    if (!LinksAgree())
        return Fail(u"The Ogg streams in the file differ in channels or sample rate");
    const ogg_int64_t frames = ov_pcm_total(&file, -1);
    if (frames < 0)
        return Fail(u"Unknown Ogg length");
    info.frames = static_cast<std::uint64_t>(frames);
    const long nominal = first->bitrate_nominal;
    const long mean = nominal > 0 ? 0 : ov_bitrate(&file, -1);
    info.kbit = static_cast<float>(std::max({nominal, mean, 0L})) / 1000.0f;
    return true;
}

VorbisDecoder::VorbisDecoder() : state_(std::make_unique<State>()) {}

VorbisDecoder::~VorbisDecoder() = default;

const VorbisInfo& VorbisDecoder::Info() const noexcept
{
    return state_->info;
}

bool VorbisDecoder::Open(ByteInput& input)
{
    State& state = *state_;
    state.input = &input;
    const ov_callbacks callbacks{State::OnRead, State::OnSeek, nullptr, State::OnTell};
    const int result = ov_open_callbacks(&state, &state.file, nullptr, 0, callbacks);
    if (result != 0)
        return Fail(result == OV_EBADHEADER ? u"Invalid Ogg header packet" : u"Could not open Ogg file");
    state.isOpen = true;
    if (!state.ReadInfo())
        return false;
    SetChannels(state.info.channels);
    return true;
}

std::vector<std::string> VorbisDecoder::Comments() const
{
    std::vector<std::string> texts;
    const vorbis_comment* comments = state_->isOpen ? ov_comment(&state_->file, 0) : nullptr;
    for (int i = 0; comments != nullptr && i < comments->comments; ++i)
        texts.emplace_back(comments->user_comments[i],
                           static_cast<std::size_t>(comments->comment_lengths[i]));
    return texts;
}

bool VorbisDecoder::Seek(std::uint64_t frame)
{
    State& state = *state_;
    const bool isInside = frame < state.info.frames;
    const std::uint64_t place = isInside ? frame : 0;
    state.hasRead = false;
    if (!state.isBroken)
        state.isBroken = ov_pcm_seek(&state.file, static_cast<ogg_int64_t>(place)) != 0;
    return !state.isBroken && place == frame;
}

bool VorbisDecoder::Read(std::span<float> out, std::size_t& frames)
{
    constexpr std::size_t kMostFrames = 4096;
    State& state = *state_;
    frames = 0;
    while (!out.empty() && !state.isBroken) {
        float** planes = nullptr;
        const auto wanted = static_cast<int>(std::min(out.size() / Channels(), kMostFrames));
        const long got = ov_read_float(&state.file, &planes, wanted, nullptr);
        if (got == 0)
            return true;
        // Streams that were cut out of longer ones begin with a hole.
        if (got == OV_HOLE && !state.hasRead)
            continue;
        state.isBroken = got < 0;
        if (state.isBroken)
            break;
        state.hasRead = true;
        const auto count = static_cast<std::size_t>(got);
        for (unsigned channel = 0; channel < Channels(); ++channel) {
            for (std::size_t i = 0; i < count; ++i)
                out[i * Channels() + channel] = planes[channel][i];
        }
        frames += count;
        out = out.subspan(count * Channels());
    }
    return !state.isBroken || Fail(u"Corrupted Ogg data packet");
}

namespace {

/// The encoder's tables end a little above full scale, and it does not expect what is no number.
float Limited(float sample) noexcept
{
    constexpr float kMost = 4.0f;
    return sample == sample ? std::clamp(sample, -kMost, kMost) : 0.0f;
}

class EncoderInfo {
public:
    EncoderInfo() noexcept { vorbis_info_init(&info_); }
    ~EncoderInfo() { vorbis_info_clear(&info_); }
    EncoderInfo(const EncoderInfo&) = delete;
    EncoderInfo& operator=(const EncoderInfo&) = delete;

    vorbis_info* Get() noexcept { return &info_; }
    bool SetKbit(unsigned channels, std::uint32_t rateHz, float kbit) noexcept
    {
        return vorbis_encode_init(&info_, static_cast<long>(channels), static_cast<long>(rateHz), -1,
                                  std::lround(kbit * 1000.0f), -1) == 0;
    }
    bool SetQuality(unsigned channels, std::uint32_t rateHz, float quality) noexcept
    {
        return vorbis_encode_init_vbr(&info_, static_cast<long>(channels), static_cast<long>(rateHz),
                                      quality) == 0;
    }

private:
    vorbis_info info_;
};

bool HasKbit(unsigned channels, std::uint32_t rateHz, float kbit)
{
    return EncoderInfo().SetKbit(channels, rateHz, kbit);
}

} // namespace

float NearestVorbisKbit(unsigned channels, std::uint32_t rateHz, float kbit)
{
    constexpr float kMost = 1000;
    if (!(kbit > 0))
        return 0;
    for (float lower = std::min(kbit, kMost); lower >= 1; lower -= 1) {
        if (HasKbit(channels, rateHz, lower))
            return lower;
    }
    for (float higher = std::ceil(kbit); higher <= kMost; higher += 1) {
        if (HasKbit(channels, rateHz, higher))
            return higher;
    }
    return 0;
}

struct VorbisEncoder::State {
    State() noexcept { vorbis_comment_init(&comments); }
    ~State()
    {
        if (hasStream)
            ogg_stream_clear(&stream);
        if (hasBlock)
            vorbis_block_clear(&block);
        if (hasAnalysis)
            vorbis_dsp_clear(&analysis);
        vorbis_comment_clear(&comments);
    }

    EncoderInfo info;
    vorbis_comment comments;
    vorbis_dsp_state analysis;
    vorbis_block block;
    ogg_stream_state stream;
    bool hasAnalysis = false;
    bool hasBlock = false;
    bool hasStream = false;
    unsigned channels = 1;
    ByteSink* sink = nullptr;
    std::uint64_t position = 0;

    bool Init(const VorbisSettings& settings);
    bool PutHeaders();
    bool PutPackets();
    bool PutPage(const ogg_page& page);
    bool Put(const unsigned char* bytes, long count);
};

bool VorbisEncoder::State::Init(const VorbisSettings& settings)
{
    const bool isSet = settings.kbit > 0 ? info.SetKbit(channels, settings.rateHz, settings.kbit)
                                         : info.SetQuality(channels, settings.rateHz, settings.quality);
    if (!isSet)
        return Fail(u"Could not initialize Ogg encoder with the selected format");
    for (const std::string& text : settings.comments)
        vorbis_comment_add(&comments, text.c_str());
    hasAnalysis = vorbis_analysis_init(&analysis, info.Get()) == 0;
    hasBlock = hasAnalysis && vorbis_block_init(&analysis, &block) == 0;
    hasStream = ogg_stream_init(&stream, settings.serial) == 0;
    return (hasBlock && hasStream) || Fail(u"Could not initialize Ogg");
}

bool VorbisEncoder::State::Put(const unsigned char* bytes, long count)
{
    const auto size = static_cast<std::size_t>(count);
    if (!sink->Write(position, std::as_bytes(std::span(bytes, size))))
        return Fail(u"Couldn't write to file!");
    position += size;
    return true;
}

bool VorbisEncoder::State::PutPage(const ogg_page& page)
{
    return Put(page.header, page.header_len) && Put(page.body, page.body_len);
}

/// The three header packets; data begin on a page of their own.
bool VorbisEncoder::State::PutHeaders()
{
    ogg_packet packets[3];
    if (vorbis_analysis_headerout(&analysis, &comments, &packets[0], &packets[1], &packets[2]) != 0)
        return Fail(u"Could not initialize Ogg");
    for (ogg_packet& packet : packets)
        ogg_stream_packetin(&stream, &packet);
    ogg_page page;
    while (ogg_stream_flush(&stream, &page) != 0) {
        if (!PutPage(page))
            return false;
    }
    return true;
}

bool VorbisEncoder::State::PutPackets()
{
    while (vorbis_analysis_blockout(&analysis, &block) == 1) {
        vorbis_analysis(&block, nullptr);
        vorbis_bitrate_addblock(&block);
        ogg_packet packet;
        while (vorbis_bitrate_flushpacket(&analysis, &packet) == 1) {
            ogg_stream_packetin(&stream, &packet);
            ogg_page page;
            while (ogg_stream_pageout(&stream, &page) != 0) {
                if (!PutPage(page))
                    return false;
            }
        }
    }
    return true;
}

VorbisEncoder::VorbisEncoder() : state_(std::make_unique<State>()) {}

VorbisEncoder::~VorbisEncoder() = default;

bool VorbisEncoder::Start(const VorbisSettings& settings, unsigned channels, ByteSink& sink)
{
    state_->channels = channels;
    state_->sink = &sink;
    return state_->Init(settings) && state_->PutHeaders();
}

bool VorbisEncoder::Put(std::span<const float> samples)
{
    constexpr std::size_t kPieceFrames = 1024; // longer ones only make the library's buffers grow
    const unsigned channels = state_->channels;
    while (!samples.empty()) {
        const std::size_t frames = std::min(samples.size() / channels, kPieceFrames);
        float** planes = vorbis_analysis_buffer(&state_->analysis, static_cast<int>(frames));
        for (unsigned channel = 0; channel < channels; ++channel) {
            for (std::size_t i = 0; i < frames; ++i)
                planes[channel][i] = Limited(samples[i * channels + channel]);
        }
        vorbis_analysis_wrote(&state_->analysis, static_cast<int>(frames));
        if (!state_->PutPackets())
            return false;
        samples = samples.subspan(frames * channels);
    }
    return true;
}

bool VorbisEncoder::Finish()
{
    vorbis_analysis_wrote(&state_->analysis, 0);
    if (!state_->PutPackets())
        return false;
    ogg_page page;
    while (ogg_stream_flush(&state_->stream, &page) != 0) {
        if (!state_->PutPage(page))
            return false;
    }
    return true;
}

} // namespace vimbo
