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
class IStlMarkTriangles;

/// Marks (or unmarks) the triangles of one or more meshes that lie under a closed screen
/// polygon or a brush stroke, seen through each mesh's camera: a z-buffer picker with a depth
/// tolerance, back-face culling, mark-through and clipping planes.
///
/// Use: construct; register each mesh with AddStl (followed by its SetMarkableSurface calls);
/// set the polygon or brush path, planes and switches; call operate() once. The operator
/// borrows meshes, surfaces and sinks: they must outlive every operate(). It is meant to be
/// configured anew for each run: the model-to-pixel transforms and clipping planes mapped into
/// each mesh by the first run stay in force for later runs of the same object.
class MStlBaseOperatorMarkPolygon {
  public:
    /// 5 pixels per screen unit, a depth tolerance of 0.05 model units, hidden surfaces kept.
    MStlBaseOperatorMarkPolygon();
    /// `pixelProportion`: pixels per screen unit of the polygon or path. `depthTolerance`: in
    /// model length units; a triangle within this distance behind the front-most surface at
    /// some region pixel still counts as visible. It is scaled by MInternalUnits::Get() and
    /// truncated to whole internal units (a negative or NaN tolerance counts as 0).
    /// `skipHiddenSurfaces`: triangles of surfaces switched invisible are neither drawn nor
    /// marked.
    MStlBaseOperatorMarkPolygon(double pixelProportion, double depthTolerance,
                                bool skipHiddenSurfaces);
    /// The same with the internal-unit scale given (internal units per model length unit)
    /// instead of read from MInternalUnits::Get(): a host that picks on several threads, or
    /// meshes of different scales, passes each run its own scale and shares no state.
    MStlBaseOperatorMarkPolygon(double pixelProportion, double depthTolerance,
                                bool skipHiddenSurfaces, double unitsPerModelUnit);
    ~MStlBaseOperatorMarkPolygon();
    MStlBaseOperatorMarkPolygon(const MStlBaseOperatorMarkPolygon&) = delete;
    MStlBaseOperatorMarkPolygon& operator=(const MStlBaseOperatorMarkPolygon&) = delete;

    /// Registers a mesh. `view` maps the placed mesh to screen units (x, y on screen, z
    /// towards the viewer); `placement` maps the mesh's model coordinates into the space in
    /// which clipping planes are given; the mesh is seen through view ∘ placement. A null
    /// transform counts as the identity. `markWholeMesh` makes every triangle markable; when
    /// false only the triangles of the surfaces given to SetMarkableSurface are, and the rest
    /// of the mesh still hides what lies behind it. Marks go to `sink` when it is not null,
    /// else to the triangles themselves. A null mesh is ignored.
    void AddStl(MStlBase* stl, const MMTransformMatrix* view, const MMTransformMatrix* placement,
                bool markWholeMesh, IStlMarkTriangles* sink);
    /// Makes the triangles of `surface` markable in the mesh registered last. Calls accumulate.
    /// Ignored before any mesh is registered or for a null surface.
    void SetMarkableSurface(MStlSurface* surface);

    /// Restricts the run, in the mesh registered last, to the `count` triangles listed (indices
    /// into the mesh, strictly ascending): the others are treated as if absent, neither drawn
    /// nor marked. Triangles the run would reject anyway change nothing by their absence: a
    /// caller that lists every triangle whose screen bounds meet the region's pixel box (under
    /// a perspective projection, also every triangle that crosses the near plane) gets exactly
    /// the marks of the run without a list, in the same order,
    /// with the work of the run proportional to the list instead of the mesh. Returns false,
    /// changing nothing, when no mesh is registered, `triangles` is null with a nonzero
    /// count, or an index is out of range or not above the one before. A later call replaces
    /// the list; an empty list leaves the mesh out of the run.
    bool SetCandidateTriangles(const std::uint32_t* triangles, std::size_t count);

    /// Keeps only a·x + b·y + c·z + d ≥ 0 (in placement space): triangles entirely on the
    /// other side are neither drawn nor marked, triangles across the plane are cut.
    /// A plane whose normal (a, b, c) is zero, or whose squared length underflows to zero,
    /// has no kept side: its equation becomes NaN when mapped into a mesh, every triangle
    /// that reaches it is cut and no piece survives, so it removes every triangle, drawn or
    /// marked, whatever d and the other planes are. NaN coefficients behave the same way.
    void AddClippingPlane(const MMPlaneEq<double>& plane);
    void ClearClippingPlanes();

    /// The selection region: a closed polygon in screen units (the last vertex joins the
    /// first). Its pixel box is the floored bounds of the scaled vertices.
    void SetPolygon(const std::vector<VelSDK::Math::point2d>& polygon);
    /// The selection region: a path in screen units swept by a disc of `radius` screen units.
    /// A radius whose pixel size (radius × pixel proportion, truncated) leaves the 32-bit range
    /// makes operate() return false, marking nothing.
    void SetBrushPath(const std::vector<VelSDK::Math::point2d>& path, std::size_t radius);

    /// Back-facing triangles (normal · viewing direction ≥ 0) are drawn as occluders but not
    /// marked. A mark-through run switches culling off for good.
    void SetBackFaceCulling(bool backFaceCulling);
    /// Marks every markable triangle under the region, hidden or not, with no depth test.
    void SetMarkThrough(bool markThrough);
    /// True unmarks instead of marking.
    void SetUnmark(bool unmark);
    /// The most threads one operate() uses, all taken from the calling thread's oneTBB arena
    /// (no arena or thread of its own): 0 or less, the default, means all of the arena
    /// (tbb::this_task_arena::max_concurrency()); 1 runs on the calling thread alone; more than
    /// the arena holds counts as the arena. The depth buffer is drawn in bands of rows, one per
    /// thread, each over every triangle in order, so the marks do not depend on this setting.
    /// Runs with clipping planes draw on one thread.
    void SetThreads(int threads);

    /// Sees every mesh through `projection` after its view (see PerspectiveProjection): each
    /// `view` then maps into eye space. Without this call the view is affine, as documented at
    /// AddStl. Under a projection:
    /// - the near plane acts as an extra clipping plane in each mesh: triangles wholly nearer
    ///   than it are ignored, triangles across it are cut and their far part drawn and marked;
    /// - the depth buffer stores q = near/depth as a float (rounded to nearest from the double
    ///   computed per vertex), larger nearer; q is affine across the screen, so the walks'
    ///   linear interpolation of it is the perspective-correct one. The tolerance stays a depth
    ///   in model units: a pixel's threshold is near/(near/qFront + tolerance), computed in
    ///   double from the float qFront and rounded to nearest float; a pixel never drawn keeps
    ///   −FLT_MAX;
    /// - back-face culling keeps the triangles whose projection winds counter-clockwise on the
    ///   screen, which for the part in front of the near plane is the eye lying on the side of
    ///   the triangle's plane its normal points to; decided in model space, edge-on is back.
    /// Brush radii, the pixel proportion and the region stay in screen units.
    void SetPerspective(const AU_MarkOperations::PolygonMarking::PerspectiveProjection& projection);

    /// The bytes operate() will allocate for its selection rasters with the region and mode set
    /// now (see Memory below); 0 when it will refuse the region. Lets a caller refuse a region
    /// too large for the machine before the run.
    std::uint64_t RasterBytes() const;

    /// Marks or unmarks the selected triangles. Returns false, marking nothing, when the
    /// selection raster cannot be built (more than 2 147 483 647 pixels, or a brush path whose
    /// points or radius do not fit the 32-bit pixel range); true otherwise, also when no mesh
    /// is registered or the region has no points.
    ///
    /// Memory: the rasters cover the region's pixel box, about 9 bytes a pixel (an 8-byte
    /// depth cell and a region byte) plus 16 bytes a row; in mark-through mode one byte a
    /// pixel plus 8 a row. Besides, about one byte per triangle and 13 per vertex of the
    /// meshes, and 48 bytes per piece that clipping planes cut and that covers the region. A box
    /// under the cell limit may still be too large for the machine (46 000 × 46 000 pixels need 19
    /// GB): the allocation failure propagates as std::bad_alloc, before anything is marked, and the
    /// operator may be set up and run again. Callers that want a message instead ask
    /// RasterBytes() first. A run numbers every triangle of every mesh, and every piece it
    /// keeps, in 32 bits: beyond 4 294 967 294 of them it throws std::length_error, also
    /// before anything is marked.
    bool operate();

  private:
    // The operator's state and steps live behind this pointer, so that this header shows only
    // the operations; a run follows it once.
    class Impl;
    std::unique_ptr<Impl> m_impl;
};
