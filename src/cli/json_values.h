// Values of the model in the form in which JSON holds them.
#pragma once

#include "model/loop_info.h"
#include "model/text_item.h"

#include <nlohmann/json.hpp>

namespace vimbo::cli {

using Json = nlohmann::ordered_json;

/// A frame position: rounded to 0.01, and without decimals if it is whole.
Json FrameNumber(double value);
/// The double of the shortest decimal number that means this float: 0.1, not 0.10000000149011612.
double ShortDouble(float value);
/// The same as a JSON number, without decimals if it is whole.
Json ShortNumber(float value);
Json TextsJson(const TextItem& item);
Json LoopJson(const LoopInfo& loop);

} // namespace vimbo::cli
