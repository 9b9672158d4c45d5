#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pinhole_projection.h>

class MStlBase;
class MStlSurface;
class MStlTriangle;
class MStlMarkTrianglesByMasks;

/// Marks (or unmarks) the triangles of one or more meshes that are visible inside a screen
/// region, a closed polygon or a brush stroke, by sweeping horizontal sample lines over the
/// triangles on the caller's oneTBB arena. Unlike a pixel z-buffer it samples every pixel row on
/// several lines (pixelProportion lines per screen unit) and decides exact x intervals on each,
/// so thin or small visible triangles are kept.
///
/// Use: construct; register meshes with AddStlAndTransformation; set the path, mode, planes and
/// switches; call Operate(). Settings persist across runs; every run rebuilds its working data.
/// The detector borrows meshes, surfaces and markers: they must outlive every Operate(). It
/// creates no threads; one detector must not be used from two threads at once.
///
/// Region and sweep rules (each fixes the marks exactly):
/// - Polygon: even-odd interior; an edge counts on a line at y when min(y_a, y_b) ≤ y <
///   max(y_a, y_b), so horizontal edges never count.
/// - Brush: every point within brushRadius of the path (a disc at each point, a band along each
///   segment of non-zero length).
/// - On each sample line every piece is cut into an x segment; pieces enter a depth order in x
///   order (ties by piece index over all meshes in registration order) and move ahead of each
///   piece they are nearer than at the middle of their common x-range. The front piece of that
///   order is seen wherever it lies inside the region (the default, VisibilityRule::Ordered).
///   Which piece is in front depends on the order pieces entered, not only on their depths.
/// - VisibilityRule::Nearest (opt-in) decides by depth alone; see SetRule.
/// - Non-finite input marks nothing instead of failing: a path with a non-finite coordinate,
///   or a non-finite brush radius in Brush mode, makes Operate() return at once; a piece with a
///   NaN y takes part in no line. A pixelProportion that is not positive and finite adds no
///   fill lines. A clipping plane with a zero normal keeps everything.
class MStlBaseOperatorVisibilityDetector {
  public:
    /// Region kind; the values are fixed.
    enum Mode : std::int32_t {
        /// The path is a stroke: every point within brushRadius of it.
        Brush = 0,
        /// The path is a closed polygon (the last point joins the first), filled even-odd.
        Polygon = 1
    };

    /// How a sample line decides which pieces are seen; the values are fixed.
    enum class VisibilityRule : std::int32_t {
        /// The front of a depth order that pieces enter in x order (see the class comment).
        Ordered = 0,
        /// Every piece whose depth is within the depth tolerance of the nearest depth.
        Nearest = 1
    };

    MStlBaseOperatorVisibilityDetector();
    ~MStlBaseOperatorVisibilityDetector();
    MStlBaseOperatorVisibilityDetector(MStlBaseOperatorVisibilityDetector&&) noexcept;
    MStlBaseOperatorVisibilityDetector& operator=(MStlBaseOperatorVisibilityDetector&&) noexcept;

    /// Registers a mesh (not owned; no argument is checked and one mesh may be added twice).
    /// `modelToScreen` maps model coordinates to screen pixels (x, y) and depth (z, larger is
    /// nearer), as an affine map. The inverse of `planeTransform` carries the clipping planes
    /// into the mesh's model space. `allSurfacesMarkable`: every surface may be marked;
    /// otherwise only the surfaces given to SetMarkableSurface (the rest still hides what lies
    /// behind it). `marker`: the sink for this mesh's marks, or null to set the triangles' own
    /// mark flag.
    void AddStlAndTransformation(const MStlBase* stl, const MMTransformMatrix& modelToScreen,
                                 const MMTransformMatrix& planeTransform, bool allSurfacesMarkable,
                                 MStlMarkTrianglesByMasks* marker);
    /// Keeps only a·x + b·y + c·z + d ≥ 0 (in the space planeTransform maps into); triangles
    /// across the plane are cut. Planes apply in the order added and cannot be removed.
    void AddClippingPlane(const MMPlaneEq<double>& plane);
    /// The region's points in screen pixels: a closed polygon, or a brush path (a path of one
    /// point is a disc). An empty path marks nothing.
    void SetPath(std::vector<VelSDK::Math::point2d> path);
    /// Brush half-width in pixels (Brush mode only).
    void SetBrushRadius(double radius);
    /// Sample lines per pixel: lines are at most 1 / pixelProportion apart. Default 5.
    void SetPixelProportion(double pixelProportion);
    void SetMode(Mode mode);
    /// True (default) marks; false unmarks exactly what true would mark.
    void SetMark(bool mark);
    /// True takes every markable piece under the region, hidden or not. Default false.
    void SetMarkThrough(bool markThrough);
    /// True also marks pieces seen from behind: those whose screen corners turn
    /// counter-clockwise in a y-up frame, (p1 − p0) × (p2 − p0) having z > 0. Default false.
    void SetMarkFlippedTriangles(bool markFlipped);
    /// True (default) leaves out, as neither occluder nor mark, every surface switched
    /// invisible.
    void SetCheckSurfaceVisibility(bool check);
    /// Makes the surface's triangles markable in meshes registered without
    /// allSurfacesMarkable. Calls accumulate; there is no way to clear the set.
    void SetMarkableSurface(const MStlSurface& surface);
    /// The visibility rule; default Ordered, which keeps every mark as it always was.
    ///
    /// Nearest: on each sample line every piece is cut into an x segment (as Ordered does) whose
    /// depth at x is interpolated linearly between its ends, in doubles, as Ordered compares
    /// depths. The nearest depth at x is the greatest depth of the segments over x. A piece is
    /// seen on the x, inside the region, where its depth is at least the nearest depth minus
    /// the depth tolerance, and is marked when that holds on an interval of positive length on
    /// some line. So a piece rising through another is marked where it is in front, pieces in
    /// one plane that overlap are all marked (given a tolerance above the rounding of their
    /// depths), and nothing depends on the order of the pieces. Pieces that may not be marked
    /// (flipped ones, unless SetMarkFlippedTriangles, and those of surfaces that are not
    /// markable) hide others as with Ordered; SetMarkThrough(true) takes every markable piece
    /// under the region whatever the rule.
    void SetRule(VisibilityRule rule);
    /// Depth tolerance of the Nearest rule (Ordered ignores it), in the units of the screen
    /// depth (z) that the modelToScreen transforms produce: the detector works in that screen
    /// space, and turning the screen about the view axis leaves depth unchanged. The transforms
    /// take vertex coordinates in internal units, so a tolerance of t model-length units is
    /// t · u · s, u being the internal units per model unit (MInternalUnits::Get()) and s the
    /// factor by which modelToScreen scales lengths along z (for a view that scales all three
    /// axes alike, its screen pixels per internal unit). One value serves every registered
    /// mesh. Default 0: only pieces whose interpolated depth equals the nearest exactly.
    /// Negative or NaN counts as 0; +∞ takes every markable piece the lines cut inside the
    /// region.
    void SetDepthTolerance(double tolerance);

    /// Sees every mesh through `projection` after its modelToScreen, which then maps model
    /// coordinates into eye space (see PerspectiveProjection); without this call modelToScreen
    /// is affine as documented at AddStlAndTransformation and every mark stays as it was. Under
    /// a projection:
    /// - the near plane depth ≥ nearDistance, carried into each mesh's model space, cuts before
    ///   the clipping planes, exactly as one of them: nothing nearer than it is marked or hides
    ///   anything, whatever its projected position. A kept corner whose depth rounds below
    ///   nearDistance is projected at nearDistance;
    /// - each piece corner is projected with the divide and carries the reciprocal depth
    ///   q = nearDistance/depth (double, larger nearer) as its z. q is affine across the screen,
    ///   so every depth the sweep interpolates along a sample line, and every comparison of the
    ///   rules, is the perspective-correct one at the same points as with an affine view;
    /// - the depth tolerance (SetDepthTolerance) is a depth along the viewing axis in eye-space
    ///   units (internal units for a view without scale): a piece counts where
    ///   depth ≤ nearestDepth + tolerance, tested as q ≥ k/(k/qNearest + tolerance) with
    ///   k = nearDistance, in double (a tolerance of 0 takes qNearest itself);
    /// - the flipped rule (SetMarkFlippedTriangles) reads the winding of the projected corners,
    ///   which for a piece in front of the near plane is the eye lying behind the triangle's
    ///   front side; exactly zero counts as not flipped, as with an affine view.
    /// The path, brush radius, pixel proportion and the sweep's screen rotation stay in screen
    /// pixels, unchanged.
    void SetPerspective(const AU_MarkOperations::PolygonMarking::PerspectiveProjection& projection);
    /// Restricts the run, in the mesh registered last, to the `count` triangles listed (indices
    /// into the mesh, strictly ascending): the others are treated as if absent, neither hiding
    /// anything nor marked. A caller that lists every triangle whose screen bounds meet the
    /// region box (the path's closed bounding box, widened by the brush radius in Brush mode;
    /// under a projection also every triangle that crosses the near plane) gets exactly the
    /// marks of the run without a list: the listed triangles are visited in the full run's
    /// order (surface by surface), so ties break alike. The run's work is then proportional to
    /// the list and the mesh's surface count, not its triangles. Returns false, changing
    /// nothing, when no mesh is registered, `triangles` is null with a nonzero count, or an
    /// index is out of range or not above the one before. A later call replaces the list; an
    /// empty list leaves the mesh out of the run.
    bool SetCandidateTriangles(const std::uint32_t* triangles, std::size_t count);

    /// Marks or unmarks every visible markable piece's host triangle, once per piece: through
    /// the piece's marker when it has one, else MStlTriangle::Mark/Unmark. Returns at once when
    /// no mesh is registered. Runs parts of its work on the current oneTBB arena; the marks do
    /// not depend on the number of threads.
    ///
    /// The sample lines, pixelProportion per pixel over the swept height, are all kept at once:
    /// a sweep needing more than a vector can hold (a box whose height overflows to infinity,
    /// e.g. a brush radius or polygon near ±DBL_MAX) raises std::length_error, and one needing
    /// more than memory holds raises std::bad_alloc, before anything is marked. The detector
    /// stays usable.
    void Operate();

  private:
    // The settings, the working state of a run and its steps live behind this pointer, so that
    // this header shows only the operations.
    class Impl;
    std::unique_ptr<Impl> m_impl;
};
