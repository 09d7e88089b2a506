// ZIP archives: recognised, and handed to the desktop's own program for them. Nothing is unpacked here.
// Signatures: PKWARE, APPNOTE.TXT, sections 4.3.7, 4.3.16 and 8.5.3.
#include "formats/container/zip.h"

#include "base/byte_reader.h"
#include "base/host.h"

namespace vimbo {

namespace {

constexpr std::uint32_t kLocalHeader = 0x04034B50;
constexpr std::uint32_t kEndOfDirectory = 0x06054B50; ///< an archive without members
constexpr std::uint32_t kSpanned = 0x08074B50;

} // namespace

bool ReadZip(Collection& collection, FileObject& file, std::uint32_t /*variant*/)
{
    const std::u16string path = file.Path();
    file.Close();
    Host& host = collection.GetHost();
    if (!host.OpenExternally(path))
        host.ShowMessage(u"Could not open the archive with another program", u"ZIP archive",
                         MessageIcon::Warning);
    return true;
}

int DetectZip(std::span<const std::byte> head, std::uint32_t /*variant*/, std::uint64_t /*fileSize*/) noexcept
{
    U32le signature;
    if (!ByteReader(head).Read(signature))
        return 0;
    const std::uint32_t value = signature.Get();
    return value == kLocalHeader || value == kEndOfDirectory || value == kSpanned ? 6 : 0;
}

} // namespace vimbo
