#include <velpick/mark_polygon.h>

#include <cmath>
#include <cstdint>
#include <utility>

#include <velpick/camera_view.h>
#include <velpick/host/internal_units.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/vector_math.h>
#include "mark_polygon/chunked_records.h"
#include "mark_polygon/depth_rasterizer.h"
#include "mark_polygon/region_test.h"
#include "mark_polygon/triangle_clipper.h"
#include "mark_polygon/triangle_setup.h"
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

// Triangle classes of one run.
constexpr unsigned char kOccluder = 0;   // drawn into the depth buffer, never marked
constexpr unsigned char kCandidate = 1;  // may be marked
constexpr unsigned char kIgnored = 2;    // neither drawn nor marked
constexpr unsigned char kSelected = 3;   // mark-through: covers a region pixel

/// A tolerance in model length as whole internal units; negative and NaN give 0.
std::size_t ToInternalUnits(double tolerance) {
    const double units = VelSDK::Common::MInternalUnits::Get() * tolerance;
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

}  // namespace

struct MStlBaseOperatorMarkPolygon::PlaneCut {
    enum Verdict { kWhole, kDropped, kStraddles };
    Verdict verdict;
    std::size_t firstPlane;  // the first plane the triangle straddles
};

MStlBaseOperatorMarkPolygon::MStlBaseOperatorMarkPolygon()
    : MStlBaseOperatorMarkPolygon(kDefaultPixelProportion, kDefaultDepthTolerance, false) {}

MStlBaseOperatorMarkPolygon::MStlBaseOperatorMarkPolygon(double pixelProportion,
                                                         double depthTolerance,
                                                         bool skipHiddenSurfaces)
    : m_depthTolerance(ToInternalUnits(depthTolerance)),
      m_pixelProportion(pixelProportion),
      m_depthRaster(std::make_unique<_DepthRaster>()),
      m_regionRaster(std::make_unique<_RegionRaster>()),
      m_skipHiddenSurfaces(skipHiddenSurfaces),
      m_clippedCandidates(std::make_unique<ClippedRecords>()),
      m_clipWork(std::make_unique<_ClipWorkLists>()) {
    m_depthRaster->m_depthTolerance = ToInternalUnits(depthTolerance);
    m_depthRaster->m_finalized = true;
}

MStlBaseOperatorMarkPolygon::~MStlBaseOperatorMarkPolygon() = default;

void MStlBaseOperatorMarkPolygon::AddStl(MStlBase* stl, const MMTransformMatrix* view,
                                         const MMTransformMatrix* placement, bool markWholeMesh,
                                         IStlMarkTriangles* sink) {
    if (!stl)
        return;
    const MMTransformMatrix identity;
    m_meshes.push_back(stl);
    m_markWholeMesh.push_back(markWholeMesh);
    m_sinks.push_back(sink);
    m_markableSurfaces.emplace_back();
    m_candidateEnd.push_back(0);
    m_clippedCandidateEnd.push_back(0);
    // The placement acts first, then the view.
    m_modelView.push_back(view ? *view : identity);
    m_modelView.back().PostMultiply(placement ? *placement : identity);
    m_inversePlacement.push_back(placement ? *placement : identity);
    m_inversePlacement.back().Invert();
}

void MStlBaseOperatorMarkPolygon::SetMarkableSurface(MStlSurface* surface) {
    if (m_markableSurfaces.empty() || !surface)
        return;
    m_markableSurfaces.back().push_back(surface);
}

void MStlBaseOperatorMarkPolygon::AddClippingPlane(const MMPlaneEq<double>& plane) {
    m_clippingPlanes.push_back(plane);
}

void MStlBaseOperatorMarkPolygon::ClearClippingPlanes() {
    m_clippingPlanes.clear();
}

void MStlBaseOperatorMarkPolygon::SetPolygon(const std::vector<point2d>& polygon) {
    const VelSDK::Math::boundingbox<double, 2> box =
        FindPolygonBBoxInPixelsDimention(polygon, m_pixelProportion);
    m_regionPoints = std::make_unique<point2d[]>(polygon.size());
    m_regionPointCount = polygon.size();
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        m_regionPoints[i] = {std::floor(m_pixelProportion * polygon[i].x) - box.min.x,
                             std::floor(polygon[i].y * m_pixelProportion) - box.min.y};
    }
    m_isBrush = false;
    m_regionBox = {detail::TruncateToInt32(box.min.x), detail::TruncateToInt32(box.min.y),
                   detail::TruncateToInt32(box.max.x), detail::TruncateToInt32(box.max.y)};
}

void MStlBaseOperatorMarkPolygon::SetBrushPath(const std::vector<point2d>& path,
                                               std::size_t radius) {
    const double p = m_pixelProportion;
    m_brushRadius = detail::TruncateToInt32(static_cast<double>(radius) * p);

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
        return static_cast<std::int32_t>(detail::TruncateToInt32(bound) + by);
    };
    m_regionBox = {widen(std::floor(p * low.x), -radius64), widen(std::floor(p * low.y), -radius64),
                   widen(std::ceil(p * high.x), radius64), widen(std::ceil(p * high.y), radius64)};

    m_regionPointCount = path.size();
    m_regionPoints = std::make_unique<point2d[]>(path.size());
    for (std::size_t i = 0; i < path.size(); ++i) {
        m_regionPoints[i] = {std::floor(path[i].x * p) - m_regionBox.xmin,
                             std::floor(path[i].y * p) - m_regionBox.ymin};
    }
    m_isBrush = true;
}

void MStlBaseOperatorMarkPolygon::SetBackFaceCulling(bool backFaceCulling) {
    m_backFaceCulling = backFaceCulling;
}

void MStlBaseOperatorMarkPolygon::SetMarkThrough(bool markThrough) {
    m_markThrough = markThrough;
}

void MStlBaseOperatorMarkPolygon::SetUnmark(bool unmark) {
    m_mark = !unmark;
}

bool MStlBaseOperatorMarkPolygon::operate() {
    _PrepareScreenSpace();
    if (!m_clippingPlanes.empty())
        _MapClippingPlanes();
    // A region with no points selects nothing (and a brush needs at least one disc).
    if (m_regionPointCount == 0)
        return true;
    if (!_BuildSelectionRaster())
        return false;

    if (m_markThrough) {
        for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh)
            _MarkThroughMesh(mesh);
        return true;
    }

    CandidateRecords candidates;
    candidates.Append();  // the spare
    const std::size_t clippedRunStart = m_clippedCandidates->Size();
    if (!m_clippingPlanes.empty())
        m_clippedCandidates->Append();
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        _ClassifyTriangles(mesh);
        _DrawMesh(mesh, candidates);
    }
    _CloseDepthPass(candidates);
    // Marks are applied only now, after every mesh is drawn, so that meshes hide each other.
    _ApplyMarks(candidates, clippedRunStart);
    return true;
}

// Every vertex of every mesh into pixel space relative to the region box, and each mesh's
// viewing direction into its model space.
void MStlBaseOperatorMarkPolygon::_PrepareScreenSpace() {
    m_screenPoints.clear();
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
        for (std::size_t chunk = 0, first = 0; chunk < points.ChunkCount(); ++chunk) {
            const MStlPoint* point = points.Chunk(chunk);
            const std::size_t length = points.ChunkLength(chunk);
            for (std::size_t i = 0; i < length; ++i) {
                const point3f p = ToFloat(point[i]);
                const point3d mapped = transform.TransformPoint({p.x, p.y, p.z});
                screen[first + i] = {static_cast<float>(mapped.x), static_cast<float>(mapped.y),
                                     static_cast<float>(mapped.z)};
            }
            first += length;
        }
    }
}

// Clipping planes from placement space into each mesh's model space. Appended by every run
// with planes; readers take entry `mesh`, so the first such run's mapping stays in force.
void MStlBaseOperatorMarkPolygon::_MapClippingPlanes() {
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        const MMTransformMatrix& inverse = m_inversePlacement[mesh];
        std::vector<MMPlaneEq<double>> mapped;
        for (const MMPlaneEq<double>& plane : m_clippingPlanes) {
            const point3d normal{plane.a, plane.b, plane.c};
            const double scale = -plane.d / Dot(normal, normal);
            const point3d onPlane{normal.x * scale, normal.y * scale, normal.z * scale};
            point3d mappedNormal, mappedPoint;
            inverse.Transform(mappedPoint, onPlane, false);
            inverse.Transform(mappedNormal, normal, true);
            VelSDK::Math::Normalize(mappedNormal);
            mapped.push_back(
                {mappedNormal.x, mappedNormal.y, mappedNormal.z, -Dot(mappedNormal, mappedPoint)});
        }
        m_meshClippingPlanes.push_back(std::move(mapped));
    }
}

bool MStlBaseOperatorMarkPolygon::_BuildSelectionRaster() {
    const std::int64_t width = std::int64_t{m_regionBox.xmax} - m_regionBox.xmin + 1;
    const std::int64_t height = std::int64_t{m_regionBox.ymax} - m_regionBox.ymin + 1;
    if (width < 1 || height < 1 || width > INT32_MAX || height > INT32_MAX)
        return false;
    if (m_isBrush && !_BrushPathFits(width, height))
        return false;

    const auto w = static_cast<std::uint32_t>(width);
    const auto h = static_cast<std::int32_t>(height);
    const point2d* points = m_regionPoints.get();
    const std::size_t count = m_regionPointCount;
    if (!m_markThrough) {
        return m_isBrush
                   ? _BuildBrushDepthRaster(*m_depthRaster, w, h, points, count, m_brushRadius)
                   : _BuildPolygonDepthRaster(*m_depthRaster, w, h, points, count);
    }
    const bool built =
        m_isBrush ? _BuildBrushRegionRaster(*m_regionRaster, w, h, points, count, m_brushRadius)
                  : _BuildPolygonRegionRaster(*m_regionRaster, w, h, points, count);
    // Mark-through ignores facing, and culling stays off after the run.
    if (built)
        m_backFaceCulling = false;
    return built;
}

// The brush builders stamp discs without clipping; a path is refused unless every disc lies
// inside the raster, which only fails for non-finite points or coordinates beyond 32 bits.
bool MStlBaseOperatorMarkPolygon::_BrushPathFits(std::int64_t width, std::int64_t height) const {
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

// Outcodes of every vertex, then the class of every triangle of the mesh.
void MStlBaseOperatorMarkPolygon::_ClassifyTriangles(std::size_t mesh) {
    MStlBase& stl = *m_meshes[mesh];
    const ScreenPoints& screen = m_screenPoints[mesh];
    const auto right = static_cast<float>(std::int64_t{m_regionBox.xmax} - m_regionBox.xmin);
    const auto top = static_cast<float>(std::int64_t{m_regionBox.ymax} - m_regionBox.ymin);
    m_outcodes.resize(screen.size());
    for (std::size_t v = 0; v < screen.size(); ++v) {
        const point3f& p = screen[v];
        m_outcodes[v] = static_cast<std::uint8_t>(
            (p.x <= 0.0f ? kOutcodeLeft : 0) | (p.x >= right ? kOutcodeRight : 0) |
            (p.y <= 0.0f ? kOutcodeAbove : 0) | (p.y >= top ? kOutcodeBelow : 0));
    }

    // Facing the viewer means a normal against the viewing direction; edge-on counts as back.
    std::shared_ptr<const std::vector<point3d>> normals;
    if (m_backFaceCulling)
        normals = stl.GetTriangleNormals();
    const point3d& view = m_viewDirections[mesh];
    const auto frontFacing = [&](std::size_t t) { return Dot((*normals)[t], view) < 0.0; };

    const MStlElementStore<MStlTriangle>& triangles = stl._Triangles();
    m_classes.resize(triangles.Size());
    const bool whole = m_markWholeMesh[mesh];
    for (std::size_t chunk = 0, first = 0; chunk < triangles.ChunkCount(); ++chunk) {
        const MStlTriangle* triangle = triangles.Chunk(chunk);
        const std::size_t length = triangles.ChunkLength(chunk);
        for (std::size_t i = 0; i < length; ++i) {
            const MStlTriangle& t = triangle[i];
            const std::uint8_t shared = m_outcodes[t.GetPointIndex(0)] &
                                        m_outcodes[t.GetPointIndex(1)] &
                                        m_outcodes[t.GetPointIndex(2)];
            unsigned char triangleClass = kOccluder;
            if (!t.IsVisible() || shared != 0)
                triangleClass = kIgnored;
            else if (whole && (!m_backFaceCulling || frontFacing(first + i)))
                triangleClass = kCandidate;
            m_classes[first + i] = triangleClass;
        }
        first += length;
    }
    for (MStlSurface* surface : m_markableSurfaces[mesh]) {
        if (surface->GetStl() != &stl)
            continue;  // a surface of another mesh marks nothing here
        for (MStlTriangle& triangle : surface->Triangles()) {
            const std::size_t t = triangle.GetMaskIndex();
            if (m_classes[t] == kIgnored)
                continue;
            if (m_backFaceCulling && !frontFacing(t))
                continue;
            m_classes[t] = kCandidate;
        }
    }
    if (!m_skipHiddenSurfaces)
        return;
    for (MStlSurface& surface : stl.Surfaces()) {
        if (surface.GetVisible())
            continue;
        for (MStlTriangle& triangle : surface.Triangles())
            m_classes[triangle.GetMaskIndex()] = kIgnored;
    }
}

// The planes in order: a plane with all three values ≥ 0 keeps the triangle; one with a vertex
// below and none above drops it; any other cuts it, by that plane and every later one. All
// three values decide, so the verdict does not depend on which vertex comes first. A plane
// given with a zero normal maps to NaN values, which are none of ≥ 0, < 0 or > 0: such a
// plane cuts every triangle that reaches it, and the clipper keeps no piece of it.
MStlBaseOperatorMarkPolygon::PlaneCut MStlBaseOperatorMarkPolygon::_CutByPlanes(
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

void MStlBaseOperatorMarkPolygon::_ProjectPiece(std::size_t mesh,
                                                _ClippedPieceRecord& piece) const {
    for (point3f& corner : piece.corners)
        m_modelToScreen[mesh].Transform(corner, corner, false);
}

void MStlBaseOperatorMarkPolygon::_MarkThroughMesh(std::size_t mesh) {
    MStlBase& stl = *m_meshes[mesh];
    _ClassifyTriangles(mesh);
    for (std::size_t t = 0; t < m_classes.size(); ++t) {
        if (m_classes[t] == kCandidate && _TouchesRegion(mesh, stl._Triangle(t)))
            m_classes[t] = kSelected;
    }
    for (std::size_t t = 0; t < m_classes.size(); ++t) {
        if (m_classes[t] == kSelected)
            _ApplyMark(mesh, stl._Triangle(t));
    }
}

// Mark-through test of one triangle, or of what the clipping planes leave of it.
bool MStlBaseOperatorMarkPolygon::_TouchesRegion(std::size_t mesh, MStlTriangle& triangle) {
    const ScreenPoints& screen = m_screenPoints[mesh];
    const PlaneCut cut =
        m_clippingPlanes.empty() ? PlaneCut{PlaneCut::kWhole, 0} : _CutByPlanes(mesh, triangle);
    if (cut.verdict == PlaneCut::kWhole) {
        return _TriangleTouchesRegion(*m_regionRaster, screen[triangle.GetPointIndex(0)],
                                      screen[triangle.GetPointIndex(1)],
                                      screen[triangle.GetPointIndex(2)]);
    }
    if (cut.verdict == PlaneCut::kDropped)
        return false;
    const std::vector<MMPlaneEq<double>>& planes = m_meshClippingPlanes[mesh];
    _ClipTriangle(triangle, planes.data() + cut.firstPlane, planes.size() - cut.firstPlane,
                  *m_clipWork);
    for (_ClippedPieceRecord& piece : m_clipWork->pieces) {
        _ProjectPiece(mesh, piece);
        if (_TriangleTouchesRegion(*m_regionRaster, piece.corners[0], piece.corners[1],
                                   piece.corners[2]))
            return true;
    }
    return false;
}

void MStlBaseOperatorMarkPolygon::_DrawMesh(std::size_t mesh, CandidateRecords& candidates) {
    const MStlElementStore<MStlTriangle>& triangles = m_meshes[mesh]->_Triangles();
    const ScreenPoints& screen = m_screenPoints[mesh];
    const bool planes = !m_clippingPlanes.empty();
    for (std::size_t chunk = 0, first = 0; chunk < triangles.ChunkCount(); ++chunk) {
        MStlTriangle* triangle = triangles.Chunk(chunk);
        const std::size_t length = triangles.ChunkLength(chunk);
        for (std::size_t i = 0; i < length; ++i) {
            const unsigned char triangleClass = m_classes[first + i];
            if (triangleClass == kIgnored)
                continue;
            MStlTriangle& t = triangle[i];
            const bool candidate = triangleClass == kCandidate;
            const PlaneCut cut = planes ? _CutByPlanes(mesh, t) : PlaneCut{PlaneCut::kWhole, 0};
            if (cut.verdict == PlaneCut::kStraddles) {
                _DrawPieces(mesh, t, cut.firstPlane, candidate);
                continue;
            }
            if (cut.verdict == PlaneCut::kDropped)
                continue;
            const point3f& a = screen[t.GetPointIndex(0)];
            const point3f& b = screen[t.GetPointIndex(1)];
            const point3f& c = screen[t.GetPointIndex(2)];
            if (!candidate) {
                _RasterizeTriangleDepth(*m_depthRaster, a, b, c, nullptr);
                continue;
            }
            _RasterizeTriangleDepth(*m_depthRaster, a, b, c, &candidates.Spare());
            candidates.CommitSpareIfCovered(&t);
        }
        first += length;
    }
    // Mesh `mesh` owns the records from the previous mesh's end up to its current spare.
    m_candidateEnd[mesh] = candidates.Size() - 1;
    if (planes)
        m_clippedCandidateEnd[mesh] = m_clippedCandidates->Size() - 1;
}

void MStlBaseOperatorMarkPolygon::_DrawPieces(std::size_t mesh, MStlTriangle& triangle,
                                              std::size_t firstPlane, bool candidate) {
    const std::vector<MMPlaneEq<double>>& planes = m_meshClippingPlanes[mesh];
    _ClipTriangle(triangle, planes.data() + firstPlane, planes.size() - firstPlane, *m_clipWork);
    for (_ClippedPieceRecord& piece : m_clipWork->pieces) {
        _ProjectPiece(mesh, piece);
        if (!candidate) {
            _RasterizeTriangleDepth(*m_depthRaster, piece.corners[0], piece.corners[1],
                                    piece.corners[2], nullptr);
            continue;
        }
        _ClippedPieceRecord& spare = m_clippedCandidates->Spare();
        std::copy(std::begin(piece.corners), std::end(piece.corners), spare.corners);
        _RasterizeTriangleDepth(*m_depthRaster, spare.corners[0], spare.corners[1],
                                spare.corners[2], &spare);
        m_clippedCandidates->CommitSpareIfCovered(&triangle);
    }
}

void MStlBaseOperatorMarkPolygon::_CloseDepthPass(CandidateRecords& candidates) {
    candidates.DropSpare();
    if (!m_clippingPlanes.empty())
        m_clippedCandidates->DropSpare();
    _FinalizeDepthRaster(*m_depthRaster);
}

// Per mesh, its whole-triangle records, then the pieces this run cut from its triangles.
void MStlBaseOperatorMarkPolygon::_ApplyMarks(CandidateRecords& candidates,
                                              std::size_t clippedRunStart) {
    std::size_t record = 0;
    std::size_t clippedRecord = clippedRunStart;
    for (std::size_t mesh = 0; mesh < m_meshes.size(); ++mesh) {
        const ScreenPoints& screen = m_screenPoints[mesh];
        for (; record < m_candidateEnd[mesh]; ++record) {
            _TriangleRecord& candidate = candidates[record];
            const MStlTriangle& triangle = *candidate.triangle;
            const point3f corners[3] = {screen[triangle.GetPointIndex(0)],
                                        screen[triangle.GetPointIndex(1)],
                                        screen[triangle.GetPointIndex(2)]};
            _ApplyRecord(mesh, candidate, corners);
        }
        if (m_clippingPlanes.empty())
            continue;
        for (; clippedRecord < m_clippedCandidateEnd[mesh]; ++clippedRecord) {
            _ClippedPieceRecord& piece = (*m_clippedCandidates)[clippedRecord];
            _ApplyRecord(mesh, piece, piece.corners);
        }
    }
}

// A covered triangle that did not win a pixel may still lie within the tolerance of the front.
void MStlBaseOperatorMarkPolygon::_ApplyRecord(std::size_t mesh, _TriangleRecord& record,
                                               const point3f (&corners)[3]) {
    if (!(record.flags & kVisibleFlag) && (record.flags & kCoveredFlag))
        _TestTriangleVisibility(*m_depthRaster, corners[0], corners[1], corners[2], record);
    if (record.flags & kVisibleFlag)
        _ApplyMark(mesh, *record.triangle);
}

void MStlBaseOperatorMarkPolygon::_ApplyMark(std::size_t mesh, MStlTriangle& triangle) {
    IStlMarkTriangles* sink = m_sinks[mesh];
    if (m_mark)
        sink ? sink->Mark(triangle) : triangle.Mark();
    else
        sink ? sink->Unmark(triangle) : triangle.Unmark();
}
