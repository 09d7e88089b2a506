// Instruments and songs for people to read.
#pragma once

#include "model/instrument.h"
#include "model/song.h"

#include <string>

namespace vimbo::cli {

/// Each appends several lines.
void AddInstrumentText(std::string& out, std::size_t number, const Instrument& instrument);
void AddSongText(std::string& out, std::size_t number, const Song& song);

/// "forward from 10 to 200, plays on at release"; "off".
std::string LoopText(const LoopInfo& loop);

} // namespace vimbo::cli
