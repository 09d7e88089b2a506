// Words of <effect> headers for the kinds of channel effects.
#pragma once

#include "model/instrument.h"

#include <optional>
#include <string_view>

namespace vimbo::sfz {

struct EffectWord {
    ChannelFx effect;    ///< of the kind, as players that know no more would set it
    bool isExact = true; ///< false: the nearest kind
};
/// @param word  of "type=", lower case; none for words of no kind
std::optional<EffectWord> EffectOf(std::string_view word) noexcept;
/// "" for kinds that have no word.
std::string_view WordOf(ChannelFxType type) noexcept;

} // namespace vimbo::sfz
