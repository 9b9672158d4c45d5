#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pinhole_projection.h>
#include <velpick/visibility_detector.h>

class MStlBase;
class MStlSurface;

namespace AU_MarkOperations::PolygonMarking {

/// One mesh of a session, borrowed: it must outlive the session and stay unchanged.
struct SessionMesh {
    MStlBase* mesh = nullptr;
    /// Placed mesh to screen units (x, y on the screen, z towards the viewer), or to eye space
    /// when the session has a perspective projection (whose near distance is resolved: > 0).
    MMTransformMatrix view;
    /// Mesh model coordinates to the space the clipping planes are given in.
    MMTransformMatrix placement;
    /// Every triangle markable; when false only those of `markableSurfaces` are.
    bool markWholeMesh = true;
    std::vector<MStlSurface*> markableSurfaces;
};

/// The picker a session runs.
enum class SessionPicker { kZBuffer, kScanLine };

/// Everything a pick needs besides its meshes and its region, fixed for the session's life.
struct SessionSettings {
    SessionPicker picker = SessionPicker::kZBuffer;
    double pixelProportion = 5.0;       // pixels per screen unit
    double depthTolerance = 0.05;       // model length units (z-buffer)
    double unitsPerModelUnit = 1000.0;  // internal units per model length unit
    double linesPerPixel = 5.0;         // sample lines per pixel row (scan-line)
    /// Scan-line: how a sample line decides which pieces are seen, and the Nearest rule's depth
    /// tolerance in the detector's depth units: the view's depth times the pixel proportion,
    /// or eye-space depth under a perspective projection.
    MStlBaseOperatorVisibilityDetector::VisibilityRule visibilityRule =
        MStlBaseOperatorVisibilityDetector::VisibilityRule::Ordered;
    double visibilityDepthTolerance = 0.0;
    int threads = 0;  // the most threads a pick uses; 0: the caller's arena
    bool skipHiddenSurfaces = false;
    bool backFaceCulling = false;
    bool markThrough = false;
    bool unmark = false;
    std::vector<MMPlaneEq<double>> clippingPlanes;  // placement space, kept side ≥ 0
    /// Seen through a pinhole after each mesh's view; affine views when empty.
    std::optional<PerspectiveProjection> perspective;
};

/// A screen region in screen units: a closed polygon, or with a brush radius a brush path.
struct SessionRegion {
    std::vector<VelSDK::Math::point2d> points;
    /// Screen units. The z-buffer picker takes whole numbers only.
    std::optional<double> brushRadius;
};

/// Per mesh of the session, in order: the ascending indices of the triangles a call marked (or
/// unmarked, with `unmark` set).
using SessionMarks = std::vector<std::vector<std::uint32_t>>;

/// How a session call ended.
enum class SessionStatus {
    kDone,
    /// The picker refused the region, marking nothing: a z-buffer raster over 2 147 483 647
    /// cells, a z-buffer brush beyond the 32-bit pixel range or with a radius that is
    /// negative, NaN or not a whole number, or a scan-line sweep taller than a vector holds.
    kRegionRefused,
};

/// Repeated picks of fixed meshes in one fixed view, each costing about what its region covers
/// rather than what the meshes hold.
///
/// Built once, the session bins every triangle into square screen tiles by its screen bounds,
/// computed with the picker's own arithmetic in a frame that does not depend on any region and
/// widened by a margin that covers the pickers' own rounding. A pick gathers the triangles of
/// the tiles that meet a box holding everything the picker keeps (the z-buffer's pixel box of
/// the region; the scan-line detector's cull box, the region's closed bounds in its pixels
/// widened by the brush radius) and hands only those, in their original order, to a fresh
/// one-shot operator: the marks are exactly the ones the operator gives on the whole meshes,
/// set up as the command line sets it up. Triangles that cross the near plane of a
/// perspective projection are handed to every pick.
///
/// The meshes are only read: marks go to per-call lists, never to the triangles. A changed
/// mesh (vertices moved, triangles added, surfaces switched hidden or visible) or a changed
/// view, placement or setting needs a new session; the old one would miss triangles.
///
/// Threads: one thread at a time may call a session. A z-buffer pick runs on up to
/// `settings.threads` threads of the caller's oneTBB arena; a scan-line pick in an arena of
/// the session's own with that many threads (0: in the caller's arena).
///
/// Memory: at most 11 bytes per triangle (12 for the scan-line picker): each triangle listed
/// in at most two tiles (4 bytes each) of the finest tile level where it meets no more, or once
/// in the list of triangles every pick gets; 8-byte tile offsets, at most one finest tile per
/// four triangles and each coarser level a sixteenth of the one before; two bits per triangle
/// for the pick and stroke bitmaps; for the scan-line picker one byte more, the mask of the
/// sink its detector marks into, registered with the mesh for the session's life (the mesh's
/// triangles and flags stay untouched). Measured 6.6 bytes per triangle (7.6 for the scan-line
/// picker) on a 1M-triangle torus filling a 1000-pixel view.
/// Building holds 16 bytes per vertex (17 under a perspective projection) and 8 per triangle of
/// the largest mesh besides, and runs on up to `settings.threads` threads of the caller's
/// oneTBB arena; the index does not depend on the number of threads.
///
/// Strokes: AddStrokeSegment picks the footprint of one segment (the brush path of its two
/// ends) as a region of its own and reports the triangles that segment marked which no earlier
/// segment of the stroke marked. A stroke's marks are the union of its segments' picks; the
/// z-buffer's raster follows each region's own pixel box, and the scan-line detector's sample
/// lines and sweep direction each region's own pieces, so that union differs slightly from
/// one pick of the whole path (about 1 % of the triangles on a fine mesh; see the tests).
class PickSession {
  public:
    /// Indexes the meshes (null meshes are skipped in the index and marked nothing).
    PickSession(std::vector<SessionMesh> meshes, SessionSettings settings);
    ~PickSession();
    PickSession(const PickSession&) = delete;
    PickSession& operator=(const PickSession&) = delete;

    /// Picks `region` on its own, independent of earlier calls and of the stroke. `marks` gets
    /// one list per mesh (emptied on any status but kDone).
    SessionStatus Pick(const SessionRegion& region, SessionMarks& marks);

    /// Picks the brush path {from, to} of `radius` screen units and puts in `newlyMarked`, per
    /// mesh, the triangles it marked that the stroke had not marked before, ascending.
    SessionStatus AddStrokeSegment(const VelSDK::Math::point2d& from,
                                   const VelSDK::Math::point2d& to, double radius,
                                   SessionMarks& newlyMarked);
    /// Starts a new stroke: no triangle counts as marked by it.
    void NewStroke();

    /// The bytes the session keeps, for the memory figure above.
    std::size_t MemoryBytes() const;

  private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace AU_MarkOperations::PolygonMarking
