#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include <velpick/host/point.h>
#include "visibility/sweep_constants.h"

namespace visibility {

/// A piece's cut on a sample line, x0 ≤ x1; invalid when the cut has no x. [zLo, zHi] holds
/// every depth the segment is given inside its x-range (NaN: no bound known).
struct Segment {
    double x0, z0, x1, z1;
    double zLo, zHi;
    bool valid;
};

namespace cut_detail {

// Whether the edge a–b meets the line, its corners being da and db away from it (within
// DBL_EPSILON counts as on it).
inline bool Crosses(double da, double db) {
    const bool bothAbove = da > kOnPlaneTolerance && db > kOnPlaneTolerance;
    const bool bothBelow = da < -kOnPlaneTolerance && db < -kOnPlaneTolerance;
    return !bothAbove && !bothBelow;
}

// Interpolated from the lexicographically smaller corner a. An edge lying on the line
// (da = db) has no single crossing; its corner a stands for it.
inline void CrossingPoint(const VelSDK::Math::point3d& a, const VelSDK::Math::point3d& b, double da,
                          double db, double& x, double& z) {
    if (da == db) {
        x = a.x;
        z = a.z;
        return;
    }
    const double t = da / (da - db);
    x = a.x + t * (b.x - a.x);
    z = a.z + t * (b.z - a.z);
}

}  // namespace cut_detail

/// Every depth DepthAt can return for an x inside the segment's own range lies between z0 and
/// z1 up to the rounding of the interpolation (at most 1.5 DBL_EPSILON of the larger |z|, each
/// rounding step being monotone), so a slack of kInterpolationSlack of it bounds it. Segments
/// whose coordinates could overflow in the interpolation (or are NaN) get NaN bounds, which
/// prove nothing.
inline void BoundDepth(Segment& s) {
    const bool bounded = std::fabs(s.x0) < kBoundedMagnitude &&
                         std::fabs(s.x1) < kBoundedMagnitude &&
                         std::fabs(s.z0) < kBoundedMagnitude && std::fabs(s.z1) < kBoundedMagnitude;
    if (!bounded) {
        s.zLo = s.zHi = std::numeric_limits<double>::quiet_NaN();
        return;
    }
    const double slack =
        kInterpolationSlack * std::max(std::fabs(s.z0), std::fabs(s.z1)) + kUnderflowSlack;
    s.zLo = std::min(s.z0, s.z1) - slack;
    s.zHi = std::max(s.z0, s.z1) + slack;
}

/// Cuts a piece, given by its corners in lexicographic (x, y, z) order c0, c1, c2, with the line
/// at y. Its edges are taken in the order c0c1, c1c2, c0c2; an edge is cut from its smaller
/// corner a towards b at t = d_a/(d_a − d_b) (an edge lying on the line gives corner a). The
/// segment starts at the leftmost cut (the first found, at equal x) and ends at the rightmost
/// (the last found).
inline void CutPiece(const VelSDK::Math::point3d (&c)[3], double y, Segment& segment) {
    const double d[3] = {c[0].y - y, c[1].y - y, c[2].y - y};
    static constexpr int kEdges[3][2] = {{0, 1}, {1, 2}, {0, 2}};
    bool any = false;
    for (const auto& edge : kEdges) {
        const int a = edge[0], b = edge[1];
        if (!cut_detail::Crosses(d[a], d[b]))
            continue;
        double x, z;
        cut_detail::CrossingPoint(c[a], c[b], d[a], d[b], x, z);
        if (!any) {
            segment.x0 = segment.x1 = x;
            segment.z0 = segment.z1 = z;
            any = true;
        } else if (x < segment.x0) {
            segment.x0 = x;
            segment.z0 = z;
        } else if (x >= segment.x1) {
            segment.x1 = x;
            segment.z1 = z;
        }
    }
    segment.valid = any && !std::isnan(segment.x0) && !std::isnan(segment.x1);
    BoundDepth(segment);
}

/// The segment's depth at x: z0 + (z1 − z0)·((x − x0)/(x1 − x0)), or (z0 + z1)/2 when x0 = x1.
inline double DepthAt(const Segment& s, double x) {
    if (s.x1 == s.x0)
        return (s.z0 + s.z1) / 2.0;
    return s.z0 + (s.z1 - s.z0) * ((x - s.x0) / (s.x1 - s.x0));
}

}  // namespace visibility
