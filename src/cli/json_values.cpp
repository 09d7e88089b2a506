#include "cli/json_values.h"

#include "cli/report_json.h"

#include <array>
#include <charconv>
#include <cmath>

namespace vimbo::cli {

namespace {

constexpr double kWholeNumberLimit = 9007199254740992.0; // 2^53: doubles hold every whole number up to here

} // namespace

Json FrameNumber(double value)
{
    const double rounded = std::round(value * 100) / 100;
    if (std::abs(rounded) < kWholeNumberLimit && rounded == std::floor(rounded))
        return static_cast<std::int64_t>(rounded);
    return rounded;
}

double ShortDouble(float value)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    double exact = 0;
    std::from_chars(digits.data(), end, exact);
    return exact;
}

Json ShortNumber(float value)
{
    if (value == std::floor(value) && std::abs(value) < 1e6f)
        return static_cast<std::int64_t>(value);
    return ShortDouble(value);
}

Json TextsJson(const TextItem& item)
{
    Json texts = Json::object();
    for (const auto& [key, text] : ListTexts(item))
        texts[key] = text;
    const auto image = item.GetImage();
    if (!image.empty())
        texts["image"] = {{"type", ImageMimeType(image)}, {"bytes", image.size()}};
    return texts;
}

Json LoopJson(const LoopInfo& loop)
{
    return {{"type", LoopTypeWord(loop.type)},
            {"start", FrameNumber(loop.start)},
            {"end", FrameNumber(loop.end)},
            {"release", loop.breakOnRelease ? "break" : "infinite"},
            {"pitch", ShortNumber(loop.pitch)}};
}

} // namespace vimbo::cli
