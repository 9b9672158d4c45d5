#include <velpick/mark_polygon.h>
#include <velpick/pinhole_projection.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <velpick/camera_view.h>
#include <velpick/host/internal_units.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/plane_transform.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/vector_math.h>
#include "mark_polygon/triangle_clipper.h"
#include "mark_polygon/triangle_raster.h"
#include "mark_polygon/uninitialized_vector.h"
#include "polygon_marking/selection_raster.h"

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using VelSDK::Math::point3f;

namespace {

constexpr double kDefaultPixelProportion = 5.0;  // pixels per screen unit
constexpr double kDefaultDepthTolerance = 0.05;  // model length units

// Vertex outcodes: where a vertex lies relative to the region's pixel box. A triangle whose
// three vertices share a bit lies outside the box and is never drawn.
constexpr std::uint32_t kOutcodeLeft = 1;   // x ≤ 0
constexpr std::uint32_t kOutcodeRight = 2;  // x ≥ xmax − xmin
constexpr std::uint32_t kOutcodeBelow = 4;  // y ≥ ymax − ymin
constexpr std::uint32_t kOutcodeAbove = 8;  // y ≤ 0
// Under a perspective projection: the vertex lies nearer than the near plane, and its x and y
// bits are left clear, as its projection means nothing.
constexpr std::uint32_t kOutcodeNear = 16;

// Triangle classes of one run, kept in bits 2-3 of a triangle's state byte beside the
// depth-pass flags kCoveredFlag and kVisibleFlag.
constexpr std::uint8_t kOccluder = 0x0;   // drawn into the depth buffer, never marked
constexpr std::uint8_t kCandidate = 0x4;  // may be marked
constexpr std::uint8_t kIgnored = 0x8;    // neither drawn nor marked
constexpr std::uint8_t kSelected = 0xC;   // mark-through: covers a region pixel
constexpr std::uint8_t kClassMask = 0xC;
// Beside the class: the triangle crosses the near plane of a perspective projection and is
// drawn and tested only as the pieces cut from it.
constexpr std::uint8_t kNearCut = 0x10;
// The screen depth of a vertex nearer than the near plane: every reciprocal depth in front of
// it is positive.
constexpr float kBehindNearDepth = -1.0f;

/// A tolerance in model length as whole internal units; negative and NaN give 0.
std::size_t ToInternalUnits(double tolerance, double unitsPerModelUnit) {
    const double units = unitsPerModelUnit * tolerance;
    if (!(units > 0.0))
        return 0;
    if (units >= 18446744073709551616.0)
        return SIZE_MAX;
    return static_cast<std::size_t>(units);
}

point3f ToFloat(const MStlPoint& p) {
    return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
}

double Dot(const point3d& a, const point3d& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// Calls visit(chunk, elements, first index, length) for every chunk of the store, on up to
/// `threads` threads of the caller's arena. Chunks hold disjoint elements, so a visit that
/// writes only its own elements' results gives the same results on any number of threads.
template <class T, class Visit>
void ForEachChunk(const MStlElementStore<T>& store, int threads, Visit&& visit) {
    const auto run = [&](std::size_t chunk) {
        visit(store.Chunk(chunk), chunk * MStlElementStore<T>::kChunkSize,
              store.ChunkLength(chunk));
    };
    if (threads <= 1 || store.ChunkCount() <= 1) {
        for (std::size_t chunk = 0; chunk < store.ChunkCount(); ++chunk)
            run(chunk);
        return;
    }
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, store.ChunkCount()),
                      [&](const tbb::blocked_range<std::size_t>& chunks) {
                          for (std::size_t chunk = chunks.begin(); chunk != chunks.end(); ++chunk)
                              run(chunk);
                      });
}

/// Entries of a list handed to one task: lists shorter than this are walked on one thread.
constexpr std::size_t kListBlock = 4096;

/// Calls visit(item) for every item of the list, on up to `threads` threads of the caller's
/// arena, in blocks of consecutive items. As for ForEachChunk, a visit that writes only its own
/// item's results gives the same results on any number of threads.
template <class T, class Visit>
void ForEachListed(const std::vector<T>& items, int threads, Visit&& visit) {
    if (threads <= 1 || items.size() <= kListBlock) {
        for (const T& item : items)
            visit(item);
        return;
    }
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, items.size(), kListBlock),
                      [&](const tbb::blocked_range<std::size_t>& block) {
                          for (std::size_t i = block.begin(); i != block.end(); ++i)
                              visit(items[i]);
                      });
}

}  // namespace

// The operator's members and steps. The setters only store; operate() runs the steps.
class MStlBaseOperatorMarkPolygon::Impl {
  public:
    Impl(double pixelProportion, double depthTolerance, bool skipHiddenSurfaces,
         double unitsPerModelUnit);

    void AddStl(MStlBase* stl, const MMTransformMatrix* view, const MMTransformMatrix* placement,
                bool markWholeMesh, IStlMarkTriangles* sink);
    void SetMarkableSurface(MStlSurface* surface);
    void AddClippingPlane(const MMPlaneEq<double>& plane);
    void ClearClippingPlanes();
    void SetPolygon(const std::vector<point2d>& polygon);
    void SetBrushPath(const std::vector<point2d>& path, std::size_t radius);
    void SetBackFaceCulling(bool backFaceCulling);
    void SetMarkThrough(bool markThrough);
    void SetUnmark(bool unmark);
    void SetThreads(int threads);
    void SetPerspective(const PerspectiveProjection& projection);
    bool SetCandidateTriangles(const std::uint32_t* triangles, std::size_t count);
    bool operate();
    std::uint64_t RasterBytes() const;

  private:
    // By vertex index. With a candidate list only the listed triangles' vertices are written.
    using ScreenPoints = UninitializedVector<point3f>;

    /// Pixel box of the selection region: inclusive corners.
    struct RegionBox {
        std::int32_t xmin = 0, ymin = 0, xmax = 0, ymax = 0;
    };
    /// How the clipping planes of a mesh treat one triangle.
    struct PlaneCut {
        enum Verdict { kWhole, kDropped, kStraddles };
        Verdict verdict;
        std::size_t firstPlane;  // the first plane the triangle straddles
    };

    void _PrepareScreenSpace();
    void _MapClippingPlanes();
    bool _BuildSelectionRaster();
    bool _RasterSize(std::uint32_t& width, std::int32_t& height) const;
    bool _BrushPathFits(std::int64_t width, std::int64_t height) const;
    int _Threads() const;
    const std::vector<std::uint32_t>* _CandidateList(std::size_t mesh) const;
    template <class Visit>
    void _ForEachTriangle(std::size_t mesh, int threads, Visit&& visit) const;
    template <class Visit>
    void _ForEachOwner(Visit&& visit) const;
    void _ListVertices(std::size_t mesh);
    void _ClassifyTriangles(std::size_t mesh);
    void _ComputeOutcodes(std::size_t mesh);
    void _ClassByOutcodesAndFacing(std::size_t mesh);
    void _AddMarkableSurfaces(std::size_t mesh);
    void _IgnoreHiddenSurfaces(std::size_t mesh);
    bool _FrontFacing(std::size_t mesh, std::size_t triangle) const;
    bool _AnyNearCut(std::size_t mesh) const;
    void _PrepareNearPlanes();
    point3f _Project(std::size_t mesh, const MMTransformMatrix& toScreen, const point3f& p) const;
    PlaneCut _CutByPlanes(std::size_t mesh, const MStlTriangle& triangle) const;
    void _ProjectPiece(std::size_t mesh, _ClippedPieceRecord& piece) const;
    void _MarkThroughMesh(std::size_t mesh);
    bool _TouchesRegion(std::size_t mesh, MStlTriangle& triangle, bool nearCut);
    void _NumberTriangles();
    void _DrawMesh(std::size_t mesh, RowRange band, std::uint8_t* covered);
    template <bool kPlanes>
    void _DrawTriangles(std::size_t mesh, RowRange rows, std::uint8_t* covered);
    void _DrawInBands(int bands);
    void _DrawPieces(std::size_t mesh, MStlTriangle& triangle, const MMPlaneEq<double>* planes,
                     std::size_t count, bool candidate);
    void _CloseDepthPass();
    /// The scale k of the reciprocal depths k/depth the buffer holds; 0 when it holds depths.
    double _ReciprocalScale() const { return m_perspective ? m_projection.nearDistance : 0.0; }
    void _FindVisibleTriangles();
    void _ApplyMarks(bool retested);
    bool _ReachesFront(std::uint8_t state, const point3f& a, const point3f& b, const point3f& c);
    void _ApplyMark(std::size_t mesh, MStlTriangle& triangle);

    std::size_t m_depthTolerance;  // internal units
    double m_pixelProportion;      // pixels per screen unit
    std::vector<MStlBase*> m_meshes;
    _DepthRaster m_depthRaster;
    std::vector<ScreenPoints> m_screenPoints;  // per mesh, pixel space
    RegionBox m_regionBox;
    std::unique_ptr<point2d[]> m_regionPoints;  // pixels relative to the box
    std::size_t m_regionPointCount = 0;
    std::vector<bool> m_markWholeMesh;
    std::vector<std::vector<MStlSurface*>> m_markableSurfaces;
    std::vector<IStlMarkTriangles*> m_sinks;
    // Per mesh: whether a candidate list restricts the run to the triangles listed, and the
    // list (ascending triangle indices).
    std::vector<bool> m_listed;
    std::vector<std::vector<std::uint32_t>> m_candidateLists;
    // Per listed mesh and run: each vertex of its listed triangles once, in the order met.
    std::vector<std::vector<std::uint32_t>> m_listedVertices;
    std::vector<MMTransformMatrix> m_modelView;
    std::vector<MMTransformMatrix> m_inversePlacement;
    std::vector<MMTransformMatrix> m_modelToScreen;  // appended by every run; entry i is read
    _RegionRaster m_regionRaster;
    std::unique_ptr<point3d[]> m_viewDirections;  // per mesh, model space
    bool m_skipHiddenSurfaces;
    bool m_backFaceCulling = false;
    bool m_markThrough = false;
    bool m_mark = true;
    bool m_isBrush = false;
    std::int32_t m_brushRadius = 0;  // pixels
    std::vector<MMPlaneEq<double>> m_clippingPlanes;
    std::vector<std::vector<MMPlaneEq<double>>> m_meshClippingPlanes;  // appended; entry i read
    _ClipWorkLists m_clipWork;
    // One byte per owner number: the class and the depth-pass flags of every triangle of every
    // mesh (mesh i from m_firstOwner[i]), then of every covered piece of this run. Number 0
    // stands for no candidate. In a mesh with a candidate list only the listed triangles'
    // bytes are written and read.
    UninitializedVector<std::uint8_t> m_states;
    std::vector<std::uint32_t> m_firstOwner;       // per mesh
    std::vector<_ClippedPieceRecord> m_pieces;     // covered ones
    std::vector<std::size_t> m_piecesEnd;          // per mesh, end of its pieces in m_pieces
    UninitializedVector<std::uint8_t> m_outcodes;  // of the mesh being processed, by vertex
    std::shared_ptr<const std::vector<point3d>> m_normals;  // of that mesh, with culling
    int m_threads = 0;                                      // 0: the whole arena
    // A perspective projection after the views, when set; then, per mesh and run, the near
    // plane followed by the mesh's clipping planes, the eye in model space, and the sign that
    // turns the eye's side of a triangle's plane into its winding on the screen.
    bool m_perspective = false;
    PerspectiveProjection m_projection{};
    std::vector<std::vector<MMPlaneEq<double>>> m_nearPlanes;
    std::vector<point3d> m_eyes;
    std::vector<double> m_windingSigns;
    bool m_anyNearCut = false;  // some triangle of this run crosses the near plane
    std::vector<UninitializedVector<std::uint8_t>> m_bandFlags;  // per band, by owner number
};

MStlBaseOperatorMarkPolygon::MStlBaseOperatorMarkPolygon()
    : MStlBaseOperatorMarkPolygon(kDefaultPixelProportion, kDefaultDepthTolerance, false) {}

MStlBaseOperatorMarkPolygon::MStlBaseOperatorMarkPolygon(double pixelProportion,
                                                         double depthTolerance,
                                                         bool skipHiddenSurfaces)
    : MStlBaseOperatorMarkPolygon(pixelProportion, depthTolerance, skipHiddenSurfaces,
                                  VelSDK::Common::MInternalUnits::Get()) {}

MStlBaseOperatorMarkPolygon::MStlBaseOperatorMarkPolygon(double pixelProportion,
                                                         double depthTolerance,
                                                         bool skipHiddenSurfaces,
                                                         double unitsPerModelUnit)
    : m_impl(std::make_unique<Impl>(pixelProportion, depthTolerance, skipHiddenSurfaces,
                                    unitsPerModelUnit)) {}

MStlBaseOperatorMarkPolygon::~MStlBaseOperatorMarkPolygon() = default;

void MStlBaseOperatorMarkPolygon::AddStl(MStlBase* stl, const MMTransformMatrix* view,
                                         const MMTransformMatrix* placement, bool markWholeMesh,
                                         IStlMarkTriangles* sink) {
    m_impl->AddStl(stl, view, placement, markWholeMesh, sink);
}

void MStlBaseOperatorMarkPolygon::SetMarkableSurface(MStlSurface* surface) {
    m_impl->SetMarkableSurface(surface);
}

void MStlBaseOperatorMarkPolygon::AddClippingPlane(const MMPlaneEq<double>& plane) {
    m_impl->AddClippingPlane(plane);
}

void MStlBaseOperatorMarkPolygon::ClearClippingPlanes() {
    m_impl->ClearClippingPlanes();
}

void MStlBaseOperatorMarkPolygon::SetPolygon(const std::vector<point2d>& polygon) {
    m_impl->SetPolygon(polygon);
}

void MStlBaseOperatorMarkPolygon::SetBrushPath(const std::vector<point2d>& path,
                                               std::size_t radius) {
    m_impl->SetBrushPath(path, radius);
}

void MStlBaseOperatorMarkPolygon::SetBackFaceCulling(bool backFaceCulling) {
    m_impl->SetBackFaceCulling(backFaceCulling);
}

void MStlBaseOperatorMarkPolygon::SetMarkThrough(bool markThrough) {
    m_impl->SetMarkThrough(markThrough);
}

void MStlBaseOperatorMarkPolygon::SetUnmark(bool unmark) {
    m_impl->SetUnmark(unmark);
}

void MStlBaseOperatorMarkPolygon::SetThreads(int threads) {
    m_impl->SetThreads(threads);
}

void MStlBaseOperatorMarkPolygon::SetPerspective(const PerspectiveProjection& projection) {
    m_impl->SetPerspective(projection);
}

bool MStlBaseOperatorMarkPolygon::SetCandidateTriangles(const std::uint32_t* triangles,
                                                        std::size_t count) {
    return m_impl->SetCandidateTriangles(triangles, count);
}

bool MStlBaseOperatorMarkPolygon::operate() {
    return m_impl->operate();
}

std::uint64_t MStlBaseOperatorMarkPolygon::RasterBytes() const {
    return m_impl->RasterBytes();
}

MStlBaseOperatorMarkPolygon::Impl::Impl(double pixelProportion, double depthTolerance,
                                        bool skipHiddenSurfaces, double unitsPerModelUnit)
    : m_depthTolerance(ToInternalUnits(depthTolerance, unitsPerModelUnit)),
      m_pixelProportion(pixelProportion),
      m_skipHiddenSurfaces(skipHiddenSurfaces) {
    m_depthRaster.m_depthTolerance = m_depthTolerance;
    m_depthRaster.m_finalized = true;
}

void MStlBaseOperatorMarkPolygon::Impl::AddStl(MStlBase* stl, const MMTransformMatrix* view,
                                               const MMTransformMatrix* placement,
                                               bool markWholeMesh, IStlMarkTriangles* sink) {
    if (!stl)
        return;
    const MMTransformMatrix identity;
    m_meshes.push_back(stl);
    m_markWholeMesh.push_back(markWholeMesh);
    m_sinks.push_back(sink);
    m_markableSurfaces.emplace_back();
    m_listed.push_back(false);
    m_candidateLists.emplace_back();
    // The placement acts first, then the view.
    m_modelView.push_back(view ? *view : identity);
    m_modelView.back().PostMultiply(placement ? *placement : identity);
    m_inversePlacement.push_back(placement ? *placement : identity);
    m_inversePlacement.back().Invert();
}

void MStlBaseOperatorMarkPolygon::Impl::SetMarkableSurface(MStlSurface* surface) {
    if (m_markableSurfaces.empty() || !surface)
        return;
    m_markableSurfaces.back().push_back(surface);
}

void MStlBaseOperatorMarkPolygon::Impl::AddClippingPlane(const MMPlaneEq<double>& plane) {
    m_clippingPlanes.push_back(plane);
}

void MStlBaseOperatorMarkPolygon::Impl::ClearClippingPlanes() {
    m_clippingPlanes.clear();
}

void MStlBaseOperatorMarkPolygon::Impl::SetPolygon(const std::vector<point2d>& polygon) {
    const VelSDK::Math::boundingbox<double, 2> box =
        FindPolygonBBoxInPixelsDimention(polygon, m_pixelProportion);
    m_regionPoints = std::make_unique<point2d[]>(polygon.size());
    m_regionPointCount = polygon.size();
    for (std::size_t i = 0; i < polygon.size(); ++i)
        m_regionPoints[i] = PointInPixelFrame(polygon[i], m_pixelProportion, box);
    m_isBrush = false;
    m_regionBox = {TruncateToInt32(box.min.x), TruncateToInt32(box.min.y),
                   TruncateToInt32(box.max.x), TruncateToInt32(box.max.y)};
}

void MStlBaseOperatorMarkPolygon::Impl::SetBrushPath(const std::vector<point2d>& path,
                                                     std::size_t radius) {
    const double p = m_pixelProportion;
    m_brushRadius = TruncateToInt32(static_cast<double>(radius) * p);

    point2d low{0.0, 0.0}, high{0.0, 0.0};
    if (!path.empty())
        low = high = path.front();
    for (const point2d& point : path) {
        low = {std::min(low.x, point.x), std::min(low.y, point.y)};
        high = {std::max(high.x, point.x), std::max(high.y, point.y)};
    }
    // The box is rounded outward and widened by the radius so that every disc fits. Out of
    // range bounds wrap as 32-bit integers; operate() then refuses the path. The radius is
    // negated in 64 bits: an out-of-range radius truncates to INT32_MIN.
    const std::int64_t radius64 = m_brushRadius;
    const auto widen = [](double bound, std::int64_t by) {
        return static_cast<std::int32_t>(TruncateToInt32(bound) + by);
    };
    m_regionBox = {widen(std::floor(p * low.x), -radius64), widen(std::floor(p * low.y), -radius64),
                   widen(std::ceil(p * high.x), radius64), widen(std::ceil(p * high.y), radius64)};

    m_regionPointCount = path.size();
    m_regionPoints = std::make_unique<point2d[]>(path.size());
    VelSDK::Math::boundingbox<double, 2> box;
    box.min = {static_cast<double>(m_regionBox.xmin), static_cast<double>(m_regionBox.ymin)};
    for (std::size_t i = 0; i < path.size(); ++i)
        m_regionPoints[i] = PointInPixelFrame(path[i], p, box);
    m_isBrush = true;
}

void MStlBaseOperatorMarkPolygon::Impl::SetBackFaceCulling(bool backFaceCulling) {
    m_backFaceCulling = backFaceCulling;
}

void MStlBaseOperatorMarkPolygon::Impl::SetMarkThrough(bool markThrough) {
    m_markThrough = markThrough;
}

void MStlBaseOperatorMarkPolygon::Impl::SetUnmark(bool unmark) {
    m_mark = !unmark;
}

void MStlBaseOperatorMarkPolygon::Impl::SetThreads(int threads) {
    m_threads = threads;
}

void MStlBaseOperatorMarkPolygon::Impl::SetPerspective(const PerspectiveProjection& projection) {
    m_perspective = true;
    m_projection = projection;
}

bool MStlBaseOperatorMarkPolygon::Impl::SetCandidateTriangles(const std::uint32_t* triangles,
                                                              std::size_t count) {
    if (m_meshes.empty() || (count > 0 && !triangles))
        return false;
    const std::size_t size = m_meshes.back()->_Triangles().Size();
    for (std::size_t k = 0; k < count; ++k) {
        if (triangles[k] >= size || (k > 0 && triangles[k] <= triangles[k - 1]))
            return false;
    }
    m_candidateLists.back().assign(triangles, triangles + count);
    m_listed.back() = true;
    return true;
}

const std::vector<std::uint32_t>* MStlBaseOperatorMarkPolygon::Impl::_CandidateList(
    std::size_t mesh) const {
    return m_listed[mesh] ? &m_candidateLists[mesh] : nullptr;
}

// Calls visit(triangle, index) for every triangle of the mesh that the run considers: all of
// them chunk by chunk, or the listed ones in blocks of the list, on up to `threads` threads
// (in order when on one).
template <class Visit>
void MStlBaseOperatorMarkPolygon::Impl::_ForEachTriangle(std::size_t mesh, int threads,
                                                         Visit&& visit) const {
    const MStlElementStore<MStlTriangle>& triangles = m_meshes[mesh]->_Triangles();
    if (const std::vector<std::uint32_t>* list = _CandidateList(mesh)) {
        ForEachListed(*list, threads,
                      [&](std::uint32_t t) { visit(triangles[t], std::size_t{t}); });
        return;
    }
    ForEachChunk(triangles, threads,
                 [&](MStlTriangle* triangle, std::size_t first, std::size_t length) {
                     for (std::size_t i = 0; i < length; ++i)
                         visit(triangle[i], first + i);
                 });
}

// Calls visit(owner number) for every triangle the run considers, mesh by mesh, in order.
template <class Visit>
void MStlBaseOperatorMarkPolygon::Impl::_ForEachOwner(Visit&& visit) const {
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        const std::size_t first = m_firstOwner[mesh];
        if (const std::vector<std::uint32_t>* list = _CandidateList(mesh)) {
            for (const std::uint32_t t : *list)
                visit(first + t);
            continue;
        }
        const std::size_t end = first + m_meshes[mesh]->_Triangles().Size();
        for (std::size_t owner = first; owner < end; ++owner)
            visit(owner);
    }
}

int MStlBaseOperatorMarkPolygon::Impl::_Threads() const {
    const int arena = tbb::this_task_arena::max_concurrency();
    return m_threads >= 1 ? std::min(m_threads, arena) : arena;
}

bool MStlBaseOperatorMarkPolygon::Impl::operate() {
    _PrepareScreenSpace();
    if (!m_clippingPlanes.empty())
        _MapClippingPlanes();
    if (m_perspective)
        _PrepareNearPlanes();
    // A region with no points selects nothing (and a brush needs at least one disc).
    if (m_regionPointCount == 0)
        return true;
    if (!_BuildSelectionRaster())
        return false;

    _NumberTriangles();
    if (m_markThrough) {
        for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh)
            _MarkThroughMesh(mesh);
        return true;
    }

    m_pieces.clear();
    m_piecesEnd.assign(m_meshes.size(), 0);
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh)
        _ClassifyTriangles(mesh);
    m_anyNearCut = false;
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh)
        m_anyNearCut |= m_perspective && _AnyNearCut(mesh);
    // Clipping cuts pieces whose numbers depend on what was drawn before them, so a run with
    // planes, or with triangles across the near plane, draws on one thread.
    const int bands = m_clippingPlanes.empty() && !m_anyNearCut ? _Threads() : 1;
    if (bands > 1) {
        _DrawInBands(bands);
    } else {
        for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
            _DrawMesh(mesh, AllRows(m_depthRaster.m_height), m_states.data());
            m_piecesEnd[mesh] = m_pieces.size();
        }
        _CloseDepthPass();
    }
    // On several threads the re-test runs beforehand on all of them; on one it runs as the
    // marks are applied, in the same walk over the triangles.
    const bool retested = _Threads() > 1;
    if (retested)
        _FindVisibleTriangles();
    // Marks are applied only now, after every mesh is drawn, so that meshes hide each other.
    _ApplyMarks(retested);
    return true;
}

// Owner numbers: 0 for no candidate, then every triangle of every mesh in order. Pieces are
// numbered after them as they are cut.
void MStlBaseOperatorMarkPolygon::Impl::_NumberTriangles() {
    m_firstOwner.clear();
    std::size_t next = kNoOwner + 1;
    for (const MStlBase* mesh : m_meshes) {
        m_firstOwner.push_back(static_cast<std::uint32_t>(next));
        next += mesh->_Triangles().Size();
        if (next > UINT32_MAX)
            throw std::length_error("z-buffer pick: more than 4 294 967 294 triangles");
    }
    // A listed mesh's classification writes only its listed triangles' bytes, and only those
    // are read: the rest stay unwritten, so that a run costs its lists, not its meshes.
    m_states.resize(next);
    m_states[kNoOwner] = kOccluder;
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        if (!_CandidateList(mesh))
            std::fill_n(m_states.data() + m_firstOwner[mesh], m_meshes[mesh]->_Triangles().Size(),
                        kOccluder);
    }
}

// Every vertex of every mesh into pixel space relative to the region box, and each mesh's
// viewing direction into its model space.
void MStlBaseOperatorMarkPolygon::Impl::_PrepareScreenSpace() {
    m_screenPoints.clear();
    m_listedVertices.resize(m_meshes.size());
    m_viewDirections = std::make_unique<point3d[]>(m_meshes.size());
    const VelSDK::Math::point2i origin{m_regionBox.xmin, m_regionBox.ymin};
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        const MStlElementStore<MStlPoint>& points = m_meshes[mesh]->_Points();
        MMTransformMatrix transform = m_modelView[mesh];
        transform.InverseTransform(m_viewDirections[mesh], point3d{0.0, 0.0, -1.0}, true);
        VelSDK::Math::Normalize(m_viewDirections[mesh]);
        transform =
            FindModelToCameraViewTransformation(m_modelView[mesh], m_pixelProportion, origin);
        // Appended by every run; the clipping path reads entry `mesh`, so the first run's
        // matrices stay in force there.
        m_modelToScreen.push_back(transform);
        // Coordinates pass through float on the way in, as the float transform takes them.
        ScreenPoints& screen = m_screenPoints.emplace_back(points.Size());
        const auto project = [&](const MStlPoint& point) {
            return _Project(mesh, transform, ToFloat(point));
        };
        if (_CandidateList(mesh)) {
            // Only the listed triangles' vertices are read later: each is projected once.
            _ListVertices(mesh);
            ForEachListed(m_listedVertices[mesh], _Threads(),
                          [&](std::uint32_t v) { screen[v] = project(points[v]); });
            continue;
        }
        ForEachChunk(points, _Threads(),
                     [&](const MStlPoint* point, std::size_t first, std::size_t length) {
                         for (std::size_t i = 0; i < length; ++i)
                             screen[first + i] = project(point[i]);
                     });
    }
}

// The vertices of the mesh's listed triangles, each once, in the order the list meets them.
void MStlBaseOperatorMarkPolygon::Impl::_ListVertices(std::size_t mesh) {
    std::vector<std::uint32_t>& vertices = m_listedVertices[mesh];
    vertices.clear();
    std::vector<bool> met(m_meshes[mesh]->_Points().Size());  // an eighth of a byte a vertex
    _ForEachTriangle(mesh, 1, [&](const MStlTriangle& t, std::size_t) {
        for (std::size_t k = 0; k < 3; ++k) {
            const std::uint32_t v = t.GetPointIndex(k);
            if (!met[v]) {
                met[v] = true;
                vertices.push_back(v);
            }
        }
    });
}

// A model point in pixel space: through the model-to-pixel transform, or under a perspective
// projection into eye space, divided by its depth, scaled to pixels and moved to the region's
// origin, with the reciprocal depth near/depth as its z. A vertex nearer than the near plane
// gets kBehindNearDepth; the corners of pieces cut at the plane, which float rounding may put a
// hair in front of it, are projected at the near depth.
point3f MStlBaseOperatorMarkPolygon::Impl::_Project(std::size_t mesh,
                                                    const MMTransformMatrix& toScreen,
                                                    const point3f& p) const {
    if (!m_perspective) {
        const point3d mapped = toScreen.TransformPoint({p.x, p.y, p.z});
        return {static_cast<float>(mapped.x), static_cast<float>(mapped.y),
                static_cast<float>(mapped.z)};
    }
    const PerspectiveProjection& camera = m_projection;
    const point3d eye = m_modelView[mesh].TransformPoint({p.x, p.y, p.z});
    const double depth = -eye.z;
    if (depth < camera.nearDistance)
        return {0.0f, 0.0f, kBehindNearDepth};
    const double scale = m_pixelProportion;
    return {static_cast<float>((camera.cx + camera.fx * eye.x / depth) * scale +
                               (0.5 - m_regionBox.xmin)),
            static_cast<float>((camera.cy + camera.fy * eye.y / depth) * scale +
                               (0.5 - m_regionBox.ymin)),
            static_cast<float>(camera.nearDistance / depth)};
}

// Per mesh: the near plane −z − near ≥ 0 of eye space carried into model space, followed by
// the mesh's clipping planes; the eye in model space; and the winding sign: the projection
// winds counter-clockwise where sign · normal · (eye − vertex) > 0, the sign being that of
// fx·fy and of the view's determinant.
void MStlBaseOperatorMarkPolygon::Impl::_PrepareNearPlanes() {
    m_nearPlanes.clear();
    m_eyes.clear();
    m_windingSigns.clear();
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        MMTransformMatrix toModel = m_modelView[mesh];
        toModel.Invert();
        std::vector<MMPlaneEq<double>> planes{VelSDK::Math::TransformPlane(
            MMPlaneEq<double>{0.0, 0.0, -1.0, -m_projection.nearDistance}, toModel)};
        if (!m_clippingPlanes.empty()) {
            const std::vector<MMPlaneEq<double>>& user = m_meshClippingPlanes[mesh];
            planes.insert(planes.end(), user.begin(), user.end());
        }
        m_nearPlanes.push_back(std::move(planes));
        m_eyes.push_back(toModel.TransformPoint({0.0, 0.0, 0.0}));
        const MMTransformMatrix& m = m_modelView[mesh];
        const double determinant =
            m.Get(0, 0) * (m.Get(1, 1) * m.Get(2, 2) - m.Get(1, 2) * m.Get(2, 1)) -
            m.Get(0, 1) * (m.Get(1, 0) * m.Get(2, 2) - m.Get(1, 2) * m.Get(2, 0)) +
            m.Get(0, 2) * (m.Get(1, 0) * m.Get(2, 1) - m.Get(1, 1) * m.Get(2, 0));
        const double projected = m_projection.fx * m_projection.fy;
        m_windingSigns.push_back((determinant < 0.0) != (projected < 0.0) ? -1.0 : 1.0);
    }
}

// Clipping planes from placement space into each mesh's model space. Appended by every run
// with planes; readers take entry `mesh`, so the first such run's mapping stays in force.
void MStlBaseOperatorMarkPolygon::Impl::_MapClippingPlanes() {
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        const MMTransformMatrix& inverse = m_inversePlacement[mesh];
        std::vector<MMPlaneEq<double>> mapped;
        for (const MMPlaneEq<double>& plane : m_clippingPlanes)
            mapped.push_back(VelSDK::Math::TransformPlane(plane, inverse));
        m_meshClippingPlanes.push_back(std::move(mapped));
    }
}

// The raster's size from the region box; false when no raster can cover the region.
bool MStlBaseOperatorMarkPolygon::Impl::_RasterSize(std::uint32_t& w, std::int32_t& h) const {
    const std::int64_t width = std::int64_t{m_regionBox.xmax} - m_regionBox.xmin + 1;
    const std::int64_t height = std::int64_t{m_regionBox.ymax} - m_regionBox.ymin + 1;
    if (width < 1 || height < 1 || width > INT32_MAX || height > INT32_MAX)
        return false;
    if (m_isBrush && !_BrushPathFits(width, height))
        return false;
    w = static_cast<std::uint32_t>(width);
    h = static_cast<std::int32_t>(height);
    return true;
}

std::uint64_t MStlBaseOperatorMarkPolygon::Impl::RasterBytes() const {
    std::uint32_t w = 0;
    std::int32_t h = 0;
    return _RasterSize(w, h) ? _RasterBytes(w, h, !m_markThrough) : 0;
}

bool MStlBaseOperatorMarkPolygon::Impl::_BuildSelectionRaster() {
    std::uint32_t w = 0;
    std::int32_t h = 0;
    if (!_RasterSize(w, h))
        return false;
    const point2d* points = m_regionPoints.get();
    const std::size_t count = m_regionPointCount;
    if (!m_markThrough) {
        return m_isBrush ? _BuildBrushDepthRaster(m_depthRaster, w, h, points, count, m_brushRadius)
                         : _BuildPolygonDepthRaster(m_depthRaster, w, h, points, count);
    }
    const bool built =
        m_isBrush ? _BuildBrushRegionRaster(m_regionRaster, w, h, points, count, m_brushRadius)
                  : _BuildPolygonRegionRaster(m_regionRaster, w, h, points, count);
    // Mark-through ignores facing, and culling stays off after the run.
    if (built)
        m_backFaceCulling = false;
    return built;
}

// The brush builders stamp discs without clipping; a path is refused unless every disc lies
// inside the raster, which only fails for non-finite points or coordinates beyond 32 bits.
bool MStlBaseOperatorMarkPolygon::Impl::_BrushPathFits(std::int64_t width,
                                                       std::int64_t height) const {
    const double r = m_brushRadius;
    if (r < 0.0)
        return false;
    for (std::size_t i = 0; i < m_regionPointCount; ++i) {
        const point2d& p = m_regionPoints[i];
        if (!(p.x >= r && p.x <= width - 1 - r && p.y >= r && p.y <= height - 1 - r))
            return false;
    }
    return true;
}

// The class of every triangle of the mesh: by the outcodes of its vertices and its facing,
// then widened by the markable surfaces and narrowed by the hidden ones.
void MStlBaseOperatorMarkPolygon::Impl::_ClassifyTriangles(std::size_t mesh) {
    _ComputeOutcodes(mesh);
    m_normals = m_backFaceCulling ? m_meshes[mesh]->GetTriangleNormals() : nullptr;
    _ClassByOutcodesAndFacing(mesh);
    _AddMarkableSurfaces(mesh);
    if (m_skipHiddenSurfaces)
        _IgnoreHiddenSurfaces(mesh);
}

// Where each vertex lies against the region's pixel box.
void MStlBaseOperatorMarkPolygon::Impl::_ComputeOutcodes(std::size_t mesh) {
    const ScreenPoints& screen = m_screenPoints[mesh];
    const auto right = static_cast<float>(std::int64_t{m_regionBox.xmax} - m_regionBox.xmin);
    const auto top = static_cast<float>(std::int64_t{m_regionBox.ymax} - m_regionBox.ymin);
    m_outcodes.resize(screen.size());
    const bool perspective = m_perspective;
    const auto outcode = [&](std::size_t v) {
        const point3f& p = screen[v];
        if (perspective && p.z == kBehindNearDepth) {
            m_outcodes[v] = kOutcodeNear;
            return;
        }
        m_outcodes[v] = static_cast<std::uint8_t>(
            (p.x <= 0.0f ? kOutcodeLeft : 0) | (p.x >= right ? kOutcodeRight : 0) |
            (p.y <= 0.0f ? kOutcodeAbove : 0) | (p.y >= top ? kOutcodeBelow : 0));
    };
    if (_CandidateList(mesh)) {
        ForEachListed(m_listedVertices[mesh], _Threads(), outcode);
        return;
    }
    ForEachChunk(m_meshes[mesh]->_Points(), _Threads(),
                 [&](const MStlPoint*, std::size_t first, std::size_t length) {
                     for (std::size_t v = first; v < first + length; ++v)
                         outcode(v);
                 });
}

// Facing the viewer means a normal against the viewing direction; edge-on counts as back.
bool MStlBaseOperatorMarkPolygon::Impl::_FrontFacing(std::size_t mesh, std::size_t triangle) const {
    if (m_perspective) {
        const point3d vertex = m_meshes[mesh]->_Triangles()[triangle].GetVertex(0);
        const point3d& eye = m_eyes[mesh];
        const point3d toEye{eye.x - vertex.x, eye.y - vertex.y, eye.z - vertex.z};
        return m_windingSigns[mesh] * Dot((*m_normals)[triangle], toEye) > 0.0;
    }
    return Dot((*m_normals)[triangle], m_viewDirections[mesh]) < 0.0;
}

// Whether some triangle of the mesh that the run considers crosses the near plane.
bool MStlBaseOperatorMarkPolygon::Impl::_AnyNearCut(std::size_t mesh) const {
    const std::uint8_t* states = m_states.data() + m_firstOwner[mesh];
    if (const std::vector<std::uint32_t>* list = _CandidateList(mesh))
        return std::any_of(list->begin(), list->end(),
                           [&](std::uint32_t t) { return (states[t] & kNearCut) != 0; });
    return std::any_of(states, states + m_meshes[mesh]->_Triangles().Size(),
                       [](std::uint8_t s) { return (s & kNearCut) != 0; });
}

// Ignored when hidden or outside one side of the box; otherwise a candidate of a wholly
// markable mesh (facing the viewer, with culling) or an occluder.
void MStlBaseOperatorMarkPolygon::Impl::_ClassByOutcodesAndFacing(std::size_t mesh) {
    std::uint8_t* classes = m_states.data() + m_firstOwner[mesh];
    const bool whole = m_markWholeMesh[mesh];
    _ForEachTriangle(mesh, _Threads(), [&](const MStlTriangle& t, std::size_t index) {
        const std::uint8_t a = m_outcodes[t.GetPointIndex(0)], b = m_outcodes[t.GetPointIndex(1)],
                           c = m_outcodes[t.GetPointIndex(2)];
        std::uint8_t triangleClass = kOccluder;
        if (!t.IsVisible() || (a & b & c) != 0)
            triangleClass = kIgnored;
        else if (whole && (!m_backFaceCulling || _FrontFacing(mesh, index)))
            triangleClass = kCandidate;
        if (triangleClass != kIgnored && ((a | b | c) & kOutcodeNear))
            triangleClass |= kNearCut;
        classes[index] = triangleClass;
    });
}

void MStlBaseOperatorMarkPolygon::Impl::_AddMarkableSurfaces(std::size_t mesh) {
    const MStlBase& stl = *m_meshes[mesh];
    std::uint8_t* classes = m_states.data() + m_firstOwner[mesh];
    // Triangles left out of a candidate list are absent from the run and have no class.
    std::vector<bool> listed;
    if (const std::vector<std::uint32_t>* list = _CandidateList(mesh);
        list && !m_markableSurfaces[mesh].empty()) {
        listed.resize(stl._Triangles().Size());
        for (const std::uint32_t t : *list)
            listed[t] = true;
    }
    for (MStlSurface* surface : m_markableSurfaces[mesh]) {
        if (surface->GetStl() != &stl)
            continue;  // a surface of another mesh marks nothing here
        for (MStlTriangle& triangle : surface->Triangles()) {
            const std::size_t t = triangle.GetMaskIndex();
            if ((!listed.empty() && !listed[t]) || (classes[t] & kClassMask) == kIgnored)
                continue;
            if (m_backFaceCulling && !_FrontFacing(mesh, t))
                continue;
            classes[t] = static_cast<std::uint8_t>((classes[t] & ~kClassMask) | kCandidate);
        }
    }
}

void MStlBaseOperatorMarkPolygon::Impl::_IgnoreHiddenSurfaces(std::size_t mesh) {
    std::uint8_t* classes = m_states.data() + m_firstOwner[mesh];
    for (MStlSurface& surface : m_meshes[mesh]->Surfaces()) {
        if (surface.GetVisible())
            continue;
        for (MStlTriangle& triangle : surface.Triangles())
            classes[triangle.GetMaskIndex()] = kIgnored;
    }
}

// The planes in order: a plane with all three values ≥ 0 keeps the triangle; one with a vertex
// below and none above drops it; any other cuts it, by that plane and every later one. All
// three values decide, so the verdict does not depend on which vertex comes first. A plane
// given with a zero normal maps to NaN values, which are none of ≥ 0, < 0 or > 0: such a
// plane cuts every triangle that reaches it, and the clipper keeps no piece of it.
MStlBaseOperatorMarkPolygon::Impl::PlaneCut MStlBaseOperatorMarkPolygon::Impl::_CutByPlanes(
    std::size_t mesh, const MStlTriangle& triangle) const {
    const point3d vertices[3] = {triangle.GetVertex(0), triangle.GetVertex(1),
                                 triangle.GetVertex(2)};
    const std::vector<MMPlaneEq<double>>& planes = m_meshClippingPlanes[mesh];
    for (std::size_t k = 0; k < planes.size(); ++k) {
        bool kept = true, below = false, above = false;
        for (const point3d& vertex : vertices) {
            const double value = planes[k].SignedValue(vertex);
            kept &= value >= 0.0;
            below |= value < 0.0;
            above |= value > 0.0;
        }
        if (!kept)
            return {below && !above ? PlaneCut::kDropped : PlaneCut::kStraddles, k};
    }
    return {PlaneCut::kWhole, 0};
}

void MStlBaseOperatorMarkPolygon::Impl::_ProjectPiece(std::size_t mesh,
                                                      _ClippedPieceRecord& piece) const {
    for (point3f& corner : piece.corners) {
        if (m_perspective)
            corner = _Project(mesh, m_modelToScreen[mesh], corner);
        else
            m_modelToScreen[mesh].Transform(corner, corner, false);
    }
}

// Selecting writes only each triangle's own class, so it runs on every thread unless the
// clipper's shared work lists are needed (clipping planes, or triangles across the near
// plane); marks are applied in order on the calling thread.
void MStlBaseOperatorMarkPolygon::Impl::_MarkThroughMesh(std::size_t mesh) {
    _ClassifyTriangles(mesh);
    std::uint8_t* classes = m_states.data() + m_firstOwner[mesh];
    const bool clips = !m_clippingPlanes.empty() || (m_perspective && _AnyNearCut(mesh));
    _ForEachTriangle(mesh, clips ? 1 : _Threads(), [&](MStlTriangle& triangle, std::size_t index) {
        const std::uint8_t state = classes[index];
        if ((state & kClassMask) == kCandidate &&
            _TouchesRegion(mesh, triangle, (state & kNearCut) != 0))
            classes[index] = kSelected;
    });
    _ForEachTriangle(mesh, 1, [&](MStlTriangle& triangle, std::size_t index) {
        if (classes[index] == kSelected)
            _ApplyMark(mesh, triangle);
    });
}

// Mark-through test of one triangle, or of what the clipping planes leave of it.
bool MStlBaseOperatorMarkPolygon::Impl::_TouchesRegion(std::size_t mesh, MStlTriangle& triangle,
                                                       bool nearCut) {
    const ScreenPoints& screen = m_screenPoints[mesh];
    PlaneCut cut =
        m_clippingPlanes.empty() ? PlaneCut{PlaneCut::kWhole, 0} : _CutByPlanes(mesh, triangle);
    if (nearCut)
        cut = {PlaneCut::kStraddles, 0};
    if (cut.verdict == PlaneCut::kWhole) {
        return _TriangleTouchesRegion(m_regionRaster, screen[triangle.GetPointIndex(0)],
                                      screen[triangle.GetPointIndex(1)],
                                      screen[triangle.GetPointIndex(2)]);
    }
    if (cut.verdict == PlaneCut::kDropped)
        return false;
    const std::vector<MMPlaneEq<double>>& planes =
        nearCut ? m_nearPlanes[mesh] : m_meshClippingPlanes[mesh];
    _ClipTriangle(triangle, planes.data() + cut.firstPlane, planes.size() - cut.firstPlane,
                  m_clipWork);
    for (_ClippedPieceRecord& piece : m_clipWork.pieces) {
        _ProjectPiece(mesh, piece);
        if (_TriangleTouchesRegion(m_regionRaster, piece.corners[0], piece.corners[1],
                                   piece.corners[2]))
            return true;
    }
    return false;
}

// Candidates draw the rows of `band` under their owner number and note in `covered` (by
// owner number) whether they reached a region pixel; occluders draw as no owner.
void MStlBaseOperatorMarkPolygon::Impl::_DrawMesh(std::size_t mesh, RowRange band,
                                                  std::uint8_t* covered) {
    if (m_clippingPlanes.empty() && !m_anyNearCut)
        _DrawTriangles<false>(mesh, band, covered);
    else
        _DrawTriangles<true>(mesh, band, covered);
}

// The draw loop, compiled apart for runs without planes, whose loop has no plane test.
template <bool kPlanes>
void MStlBaseOperatorMarkPolygon::Impl::_DrawTriangles(std::size_t mesh, RowRange rows,
                                                       std::uint8_t* covered) {
    const point3f* screen = m_screenPoints[mesh].data();
    const std::uint32_t firstOwner = m_firstOwner[mesh];
    const std::uint8_t* states = m_states.data() + firstOwner;
    covered += firstOwner;
    _DepthRaster& raster = m_depthRaster;
    const detail::ScanBand band(raster.m_height, rows);
    _ForEachTriangle(mesh, 1, [&](MStlTriangle& t, std::size_t index) {
        const std::uint8_t state = states[index];
        if ((state & kClassMask) == kIgnored)
            return;
        const bool candidate = (state & kClassMask) == kCandidate;
        if constexpr (kPlanes) {
            if (state & kNearCut) {
                const std::vector<MMPlaneEq<double>>& planes = m_nearPlanes[mesh];
                _DrawPieces(mesh, t, planes.data(), planes.size(), candidate);
                return;
            }
            if (!m_clippingPlanes.empty()) {
                const PlaneCut cut = _CutByPlanes(mesh, t);
                const std::vector<MMPlaneEq<double>>& planes = m_meshClippingPlanes[mesh];
                if (cut.verdict == PlaneCut::kStraddles)
                    _DrawPieces(mesh, t, planes.data() + cut.firstPlane,
                                planes.size() - cut.firstPlane, candidate);
                if (cut.verdict != PlaneCut::kWhole)
                    return;
            }
        }
        const std::uint32_t owner =
            candidate ? firstOwner + static_cast<std::uint32_t>(index) : kNoOwner;
        if (_RasterizeTriangleDepth(raster, band, screen[t.GetPointIndex(0)],
                                    screen[t.GetPointIndex(1)], screen[t.GetPointIndex(2)],
                                    owner) &&
            candidate)
            covered[index] |= kCoveredFlag;
    });
}

// Every band of rows is drawn by one task over all triangles in their order, so each pixel
// sees the writes of the one-thread draw in the same order. Each band notes coverage and
// visibility in its own flag bytes, finalizes its own rows, and the flags are merged after.
void MStlBaseOperatorMarkPolygon::Impl::_DrawInBands(int bands) {
    const std::int64_t height = m_depthRaster.m_height;
    m_bandFlags.resize(static_cast<std::size_t>(bands));
    tbb::parallel_for(0, bands, [&](int band) {
        const RowRange rows{static_cast<std::int32_t>(height * band / bands),
                            static_cast<std::int32_t>(height * (band + 1) / bands - 1)};
        UninitializedVector<std::uint8_t>& flags = m_bandFlags[static_cast<std::size_t>(band)];
        flags.resize(m_states.size());
        _ForEachOwner([&](std::size_t owner) { flags[owner] = 0; });
        for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh)
            _DrawMesh(mesh, rows, flags.data());
        _FinalizeDepthRows(m_depthRaster, flags.data(), rows, _ReciprocalScale());
    });
    for (const UninitializedVector<std::uint8_t>& flags : m_bandFlags)
        _ForEachOwner([&](std::size_t owner) { m_states[owner] |= flags[owner]; });
    m_depthRaster.m_finalized = true;
}

// Pieces are numbered after every triangle, in the order they are cut; only those that cover
// a region pixel are kept.
void MStlBaseOperatorMarkPolygon::Impl::_DrawPieces(std::size_t mesh, MStlTriangle& triangle,
                                                    const MMPlaneEq<double>* planes,
                                                    std::size_t count, bool candidate) {
    _ClipTriangle(triangle, planes, count, m_clipWork);
    for (_ClippedPieceRecord& piece : m_clipWork.pieces) {
        _ProjectPiece(mesh, piece);
        std::uint32_t owner = kNoOwner;
        if (candidate) {
            const std::size_t number = m_states.size() + m_pieces.size();
            if (number > UINT32_MAX)
                throw std::length_error("z-buffer pick: more than 4 294 967 295 pieces");
            owner = static_cast<std::uint32_t>(number);
        }
        if (_RasterizeTriangleDepth(m_depthRaster, piece.corners[0], piece.corners[1],
                                    piece.corners[2], owner) &&
            candidate)
            m_pieces.push_back(piece);
    }
}

// The kept pieces get their state bytes (candidates that covered the region), so that the
// finalization reaches every owner.
void MStlBaseOperatorMarkPolygon::Impl::_CloseDepthPass() {
    m_states.resize(m_states.size() + m_pieces.size(), kCandidate | kCoveredFlag);
    _FinalizeDepthRaster(m_depthRaster, m_states.data(), _ReciprocalScale());
}

// Every covered triangle that did not win a pixel is tested against the thresholds; each test
// writes only its own state byte, so the tests run on every thread.
void MStlBaseOperatorMarkPolygon::Impl::_FindVisibleTriangles() {
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        const point3f* screen = m_screenPoints[mesh].data();
        std::uint8_t* states = m_states.data() + m_firstOwner[mesh];
        _ForEachTriangle(mesh, _Threads(), [&](const MStlTriangle& t, std::size_t index) {
            std::uint8_t& state = states[index];
            if ((state & kCoveredFlag) &&
                _ReachesFront(state, screen[t.GetPointIndex(0)], screen[t.GetPointIndex(1)],
                              screen[t.GetPointIndex(2)]))
                state |= kVisibleFlag;
        });
    }
}

// Per mesh, its visible triangles in order, then the pieces this run cut from its triangles.
// Unless `retested`, each covered triangle that won no pixel is tested here.
void MStlBaseOperatorMarkPolygon::Impl::_ApplyMarks(bool retested) {
    std::size_t piece = 0;
    const std::size_t firstPieceOwner = m_states.size() - m_pieces.size();
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        const point3f* screen = m_screenPoints[mesh].data();
        const std::uint8_t* states = m_states.data() + m_firstOwner[mesh];
        _ForEachTriangle(mesh, 1, [&](MStlTriangle& t, std::size_t index) {
            const std::uint8_t state = states[index];
            if (!(state & kCoveredFlag))
                return;
            if (retested ? (state & kVisibleFlag) != 0
                         : _ReachesFront(state, screen[t.GetPointIndex(0)],
                                         screen[t.GetPointIndex(1)], screen[t.GetPointIndex(2)]))
                _ApplyMark(mesh, t);
        });
        for (; piece < m_piecesEnd[mesh]; ++piece) {
            const _ClippedPieceRecord& cut = m_pieces[piece];
            if (_ReachesFront(m_states[firstPieceOwner + piece], cut.corners[0], cut.corners[1],
                              cut.corners[2]))
                _ApplyMark(mesh, *cut.triangle);
        }
    }
}

// A covered triangle that did not win a pixel may still lie within the tolerance of the front.
bool MStlBaseOperatorMarkPolygon::Impl::_ReachesFront(std::uint8_t state, const point3f& a,
                                                      const point3f& b, const point3f& c) {
    return (state & kVisibleFlag) || _TestTriangleVisibility(m_depthRaster, a, b, c);
}

void MStlBaseOperatorMarkPolygon::Impl::_ApplyMark(std::size_t mesh, MStlTriangle& triangle) {
    IStlMarkTriangles* sink = m_sinks[mesh];
    if (m_mark)
        sink ? sink->Mark(triangle) : triangle.Mark();
    else
        sink ? sink->Unmark(triangle) : triangle.Unmark();
}
