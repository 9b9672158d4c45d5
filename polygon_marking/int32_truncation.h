#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace AU_MarkOperations::PolygonMarking {

/// Converts to a 32-bit integer by truncation toward zero. NaN and values outside the int32
/// range give INT32_MIN, the result of the x86 conversion instruction, instead of the
/// undefined behaviour of a plain cast. On x86 the instruction itself is used: the picker
/// truncates several times per pixel row, and the range test would cost more than the row.
inline std::int32_t TruncateToInt32(double value) {
#if defined(__SSE2__)
    return _mm_cvttsd_si32(_mm_set_sd(value));
#else
    if (!(value >= -2147483648.0 && value < 2147483648.0))
        return INT32_MIN;
    return static_cast<std::int32_t>(value);
#endif
}

inline std::int32_t TruncateToInt32(float value) {
#if defined(__SSE2__)
    return _mm_cvttss_si32(_mm_set_ss(value));
#else
    return TruncateToInt32(static_cast<double>(value));
#endif
}

}  // namespace AU_MarkOperations::PolygonMarking
