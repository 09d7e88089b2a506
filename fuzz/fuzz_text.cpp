// All text conversions on any bytes, and the round trips that must hold.
#include "base/path.h"
#include "base/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

std::u16string UnitsOf(const std::uint8_t* data, std::size_t size)
{
    std::u16string units;
    for (std::size_t i = 0; i + 1 < size; i += 2)
        units += static_cast<char16_t>(data[i] | data[i + 1] << 8);
    return units;
}

void CheckNarrow(const std::string& bytes, const std::u16string& units)
{
    const std::u16string wide = NarrowToWide(bytes);
    Require(wide.size() == std::min(bytes.find('\0'), bytes.size()));
    // What survived once survives for good, and converting twice is converting once.
    const std::string once = WideToNarrow(wide);
    Require(WideToNarrow(NarrowToWide(once)) == once);
    const std::string narrow = WideToNarrow(units);
    Require(narrow.size() <= units.size());
    Require(WideToNarrow(NarrowToWide(narrow)).size() == narrow.size());
}

/// The fixed-field forms must give a prefix of what the growing forms give, terminated, and tell if it is
/// short.
void CheckFields(const std::string& bytes, const std::u16string& units, std::size_t room)
{
    std::vector<char16_t> wideField(room, u'#');
    const std::u16string wide = NarrowToWide(bytes);
    Require(NarrowToWide(wideField, bytes) == (wide.size() < room));
    std::vector<char> narrowField(room, '#');
    const std::string narrow = WideToNarrow(units);
    Require(WideToNarrow(narrowField, units) == (narrow.size() < room));
    if (room == 0)
        return;
    Require(wide.substr(0, room - 1) == wideField.data());
    Require(narrow.substr(0, room - 1) == narrowField.data());
}

void CheckUtf8(const std::string& bytes, const std::u16string& units)
{
    Require(WideToPath(PathToWide(bytes)) == bytes);
    const std::u16string wide = Utf8ToWide(bytes);
    Require(wide.size() <= bytes.size());
    const std::string clean = WideToUtf8(wide);
    Require(Utf8ToWide(clean) == wide);
    Require(PathToWide(clean) == wide && WideToPath(wide) == clean);
    const std::u16string repaired = Utf8ToWide(WideToUtf8(units));
    Require(repaired.size() == units.size());
    for (std::size_t i = 0; i < units.size(); ++i)
        Require(repaired[i] == units[i] || (repaired[i] == 0xFFFD && (units[i] & 0xF800) == 0xD800));
    WideToPath(units);
}

void CheckCaseAndAccents(const std::u16string& units)
{
    std::u16string folded = units;
    for (char16_t& unit : folded)
        unit = FoldCase(unit);
    Require(CompareNoCase(units, folded) == 0);
    std::u16string composed = units;
    ComposeAccents(composed);
    Require(composed.size() <= units.size());
    const std::u16string once = composed;
    Require(!ComposeAccents(composed) && composed == once);
    Require(GetFileName(units) <= GetExtension(units) && GetExtension(units) <= units.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::size_t room = data[0] % 64;
    const std::string bytes(data + 1, data + size);
    const std::u16string units = UnitsOf(data + 1, size - 1);
    CheckNarrow(bytes, units);
    CheckFields(bytes, units, room);
    CheckUtf8(bytes, units);
    CheckCaseAndAccents(units);
    return 0;
}
