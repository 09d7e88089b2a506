// Detection over all rows: every detector sees any bytes under any extension, and loading what it chose is
// safe.
#include "base/file_object.h"
#include "formats/open.h"

#include <cstdlib>

namespace {

std::u16string PathFor(std::uint8_t selector)
{
    const std::size_t row = selector % vimbo::kFormatRowCount;
    return u"/input/sound." + std::u16string(vimbo::FormatRows()[row].extension);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const auto bytes = std::as_bytes(std::span(data, size)).subspan(1);
    vimbo::MemoryFile file(bytes);
    int confidence = 0;
    const int row = vimbo::DetectFormat(PathFor(data[0]), file, confidence);
    const vimbo::FormatRow* entry = vimbo::FindRow(row);
    if ((row >= 0 && (!entry || !entry->read)) || confidence < 0 || confidence > 100)
        std::abort();
    for (const vimbo::FormatRow& other : vimbo::FormatRows()) {
        const int score = other.detect ? other.detect(bytes, other.variant, bytes.size()) : 0;
        if (score < 0 || score > 6)
            std::abort();
    }
    return 0;
}
