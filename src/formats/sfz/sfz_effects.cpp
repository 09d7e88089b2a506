#include "formats/sfz/sfz_effects.h"

#include <algorithm>
#include <array>

namespace vimbo::sfz {
namespace {

struct Row {
    std::string_view word;
    ChannelFxType type;
    bool isExact = true;
};
/// The first word of a kind is written.
constexpr std::array kRows = {Row{"comp", ChannelFxType::Compressor},
                              Row{"delay", ChannelFxType::Delay},
                              Row{"disto", ChannelFxType::Distortion},
                              Row{"fverb", ChannelFxType::Reverb},
                              Row{"phaser", ChannelFxType::Phaser},
                              Row{"chorus", ChannelFxType::Chorus},
                              Row{"flanger", ChannelFxType::Chorus, false},
                              Row{"small_hall", ChannelFxType::Reverb, false},
                              Row{"small_room", ChannelFxType::Reverb, false},
                              Row{"large_hall", ChannelFxType::Reverb, false},
                              Row{"large_room", ChannelFxType::Reverb, false}};

ChannelFx Usual(ChannelFxType type) noexcept
{
    if (type == ChannelFxType::Reverb)
        return kDefaultReverb;
    if (type == ChannelFxType::Chorus)
        return kDefaultChorus;
    ChannelFx effect;
    effect.type = type;
    return effect;
}

} // namespace

std::optional<EffectWord> EffectOf(std::string_view word) noexcept
{
    const auto* found = std::ranges::find(kRows, word, &Row::word);
    if (found == kRows.end())
        return std::nullopt;
    return EffectWord{Usual(found->type), found->isExact};
}

std::string_view WordOf(ChannelFxType type) noexcept
{
    const auto* found = std::ranges::find(kRows, type, &Row::type);
    return found == kRows.end() ? std::string_view() : found->word;
}

} // namespace vimbo::sfz
