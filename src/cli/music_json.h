// Instruments and songs as JSON; docs/cli.md describes it.
#pragma once

#include "cli/json_values.h"
#include "model/instrument.h"
#include "model/song.h"

namespace vimbo::cli {

Json InstrumentJson(const Instrument& instrument);
Json SongJson(const Song& song);

/// The word for a channel effect: "chorus", "reverb"...; "" for none.
std::string_view ChannelFxWord(ChannelFxType type) noexcept;

} // namespace vimbo::cli
