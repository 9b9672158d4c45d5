#pragma once

#include <cstdint>

namespace AU_MarkOperations::PolygonMarking {

/// Converts a double to a 32-bit integer by truncation toward zero. NaN and values outside the
/// int32 range give INT32_MIN, the result of the x86 conversion instruction, instead of the
/// undefined behaviour of a plain cast.
inline std::int32_t TruncateToInt32(double value) {
    if (!(value >= -2147483648.0 && value < 2147483648.0))
        return INT32_MIN;
    return static_cast<std::int32_t>(value);
}

}  // namespace AU_MarkOperations::PolygonMarking
