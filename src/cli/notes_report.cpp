#include "cli/notes_report.h"

#include "base/text.h"
#include "cli/display.h"

#include <fmt/format.h>

#include <array>
#include <iterator>
#include <map>
#include <tuple>

namespace vimbo::cli {

namespace {

constexpr std::array<std::string_view, 3> kFidelities{"kept", "approximated", "lost"};
constexpr std::array<std::string_view, 11> kTopics{"instrument", "layer",     "region",  "waveform",
                                                   "song",       "parameter", "trigger", "loop",
                                                   "text",       "effect",    "other"};

std::string_view FidelityWord(Fidelity fidelity) noexcept
{
    return kFidelities[static_cast<std::size_t>(fidelity) % kFidelities.size()];
}

std::string_view TopicWord(NoteTopic topic) noexcept
{
    return kTopics[static_cast<std::size_t>(topic) % kTopics.size()];
}

struct Group {
    std::uint64_t count = 0;
    const ConversionNote* example = nullptr;
};
using Key = std::tuple<NoteTopic, std::u16string, std::u16string>; ///< topic, what, reason
using Groups = std::map<Key, Group>;

Groups GroupNotes(std::span<const ConversionNote> notes, Fidelity fidelity)
{
    Groups groups;
    for (const ConversionNote& note : notes) {
        if (note.fidelity != fidelity)
            continue;
        Group& group = groups[Key{note.topic, note.what, note.reason}];
        group.count += note.count;
        if (group.example == nullptr)
            group.example = &note;
    }
    return groups;
}

/// "440 Hz -> 441 Hz in Piano / Layer 1", as far as the note has that.
std::string ExampleText(const ConversionNote& note)
{
    std::string text = Printable(note.from);
    if (!note.to.empty())
        text += (text.empty() ? "-> " : " -> ") + Printable(note.to);
    if (!note.item.empty())
        text += (text.empty() ? "in " : " in ") + Printable(note.item);
    return text;
}

void AddGroup(std::string& out, const Key& key, const Group& group)
{
    const auto& [topic, what, reason] = key;
    fmt::format_to(std::back_inserter(out), "    {} {}", group.count,
                   what.empty() ? std::string(TopicWord(topic)) : Printable(what));
    if (!reason.empty())
        fmt::format_to(std::back_inserter(out), " ({})", Printable(reason));
    const std::string example = ExampleText(*group.example);
    if (!example.empty())
        fmt::format_to(std::back_inserter(out), "{}{}", group.count > 1 ? ", such as " : ": ", example);
    out += '\n';
}

} // namespace

Json NotesJson(std::span<const ConversionNote> notes)
{
    Json list = Json::array();
    for (const ConversionNote& note : notes) {
        Json json{{"fidelity", FidelityWord(note.fidelity)}, {"topic", TopicWord(note.topic)}};
        const auto put = [&](const char* key, const std::u16string& text) {
            if (!text.empty())
                json[key] = WideToUtf8(text);
        };
        put("item", note.item);
        put("what", note.what);
        put("from", note.from);
        put("to", note.to);
        put("reason", note.reason);
        json["count"] = note.count;
        list.push_back(std::move(json));
    }
    return list;
}

std::string NotesText(std::span<const ConversionNote> notes)
{
    std::string out;
    std::uint64_t kept = 0;
    for (const ConversionNote& note : notes)
        kept += note.fidelity == Fidelity::Kept ? note.count : 0;
    if (kept > 0)
        fmt::format_to(std::back_inserter(out), "  kept: {} values\n", kept);
    for (const Fidelity fidelity : {Fidelity::Approximated, Fidelity::Lost}) {
        const Groups groups = GroupNotes(notes, fidelity);
        if (!groups.empty())
            fmt::format_to(std::back_inserter(out), "  {}:\n", FidelityWord(fidelity));
        for (const auto& [key, group] : groups)
            AddGroup(out, key, group);
    }
    return out;
}

} // namespace vimbo::cli
