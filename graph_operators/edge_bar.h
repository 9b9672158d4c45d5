#pragma once

#include <array>

#include <velpick/host/point.h>

class MStlPointBase;

namespace MarkGraphPolygonUtils::detail {

/// The eight corners of a graph edge drawn as a bar from p0 to p1: a square cross-section of
/// half-diagonal r0 around p0 and r1 around p1, in the order p0 + r0·u, p0 + r0·w, p0 − r0·u,
/// p0 − r0·w, then the same around p1 with r1. u is perpendicular to the edge (built from its
/// dominant axis, strict comparisons, x before y before z) and w = u × (p1 − p0), both unit
/// length. A zero-length edge gives non-finite corners.
std::array<VelSDK::Math::point3d, 8> EdgeBarCorners(const VelSDK::Math::point3d& p0,
                                                    const VelSDK::Math::point3d& p1, double r0,
                                                    double r1);

/// A vertex's integer coordinates as doubles.
VelSDK::Math::point3d ToDouble(const MStlPointBase& p);

}  // namespace MarkGraphPolygonUtils::detail
