#include "graph_operators/edge_bar.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <velpick/host/stl_point.h>
#include <velpick/host/vector_math.h>

using VelSDK::Math::kMinLengthScale;
using VelSDK::Math::point3d;

namespace MarkGraphPolygonUtils::detail {

namespace {

// m·√(1 + (mid/m)² + (min/m)²) with m, mid, min the absolute components from largest to
// smallest: no intermediate overflow or underflow.
double ScaledLength(const point3d& v) {
    double m = std::fabs(v.x), mid = std::fabs(v.y), low = std::fabs(v.z);
    if (mid > m)
        std::swap(m, mid);
    if (low > m)
        std::swap(m, low);
    if (low > mid)
        std::swap(mid, low);
    const double scale = std::max(m, kMinLengthScale);
    const double a = mid / scale, b = low / scale;
    return m * std::sqrt(1.0 + a * a + b * b);
}

void NormalizeScaled(point3d& v) {
    const double length = ScaledLength(v);
    if (length == 0.0)
        return;
    v = {v.x / length, v.y / length, v.z / length};
}

// A unit vector perpendicular to d, built on d's dominant axis.
point3d Perpendicular(const point3d& d) {
    const double ax = std::fabs(d.x), ay = std::fabs(d.y), az = std::fabs(d.z);
    point3d u;
    if (ax > ay && ax > az)
        u = {-d.z / d.x, 0.0, 1.0};
    else if (ay > az)
        u = {1.0, -d.x / d.y, 0.0};
    else
        u = {0.0, 1.0, -d.y / d.z};
    NormalizeScaled(u);
    return u;
}

point3d Offset(const point3d& p, double r, const point3d& direction) {
    return {p.x + r * direction.x, p.y + r * direction.y, p.z + r * direction.z};
}

}  // namespace

std::array<point3d, 8> EdgeBarCorners(const point3d& p0, const point3d& p1, double r0, double r1) {
    const point3d d = {p1.x - p0.x, p1.y - p0.y, p1.z - p0.z};
    const point3d u = Perpendicular(d);
    point3d w = {u.y * d.z - u.z * d.y, u.z * d.x - u.x * d.z, u.x * d.y - u.y * d.x};
    NormalizeScaled(w);
    const point3d minusU = {-u.x, -u.y, -u.z}, minusW = {-w.x, -w.y, -w.z};
    return {Offset(p0, r0, u), Offset(p0, r0, w), Offset(p0, r0, minusU), Offset(p0, r0, minusW),
            Offset(p1, r1, u), Offset(p1, r1, w), Offset(p1, r1, minusU), Offset(p1, r1, minusW)};
}

point3d ToDouble(const MStlPointBase& p) {
    return {static_cast<double>(p[0]), static_cast<double>(p[1]), static_cast<double>(p[2])};
}

}  // namespace MarkGraphPolygonUtils::detail
