// A file for what must be kept for a while and does not fit in memory.
#pragma once

#include "base/file_object.h"

namespace vimbo {

/// A file without a name that goes when it is closed.
class ScratchFile {
public:
    [[nodiscard]] bool Create();
    FileObject& File() noexcept { return file_; }

private:
    FileObject file_;
};

/// Copies `bytes` bytes between the files' positions. False if either fails; the Last error text is not set.
[[nodiscard]] bool CopyBytes(FileObject& from, FileObject& to, std::uint64_t bytes);

} // namespace vimbo
