// Names in the 20 bytes that SoundFont records have for them, each given once.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace vimbo::sf2 {

inline constexpr std::size_t kNameBytes = 20;

/// A name of at most `room` bytes: numbers, note names and sides at the end are kept.
std::string CutName(std::string_view name, std::size_t room = kNameBytes);

struct NamePair {
    std::string left, right;
};

/// The names of one table. What is free and short enough stays as it is; other names get numbers.
class FieldNames {
public:
    std::string Take(std::string_view wanted);
    /// Names of two halves: `stem` with what marks the sides.
    NamePair TakePair(std::string_view stem);
    /// Both as they stand if they are free and short enough; else nothing happens. @return if they were taken
    bool TakeBoth(std::string_view left, std::string_view right);
    /// A name that must not be used.
    void Reserve(std::string_view name);

private:
    bool IsFree(std::string_view name) const;
    /// Calls `isTaken` with the stem, then with numbers behind it, until that returns true.
    template <class TryName>
    void ForEachNumber(std::string_view stem, std::size_t room, TryName tryName);

    std::unordered_set<std::u16string> taken_;
    std::unordered_map<std::string, unsigned> numbers_; ///< the last one tried behind a name
};

} // namespace vimbo::sf2
