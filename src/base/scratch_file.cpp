#include "base/scratch_file.h"

#include "base/path.h"
#include "base/text.h"

#include <algorithm>
#include <vector>

#include <unistd.h>

namespace vimbo {

bool ScratchFile::Create()
{
    std::u16string path;
    if (!MakeTempPath(path, u".tmp"))
        return false;
    const bool isOpen = file_.Open(path, FileMode::ReadWrite);
    ::unlink(WideToPath(path).c_str());
    return isOpen;
}

bool CopyBytes(FileObject& from, FileObject& to, std::uint64_t bytes)
{
    constexpr std::size_t kPieceBytes = std::size_t{1} << 18;
    std::vector<std::byte> piece(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, kPieceBytes)));
    while (bytes != 0) {
        const auto part =
            std::span(piece).first(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, piece.size())));
        if (!from.ReadExact(part) || !to.WriteAll(part))
            return false;
        bytes -= part.size();
    }
    return true;
}

} // namespace vimbo
