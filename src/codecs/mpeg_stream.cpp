#include "codecs/mpeg_stream.h"

#include "base/last_error.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

namespace vimbo {
namespace {

constexpr std::size_t kWindowBytes = 64 * 1024;
static_assert(kWindowBytes >= 2 * kMpegMostBytes);
/// A decoder's delay in layer III: the overlap of the hybrid filter bank and the polyphase filter.
constexpr std::uint64_t kDecoderDelay = 528 + 1;
/// Searches for the length of a free-format frame: more fail only in data made to waste time.
constexpr unsigned kMostFreeSearches = 256;
/// MPEG frames that a seek looks back for the bits of the first one, at most. Each has a byte of them.
constexpr std::uint64_t kMostFed = 512;
/// MPEG frames whose filters settle ahead of the first one that is wanted.
constexpr std::uint64_t kSettling = 2;

/// Bytes ahead of those that frames of layer III may share.
std::size_t HeadBytes(const MpegHeader& header) noexcept
{
    return header.DataAt() + (header.layer == 3 ? header.SideInfoBytes() : 0);
}

std::string_view TextAt(std::span<const std::byte> bytes, std::size_t at, std::size_t length) noexcept
{
    if (at > bytes.size() || length > bytes.size() - at)
        return {};
    return {static_cast<const char*>(static_cast<const void*>(bytes.data() + at)), length};
}

std::uint32_t BigEndianAt(std::span<const std::byte> bytes, std::size_t at, std::size_t count) noexcept
{
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + count; ++i)
        value = value << 8 | (i < bytes.size() ? std::to_integer<std::uint32_t>(bytes[i]) : 0);
    return value;
}

/// What the frame without sound says that encoders put ahead of the others.
struct InfoFrame {
    std::optional<std::uint32_t> mpegFrames;
    std::optional<std::uint32_t> delay, padding; ///< frames (samples)
};

/// The extension that LAME brought, behind what the flags say is there.
void ParseExtension(std::span<const std::byte> tag, InfoFrame& out) noexcept
{
    constexpr std::size_t kFlagsAt = 4, kTocBytes = 100, kDelaysAt = 21;
    const std::uint32_t flags = BigEndianAt(tag, kFlagsAt, 4);
    std::size_t at = kFlagsAt + 4;
    if ((flags & 1) != 0)
        out.mpegFrames = BigEndianAt(tag, at, 4);
    at += ((flags & 1) != 0 ? 4 : 0) + ((flags & 2) != 0 ? 4 : 0) + ((flags & 4) != 0 ? kTocBytes : 0) +
          ((flags & 8) != 0 ? 4 : 0);
    const std::string_view encoder = TextAt(tag, at, 4);
    const bool isKnown = encoder == "LAME" || encoder == "Lavf" || encoder == "Lavc" || encoder == "GOGO";
    if (!isKnown || tag.size() < at + kDelaysAt + 3)
        return;
    const std::uint32_t delays = BigEndianAt(tag, at + kDelaysAt, 3); // twelve bits each
    out.delay = delays >> 12;
    out.padding = delays & 0xFFF;
}

bool ParseInfoFrame(const MpegHeader& header, std::span<const std::byte> frame, InfoFrame& out) noexcept
{
    if (header.layer != 3)
        return false;
    constexpr std::size_t kVbriAt = kMpegHeaderBytes + 32;
    if (TextAt(frame, kVbriAt, 4) == "VBRI")
        return true;
    for (const std::size_t start :
         {header.DataAt(), kMpegHeaderBytes}) { // some write no checksum but say they do
        const std::size_t at = start + header.SideInfoBytes();
        const std::string_view id = TextAt(frame, at, 4);
        if (id != "Xing" && id != "Info")
            continue;
        ParseExtension(frame.subspan(at), out);
        return true;
    }
    return false;
}

} // namespace

/// A piece of the input in memory.
class MpegStream::Window {
public:
    explicit Window(ByteInput& input) : input_(input), bytes_(kWindowBytes) {}

    std::uint64_t Size() const noexcept { return input_.Size(); }
    bool HasFailed() const noexcept { return hasFailed_; }
    /// Up to `count` bytes (at most kMpegMostBytes) from `at` on; fewer only at the end.
    std::span<const std::byte> At(std::uint64_t at, std::size_t count) noexcept
    {
        const bool isHeld = at >= start_ && at - start_ <= held_ && count <= held_ - (at - start_);
        if (!isHeld && !(at >= start_ && at - start_ <= held_ && isEnd_)) {
            // Seeking goes back frame by frame.
            start_ = at < start_ ? at - std::min<std::uint64_t>(at, kWindowBytes / 2) : at;
            held_ = 0;
            hasFailed_ = !input_.Read(start_, bytes_, held_) || hasFailed_;
            isEnd_ = held_ < bytes_.size();
        }
        const auto skipped = static_cast<std::size_t>(at - start_);
        return std::span(bytes_).subspan(skipped, std::min(count, held_ - skipped));
    }
    /// The place at or behind `at` of a byte that may begin a header; the end if there is none.
    std::uint64_t FindSync(std::uint64_t at) noexcept
    {
        constexpr unsigned kSyncByte = 0xFF;
        while (at < Size()) {
            const std::span<const std::byte> bytes = At(at, kMpegMostBytes);
            if (bytes.empty())
                return Size();
            const void* found = std::memchr(bytes.data(), kSyncByte, bytes.size());
            if (found != nullptr)
                return at + static_cast<std::uint64_t>(static_cast<const std::byte*>(found) - bytes.data());
            at += bytes.size();
        }
        return Size();
    }

private:
    ByteInput& input_;
    std::vector<std::byte> bytes_;
    std::uint64_t start_ = 0;
    std::size_t held_ = 0;
    bool isEnd_ = false;
    bool hasFailed_ = false;
};

/// Finds the frames from the input's start to its end.
class MpegStream::Scanner {
public:
    Scanner(Window& window, std::vector<std::uint64_t>& places) noexcept : window_(window), places_(places) {}

    void Run()
    {
        std::uint64_t at = TagsEnd(0);
        while (Find(at)) {
            do {
                places_.push_back(at);
                at += bytes_;
            } while (IsFrame(at));
        }
    }
    const MpegHeader& First() const noexcept { return first_; }
    std::size_t FreeBytes() const noexcept { return freeBytes_; }

private:
    /// Behind ID3v2 tags, whose pictures may look like frames.
    std::uint64_t TagsEnd(std::uint64_t at)
    {
        constexpr std::size_t kHeadBytes = 10;
        constexpr std::uint32_t kHasFooter = 0x10;
        for (;;) {
            const auto head = window_.At(at, kHeadBytes);
            if (head.size() < kHeadBytes || TextAt(head, 0, 3) != "ID3")
                return at;
            std::uint64_t size = 0;
            for (std::size_t i = 6; i < kHeadBytes; ++i)
                size = size << 7 | (BigEndianAt(head, i, 1) & 0x7F);
            at += kHeadBytes + size + ((BigEndianAt(head, 5, 1) & kHasFooter) != 0 ? kHeadBytes : 0);
        }
    }

    /// True for a header of this stream, or of any if there is none yet.
    bool HeaderAt(std::uint64_t at, MpegHeader& header)
    {
        return ParseMpegHeader(window_.At(at, kMpegHeaderBytes), header) &&
               (!hasFirst_ || IsSameMpegStream(header, first_));
    }

    /// True if a frame of the stream lies at `at`, whole; sets bytes_.
    bool IsFrame(std::uint64_t at)
    {
        MpegHeader header;
        if (at >= window_.Size() || !HeaderAt(at, header))
            return false;
        bytes_ = header.IsFree() ? freeBytes_ + header.PaddingBytes() : header.FrameBytes();
        return bytes_ > HeadBytes(header) && bytes_ <= window_.Size() - at;
    }

    /// Moves `at` to the next frame that others confirm.
    bool Find(std::uint64_t& at)
    {
        for (at = window_.FindSync(at); at < window_.Size(); at = window_.FindSync(at + 1)) {
            MpegHeader header;
            if (!HeaderAt(at, header))
                continue;
            const bool isFirst = !hasFirst_;
            if (isFirst) {
                first_ = header;
                hasFirst_ = true;
                freeBytes_ = header.IsFree() ? FindFreeBytes(at, header) : 0;
            }
            if (IsConfirmed(at, isFirst ? 2 : 1))
                return true;
            hasFirst_ = !isFirst;
        }
        return false;
    }

    /// True if a whole frame is there, and behind it as many headers as `others`, or the end.
    bool IsConfirmed(std::uint64_t at, unsigned others)
    {
        if (!IsFrame(at))
            return false;
        const std::size_t bytes = bytes_;
        std::uint64_t next = at + bytes;
        bool good = true;
        MpegHeader header;
        for (; others != 0 && good && window_.Size() - next >= kMpegHeaderBytes; --others) {
            good = HeaderAt(next, header);
            if (!good || !IsFrame(next))
                break;
            next += bytes_;
        }
        bytes_ = bytes;
        return good;
    }

    /// Up to the next header with the same fields, without padding; 0: none is near.
    std::size_t FindFreeBytes(std::uint64_t at, const MpegHeader& header)
    {
        if (freeSearches_ == kMostFreeSearches)
            return 0;
        ++freeSearches_;
        const std::uint64_t end = std::min(window_.Size(), at + kMpegMostBytes + 1);
        for (std::uint64_t next = at + HeadBytes(header) + 1; (next = window_.FindSync(next)) < end; ++next) {
            MpegHeader other;
            if (HeaderAt(next, other) && other.Channels() == header.Channels())
                return static_cast<std::size_t>(next - at) - header.PaddingBytes();
        }
        return 0;
    }

    Window& window_;
    std::vector<std::uint64_t>& places_;
    MpegHeader first_;
    bool hasFirst_ = false;
    std::size_t freeBytes_ = 0;
    unsigned freeSearches_ = 0;
    std::size_t bytes_ = 0; ///< of the frame that IsFrame saw last
};

MpegStream::MpegStream() = default;

MpegStream::~MpegStream() = default;

bool MpegStream::Open(ByteInput& input)
{
    window_ = std::make_unique<Window>(input);
    Scanner scanner(*window_, places_);
    scanner.Run();
    if (window_->HasFailed())
        return Fail(u"Reading from file failed");
    freeBytes_ = scanner.FreeBytes();
    InfoFrame extra;
    MpegHeader header;
    std::span<const std::byte> bytes;
    if (!places_.empty())
        info_.audioAt = places_.front();
    if (!places_.empty() && ReadFrame(0, header, bytes) && ParseInfoFrame(header, bytes, extra))
        places_.erase(places_.begin());
    if (places_.empty() || !ReadFrame(0, info_.first, bytes))
        return Fail(u"No MPEG audio found");
    SetChannels(info_.first.Channels());
    const std::uint64_t perFrame = info_.first.Frames();
    info_.mpegFrames = places_.size();
    info_.frames = info_.mpegFrames * perFrame;
    if (extra.delay)
        Trim(*extra.delay, *extra.padding, !extra.mpegFrames || *extra.mpegFrames == info_.mpegFrames);
    const std::uint64_t span = places_.back() - places_.front();
    if (info_.mpegFrames > 1)
        info_.kbit = static_cast<float>(static_cast<double>(span) * 8 * info_.first.rateHz / 1000 /
                                        static_cast<double>((info_.mpegFrames - 1) * perFrame));
    else
        info_.kbit = info_.first.kbit;
    return Seek(0) || info_.frames == 0;
}

/// Leaves out what the encoder added. A claim of more than there is counts as none.
/// @param isWhole  the last frame that the encoder made, behind which the padding lies, is there
void MpegStream::Trim(std::uint32_t delay, std::uint32_t padding, bool isWhole) noexcept
{
    const std::uint64_t total = info_.frames;
    const std::uint64_t begin = delay + kDecoderDelay;
    const std::uint64_t end = isWhole ? std::max<std::uint64_t>(padding, kDecoderDelay) - kDecoderDelay : 0;
    if (begin + end > total)
        return;
    info_.isTrimmed = true;
    info_.frames = total - begin - end;
    begin_ = begin;
}

bool MpegStream::ReadFrame(std::uint64_t index, MpegHeader& header, std::span<const std::byte>& bytes)
{
    const std::uint64_t at = places_[static_cast<std::size_t>(index)];
    if (!ParseMpegHeader(window_->At(at, kMpegHeaderBytes), header))
        return Fail(u"Reading from file failed");
    const std::size_t size = header.IsFree() ? freeBytes_ + header.PaddingBytes() : header.FrameBytes();
    bytes = window_->At(at, std::min(size, kMpegMostBytes));
    return !window_->HasFailed() || Fail(u"Reading from file failed");
}

/// Gets the decoder ready for frame `index`: the bits that it may need, and filters as they would be.
bool MpegStream::StartBefore(std::uint64_t index)
{
    decoder_.Reset();
    const std::uint64_t settled = index - std::min(index, kSettling);
    std::uint64_t fed = settled;
    MpegHeader header;
    std::span<const std::byte> bytes;
    for (std::size_t data = 0; fed > 0 && data < kMpegReservoirBytes && settled - fed < kMostFed;) {
        if (!ReadFrame(--fed, header, bytes))
            return false;
        if (header.layer != 3)
            break;
        data += bytes.size() - std::min(bytes.size(), HeadBytes(header));
    }
    for (; fed < settled; ++fed) {
        if (!ReadFrame(fed, header, bytes))
            return false;
        decoder_.Feed(header, bytes);
    }
    next_ = settled;
    while (next_ < index)
        if (!DecodeFrame())
            return false;
    return true;
}

bool MpegStream::DecodeFrame()
{
    MpegHeader header;
    std::span<const std::byte> bytes;
    if (!ReadFrame(next_, header, bytes))
        return false;
    held_ = decoder_.Decode(header, bytes, decoded_);
    taken_ = 0;
    ++next_;
    ToStreamChannels(header.Channels());
    return true;
}

/// Streams may change from stereo to mono and back.
void MpegStream::ToStreamChannels(unsigned channels) noexcept
{
    if (channels == Channels())
        return;
    if (channels == 2) {
        for (std::size_t i = 0; i < held_; ++i)
            decoded_[i] = (decoded_[2 * i] + decoded_[2 * i + 1]) * 0.5f;
    } else {
        for (std::size_t i = held_; i-- > 0;)
            decoded_[2 * i] = decoded_[2 * i + 1] = decoded_[i];
    }
}

bool MpegStream::Seek(std::uint64_t frame)
{
    const bool isInside = frame < info_.frames;
    position_ = isInside ? frame : 0;
    held_ = taken_ = 0;
    const std::uint64_t place = begin_ + position_;
    const std::uint64_t perFrame = info_.first.Frames();
    if (!StartBefore(place / perFrame))
        return false;
    held_ = taken_ = 0;
    const auto skipped = static_cast<std::size_t>(place % perFrame);
    if (skipped != 0 && info_.frames != 0) {
        if (!DecodeFrame())
            return false;
        taken_ = std::min(skipped, held_);
    }
    return isInside;
}

bool MpegStream::Read(std::span<float> out, std::size_t& frames)
{
    frames = 0;
    const unsigned channels = Channels();
    std::size_t wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(out.size() / channels, info_.frames - position_));
    while (frames < wanted) {
        if (taken_ == held_ && !DecodeFrame())
            return false;
        const std::size_t count = std::min(wanted - frames, held_ - taken_);
        std::copy_n(decoded_.begin() + static_cast<std::ptrdiff_t>(taken_ * channels), count * channels,
                    out.begin() + static_cast<std::ptrdiff_t>(frames * channels));
        taken_ += count;
        frames += count;
        position_ += count;
    }
    return true;
}

} // namespace vimbo
