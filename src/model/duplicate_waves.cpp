// Waveforms that are there twice.
#include "base/text.h"
#include "model/instrument.h"
#include "model/sample_source.h"
#include "model/stereo_pairs.h"
#include "model/synth_model.h"

#include <algorithm>
#include <bit>
#include <compare>
#include <limits>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

namespace vimbo {
namespace {

constexpr std::size_t kPieceSamples = 16384; // even
constexpr std::uint64_t kHashStart = 0xCBF29CE484222325;

/// FNV-1a over 32-bit words.
void Mix(std::uint64_t& hash, std::uint32_t word) noexcept
{
    hash = (hash ^ word) * 0x100000001B3;
    hash ^= hash >> 29; // low words reach the low bits, too
}

void Mix(std::uint64_t& hash, double value) noexcept
{
    const auto bits = std::bit_cast<std::uint64_t>(value + 0.0); // one zero
    Mix(hash, static_cast<std::uint32_t>(bits));
    Mix(hash, static_cast<std::uint32_t>(bits >> 32));
}

/// Of all that must agree beside the samples.
std::uint64_t DescriptionHash(const Waveform& wave)
{
    std::uint64_t hash = kHashStart;
    for (const char16_t unit : wave.GetName())
        Mix(hash, std::uint32_t{FoldCase(unit)});
    Mix(hash, wave.frames);
    Mix(hash, wave.rateHz);
    Mix(hash, std::uint32_t{wave.channels} << 16 | std::uint32_t{wave.rootKey} << 8 |
                  static_cast<std::uint8_t>(wave.fineTune));
    Mix(hash, double{wave.volume});
    Mix(hash, static_cast<std::uint32_t>(wave.loop.type));
    Mix(hash, double{wave.loop.pitch});
    Mix(hash, wave.loop.start);
    Mix(hash, wave.loop.end);
    for (const Marker& marker : wave.markers)
        Mix(hash, marker.position);
    return hash;
}

std::uint64_t Bits(double value) noexcept
{
    return std::bit_cast<std::uint64_t>(value + 0.0); // one zero
}

auto Numbers(const Waveform& wave) noexcept
{
    return std::tuple(wave.frames, wave.channels, wave.rateHz, wave.rootKey, wave.fineTune,
                      Bits(double{wave.volume}), wave.loop.type, wave.loop.breakOnRelease, wave.loop.oneShot,
                      Bits(double{wave.loop.pitch}), Bits(wave.loop.start), Bits(wave.loop.end));
}

bool HasLessMarkers(const Waveform& a, const Waveform& b)
{
    const auto marker = [](const Marker& m) { return std::tie(m.position, m.isRange, m.end, m.name); };
    return std::ranges::lexicographical_compare(a.markers, b.markers, {}, marker, marker);
}

/// Any order of waveforms by all that must agree beside the samples: by the hashes of that, and of equal
/// hashes by all of it, as a file may be made so that all hashes are equal.
struct DescriptionOrder {
    using Key = std::pair<std::uint64_t, const Waveform*>;
    bool operator()(const Key& a, const Key& b) const
    {
        if (a.first != b.first)
            return a.first < b.first;
        const Waveform &one = *a.second, &other = *b.second;
        if (const auto order = Numbers(one) <=> Numbers(other); order != 0)
            return order < 0;
        if (const int order = CompareNoCase(one.GetName(), other.GetName()); order != 0)
            return order < 0;
        return HasLessMarkers(one, other);
    }
};

/// Samples in pieces. A block that had to be built for it is released again.
class Samples {
public:
    explicit Samples(Waveform& wave) : wave_(wave), hadBlock_(wave.HasBlock()), frames_(wave.OpenFrames()) {}
    ~Samples()
    {
        frames_.reset();
        if (!hadBlock_ && wave_.importProc != nullptr)
            wave_.FreeSamples();
    }
    Samples(const Samples&) = delete;
    Samples& operator=(const Samples&) = delete;

    /// False if the samples cannot be read, or are fewer than described.
    bool IsOpen() const noexcept
    {
        return frames_ != nullptr && frames_->Frames() == wave_.frames &&
               frames_->Channels() == wave_.channels;
    }
    bool Read(std::uint32_t first, std::span<float> out) { return frames_->Read(first, out); }

private:
    Waveform& wave_;
    bool hadBlock_;
    std::unique_ptr<FrameSource> frames_;
};

/// Calls `take` with the first frame and the samples of every piece, until it answers false.
/// @return true if all was taken
template <class Take>
bool ForEachPiece(const Waveform& wave, Take take)
{
    const std::uint32_t step = kPieceSamples / std::max<std::uint32_t>(wave.channels, 1);
    for (std::uint64_t first = 0; first < wave.frames; first += step) {
        const std::uint64_t frames = std::min<std::uint64_t>(step, wave.frames - first);
        if (!take(static_cast<std::uint32_t>(first), static_cast<std::size_t>(frames) * wave.channels))
            return false;
    }
    return true;
}

bool HashSamples(Waveform& wave, std::uint64_t& hash)
{
    Samples samples(wave);
    if (!samples.IsOpen())
        return false;
    std::vector<float> piece(kPieceSamples);
    hash = kHashStart;
    return ForEachPiece(wave, [&](std::uint32_t first, std::size_t count) {
        const auto out = std::span(piece).first(count);
        if (!samples.Read(first, out))
            return false;
        for (const float value : out)
            Mix(hash, std::bit_cast<std::uint32_t>(value));
        return true;
    });
}

/// The samples' order, bit by bit; of samples that cannot be read, none.
std::partial_ordering CompareSamples(Waveform& a, Waveform& b)
{
    Samples left(a), right(b);
    std::partial_ordering order = std::partial_ordering::unordered;
    if (!left.IsOpen() || !right.IsOpen())
        return order;
    order = std::partial_ordering::equivalent;
    std::vector<float> one(kPieceSamples), other(kPieceSamples);
    ForEachPiece(a, [&](std::uint32_t first, std::size_t count) {
        const auto l = std::span(one).first(count), r = std::span(other).first(count);
        if (!left.Read(first, l) || !right.Read(first, r)) {
            order = std::partial_ordering::unordered;
            return false;
        }
        const auto bits = [](float value) { return std::bit_cast<std::uint32_t>(value); };
        const auto [x, y] = std::ranges::mismatch(l, r, {}, bits, bits);
        if (x != l.end())
            order = bits(*x) <=> bits(*y);
        return x == l.end();
    });
    return order;
}

using Replacements = std::unordered_map<ItemHandle, ItemHandle, ItemHandleHash>;

/// Waveforms that differ in nothing but their samples.
class Alike {
public:
    explicit Alike(Waveform& first) : distinct_{&first} {}

    /// The earlier waveform with the same samples; null if there is none, and `wave` joins the others then.
    Waveform* FindOrAdd(Waveform& wave)
    {
        const auto near = std::span(distinct_).first(std::min(distinct_.size(), kSourcesCompared));
        for (Waveform* earlier : near)
            if (HasSameSource(*earlier, wave))
                return earlier;
        distinct_.push_back(&wave);
        std::uint64_t hash = 0;
        while (hashed_ + 1 < distinct_.size()) {
            Waveform* const earlier = distinct_[hashed_++];
            if (HashSamples(*earlier, hash))
                FindOrAdd(hash, *earlier);
        }
        ++hashed_;
        if (!HashSamples(wave, hash))
            return nullptr;
        Waveform* const same = FindOrAdd(hash, wave);
        if (same != nullptr) {
            distinct_.pop_back();
            --hashed_;
        }
        return same;
    }

private:
    struct SampleOrder {
        using Key = std::pair<std::uint64_t, Waveform*>;
        bool operator()(const Key& a, const Key& b) const
        {
            return a.first != b.first ? a.first < b.first : CompareSamples(*a.second, *b.second) < 0;
        }
    };

    Waveform* FindOrAdd(std::uint64_t hash, Waveform& wave)
    {
        const auto [first, isFirst] = firstOfHash_.emplace(hash, &wave);
        if (isFirst)
            return nullptr;
        if (CompareSamples(*first->second, wave) == 0)
            return first->second;
        const auto [same, isNew] = others_.emplace(hash, &wave);
        return !isNew && CompareSamples(*same->second, wave) == 0 ? same->second : nullptr;
    }

    /// Equal sources are looked for among the first few; beyond them the samples tell.
    static constexpr std::size_t kSourcesCompared = 16;
    std::vector<Waveform*> distinct_;
    std::size_t hashed_ = 0;                         ///< so many of them are in the maps
    std::map<std::uint64_t, Waveform*> firstOfHash_; ///< by a hash of the samples
    /// More of one hash, as a file may be made so that there are many: by the samples, so that a search reads
    /// few of them.
    std::set<SampleOrder::Key, SampleOrder> others_;
};

/// Handles of the waveforms that something plays.
std::unordered_set<ItemHandle, ItemHandleHash> PlayedWaves(const Collection& collection)
{
    std::unordered_set<ItemHandle, ItemHandleHash> played;
    for (const Region& region : collection.All<Region>())
        if (const Waveform* wave = region.Wave())
            played.insert(wave->Handle());
    for (const SynthModel& model : collection.All<SynthModel>()) {
        for (const ItemHandle child : model.Children())
            played.insert(ChildHandle(ItemKind::SynthModel, child));
        for (std::size_t i = 0; i < SynthModel::kWaveReferences; ++i)
            played.insert(model.WaveReference(i));
    }
    return played;
}

/// What the region took from its waveform becomes its own.
void OverrideAll(Region& region, const Waveform& wave)
{
    region.loop = GetEffectiveLoop(region);
    region.rootKey = region.Overrides(Region::kRootKey) ? region.rootKey : wave.rootKey;
    region.overrideFlags = Region::kAllOverrides;
}

void Replace(Collection& collection, const Replacements& replacements)
{
    const auto kept = [&replacements](ItemHandle wave) {
        const auto found = replacements.find(wave);
        return found != replacements.end() ? found->second : NO_ITEM;
    };
    for (Region& region : collection.All<Region>())
        if (const Waveform* wave = region.Wave(); wave != nullptr && kept(wave->Handle()) != NO_ITEM)
            region.SetSound(kept(wave->Handle()));
    for (SynthModel& model : collection.All<SynthModel>()) {
        for (std::size_t i = 0; i < model.Children().size(); ++i)
            if (const ItemHandle wave = kept(ChildHandle(ItemKind::SynthModel, model.Children()[i]));
                wave != NO_ITEM)
                model.SetChild(i, wave);
        for (std::size_t i = 0; i < SynthModel::kWaveReferences; ++i)
            if (const ItemHandle wave = kept(model.WaveReference(i)); wave != NO_ITEM)
                model.SetWaveReference(i, wave);
    }
}

/// The samples themselves: what HasSameSource compares, and how they are stored.
struct SourceKey {
    const ImportProcedure* importProc;
    SampleSource source;
    std::uint32_t frames, rateHz;
    std::uint8_t channels, bits;
    friend auto operator<=>(const SourceKey&, const SourceKey&) = default;
};

/// Any order of waveforms by what must agree if a region that plays one is to play the other, with root key
/// and loop of its own.
struct StandInOrder {
    bool operator()(const Waveform* a, const Waveform* b) const
    {
        const auto numbers = [](const Waveform* wave) {
            return std::tuple(wave->fineTune, Bits(double{wave->volume}));
        };
        if (const auto order = numbers(a) <=> numbers(b); order != 0)
            return order < 0;
        return HasLessMarkers(*a, *b);
    }
};

/// Numbers of waveforms; those that come with one file are no candidates for each other.
class Candidates {
public:
    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

    /// @param file  that or a later one than in earlier calls
    void Add(std::size_t number, std::size_t file)
    {
        GoTo(file);
        ofFile_.push_back(number);
    }
    std::size_t FirstBefore(std::size_t file)
    {
        GoTo(file);
        return earlier_.empty() ? kNone : *earlier_.begin();
    }
    /// One of an earlier file comes with this one now.
    void Move(std::size_t number, std::size_t file)
    {
        Leave(number, file);
        Add(number, file);
    }
    void Leave(std::size_t number, std::size_t file)
    {
        GoTo(file);
        earlier_.erase(number);
    }

private:
    void GoTo(std::size_t file)
    {
        if (file == file_)
            return;
        earlier_.insert(ofFile_.begin(), ofFile_.end());
        ofFile_.clear();
        file_ = file;
    }

    std::set<std::size_t> earlier_;
    std::vector<std::size_t> ofFile_; ///< that came with `file_`
    std::size_t file_ = 0;
};

/// Finds for each waveform an earlier one of another file that can take its place, or be replaced by it.
class SourceSharing {
public:
    void Add(Waveform& wave, bool isPlayed, std::size_t file, bool mayLeave, Replacements& replacements)
    {
        SourceKey key{wave.importProc, {}, wave.frames, wave.rateHz, wave.channels, wave.bits};
        if (wave.frames == 0 || !DescribeSource(wave, key.source))
            return;
        SameSource& same = sources_[std::move(key)];
        std::size_t number = mayLeave ? same.Find(wave, isPlayed, file) : Candidates::kNone;
        if (number == Candidates::kNone) {
            number = kept_.size();
            kept_.push_back({&wave, isPlayed});
            same.all.Add(number, file);
            (isPlayed ? same.played[&wave] : same.unplayed).Add(number, file);
            return;
        }
        Kept& earlier = kept_[number];
        if (earlier.isPlayed || !isPlayed) {
            replacements.emplace(wave.Handle(), earlier.wave->Handle());
            return;
        }
        replacements.emplace(earlier.wave->Handle(), wave.Handle());
        earlier = {&wave, true};
        same.all.Move(number, file);
        same.unplayed.Leave(number, file);
        same.played[&wave].Add(number, file);
    }

private:
    struct Kept {
        Waveform* wave;
        bool isPlayed;
    };
    struct SameSource {
        /// What nothing plays goes with any other; two that are played must be able to stand for each other.
        std::size_t Find(const Waveform& wave, bool isPlayed, std::size_t file)
        {
            return isPlayed ? std::min(unplayed.FirstBefore(file), played[&wave].FirstBefore(file))
                            : all.FirstBefore(file);
        }
        Candidates all, unplayed;
        std::map<const Waveform*, Candidates, StandInOrder> played;
    };

    std::map<SourceKey, SameSource> sources_;
    std::vector<Kept> kept_;
};

} // namespace

std::size_t ShareSources(Collection& collection, std::span<const FileStart> files, Unplayed unplayed)
{
    const auto played = PlayedWaves(collection);
    SourceSharing sharing;
    Replacements replacements;
    std::size_t number = 0, file = 0; // of the file: how many have started
    for (Waveform& wave : collection.All<Waveform>()) {
        while (file < files.size() && files[file].firstWave <= number)
            ++file;
        ++number;
        const bool isPlayed = unplayed == Unplayed::Keep || played.contains(wave.Handle());
        const bool mayLeave = file != 0 && files[file - 1].leaves == MayLeave::Yes;
        sharing.Add(wave, isPlayed, file, mayLeave, replacements);
    }
    // Synthesis models take root key and loop from the waveform alone.
    for (const SynthModel& model : collection.All<SynthModel>()) {
        for (const ItemHandle child : model.Children())
            replacements.erase(ChildHandle(ItemKind::SynthModel, child));
        for (std::size_t i = 0; i < SynthModel::kWaveReferences; ++i)
            replacements.erase(model.WaveReference(i));
    }
    if (replacements.empty())
        return 0;
    std::vector<Region*> moved;
    for (Region& region : collection.All<Region>())
        if (const Waveform* wave = region.Wave(); wave != nullptr && replacements.contains(wave->Handle())) {
            OverrideAll(region, *wave);
            moved.push_back(&region);
        }
    Replace(collection, replacements);
    for (Region* region : moved)
        region->DropEqualOverrides();
    for (const auto& [gone, kept] : replacements)
        collection.Destroy(gone);
    return replacements.size();
}

std::size_t RemoveDuplicateWaves(Collection& collection, std::size_t count)
{
    std::map<DescriptionOrder::Key, Alike, DescriptionOrder> groups;
    Replacements replacements;
    for (Waveform& wave : collection.All<Waveform>()) {
        if (count-- == 0)
            break;
        if (wave.frames == 0)
            continue;
        const auto [alike, isNew] = groups.try_emplace({DescriptionHash(wave), &wave}, wave);
        if (isNew)
            continue;
        if (const Waveform* earlier = alike->second.FindOrAdd(wave))
            replacements.emplace(wave.Handle(), earlier->Handle());
    }
    if (replacements.empty())
        return 0;
    Replace(collection, replacements);
    for (const auto& [gone, kept] : replacements)
        collection.Destroy(gone);
    return replacements.size();
}

} // namespace vimbo
