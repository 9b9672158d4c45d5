#pragma once

// Values drawn from fuzz input for the operator targets: numbers that are mostly ordinary but
// now and then NaN, infinite or at the 32-bit limits, and affine transforms made of them.

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstdint>
#include <vector>

#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>

namespace fuzz {

/// Within ±range most of the time; sometimes 0, sometimes any double (NaN and inf included).
inline double Number(FuzzedDataProvider& input, double range) {
    switch (input.ConsumeIntegralInRange(0, 5)) {
        case 0:
            return input.ConsumeFloatingPoint<double>();
        case 1:
            return 0.0;
        default:
            return input.ConsumeFloatingPointInRange(-range, range);
    }
}

/// A vertex coordinate in internal units: a multiple of 100 within ±4000, or any 32-bit value.
inline std::int32_t Coordinate(FuzzedDataProvider& input) {
    if (input.ConsumeIntegralInRange(0, 7) == 0)
        return input.ConsumeIntegral<std::int32_t>();
    return input.ConsumeIntegralInRange(-40, 40) * 100;
}

/// The coordinates of one vertex or triangle: now and then any of Coordinate's, mostly
/// multiples of 100 within ±4000 only, so that most scenes stay on screen.
template <std::size_t N>
std::array<std::int32_t, N> Coordinates(FuzzedDataProvider& input) {
    const bool extreme = input.ConsumeIntegralInRange(0, 15) == 0;
    std::array<std::int32_t, N> values;
    for (std::int32_t& value : values)
        value = extreme ? Coordinate(input) : input.ConsumeIntegralInRange(-40, 40) * 100;
    return values;
}

/// A screen path of `minPoints` to `maxPoints` points within ±range; one path in sixteen takes
/// any of Number's values instead, so that most paths are finite.
inline std::vector<VelSDK::Math::point2d> Path(FuzzedDataProvider& input, std::size_t minPoints,
                                               std::size_t maxPoints, double range) {
    std::vector<VelSDK::Math::point2d> path(
        input.ConsumeIntegralInRange<std::size_t>(minPoints, maxPoints));
    const bool extreme = input.ConsumeIntegralInRange(0, 15) == 0;
    const auto value = [&] {
        return extreme ? Number(input, range) : input.ConsumeFloatingPointInRange(-range, range);
    };
    for (VelSDK::Math::point2d& p : path)
        p = {value(), value()};
    return path;
}

/// An affine map: mostly a uniform `scale` with a translation within ±`shift`, sometimes a
/// matrix of arbitrary numbers.
inline MMTransformMatrix Transform(FuzzedDataProvider& input, double scale, int shift) {
    std::array<double, 16> m{};
    m[0] = m[5] = m[10] = scale;
    if (input.ConsumeIntegralInRange(0, 3) == 0)
        for (int i = 0; i < 12; ++i)
            m[i] = Number(input, 2 * scale);
    else
        for (int i : {3, 7, 11})
            m[i] = input.ConsumeIntegralInRange(-shift, shift);
    m[15] = 1.0;
    return MMTransformMatrix(m);
}

/// Stops the run as a crash when an invariant does not hold.
inline void Require(bool condition) {
    if (!condition)
        __builtin_trap();
}

}  // namespace fuzz
