#include "formats/format_table.h"

#include "base/last_error.h"
#include "base/text.h"

#include <exception>
#include <new>

namespace vimbo {

namespace {

/// A row that a writer serves, now or once its driver exists: the table gives pure reading rows no
/// capabilities.
bool DescribesWriter(const FormatRow& row) noexcept
{
    return row.write != nullptr || row.caps != 0;
}

template <class Predicate>
bool EnumRows(int& index, EnumeratedRow& out, Predicate wanted) noexcept
{
    for (int row = index < 0 ? 0 : index; row < static_cast<int>(kFormatRowCount); ++row) {
        const FormatRow& entry = FormatRows()[static_cast<std::size_t>(row)];
        if (!wanted(entry))
            continue;
        index = row + 1;
        out = {row, entry.extension, entry.description, entry.kinds, entry.caps};
        return true;
    }
    index = static_cast<int>(kFormatRowCount);
    return false;
}

/// Runs a driver's function; what it throws becomes the Last error text.
template <class Call>
bool Guarded(Call call) noexcept
{
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return Fail(u"Out of memory");
    } catch (const std::exception& error) {
        try {
            return Fail(Utf8ToWide(error.what()));
        } catch (...) {
            return Fail(u"Out of memory");
        }
    }
}

} // namespace

const FormatRow* FindRow(int row) noexcept
{
    if (row < 0 || row >= static_cast<int>(kFormatRowCount))
        return nullptr;
    return &FormatRows()[static_cast<std::size_t>(row)];
}

bool RowSupportsKind(int row, ItemKind kind) noexcept
{
    const FormatRow* entry = FindRow(row);
    return entry && entry->read && (entry->kinds >> static_cast<unsigned>(kind) & 1) != 0;
}

bool EnumRowsForRead(int& index, EnumeratedRow& out) noexcept
{
    return EnumRows(index, out, [](const FormatRow& row) { return row.read != nullptr; });
}

bool EnumRowsForWrite(int& index, EnumeratedRow& out) noexcept
{
    return EnumRows(index, out, [](const FormatRow& row) { return row.write != nullptr; });
}

int FindRowByExtension(std::u16string_view extension, std::uint8_t kindMask) noexcept
{
    if (extension.starts_with(u'.'))
        extension.remove_prefix(1);
    int index = 0;
    EnumeratedRow row;
    while (EnumRowsForWrite(index, row)) {
        if ((row.kinds & kindMask) != 0 && CompareNoCase(row.extension, extension) == 0)
            return row.row;
    }
    return -1;
}

std::uint32_t GetRowCaps(int row, std::uint32_t& variant) noexcept
{
    const FormatRow* first = FindRow(row);
    if (!first)
        return 0;
    for (const FormatRow& entry : FormatRows().subspan(static_cast<std::size_t>(row))) {
        if (entry.extension != first->extension)
            break;
        if (DescribesWriter(entry)) {
            variant = entry.variant;
            return entry.caps;
        }
    }
    return 0;
}

std::u16string_view RowDescription(int row) noexcept
{
    const FormatRow* entry = FindRow(row);
    return entry ? entry->description : std::u16string_view(u"<none>");
}

std::u16string_view RowExtension(int row) noexcept
{
    const FormatRow* entry = FindRow(row);
    return entry ? entry->extension : std::u16string_view();
}

bool GetSubFormat(int row, std::uint32_t& index, float& kbit, std::u16string& name)
{
    const FormatRow* entry = FindRow(row);
    if (!entry || !entry->subFormats)
        return false;
    kbit = entry->subFormats(index, entry->variant, &name);
    if (!(kbit > 0))
        return false;
    ++index;
    return true;
}

bool ReadThroughRow(const FormatRow& row, Collection& out, FileObject& file) noexcept
{
    return Guarded([&] { return row.read(out, file, row.variant); });
}

bool WriteThroughRow(const FormatRow& row, Item& root, FileObject& file, FormatChoice& choice) noexcept
{
    return Guarded([&] {
        choice.variant = row.variant;
        return row.write(root, file, choice);
    });
}

int DetectNothing(std::span<const std::byte>, std::uint32_t, std::uint64_t) noexcept
{
    return 2;
}

} // namespace vimbo
