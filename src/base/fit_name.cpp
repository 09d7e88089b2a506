#include "base/fit_name.h"

#include <algorithm>
#include <optional>

namespace vimbo {
namespace {

constexpr std::size_t kShortestTagged = 4; ///< shorter names are all stem, apart from the channel tag
constexpr std::size_t kMaxTagDigits = 3;   ///< a longer number is part of the stem
constexpr std::size_t kChannelLength = 2;  ///< "-" and the letter

template <class Char>
constexpr bool IsDigit(Char c) noexcept
{
    return c >= Char{'0'} && c <= Char{'9'};
}

/// `c` is an ASCII letter from `first` (a capital) to "H", or its small form.
template <class Char>
constexpr bool IsNoteLetter(Char c, char first) noexcept
{
    return (c >= Char(first) && c <= Char{'H'}) || (c >= Char(first + 0x20) && c <= Char{'h'});
}

template <class Char>
constexpr bool IsAccidental(Char c) noexcept
{
    return c == Char{'#'} || c == Char{'b'};
}

/// A piece of the name that survives the shortening.
template <class Char>
struct Tag {
    std::basic_string_view<Char> text;
    bool blankBefore = false;
};

/// The parts that a name falls into. They go out in the order of the members.
template <class Char>
struct NameParts {
    using View = std::basic_string_view<Char>;

    View stem;
    Tag<Char> numberAhead; ///< found in front of the note
    Tag<Char> note;
    Tag<Char> numberBehind; ///< found at the very end
    std::optional<Char> channel;

    std::size_t TagLength() const noexcept
    {
        return numberAhead.text.size() + note.text.size() + numberBehind.text.size() +
               (channel ? kChannelLength : 0);
    }
};

template <class Char>
std::basic_string_view<Char> WithoutBlanksBehind(std::basic_string_view<Char> text) noexcept
{
    while (!text.empty() && text.back() == Char{' '})
        text.remove_suffix(1);
    return text;
}

/// Cuts the last `length` characters off the stem, together with the blanks before them.
template <class Char>
Tag<Char> CutTag(std::basic_string_view<Char>& stem, std::size_t length) noexcept
{
    const std::size_t at = stem.size() - length;
    const Tag<Char> tag{stem.substr(at), at > 0 && stem[at - 1] == Char{' '}};
    stem = WithoutBlanksBehind(stem.substr(0, at));
    return tag;
}

template <class Char>
std::optional<Char> CutChannel(std::basic_string_view<Char>& stem) noexcept
{
    if (stem.size() <= kChannelLength)
        return std::nullopt;
    const Char letter = stem.back();
    const Char before = stem[stem.size() - 2];
    const bool isLetter =
        letter == Char{'L'} || letter == Char{'R'} || letter == Char{'l'} || letter == Char{'r'};
    if (!isLetter || (before != Char{' '} && before != Char{'-'}))
        return std::nullopt;
    CutTag(stem, kChannelLength);
    return letter;
}

/// Number of digits at the end if they can be a number tag, else 0.
template <class Char>
std::size_t TagDigits(std::basic_string_view<Char> text) noexcept
{
    const auto stop = std::find_if_not(text.rbegin(), text.rend(), IsDigit<Char>);
    const auto count = static_cast<std::size_t>(stop - text.rbegin());
    return count <= kMaxTagDigits ? count : 0;
}

/// True if the text, from which the digits are already cut, ends as a note name that stands by itself does: a
/// blank, a letter ("A" does not count, it is too often the last letter of a name), an optional accidental,
/// an optional "-".
template <class Char>
bool EndsInNote(std::basic_string_view<Char> text) noexcept
{
    if (!text.empty() && text.back() == Char{'-'})
        text.remove_suffix(1);
    const auto endsInLetter = [](std::basic_string_view<Char> rest) {
        return rest.size() >= 2 && rest[rest.size() - 2] == Char{' '} && IsNoteLetter(rest.back(), 'B');
    };
    // A "b" can be the letter as well as the accidental.
    return endsInLetter(text) ||
           (!text.empty() && IsAccidental(text.back()) && endsInLetter(text.substr(0, text.size() - 1)));
}

/// Letter "A" to "H", optional accidental, optional sign, one or two digits, and nothing else.
template <class Char>
bool IsNoteName(std::basic_string_view<Char> text) noexcept
{
    if (text.empty() || !IsNoteLetter(text.front(), 'A'))
        return false;
    text.remove_prefix(1);
    if (!text.empty() && IsAccidental(text.front()))
        text.remove_prefix(1);
    if (!text.empty() && (text.front() == Char{'+'} || text.front() == Char{'-'}))
        text.remove_prefix(1);
    return !text.empty() && text.size() <= 2 && std::all_of(text.begin(), text.end(), IsDigit<Char>);
}

/// Length of the note name at the end, the shortest that fits, else 0.
template <class Char>
std::size_t NoteLength(std::basic_string_view<Char> text) noexcept
{
    for (const std::size_t length : {2u, 3u, 4u})
        if (length <= text.size() && IsNoteName(text.substr(text.size() - length)))
            return length;
    return 0;
}

template <class Char>
NameParts<Char> SplitName(std::basic_string_view<Char> name, KeepTags keepTags) noexcept
{
    NameParts<Char> parts;
    std::basic_string_view<Char>& stem = parts.stem;
    stem = WithoutBlanksBehind(name);
    if (keepTags == KeepTags::Yes) {
        parts.channel = CutChannel(stem);
        const std::size_t digits = stem.size() >= kShortestTagged ? TagDigits(stem) : 0;
        if (digits > 0 && !EndsInNote(stem.substr(0, stem.size() - digits)))
            parts.numberBehind = CutTag(stem, digits);
        const std::size_t note = stem.size() >= kShortestTagged ? NoteLength(stem) : 0;
        if (note > 0)
            parts.note = CutTag(stem, note);
    }
    if (parts.numberBehind.text.empty() && stem.size() >= kShortestTagged)
        if (const std::size_t digits = TagDigits(stem); digits > 0)
            parts.numberAhead = CutTag(stem, digits);
    return parts;
}

/// Appends to a field as far as it holds the text, and knows how many blanks the field can spare.
template <class Char>
class FieldWriter {
public:
    FieldWriter(std::span<Char> field, std::size_t spareBlanks) noexcept : field_(field), spare_(spareBlanks)
    {
    }

    std::size_t Written() const noexcept { return written_; }

    void Append(std::basic_string_view<Char> text) noexcept
    {
        const std::size_t count = std::min(text.size(), field_.size() - written_);
        std::copy_n(text.begin(), count, field_.begin() + static_cast<std::ptrdiff_t>(written_));
        written_ += count;
    }

    /// A blank only if all that is still to come fits behind it, and never as the field's first character.
    void AppendTag(std::basic_string_view<Char> text, bool wantsBlank) noexcept
    {
        constexpr Char kBlank{' '};
        if (!text.empty() && wantsBlank && spare_ > 0 && written_ > 0) {
            Append({&kBlank, 1});
            --spare_;
        }
        Append(text);
    }

private:
    std::span<Char> field_;
    std::size_t spare_;
    std::size_t written_ = 0;
};

/// Pads with blanks and puts the channel tag in the last two places; the name itself ends at `written`.
template <class Char>
void PadField(std::span<Char> field, std::size_t written, std::optional<Char> channel) noexcept
{
    std::fill(field.begin() + static_cast<std::ptrdiff_t>(written), field.end(), Char{' '});
    if (channel && field.size() >= kChannelLength) {
        field[field.size() - 2] = Char{'-'};
        field[field.size() - 1] = *channel;
    }
}

template <class Char>
std::size_t Fit(std::span<Char> out, std::basic_string_view<Char> name, KeepTags keepTags, PadName pad,
                EndName end) noexcept
{
    if (out.empty())
        return 0;
    const std::span<Char> field = out.first(out.size() - (end == EndName::Yes ? 1 : 0));
    const NameParts<Char> parts = SplitName(name, keepTags);
    const std::size_t reserved = std::min(parts.TagLength(), field.size());
    const std::size_t stemLength = std::min(parts.stem.size(), field.size() - reserved);

    FieldWriter<Char> writer(field, field.size() - reserved - stemLength);
    writer.Append(parts.stem.substr(0, stemLength));
    writer.AppendTag(parts.numberAhead.text, parts.numberAhead.blankBefore);
    writer.AppendTag(parts.note.text, true);
    writer.AppendTag(parts.numberBehind.text, parts.numberBehind.blankBefore);
    if (pad == PadName::No && parts.channel) {
        const Char tag[] = {Char{'-'}, *parts.channel};
        writer.AppendTag({tag, kChannelLength}, true);
    }

    const auto written = static_cast<std::ptrdiff_t>(writer.Written());
    std::fill(out.begin() + written, out.end(), Char{});
    if (pad == PadName::No)
        return writer.Written();
    PadField(field, writer.Written(), parts.channel);
    return field.size();
}

} // namespace

std::size_t FitName(std::span<char> out, std::string_view name, KeepTags keepTags, PadName pad,
                    EndName end) noexcept
{
    return Fit(out, name, keepTags, pad, end);
}

std::size_t FitName(std::span<char16_t> out, std::u16string_view name, KeepTags keepTags, PadName pad,
                    EndName end) noexcept
{
    return Fit(out, name, keepTags, pad, end);
}

} // namespace vimbo
