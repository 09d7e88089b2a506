#include "model/param.h"

#include <algorithm>
#include <cmath>

namespace vimbo {
namespace {

/// Rounded to 1/k, half away from zero. In double, so that 12.345f comes out as 12.35.
double RoundedTo(double k, double value) noexcept
{
    return std::trunc(value * k + (value < 0 ? -0.5 : 0.5)) / k;
}

double RoundedBy(EditClass editClass, double value) noexcept
{
    switch (editClass) {
    case EditClass::OneDecimal:
        return RoundedTo(10, value);
    case EditClass::TwoDecimals:
        return RoundedTo(100, value);
    case EditClass::ThreeDecimals:
    case EditClass::Percent:
        return RoundedTo(1000, value);
    case EditClass::FourDecimals:
        return RoundedTo(10000, value);
    case EditClass::Adaptive:
        return RoundedTo(value >= 10 ? 100 : 1000, value);
    default:
        return value;
    }
}

} // namespace

float RoundAndClamp(const ParamRow& row, float value) noexcept
{
    if (std::isnan(value))
        return row.defaultValue;
    // Adding 0 makes a negative zero positive.
    const auto rounded = static_cast<float>(RoundedBy(row.editClass, value)) + 0.0f;
    return std::clamp(rounded, row.minimum, row.maximum);
}

} // namespace vimbo
