// The item records of a state file, one after another, from any bytes. The first byte is the mask of a prune
// that follows, and in its highest bit whether that counts as after a load.
#include "model/collection.h"
#include "model/consistency.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using namespace vimbo;

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

/// The item that the next record is for; null if there can be none.
Item* ItemOfNextRecord(Collection& items, ByteReader reader)
{
    U32le raw;
    if (!reader.Read(raw))
        return nullptr;
    const ItemHandle handle(raw.Get());
    return handle.Kind() == ItemKind::Collection ? &items : items.CreateItem(handle);
}

std::vector<std::byte> Record(const Item& item)
{
    ByteWriter out;
    item.Serialize(out);
    return out.Release();
}

/// What an item stores it can read, and storing that again gives the same bytes.
void CheckRoundTrip(Item& item)
{
    const std::vector<std::byte> record = Record(item);
    ByteReader reader(record);
    Require(item.Deserialize(reader) && reader.Left() == 0);
    Require(Record(item) == record);
}

template <class... Kinds>
void CheckRoundTrips(Collection& items)
{
    const auto checkKind = [](auto list) {
        for (Item* item : list)
            CheckRoundTrip(*item);
    };
    (checkKind(items.List<Kinds>()), ...);
    CheckRoundTrip(items);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t options = data[0];
    ByteReader reader(std::as_bytes(std::span(data + 1, size - 1)));
    Collection items;
    items.loading = true;
    while (Item* item = ItemOfNextRecord(items, reader))
        if (!item->Deserialize(reader))
            break;
    items.loading = false;
    CheckRoundTrips<Waveform, SynthModel, Region, Layer, Instrument, Track, Song>(items);

    FixUpItems(items, options & kPruneAll, (options & 0x80) != 0 ? AfterLoad::Yes : AfterLoad::No);
    // Damaged records may list one item under two parents; the one that is not its parent learns of its end
    // here.
    FixUpItems(items, 0, AfterLoad::No);
    Require(IsConsistent(items));
    items.MakeNamesUnique(ItemKind::Waveform);
    items.MakeNamesUnique(ItemKind::Instrument);

    Collection target;
    target.Merge(items);
    Require(IsConsistent(items) && IsConsistent(target) && items.ItemCount() == 1);
    target.Clear();
    Require(IsConsistent(target) && target.ItemCount() == 1);
    return 0;
}
