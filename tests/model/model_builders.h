// Small item trees and a listening host for the tests of the model.
#pragma once

#include "base/text.h"
#include "model/collection.h"
#include "model/consistency.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/waveform.h"

#include <gtest/gtest.h>

namespace vimbo {

/// Records what a status line would show.
class RecordingHost : public Host {
public:
    void SetStatus(std::u16string_view text) override { statuses.emplace_back(text); }
    void SetProgress(std::u16string_view what, double) override { progress.emplace_back(what); }
    std::vector<std::u16string> statuses, progress;
};

inline void ExpectConsistent(const Collection& items)
{
    std::u16string why;
    EXPECT_TRUE(IsConsistent(items, &why)) << WideToUtf8(why);
}

template <class Parent, class Child>
Child& Nest(Parent& parent, Child& child)
{
    parent.AddChild(child.Handle());
    child.SetParent(parent.Handle());
    return child;
}

inline Instrument& AddInstrument(Collection& items, unsigned layers, unsigned regions, Waveform& wave)
{
    Instrument& instrument = items.Create<Instrument>(u"i");
    for (unsigned l = 0; l < layers; ++l) {
        Layer& layer = Nest(instrument, items.Create<Layer>(u""));
        for (unsigned r = 0; r < regions; ++r)
            Nest(layer, items.Create<Region>(u"")).SetSound(wave.Handle());
    }
    return instrument;
}

inline Track& AddTrack(Song& song, std::initializer_list<unsigned char> block)
{
    Track& track = Nest(song, song.Owner().Create<Track>(u""));
    track.SetData(std::as_bytes(std::span(block.begin(), block.size())));
    return track;
}

template <class T>
std::vector<std::u16string> Names(const Collection& items)
{
    std::vector<std::u16string> names;
    for (const T& item : items.All<T>())
        names.emplace_back(item.GetName());
    return names;
}

} // namespace vimbo
