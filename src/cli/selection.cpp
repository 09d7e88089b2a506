#include "cli/selection.h"

#include "base/text.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <algorithm>
#include <charconv>
#include <unordered_set>

namespace vimbo::cli {

namespace {

/// 0 if the word is no number.
std::size_t NumberOf(const std::string& word) noexcept
{
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc() && end == word.data() + word.size() ? number : 0;
}

/// "*" stands for any text, "?" for any character; case does not count.
bool Matches(std::u16string_view pattern, std::u16string_view name) noexcept
{
    std::size_t p = 0, n = 0, star = pattern.size(), resume = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == u'*') {
            star = p++;
            resume = n;
        } else if (p < pattern.size() && (pattern[p] == u'?' || FoldCase(pattern[p]) == FoldCase(name[n]))) {
            ++p;
            ++n;
        } else if (star < pattern.size()) { // the last star takes one character more
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*')
        ++p;
    return p == pattern.size();
}

/// Names first: "808" may well be one. A number that no name matches is a place in the list.
template <class T>
std::vector<T*> Find(const Collection& collection, const std::string& word)
{
    const std::u16string pattern = Utf8ToWide(word);
    std::vector<T*> found;
    for (T& item : collection.All<T>())
        if (Matches(pattern, item.GetName()))
            found.push_back(&item);
    const std::size_t number = NumberOf(word);
    if (found.empty() && number > 0 && number <= collection.CountOf(T::kKind))
        found.push_back(collection.List<T>()[number - 1]);
    return found;
}

using Chosen = std::unordered_set<const Item*>;

void AddWavesOf(const Instrument& instrument, Chosen& chosen)
{
    for (const Layer* layer : instrument.Layers())
        for (const Region* region : layer->Regions())
            if (const Waveform* wave = region->Wave())
                chosen.insert(wave);
}

bool ChooseWaves(const Collection& collection, const std::string& word, Chosen& chosen)
{
    const std::vector<Waveform*> waves = Find<Waveform>(collection, word);
    chosen.insert(waves.begin(), waves.end());
    if (!waves.empty())
        return true;
    const std::vector<Instrument*> instruments = Find<Instrument>(collection, word);
    for (const Instrument* instrument : instruments)
        AddWavesOf(*instrument, chosen);
    return !instruments.empty();
}

template <class T>
bool Choose(const Collection& collection, const std::string& word, Chosen& chosen)
{
    const std::vector<T*> found = Find<T>(collection, word);
    chosen.insert(found.begin(), found.end());
    return !found.empty();
}

template <class T>
void DestroyOthers(Collection& collection, const Chosen& chosen)
{
    for (T* item : collection.List<T>())
        if (!chosen.contains(item))
            collection.Destroy(item->Handle());
}

void DestroyUnplayedWaves(Collection& collection)
{
    Chosen played;
    for (const Region& region : collection.All<Region>())
        if (const Waveform* wave = region.Wave())
            played.insert(wave);
    for (const SynthModel& model : collection.All<SynthModel>())
        for (std::size_t i = 0; i < model.Children().size(); ++i)
            played.insert(model.Child(i));
    DestroyOthers<Waveform>(collection, played);
}

} // namespace

std::vector<std::string> KeepSelected(Collection& collection, const std::vector<std::string>& words,
                                      ItemKind kind)
{
    std::vector<std::string> unmatched;
    Chosen chosen;
    for (const std::string& word : words) {
        const bool found = kind == ItemKind::Waveform ? ChooseWaves(collection, word, chosen)
                           : kind == ItemKind::Song   ? Choose<Song>(collection, word, chosen)
                                                      : Choose<Instrument>(collection, word, chosen);
        if (!found)
            unmatched.push_back(word);
    }
    if (words.empty() || !unmatched.empty())
        return unmatched;
    if (kind == ItemKind::Song)
        DestroyOthers<Song>(collection, chosen);
    else if (kind == ItemKind::Waveform)
        DestroyOthers<Waveform>(collection, chosen);
    else {
        DestroyOthers<Instrument>(collection, chosen);
        DestroyUnplayedWaves(collection);
    }
    return unmatched;
}

} // namespace vimbo::cli
