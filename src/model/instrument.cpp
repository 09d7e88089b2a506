#include "model/instrument.h"

#include "base/last_error.h"
#include "model/collection.h"
#include "model/record_text.h"
#include "model/synth_model.h"
#include "model/waveform.h"

namespace vimbo {

Instrument::Instrument(ItemKey key, Collection& owner) noexcept : TextItem(key, owner) {}

Instrument::Instrument(ItemKey key, Collection& owner, const Instrument& source)
    : TextItem(key, owner, source), location(source.location)
{
}

void Instrument::SetName(std::u16string_view name)
{
    TextItem::SetName(name);
    ShowNameAsProgress();
}

void Instrument::ShowNameAsProgress() const
{
    if (Owner().loading)
        Owner().GetHost().SetProgress(GetName());
}

void Instrument::Serialize(ByteWriter& out) const
{
    TextItem::Serialize(out);
    out.Write(U32le(location.word));
}

bool Instrument::Deserialize(ByteReader& in)
{
    U32le word;
    if (!TextItem::Deserialize(in))
        return false;
    if (!in.Read(word))
        return Fail(kDamagedRecord);
    location.word = word.Get();
    ShowNameAsProgress();
    return true;
}

Layer::Layer(ItemKey key, Collection& owner) noexcept : LabelItem(key, owner) {}

Layer::Layer(ItemKey key, Collection& owner, const Layer& source) : LabelItem(key, owner, source) {}

Region::Region(ItemKey key, Collection& owner) noexcept : LabelItem(key, owner) {}

Region::Region(ItemKey key, Collection& owner, const Region& source) : LabelItem(key, owner, source) {}

Waveform* Region::Wave() const noexcept
{
    Item* sound = Child(0);
    return sound != nullptr && sound->Kind() == ItemKind::Waveform ? static_cast<Waveform*>(sound) : nullptr;
}

SynthModel* Region::Synth() const noexcept
{
    Item* sound = Child(0);
    return sound != nullptr && sound->Kind() == ItemKind::SynthModel ? static_cast<SynthModel*>(sound)
                                                                     : nullptr;
}

void Region::SetSound(ItemHandle sound)
{
    if (const SynthModel* before = Synth(); before != nullptr && before->Handle() != sound)
        Owner().Destroy(before->Handle());
    ClearChildren();
    if (sound == NO_ITEM)
        return;
    AddChild(sound);
    if (SynthModel* model = Synth())
        model->SetParent(Handle());
}

bool Region::Deserialize(ByteReader& in)
{
    const bool isRead = LabelItem::Deserialize(in);
    if (Children().size() <= 1)
        return isRead;
    ClearChildren();
    return Fail(kDamagedRecord);
}

} // namespace vimbo
