#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>

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
/// Choices where the algorithm leaves room (each gives the marks the algorithm describes):
/// - Polygon crossings: a polygon edge counts on a line at y when min(y_a, y_b) ≤ y <
///   max(y_a, y_b), at x = x_a + (y − y_a)·(x_b − x_a)/(y_b − y_a); horizontal edges never
///   count. Crossings are paired even-odd; touching or overlapping intervals are merged.
/// - Brush: a segment's band is the rectangle between its two edge lines and the two caps
///   through its end points, so discs and bands together form the stroke of all points within
///   brushRadius of the path; a band of a horizontal segment covers [min x, max x] over the
///   whole y-range of width 2r. Zero-length segments add no band (their disc covers them).
///   Intervals that touch or overlap are merged.
/// - x sweep of a line: events at equal x are handled in the order segment starts, segment
///   ends, region-interval starts, region-interval ends, and within one kind by ascending piece
///   index (pieces counted over all meshes in registration order), so pieces entering at one x
///   are inserted into the depth order in that order. Two segments are compared at
///   m = (lo + hi)/2 of their common x-range [lo, hi], a segment's depth there being
///   z0 + (z1 − z0)·((m − x0)/(x1 − x0)), or (z0 + z1)/2 when x0 = x1.
/// - Cutting a piece on a line: its corners are taken in lexicographic (x, y, z) order c0, c1,
///   c2 and its edges in the order c0c1, c1c2, c0c2; an edge is cut from its smaller corner a
///   towards b at t = d_a/(d_a − d_b) (an edge lying on the line, d_a = d_b, gives corner a).
///   The segment starts at the leftmost cut (the first one found, at equal x) and ends at the
///   rightmost (the last one found, at equal x).
/// - Containers: a chunk keeps its active pieces in stable slots with an index of each piece's
///   slot, and its x orders from line to line; its results are a vector that may repeat a
///   piece. Only the merged, sorted and de-duplicated list of pieces is marked, so the marks
///   equal those of the ordered sets the algorithm names, whatever the number of threads.
/// - A clipping plane with a zero normal is carried into model space with the origin as its
///   foot point; it then keeps everything.
/// - The in-plane rotation turns about the origin, and is applied to a working copy of the
///   path: the stored path never changes.
/// - Non-finite input marks nothing instead of failing: a path with a non-finite coordinate,
///   or a non-finite brush radius in Brush mode, makes Operate() return at once; a piece with a
///   NaN y takes part in no line, and a piece whose cut on a line has a NaN x is left out of
///   that line. A pixelProportion that is not positive and finite adds no fill lines.
class MStlBaseOperatorVisibilityDetector {
  public:
    /// Region kind; the values are fixed.
    enum Mode : std::int32_t {
        /// The path is a stroke: every point within brushRadius of it.
        Brush = 0,
        /// The path is a closed polygon (the last point joins the first), filled even-odd.
        Polygon = 1
    };

    /// One clipped piece of one host triangle in screen space: x, y in pixels, z depth
    /// (larger is nearer). One host triangle can give several pieces.
    struct Triangle {
        VelSDK::Math::point3d p0, p1, p2;
        MStlTriangle* triangle;  // the host triangle to mark; not owned
        bool markable;           // this piece may be marked; unmarkable pieces still occlude
        MStlMarkTrianglesByMasks* marker;  // null: the triangle's own mark flag; not owned
    };

    MStlBaseOperatorVisibilityDetector() = default;

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
    struct StlEntry {
        const MStlBase* stl;
        VelSDK::Math::matrix4x4<double> modelToScreen;
        MMTransformMatrix planeTransform;
        bool allSurfacesMarkable;
        MStlMarkTrianglesByMasks* marker;
    };

    /// Builds `triangles`: every visible triangle clipped by the planes, mapped to the screen,
    /// culled against the region box and flagged markable or not.
    void _CollectTriangles();
    /// Turns the screen plane about the view axis so that no edge-on piece projects along the
    /// sweep direction, rotating the working path, the region box and every piece.
    void _TransformModel();

    std::vector<StlEntry> stls;
    std::vector<VelSDK::Math::point2d> path;
    double brushRadius = 0.0;
    Mode mode = Polygon;
    std::set<const MStlSurface*> markableSurfaces;
    std::vector<std::vector<Triangle>> triangles;
    std::vector<MMPlaneEq<double>> clippingPlanes;
    VelSDK::Math::point2d pathBoxMin{1.7976931348623157e308, 1.7976931348623157e308};
    VelSDK::Math::point2d pathBoxMax{-1.7976931348623157e308, -1.7976931348623157e308};
    double pixelProportion = 5.0;
    double pixelStep = 0.2;
    bool mark = true;
    bool markFlippedTriangles = false;
    bool checkSurfaceVisibility = true;
    bool markThrough = false;
    /// Per chunk of sample lines, the visible markable pieces it found (a piece may be listed
    /// more than once; the merge keeps one of each); emptied, capacity kept, after every run.
    std::vector<std::vector<Triangle*>> chunkResults;
    /// The path of the current run, rotated with the screen plane.
    std::vector<VelSDK::Math::point2d> runPath;
};
