#include "formats/soundfont/soundfont_tables.h"

#include "base/text.h"

#include <algorithm>
#include <cstring>

namespace vimbo::sf2 {
namespace {

/// More of one table is no SoundFont: its indices reach 65536 records.
constexpr std::size_t kMaxTableBytes = std::size_t{1} << 26;
constexpr std::size_t kIndexSteps = 65536;

constexpr std::uint8_t kMiddleC = 60;

struct Version {
    U16le major, minor;
};
static_assert(DiskRecord<Version> && sizeof(Version) == 4);

/// Whole records of a chunk.
template <DiskRecord T>
std::vector<T> RecordsOf(ChunkCursor& chunk)
{
    const std::vector<std::byte> bytes = chunk.ReadRest(kMaxTableBytes);
    std::vector<T> records(bytes.size() / sizeof(T));
    if (!records.empty())
        std::memcpy(records.data(), bytes.data(), records.size() * sizeof(T));
    return records;
}

/// Steps up by the size of the index where a descending value shows that it wrapped around. Values that
/// descend though the table is not that long stay as they are.
class IndexUnwrapper {
public:
    explicit IndexUnwrapper(std::size_t tableSize) noexcept : tableSize_(tableSize) {}
    std::size_t operator()(std::uint16_t index) noexcept
    {
        if (index < previous_ && base_ + kIndexSteps + index < tableSize_)
            base_ += kIndexSteps;
        previous_ = index;
        return base_ + index;
    }

private:
    std::size_t tableSize_;
    std::size_t base_ = 0;
    std::uint16_t previous_ = 0;
};

template <class T>
std::span<const T> Part(const std::vector<T>& table, const std::vector<std::size_t>& starts,
                        std::size_t zone) noexcept
{
    if (zone + 1 >= starts.size())
        return {};
    const std::size_t first = starts[zone];
    const std::size_t end = std::min(starts[zone + 1], table.size());
    return first < end ? std::span(table).subspan(first, end - first) : std::span<const T>();
}

/// Gathers what the chunks say; the tables are put in order once all have been seen.
class Reader {
public:
    /// @param start, end  of the form in the file
    Reader(FileObject& file, std::uint64_t start, std::uint64_t end, Tables& out) noexcept
        : file_(file), start_(start), end_(end), out_(out)
    {
    }

    bool Read()
    {
        RiffFormHead head;
        if (!file_.Seek(start_) || !file_.Read(head) || head.chunk.id != FourCc{"RIFF"})
            return false;
        out_.isPacked = head.type == FourCc{"sfpk"};
        if (head.type != FourCc{"sfbk"} && !out_.isPacked)
            return false;
        WalkLists();
        return Finish();
    }

private:
    /// Compressed banks do not pad `smpl` and the list around it to even places, so the next list is looked
    /// for at both.
    void WalkLists()
    {
        std::uint64_t place = start_ + sizeof(RiffFormHead);
        for (std::uint32_t count = 0; count < ChunkCursor::kMaxChunks; ++count) {
            ChunkCursor chunk(file_, place, end_, std::endian::little);
            if (!chunk.Next())
                return;
            place = chunk.Start() + chunk.Size();
            if (chunk.Size() % 2 != 0 && !IsListAt(place))
                ++place;
            FourCc type;
            if (chunk.Id() == FourCc{"LIST"} && chunk.Read(type))
                ReadList(type, chunk.Inner());
        }
    }

    bool IsListAt(std::uint64_t place)
    {
        FourCc id;
        return file_.Seek(place) && file_.Read(id) && id == FourCc{"LIST"};
    }

    void ReadList(const FourCc& type, ChunkCursor list)
    {
        if (type == FourCc{"INFO"})
            out_.info.push_back(list);
        while (list.Next()) {
            if (type == FourCc{"INFO"})
                ReadVersion(list);
            else if (type == FourCc{"sdta"})
                ReadSampleData(list);
            else if (type == FourCc{"pdta"})
                ReadTable(list);
        }
    }

    void ReadVersion(ChunkCursor& chunk)
    {
        Version version;
        if (chunk.Id() != FourCc{"ifil"} || !chunk.Read(version))
            return;
        out_.major = version.major.Get();
        out_.minor = version.minor.Get();
    }

    void ReadSampleData(ChunkCursor& chunk)
    {
        const ByteRange range{chunk.Start(), chunk.Size()};
        if (chunk.Id() == FourCc{"smpl"})
            out_.samples = range;
        else if (chunk.Id() == FourCc{"sm24"})
            out_.lowBytes = range;
        else if (chunk.Id() == FourCc{"snam"})
            names_ = RecordsOf<SampleName>(chunk);
    }

    void ReadTable(ChunkCursor& chunk)
    {
        const FourCc id = chunk.Id();
        if (chunk.Size() != chunk.ClaimedSize())
            isCut_ = true;
        if (id == FourCc{"phdr"})
            out_.presets = RecordsOf<PresetHeader>(chunk);
        else if (id == FourCc{"pbag"})
            presetBags_ = RecordsOf<Bag>(chunk);
        else if (id == FourCc{"pmod"})
            out_.presetZones.modulators = RecordsOf<Modulator>(chunk);
        else if (id == FourCc{"pgen"})
            out_.presetZones.generators = RecordsOf<Generator>(chunk);
        else if (id == FourCc{"inst"})
            out_.instruments = RecordsOf<InstrumentHeader>(chunk);
        else if (id == FourCc{"ibag"})
            instrumentBags_ = RecordsOf<Bag>(chunk);
        else if (id == FourCc{"imod"})
            out_.instrumentZones.modulators = RecordsOf<Modulator>(chunk);
        else if (id == FourCc{"igen"})
            out_.instrumentZones.generators = RecordsOf<Generator>(chunk);
        else if (id == FourCc{"shdr"})
            ReadSampleHeaders(chunk);
    }

    void ReadSampleHeaders(ChunkCursor& chunk)
    {
        hasSampleHeaders_ = chunk.Size() != 0;
        if (out_.major != 1)
            out_.sampleHeaders = RecordsOf<SampleHeader>(chunk);
        else
            headers1_ = RecordsOf<SampleHeader1>(chunk);
    }

    bool Finish()
    {
        if (isCut_ || out_.presets.empty() || presetBags_.empty() || out_.instruments.empty() ||
            instrumentBags_.empty() || !hasSampleHeaders_)
            return false;
        // A wrong size is worse than 16 bits.
        if (out_.lowBytes.bytes < out_.samples.bytes / 2)
            out_.lowBytes = {};
        if (out_.major == 1)
            CompleteVersion1();
        DropBehind(out_.sampleHeaders, "EOS");
        SetIndices(out_.presetZones, out_.presets, presetBags_);
        SetIndices(out_.instrumentZones, out_.instruments, instrumentBags_);
        return true;
    }

    /// The first sample of RAM lies at its start; those before it are of the ROM.
    void CompleteVersion1()
    {
        bool isRom = true;
        for (std::size_t i = 0; i < headers1_.size(); ++i) {
            const SampleHeader1& from = headers1_[i];
            SampleHeader header{};
            if (i < names_.size())
                header.name = names_[i].text;
            header.start = from.start;
            header.end = from.end;
            header.loopStart = from.loopStart;
            header.loopEnd = from.loopEnd;
            header.rateHz = kVersion1RateHz;
            header.originalPitch = kMiddleC;
            isRom = isRom && from.start.Get() != 0;
            header.type = isRom ? kSampleRom | kSampleMono : kSampleMono;
            out_.sampleHeaders.push_back(header);
        }
    }

    template <class T>
    static void DropBehind(std::vector<T>& records, std::string_view terminal)
    {
        const auto found = std::ranges::find_if(records, [terminal](const T& record) {
            const std::string_view name(record.name.data(), terminal.size() + 1);
            return name.starts_with(terminal) && name.back() == '\0';
        });
        records.erase(found, records.end());
    }

    /// The last record is the terminal one, whatever it is called.
    template <class T>
    static void SetIndices(ZoneTables& zones, const std::vector<T>& owners, const std::vector<Bag>& bags)
    {
        std::vector<std::uint16_t> starts;
        for (const T& owner : owners)
            starts.push_back(owner.bagIndex.Get());
        zones.SetIndices(starts, bags);
    }

    FileObject& file_;
    std::uint64_t start_, end_;
    Tables& out_;
    std::vector<Bag> presetBags_, instrumentBags_;
    std::vector<SampleName> names_;
    std::vector<SampleHeader1> headers1_;
    bool hasSampleHeaders_ = false;
    bool isCut_ = false;
};

} // namespace

void ZoneTables::SetIndices(std::span<const std::uint16_t> owners, std::span<const Bag> bags)
{
    IndexUnwrapper zone(bags.size()), generator(generators.size() + 1), modulator(modulators.size() + 1);
    for (const std::uint16_t first : owners)
        owners_.push_back(zone(first));
    for (const Bag& bag : bags) {
        generatorStarts_.push_back(generator(bag.generatorIndex.Get()));
        modulatorStarts_.push_back(modulator(bag.modulatorIndex.Get()));
    }
}

IndexRange ZoneTables::Zones(std::size_t owner) const noexcept
{
    if (owner + 1 >= owners_.size())
        return {};
    // The last bag only ends the one before it.
    const std::size_t end = std::min(owners_[owner + 1], generatorStarts_.size() - 1);
    return owners_[owner] < end ? IndexRange{owners_[owner], end} : IndexRange{};
}

std::span<const Generator> ZoneTables::GeneratorsOf(std::size_t zone) const noexcept
{
    return Part(generators, generatorStarts_, zone);
}

std::span<const Modulator> ZoneTables::ModulatorsOf(std::size_t zone) const noexcept
{
    return Part(modulators, modulatorStarts_, zone);
}

bool ReadTables(FileObject& file, Tables& out)
{
    return ReadTables(file, 0, file.Size(), out);
}

bool ReadTables(FileObject& file, std::uint64_t start, std::uint64_t length, Tables& out)
{
    const std::uint64_t size = file.Size(), first = std::min(start, size);
    return Reader(file, first, first + std::min(length, size - first), out).Read();
}

std::u16string NameOf(const std::array<char, 20>& field)
{
    std::string_view name(field.data(), field.size());
    name = name.substr(0, name.find('\0'));
    const std::size_t first = name.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return {};
    return NarrowToWide(name.substr(first, name.find_last_not_of(' ') - first + 1));
}

} // namespace vimbo::sf2
