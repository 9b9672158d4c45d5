#pragma once

// Where a session's picker puts each vertex on the screen, computed once per mesh in a frame
// that does not depend on any region, and the widened screen bounds of a triangle from it.

#include <cmath>
#include <cstdint>
#include <vector>

#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pick_session.h>
#include "session/screen_tile_index.h"

class MStlTriangle;

namespace AU_MarkOperations::PolygonMarking {

/// Widening of every triangle's screen bounds and of every query box, in pixels: covers the
/// z-buffer operator's float rounding of pixel coordinates relative to a region's corner and
/// the rounding of its differently composed transform, and the scan-line detector's rounding of
/// the corners where a plane cuts a triangle.
constexpr double kMarginPixels = 1.0;
/// Widening per pixel of distance from the frame's origin: float pixel coordinates round to
/// about 6e-8 of their size, and far vertices of large triangles still decide their bounds.
constexpr double kMarginPerPixel = 1e-6;

inline double Widening(double coordinate) {
    return kMarginPixels + kMarginPerPixel * std::fabs(coordinate);
}

/// Each vertex's screen position in the frame of the session's picker: for the z-buffer its
/// pixel coordinates in a region whose corner pixel is (0, 0) (its own coordinates plus that
/// corner), for the scan-line detector its own downward pixels.
struct ProjectedVertices {
    /// Under a perspective projection, where a vertex lies against the near plane.
    enum NearSide : std::uint8_t { kInFront, kBehind, kOnNear };

    std::vector<VelSDK::Math::point2d> pixels;  // of the vertices in front of the near plane
    std::vector<NearSide> nearSide;             // perspective only
};

/// The vertices of `m` as the session's picker maps them, on up to `threads` threads of the
/// caller's arena (the result does not depend on them).
ProjectedVertices ProjectVertices(const SessionMesh& m, const SessionSettings& settings,
                                  int threads);

/// Triangle `t`'s widened bounds: wholly behind the near plane it is never drawn, across it
/// (or too near it to tell) always a candidate, and so is a triangle with a non-finite corner.
Footprint TriangleFootprint(const MStlTriangle& t, const ProjectedVertices& vertices,
                            PixelBounds& bounds);

/// The scan-line detector's model-to-screen map of mesh `m`: placement, view, then for an
/// affine view the pixel scale and the mirror that makes y grow downwards.
MMTransformMatrix DetectorModelToScreen(const SessionMesh& m, const SessionSettings& settings);

/// The session's projection carried into the detector's downward pixels.
PerspectiveProjection DetectorProjection(const PerspectiveProjection& projection,
                                         double pixelProportion);

}  // namespace AU_MarkOperations::PolygonMarking
