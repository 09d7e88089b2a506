// FLAC files (RFC 9639): reading notes where the stream lies and takes the metadata blocks that a waveform
// has a place for.
#include "base/byte_reader.h"
#include "base/last_error.h"
#include "formats/format_choice.h"
#include "formats/xiph/comments.h"
#include "formats/xiph/riff_blocks.h"
#include "formats/xiph/xiph.h"

#include <algorithm>

namespace vimbo {
namespace {

constexpr FourCc kMarker{"fLaC"};
constexpr std::uint8_t kLastBlock = 0x80;

enum BlockType : std::uint8_t { kStreamInfo = 0, kApplication = 2, kComments = 4, kPicture = 6 };

struct BlockHead {
    std::uint8_t type = 0; ///< with kLastBlock
    std::array<std::uint8_t, 3> size{};

    std::uint32_t Size() const noexcept
    {
        return std::uint32_t{size[0]} << 16 | std::uint32_t{size[1]} << 8 | size[2];
    }
};
static_assert(DiskRecord<BlockHead> && sizeof(BlockHead) == 4);

/// ID3v2 tag that some taggers put before the stream.
struct Id3Head {
    std::array<char, 3> id{};
    std::array<std::uint8_t, 2> version{};
    std::uint8_t flags = 0;
    std::array<std::uint8_t, 4> size{}; ///< seven bits each

    bool IsTag() const noexcept { return id == std::array{'I', 'D', '3'}; }
    std::uint64_t TagBytes() const noexcept
    {
        constexpr std::uint8_t kHasFooter = 0x10;
        std::uint32_t body = 0;
        for (const std::uint8_t part : size)
            body = body << 7 | (part & 0x7Fu);
        return sizeof(Id3Head) * ((flags & kHasFooter) != 0 ? 2 : 1) + body;
    }
};
static_assert(DiskRecord<Id3Head> && sizeof(Id3Head) == 10);

struct FlacTags {
    std::vector<std::string> comments;
    CoverPicker cover;
    RiffBlocks riffBlocks;
};

/// Place of the first metadata block; false if the file does not begin as FLAC files do.
bool FindBlocks(FileObject& file, std::uint64_t& place)
{
    FourCc marker;
    Id3Head id3;
    place = 0;
    if (file.Seek(0) && file.Read(id3) && id3.IsTag())
        place = id3.TagBytes();
    const bool isFound = file.Seek(place) && file.Read(marker) && marker == kMarker;
    place += sizeof(marker);
    return isFound;
}

void TakeBlock(std::uint8_t type, std::vector<std::byte> body, FlacTags& tags)
{
    FourCc id;
    if (type == kPicture)
        tags.cover.Offer(body);
    else if (type == kComments && tags.comments.empty())
        tags.comments = ParseCommentHeader(body);
    else if (type == kApplication && ByteReader(body).Read(id) && id == FourCc{"riff"})
        tags.riffBlocks.emplace_back(body.begin() + sizeof(id), body.end());
}

/// Reads the blocks that matter, as far as the file goes.
void ReadBlocks(FileObject& file, std::uint64_t place, FlacTags& tags)
{
    BlockHead head;
    while (file.Seek(place) && file.Read(head)) {
        const std::uint8_t type = head.type & static_cast<std::uint8_t>(~kLastBlock);
        place += sizeof(head);
        const std::uint64_t size = head.Size();
        if (place > file.Size() || size > file.Size() - place)
            return;
        if (type == kApplication || type == kComments || type == kPicture) {
            std::vector<std::byte> body(static_cast<std::size_t>(size));
            if (!file.ReadExact(body))
                return;
            TakeBlock(type, std::move(body), tags);
        }
        if ((head.type & kLastBlock) != 0)
            return;
        place += size;
    }
}

bool FillFlac(Waveform& wave, FileObject& file)
{
    std::uint64_t place = 0;
    if (!FindBlocks(file, place))
        return Fail(u"Not a FLAC file");
    if (!DescribeFlac(wave, file, 0, 0))
        return false;
    FlacTags tags;
    ReadBlocks(file, place, tags);
    ApplyRiffBlocks(tags.riffBlocks, wave);
    ApplyComments(tags.comments, tags.cover, wave);
    return true;
}

void NoteLostImage(const Waveform& wave)
{
    Host& host = wave.Owner().GetHost();
    if (host.WantsNotes())
        host.NoteConversion({.fidelity = Fidelity::Lost,
                             .topic = NoteTopic::Other,
                             .item = std::u16string(wave.GetName()),
                             .what = u"Image",
                             .from = {},
                             .to = {},
                             .reason = u"FLAC files hold images of up to 16 MB"});
}

FlacSettings SettingsOf(const Waveform& wave, DataFormat format, std::uint32_t variant)
{
    constexpr unsigned kLevelDefault = 5;
    constexpr unsigned kLevelMax = 8;
    FlacSettings settings;
    settings.bits = DataFormatBits(format);
    settings.level = variant == kFlacVariantMaxCompression ? kLevelMax : kLevelDefault;
    settings.rateHz = wave.rateHz;
    settings.comments = MakeComments(wave);
    const std::span<const std::byte> image = wave.GetImage();
    constexpr std::size_t kPictureFields = 64;
    if (image.size() + kPictureFields < kFlacMaxBlockBytes) {
        settings.picture.assign(image.begin(), image.end());
        settings.pictureMime = ImageMimeType(image);
    } else {
        NoteLostImage(wave);
    }
    return settings;
}

} // namespace

int DetectFlac(std::span<const std::byte> head, std::uint32_t /*variant*/,
               std::uint64_t /*fileSize*/) noexcept
{
    constexpr int kSure = 6;
    constexpr int kClue = 4;
    constexpr int kUnknown = 2;
    Id3Head id3;
    FourCc marker;
    BlockHead block;
    ByteReader in(head);
    if (ByteReader(head).Read(id3) && id3.IsTag() && !in.Skip(id3.TagBytes()))
        return kUnknown;
    if (!in.Read(marker) || marker != kMarker)
        return 0;
    return in.Read(block) && (block.type & ~kLastBlock) == kStreamInfo ? kSure : kClue;
}

bool ReadFlac(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    auto& wave = collection.Create<Waveform>(collection.GetName());
    if (FillFlac(wave, file))
        return true;
    collection.Destroy(wave.Handle());
    return false;
}

bool WriteFlac(Item& root, FileObject& file, FormatChoice& choice)
{
    if (root.Kind() != ItemKind::Waveform)
        return Fail(u"The file format can not save this item");
    auto& wave = static_cast<Waveform&>(root);
    float kbit = 0;
    const DataFormat format = PickDataFormat(wave, choice, kbit, nullptr);
    const std::unique_ptr<FrameSource> source = OpenFramesOrNone(wave, choice);
    if (source == nullptr)
        return false;
    FlacSettings settings = SettingsOf(wave, format, choice.variant);
    settings.riffBlocks = MakeRiffBlocks(wave, source->Channels(), settings.bits, source->Frames());
    return EncodeFlac(*source, settings, file);
}

} // namespace vimbo
