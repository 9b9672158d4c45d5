#pragma once

// Fixed-size points of the host math library.
//
// Platform note: the host API was designed where `long` is 32 bits. Wherever it means a
// 32-bit value (pixel positions, `point<long,2>`), this code base uses std::int32_t,
// because `long` is 64 bits here.

#include <cstddef>
#include <cstdint>

namespace VelSDK::Math {

/// A point of N coordinates of type T, in order x, y(, z). Only N = 2 and N = 3 exist.
template <class T, std::size_t N>
struct point;

template <class T>
struct point<T, 2> {
    T x{}, y{};

    T& operator[](std::size_t i) { return i == 0 ? x : y; }
    const T& operator[](std::size_t i) const { return i == 0 ? x : y; }
    friend bool operator==(const point& a, const point& b) { return a.x == b.x && a.y == b.y; }
    friend bool operator!=(const point& a, const point& b) { return !(a == b); }
};

template <class T>
struct point<T, 3> {
    T x{}, y{}, z{};

    T& operator[](std::size_t i) { return i == 0 ? x : (i == 1 ? y : z); }
    const T& operator[](std::size_t i) const { return i == 0 ? x : (i == 1 ? y : z); }
    friend bool operator==(const point& a, const point& b) {
        return a.x == b.x && a.y == b.y && a.z == b.z;
    }
    friend bool operator!=(const point& a, const point& b) { return !(a == b); }
};

using point2d = point<double, 2>;
using point3d = point<double, 3>;
using point3f = point<float, 3>;
using point2i = point<std::int32_t, 2>;  // the host's point<long,2>

/// Axis-aligned box: minimum corner then maximum corner, so a 2D box reads
/// (min x, min y, max x, max y) in memory.
template <class T, std::size_t N>
struct boundingbox {
    point<T, N> min{}, max{};
};

/// Sixteen values of a 4x4 matrix, m[i][j]. The host stores transforms for row vectors:
/// a point p maps to p' with p'_j = sum_i p_i m[i][j] + m[3][j], i.e.
/// x' = m[0][0] x + m[1][0] y + m[2][0] z + m[3][0].
template <class T>
struct matrix4x4 {
    T m[4][4]{};
};

}  // namespace VelSDK::Math
