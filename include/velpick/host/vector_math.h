#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>

namespace VelSDK::Math {

/// Smallest positive double (a denormal; 4.9e-324 parses to the same value); keeps the scaled
/// length formulas free of 0/0.
constexpr double kMinLengthScale = 4.9406564584124654e-324;
static_assert(kMinLengthScale == std::numeric_limits<double>::denorm_min() &&
                  kMinLengthScale == 4.9e-324,
              "kMinLengthScale is the smallest positive double");

/// Length of a 3D vector without intermediate overflow: m·√(1 + (a/m)² + (b/m)²), where m is
/// the largest absolute component (at least kMinLengthScale) and a, b are the other two.
inline double Length(const point3d& v) {
    double ax = std::fabs(v.x), ay = std::fabs(v.y), az = std::fabs(v.z);
    if (ay > ax)
        std::swap(ax, ay);
    if (az > ax)
        std::swap(ax, az);
    const double m = std::max(ax, kMinLengthScale);
    const double a = ay / m, b = az / m;
    return m * std::sqrt(1.0 + a * a + b * b);
}

/// Scales v to unit length. Returns false, leaving v unchanged, when its length is 0.
inline bool Normalize(point3d& v) {
    if (v.x == 0.0 && v.y == 0.0 && v.z == 0.0)
        return false;
    const double length = Length(v);
    v = {v.x / length, v.y / length, v.z / length};
    return true;
}

/// Divides all four coefficients by the length of (a, b, c); a zero-length plane is unchanged.
inline void Normalize(MMPlaneEq<float>& plane) {
    const float length = std::sqrt(plane.a * plane.a + plane.b * plane.b + plane.c * plane.c);
    if (length == 0.0f)
        return;
    plane = {plane.a / length, plane.b / length, plane.c / length, plane.d / length};
}

/// Intersects the line p + t·dir with the plane: t = −(n·p + d)/(n·dir). Fails with t = 0
/// when the line is parallel to the plane (n·dir = 0).
inline bool IntersectLinePlane(const point3f& p, const point3f& dir, const MMPlaneEq<float>& plane,
                               float& t) {
    const float denominator = plane.a * dir.x + plane.b * dir.y + plane.c * dir.z;
    if (denominator == 0.0f) {
        t = 0.0f;
        return false;
    }
    t = -(plane.a * p.x + plane.b * p.y + plane.c * p.z + plane.d) / denominator;
    return true;
}

}  // namespace VelSDK::Math

namespace VelSDK::Math {

/// Unit normal of the triangle a, b, c by the right-hand rule: (b − a) × (c − a) normalized;
/// (0, 0, 0) when the triangle is degenerate.
inline point3d UnitNormal(const point3d& a, const point3d& b, const point3d& c) {
    const point3d u{b.x - a.x, b.y - a.y, b.z - a.z}, v{c.x - a.x, c.y - a.y, c.z - a.z};
    point3d normal{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
    Normalize(normal);
    return normal;
}

}  // namespace VelSDK::Math
