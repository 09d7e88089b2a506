// Instruments and songs for people to read.
#pragma once

#include "cli/parameters.h"
#include "model/instrument.h"
#include "model/song.h"

#include <string>

namespace vimbo::cli {

/// Appends lines to a text.
class MusicText {
public:
    /// @param out  outlives this
    explicit MusicText(std::string& out) noexcept : out_(out) {}
    void Add(std::size_t number, const Instrument& instrument);
    void Add(std::size_t number, const Song& song);

private:
    void AddRegion(const Region& region);
    void AddParams(std::string_view indent, const std::vector<ShownParam>& params);

    std::string& out_;
    ParamTexts paramTexts_;
};

/// "forward from 10 to 200, plays on at release"; "off".
std::string LoopText(const LoopInfo& loop);

} // namespace vimbo::cli
