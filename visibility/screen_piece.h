#pragma once

#include <cstdint>

class MStlTriangle;

namespace visibility {

/// One clipped piece of one host triangle in screen space, its corners given by index into the
/// run's screen vertices (x, y in pixels, z depth, larger nearer). The pieces of whole
/// triangles share the vertices of the mesh; a clipped piece has corners of its own. One host
/// triangle can give several pieces.
struct Triangle {
    std::uint32_t corners[3];
    bool markable;           // may be marked; unmarkable pieces still occlude
    MStlTriangle* triangle;  // the host triangle to mark; not owned
};

}  // namespace visibility
