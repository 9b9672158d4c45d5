#pragma once

#include <velpick/host/point.h>

class MStlTriangle;
class MStlMarkTrianglesByMasks;

namespace visibility {

/// One clipped piece of one host triangle in screen space: x, y in pixels, z depth (larger is
/// nearer). One host triangle can give several pieces.
struct Triangle {
    VelSDK::Math::point3d p0, p1, p2;
    MStlTriangle* triangle;            // the host triangle to mark; not owned
    bool markable;                     // may be marked; unmarkable pieces still occlude
    MStlMarkTrianglesByMasks* marker;  // null: the triangle's own mark flag; not owned
};

}  // namespace visibility
