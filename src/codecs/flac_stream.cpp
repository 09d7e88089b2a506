#include "codecs/flac_stream.h"

#include "base/last_error.h"

#include <FLAC/metadata.h>
#include <FLAC/stream_decoder.h>
#include <FLAC/stream_encoder.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace vimbo {

/// The library calls back into the static functions; no exception may cross its frames.
struct FlacDecoder::State {
    struct Delete {
        void operator()(FLAC__StreamDecoder* old) const noexcept { FLAC__stream_decoder_delete(old); }
    };

    std::unique_ptr<FLAC__StreamDecoder, Delete> decoder{FLAC__stream_decoder_new()};
    ByteInput* input = nullptr;
    std::uint64_t position = 0; ///< in the input
    FlacInfo info;
    bool hasInfo = false;
    bool isDamaged = false; ///< a packet could not be decoded
    bool isOutOfMemory = false;
    std::vector<float> held; ///< the last packet's samples, interleaved
    std::size_t taken = 0;   ///< of them that were handed out

    bool Init();
    bool Rewind() noexcept;
    bool DecodePacket() noexcept;
    void Hold(const FLAC__Frame& frame, const FLAC__int32* const* planes);

    static State& Of(void* client) noexcept { return *static_cast<State*>(client); }
    static FLAC__StreamDecoderReadStatus OnRead(const FLAC__StreamDecoder*, FLAC__byte* buffer,
                                                std::size_t* bytes, void* client) noexcept;
    static FLAC__StreamDecoderWriteStatus OnWrite(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                                  const FLAC__int32* const* planes, void* client) noexcept;
    static void OnMetadata(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* block,
                           void* client) noexcept;
};

FLAC__StreamDecoderReadStatus FlacDecoder::State::OnRead(const FLAC__StreamDecoder*, FLAC__byte* buffer,
                                                         std::size_t* bytes, void* client) noexcept
{
    State& state = Of(client);
    std::size_t got = 0;
    if (!state.input->Read(state.position, std::as_writable_bytes(std::span(buffer, *bytes)), got))
        return FLAC__STREAM_DECODER_READ_STATUS_ABORT;
    state.position += got;
    *bytes = got;
    return got > 0 ? FLAC__STREAM_DECODER_READ_STATUS_CONTINUE
                   : FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM;
}

FLAC__StreamDecoderWriteStatus FlacDecoder::State::OnWrite(const FLAC__StreamDecoder*,
                                                           const FLAC__Frame* frame,
                                                           const FLAC__int32* const* planes,
                                                           void* client) noexcept
{
    State& state = Of(client);
    if (frame->header.channels != state.info.channels)
        return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
    try {
        state.Hold(*frame, planes);
        return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    } catch (const std::bad_alloc&) {
        state.isOutOfMemory = true;
        return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
    }
}

void FlacDecoder::State::OnMetadata(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* block,
                                    void* client) noexcept
{
    State& state = Of(client);
    if (block->type != FLAC__METADATA_TYPE_STREAMINFO)
        return;
    const FLAC__StreamMetadata_StreamInfo& info = block->data.stream_info;
    state.info.channels = info.channels;
    state.info.rateHz = info.sample_rate;
    state.info.bits = info.bits_per_sample;
    state.info.frames = info.total_samples;
    state.info.maxBlockFrames = info.max_blocksize;
    state.hasInfo = true;
}

void FlacDecoder::State::Hold(const FLAC__Frame& frame, const FLAC__int32* const* planes)
{
    // STREAMINFO may contradict the packet, whose samples have the width that it says itself.
    const float unit = std::ldexp(1.0f, 1 - static_cast<int>(frame.header.bits_per_sample));
    const unsigned channels = info.channels;
    held.resize(std::size_t{frame.header.blocksize} * channels);
    for (unsigned channel = 0; channel < channels; ++channel) {
        const FLAC__int32* plane = planes[channel];
        for (std::size_t i = 0; i < frame.header.blocksize; ++i)
            held[i * channels + channel] = static_cast<float>(plane[i]) * unit;
    }
    taken = 0;
}

bool FlacDecoder::State::Init()
{
    const auto onSeek = [](const FLAC__StreamDecoder*, FLAC__uint64 offset, void* client) {
        State& state = Of(client);
        if (offset > state.input->Size())
            return FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
        state.position = offset;
        return FLAC__STREAM_DECODER_SEEK_STATUS_OK;
    };
    const auto onTell = [](const FLAC__StreamDecoder*, FLAC__uint64* offset, void* client) {
        *offset = Of(client).position;
        return FLAC__STREAM_DECODER_TELL_STATUS_OK;
    };
    const auto onLength = [](const FLAC__StreamDecoder*, FLAC__uint64* length, void* client) {
        *length = Of(client).input->Size();
        return FLAC__STREAM_DECODER_LENGTH_STATUS_OK;
    };
    const auto isAtEnd = [](const FLAC__StreamDecoder*, void* client) -> FLAC__bool {
        return Of(client).position >= Of(client).input->Size();
    };
    const auto onError = [](const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void* client) {
        Of(client).isDamaged = true;
    };
    return FLAC__stream_decoder_init_stream(decoder.get(), OnRead, onSeek, onTell, onLength, isAtEnd, OnWrite,
                                            OnMetadata, onError, this) == FLAC__STREAM_DECODER_INIT_STATUS_OK;
}

bool FlacDecoder::State::Rewind() noexcept
{
    held.clear();
    taken = 0;
    const bool isReset =
        FLAC__stream_decoder_flush(decoder.get()) && FLAC__stream_decoder_reset(decoder.get());
    const bool good = isReset && FLAC__stream_decoder_process_until_end_of_metadata(decoder.get());
    isDamaged = false;
    return good;
}

/// Decodes until a packet is held or the stream ends.
bool FlacDecoder::State::DecodePacket() noexcept
{
    held.clear();
    taken = 0;
    while (held.empty()) {
        const bool good = FLAC__stream_decoder_process_single(decoder.get());
        const FLAC__StreamDecoderState where = FLAC__stream_decoder_get_state(decoder.get());
        if (isOutOfMemory || where == FLAC__STREAM_DECODER_MEMORY_ALLOCATION_ERROR)
            return Fail(u"Out of memory");
        // A stream that breaks off may end with a damaged packet: damage counts where another one follows.
        if (where == FLAC__STREAM_DECODER_END_OF_STREAM && held.empty())
            return true;
        if (!good || (isDamaged && !held.empty()))
            return Fail(u"Corrupted FLAC data");
    }
    return true;
}

FlacDecoder::FlacDecoder() : state_(std::make_unique<State>()) {}

FlacDecoder::~FlacDecoder() = default;

const FlacInfo& FlacDecoder::Info() const noexcept
{
    return state_->info;
}

bool FlacDecoder::Open(ByteInput& input)
{
    state_->input = &input;
    if (state_->decoder == nullptr)
        return Fail(u"Out of memory");
    const bool isRead =
        state_->Init() && FLAC__stream_decoder_process_until_end_of_metadata(state_->decoder.get());
    if (!isRead || !state_->hasInfo || state_->info.channels == 0)
        return Fail(u"Not a FLAC file");
    FLAC__uint64 place = 0;
    if (FLAC__stream_decoder_get_decode_position(state_->decoder.get(), &place))
        state_->info.packetsAt = place;
    state_->isDamaged = false;
    SetChannels(state_->info.channels);
    return true;
}

bool FlacDecoder::Seek(std::uint64_t frame)
{
    State& state = *state_;
    if (frame == 0)
        return state.Rewind();
    state.held.clear();
    state.taken = 0;
    const bool isFound =
        FLAC__stream_decoder_seek_absolute(state.decoder.get(), frame) && !state.held.empty();
    state.isDamaged = false;
    if (!isFound)
        state.Rewind();
    return isFound;
}

bool FlacDecoder::Read(std::span<float> out, std::size_t& frames)
{
    State& state = *state_;
    frames = 0;
    while (!out.empty()) {
        if (state.taken == state.held.size()) {
            if (!state.DecodePacket())
                return false;
            if (state.held.empty())
                return true;
        }
        const std::size_t samples = std::min(out.size(), state.held.size() - state.taken);
        std::copy_n(state.held.data() + state.taken, samples, out.data());
        state.taken += samples;
        frames += samples / Channels();
        out = out.subspan(samples);
    }
    return true;
}

struct FlacEncoder::State {
    struct Delete {
        void operator()(FLAC__StreamEncoder* old) const noexcept { FLAC__stream_encoder_delete(old); }
        void operator()(FLAC__StreamMetadata* block) const noexcept { FLAC__metadata_object_delete(block); }
    };
    using Block = std::unique_ptr<FLAC__StreamMetadata, Delete>;

    std::unique_ptr<FLAC__StreamEncoder, Delete> encoder{FLAC__stream_encoder_new()};
    std::vector<Block> blocks; ///< alive until the encoder has finished
    unsigned channels = 1;
    ByteSink* sink = nullptr;
    std::uint64_t position = 0;

    Block& Add(FLAC__MetadataType type);
    void AddComments(const std::vector<std::string>& comments);
    void AddPicture(const FlacSettings& settings);
    void AddRiffBlocks(const FlacSettings& settings);
    bool Configure(const FlacSettings& settings, std::uint64_t frames);
    bool Init();
};

FlacEncoder::State::Block& FlacEncoder::State::Add(FLAC__MetadataType type)
{
    blocks.emplace_back(FLAC__metadata_object_new(type));
    if (blocks.back() == nullptr)
        throw std::bad_alloc();
    return blocks.back();
}

void FlacEncoder::State::AddComments(const std::vector<std::string>& comments)
{
    const Block& block = Add(FLAC__METADATA_TYPE_VORBIS_COMMENT);
    for (std::string text : comments) {
        FLAC__StreamMetadata_VorbisComment_Entry entry;
        entry.length = static_cast<FLAC__uint32>(text.size());
        entry.entry = static_cast<FLAC__byte*>(static_cast<void*>(text.data()));
        // Comments that are no comments by the format's rules are left out.
        static_cast<void>(FLAC__metadata_object_vorbiscomment_append_comment(block.get(), entry, true));
    }
}

void FlacEncoder::State::AddPicture(const FlacSettings& settings)
{
    if (settings.picture.empty())
        return;
    const Block& block = Add(FLAC__METADATA_TYPE_PICTURE);
    block->data.picture.type = FLAC__STREAM_METADATA_PICTURE_TYPE_FRONT_COVER;
    std::string mime = settings.pictureMime;
    std::vector<std::byte> bytes = settings.picture;
    auto* data = static_cast<FLAC__byte*>(static_cast<void*>(bytes.data()));
    if (!FLAC__metadata_object_picture_set_mime_type(block.get(), mime.data(), true) ||
        !FLAC__metadata_object_picture_set_data(block.get(), data, static_cast<FLAC__uint32>(bytes.size()),
                                                true))
        throw std::bad_alloc();
}

void FlacEncoder::State::AddRiffBlocks(const FlacSettings& settings)
{
    for (std::vector<std::byte> bytes : settings.riffBlocks) {
        const Block& block = Add(FLAC__METADATA_TYPE_APPLICATION);
        std::copy_n("riff", 4, block->data.application.id);
        auto* data = static_cast<FLAC__byte*>(static_cast<void*>(bytes.data()));
        if (!FLAC__metadata_object_application_set_data(block.get(), data,
                                                        static_cast<unsigned>(bytes.size()), true))
            throw std::bad_alloc();
    }
}

bool FlacEncoder::State::Configure(const FlacSettings& settings, std::uint64_t frames)
{
    FLAC__StreamEncoder* to = encoder.get();
    std::vector<FLAC__StreamMetadata*> list;
    for (const Block& block : blocks)
        list.push_back(block.get());
    // The library copies the list, not what it points to.
    return FLAC__stream_encoder_set_channels(to, channels) &&
           FLAC__stream_encoder_set_bits_per_sample(to, settings.bits) &&
           FLAC__stream_encoder_set_sample_rate(to, settings.rateHz) &&
           FLAC__stream_encoder_set_compression_level(to, settings.level) &&
           FLAC__stream_encoder_set_streamable_subset(to,
                                                      FLAC__format_sample_rate_is_subset(settings.rateHz)) &&
           FLAC__stream_encoder_set_total_samples_estimate(to, frames) &&
           FLAC__stream_encoder_set_metadata(to, list.data(), static_cast<unsigned>(list.size()));
}

bool FlacEncoder::State::Init()
{
    const auto onWrite = [](const FLAC__StreamEncoder*, const FLAC__byte* buffer, std::size_t bytes,
                            std::uint32_t, std::uint32_t, void* client) {
        auto& state = *static_cast<State*>(client);
        if (!state.sink->Write(state.position, std::as_bytes(std::span(buffer, bytes))))
            return FLAC__STREAM_ENCODER_WRITE_STATUS_FATAL_ERROR;
        state.position += bytes;
        return FLAC__STREAM_ENCODER_WRITE_STATUS_OK;
    };
    const auto onSeek = [](const FLAC__StreamEncoder*, FLAC__uint64 offset, void* client) {
        static_cast<State*>(client)->position = offset;
        return FLAC__STREAM_ENCODER_SEEK_STATUS_OK;
    };
    const auto onTell = [](const FLAC__StreamEncoder*, FLAC__uint64* offset, void* client) {
        *offset = static_cast<State*>(client)->position;
        return FLAC__STREAM_ENCODER_TELL_STATUS_OK;
    };
    const auto status =
        FLAC__stream_encoder_init_stream(encoder.get(), onWrite, onSeek, onTell, nullptr, this);
    if (status == FLAC__STREAM_ENCODER_INIT_STATUS_OK)
        return true;
    const bool isRefused = FLAC__stream_encoder_get_state(encoder.get()) == FLAC__STREAM_ENCODER_CLIENT_ERROR;
    return Fail(isRefused ? u"Couldn't write to file!"
                          : u"Could not initialize FLAC encoder with the selected format");
}

FlacEncoder::FlacEncoder() : state_(std::make_unique<State>()) {}

FlacEncoder::~FlacEncoder() = default;

bool FlacEncoder::Start(const FlacSettings& settings, unsigned channels, std::uint64_t frames, ByteSink& sink)
{
    State& state = *state_;
    if (state.encoder == nullptr)
        return Fail(u"Out of memory");
    state.sink = &sink;
    state.channels = channels;
    state.AddRiffBlocks(settings);
    state.AddComments(settings.comments);
    state.AddPicture(settings);
    if (!state.Configure(settings, frames))
        return Fail(u"Could not initialize FLAC encoder with the selected format");
    return state.Init();
}

bool FlacEncoder::Put(std::span<const std::int32_t> samples)
{
    const auto frames = static_cast<std::uint32_t>(samples.size() / state_->channels);
    return FLAC__stream_encoder_process_interleaved(state_->encoder.get(), samples.data(), frames) ||
           Fail(u"Couldn't write to file!");
}

bool FlacEncoder::Finish()
{
    return FLAC__stream_encoder_finish(state_->encoder.get()) || Fail(u"Couldn't write to file!");
}

} // namespace vimbo
