#include <velpick/graph_mark_polygon.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <utility>

#include <velpick/camera_view.h>
#include <velpick/graph_filter_by_clipping_planes.h>
#include <velpick/host/element_info.h>
#include <velpick/host/named_mask.h>
#include <velpick/host/stl_base.h>
#include <velpick/mark_graph_polygon_utils.h>
#include <velpick/pixel_grid.h>
#include <velpick/visibility_detector.h>
#include "graph_operators/edge_bar.h"
#include "polygon_marking/int32_truncation.h"

using AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation;
using AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention;
using AU_MarkOperations::PolygonMarking::PerspectiveProjection;
using AU_MarkOperations::PolygonMarking::PixelGrid;
using AU_MarkOperations::PolygonMarking::PointInPixelFrame;
using AU_MarkOperations::PolygonMarking::TruncateToInt32;
using MarkGraphPolygonUtils::detail::EdgeBarCorners;
using MarkGraphPolygonUtils::detail::ToDouble;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

constexpr double kDefaultPixelProportion = 5.0;  // pixels per polygon unit
// Radius of the prism of a cut edge without thickness, or with a (0, 0) thickness pair.
constexpr double kDefaultPrismRadius = 10.0;
// Values the plane pre-filter writes for edges cut by a plane and edges cut away, and the
// class of every edge when there are no planes.
constexpr double kCutByPlane = 0.0;
constexpr double kCutAway = -1.0;
constexpr double kUncut = 1.0;
constexpr float kMarked = 1.0f;

using PixelFrame = MStlGraphOperatorMarkPolygon::PixelFrame;

// Edges decided in 2D whose projection reaches the pixel box, with their outlines stored one
// after another.
struct Candidates {
    struct Entry {
        MStlGraphEdge* edge;
        std::size_t first, count;
    };
    std::vector<Entry> entries;
    std::vector<point2d> points;

    void Add(MStlGraphEdge& edge, const point2d* outline, std::size_t count) {
        entries.push_back({&edge, points.size(), count});
        points.insert(points.end(), outline, outline + count);
    }
};

// Cut edges turned into prisms: each prism is one surface of the scratch mesh.
struct Prisms {
    MStlBase mesh;
    std::vector<std::pair<const MStlSurface*, MStlGraphEdge*>> edgeOfSurface;
};

}  // namespace

// Where RouteEdges sends the edges: 2D candidates or prisms for the visibility detector.
struct MStlGraphOperatorMarkPolygon::EdgeRoutes {
    Candidates candidates;
    Prisms prisms;
};

namespace {

// A raster size, wrapping like the 32-bit arithmetic it stands for: an oversized box becomes a
// negative size, which the pixel grid refuses.
std::int32_t RasterSize(double extent) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(TruncateToInt32(extent)) + 1u);
}

point2d Project(const MMTransformMatrix& transform, const MStlPoint& vertex) {
    const point3d mapped = transform(ToDouble(vertex), false);
    return {mapped.x, mapped.y};
}

// How 2D edges reach the pixel frame: through the affine pixel transform, or into eye space
// and through the pinhole onto the pixel frame.
struct EdgeProjection {
    const MMTransformMatrix& transform;
    const PerspectiveProjection* camera;  // null: affine
};

// The edge in eye space, cut by the camera's near plane; false when nothing of it is left.
bool CutAtNearPlane(const MStlGraphEdge& edge, const EdgeProjection& projection,
                    MarkGraphPolygonUtils::EyeSegment& eye) {
    return MarkGraphPolygonUtils::CutAtNearPlane(
        projection.transform(ToDouble(*edge.GetVertex(0)), false),
        projection.transform(ToDouble(*edge.GetVertex(1)), false), projection.camera->nearDistance,
        eye);
}

// Thin edge: the projected segment, kept when it reaches the box within `tolerance`.
void CollectSegment(MStlGraphEdge& edge, const EdgeProjection& projection, const PixelFrame& frame,
                    double tolerance, Candidates& candidates) {
    std::array<point2d, 2> segment;
    if (projection.camera) {
        MarkGraphPolygonUtils::EyeSegment eye;
        if (!CutAtNearPlane(edge, projection, eye))
            return;
        for (int end = 0; end < 2; ++end)
            segment[end] = MarkGraphPolygonUtils::ProjectEyePoint(*projection.camera, eye.ends[end],
                                                                  eye.depths[end]);
    } else {
        segment = {Project(projection.transform, *edge.GetVertex(0)),
                   Project(projection.transform, *edge.GetVertex(1))};
    }
    if (MarkGraphPolygonUtils::LineSegmentIntoBox2d(segment, {0.0, 0.0},
                                                    {frame.width, frame.height}, tolerance))
        candidates.Add(edge, segment.data(), segment.size());
}

// Thick edge: its outline, kept when a side reaches the box within `tolerance` or when the
// box's corner lies inside it (the bar covers the whole box).
void CollectOutline(MStlGraphEdge& edge, const MStlBaseElementInfo* info,
                    const EdgeProjection& projection, const PixelFrame& frame, double tolerance,
                    Candidates& candidates) {
    std::vector<point2d> outline;
    if (projection.camera) {
        MarkGraphPolygonUtils::EyeSegment eye;
        if (!CutAtNearPlane(edge, projection, eye))
            return;
        outline = MarkGraphPolygonUtils::GetOutlineOfPerspectiveEdgeWithThickness(
            edge, info, eye, *projection.camera);
    } else {
        outline = MarkGraphPolygonUtils::GetOutlineOfProjectedEdgeWithThickness(
            edge, info, projection.transform);
    }
    const std::size_t n = outline.size();
    bool reachesBox = false;
    for (std::size_t i = 0; i < n && !reachesBox; ++i)
        reachesBox = MarkGraphPolygonUtils::LineSegmentIntoBox2d(
            {outline[i], outline[(i + 1) % n]}, {0.0, 0.0}, {frame.width, frame.height}, tolerance);
    if (reachesBox || MarkGraphPolygonUtils::PointInsideConvexPolygon2D(outline, {0.0, 0.0}))
        candidates.Add(edge, outline.data(), n);
}

// The radii of a cut edge's prism; false when thickness is asked for but the mesh has none.
bool PrismRadii(const MStlGraphEdge& edge, bool workWithThickness, const MStlBaseElementInfo* info,
                double& r0, double& r1) {
    r0 = r1 = kDefaultPrismRadius;
    if (!workWithThickness)
        return true;
    if (!info)
        return false;
    const MStlGraphEdgeThickness& thickness = info->GetEdgeThickness(edge);
    if (thickness.first != 0 || thickness.second != 0) {
        r0 = static_cast<double>(thickness.first) * 0.5;
        r1 = static_cast<double>(thickness.second) * 0.5;
    }
    return true;
}

// The four side faces of the bar around the edge (no end caps), in truncated integer units.
void AddPrism(MStlGraphEdge& edge, double r0, double r1, Prisms& prisms) {
    const auto corners =
        EdgeBarCorners(ToDouble(*edge.GetVertex(0)), ToDouble(*edge.GetVertex(1)), r0, r1);
    const auto addTriangle = [&corners](MStlSurface& surface, int a, int b, int c) {
        const point3d &p = corners[a], &q = corners[b], &s = corners[c];
        surface.AddTriangle(TruncateToInt32(p.x), TruncateToInt32(p.y), TruncateToInt32(p.z),
                            TruncateToInt32(q.x), TruncateToInt32(q.y), TruncateToInt32(q.z),
                            TruncateToInt32(s.x), TruncateToInt32(s.y), TruncateToInt32(s.z));
    };
    MStlSurface& surface = *prisms.mesh.AddSurface(nullptr);
    for (int i = 0; i < 4; ++i) {
        const int j = (i + 1) % 4;
        addTriangle(surface, i, j, 4 + i);
        addTriangle(surface, j, 4 + i, 4 + j);
    }
    prisms.edgeOfSurface.emplace_back(&surface, &edge);
}

// The raster test of the 2D candidates against the pixels the polygon fills: appends the
// edges to mark.
void SelectCandidates(const Candidates& candidates, PixelGrid& grid, bool markWholeCandidates,
                      std::vector<MStlGraphEdge*>& marked) {
    std::vector<point2d> outline;
    for (const Candidates::Entry& entry : candidates.entries) {
        if (!markWholeCandidates) {
            const point2d* first = candidates.points.data() + entry.first;
            outline.assign(first, first + entry.count);
            if (!MarkGraphPolygonUtils::EdgeIntersectArea(grid, outline))
                continue;
        }
        marked.push_back(entry.edge);
    }
}

// Appends the edges whose prism has a triangle visible under the polygon. Only prisms are
// drawn, so they hide one another but nothing else does.
void SelectVisiblePrisms(Prisms& prisms, const std::vector<MMPlaneEq<double>>& planes,
                         const EdgeProjection& modelToPixels,
                         const std::vector<point2d>& pixelPolygon,
                         std::vector<MStlGraphEdge*>& marked) {
    MStlBaseOperatorVisibilityDetector detector;
    if (modelToPixels.camera)
        detector.SetPerspective(*modelToPixels.camera);
    for (const MMPlaneEq<double>& plane : planes)
        detector.AddClippingPlane(plane);
    const MMTransformMatrix identity;
    detector.AddStlAndTransformation(&prisms.mesh, modelToPixels.transform, identity, true,
                                     nullptr);
    detector.SetMode(MStlBaseOperatorVisibilityDetector::Mode::Polygon);
    detector.SetPath(pixelPolygon);
    detector.Operate();
    for (const auto& [surface, edge] : prisms.edgeOfSurface)
        for (const MStlTriangle& triangle : surface->Triangles())
            if (triangle.IsMarked()) {
                marked.push_back(edge);
                break;
            }
}

}  // namespace

MStlGraphOperatorMarkPolygon::MStlGraphOperatorMarkPolygon()
    : m_pixelProportion(kDefaultPixelProportion) {}

void MStlGraphOperatorMarkPolygon::SetGraph(MStlGraph& graph, const MMTransformMatrix& transform) {
    m_graph = &graph;
    m_modelTransform = transform;
}

void MStlGraphOperatorMarkPolygon::SetPolygon(const std::vector<point2d>& polygon) {
    if (&polygon != &m_polygon)
        m_polygon = polygon;
}

void MStlGraphOperatorMarkPolygon::SetPixelProportion(double pixelProportion) {
    m_pixelProportion = pixelProportion;
}

void MStlGraphOperatorMarkPolygon::AddClippingPlane(MMPlaneEq<double> plane) {
    m_clippingPlanes.push_back(plane);
}

void MStlGraphOperatorMarkPolygon::SetWorkWithGraphThickness(bool work) {
    m_workWithGraphThickness = work;
}

void MStlGraphOperatorMarkPolygon::SetPerspective(const PerspectiveProjection& projection) {
    m_perspective = true;
    m_projection = projection;
}

MStlGraphOperatorMarkPolygon::EReturnCode MStlGraphOperatorMarkPolygon::Operate(
    MStlScalarMaskGraphEdges& output, bool markWholeCandidates) {
    if (!m_graph)
        return NoGraph;
    if (m_polygon.size() < 3)
        return PolygonTooSmall;

    // Plane classes of every edge, in a temporary mask released on every way out.
    NamedEdgeMask planeClasses;
    if (!m_clippingPlanes.empty() && !FilterByPlanes(planeClasses))
        return PlaneFilterFailed;

    const PixelFrame frame = ConvertToPixelFrame();

    EdgeRoutes routes;
    if (!RouteEdges(planeClasses.get(), frame, routes))
        return MissingEdgeThickness;

    // Every edge is written only once both tests are done, so that a test that throws (a
    // raster or sweep beyond memory) leaves the output as it was. All writes are 1.0, so their
    // order does not matter.
    PixelGrid grid(m_polygon, RasterSize(frame.width), RasterSize(frame.height), 1.0, false);
    std::vector<MStlGraphEdge*> marked;
    SelectCandidates(routes.candidates, grid, markWholeCandidates, marked);
    const EdgeProjection projection{m_modelTransform, m_perspective ? &m_pixelCamera : nullptr};
    SelectVisiblePrisms(routes.prisms, m_clippingPlanes, projection, m_polygon, marked);
    for (MStlGraphEdge* edge : marked)
        output.SetInfo(*edge, kMarked);
    return Success;
}

bool MStlGraphOperatorMarkPolygon::FilterByPlanes(NamedEdgeMask& planeClasses) const {
    planeClasses.reset(MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>::Create(
        m_graph->GetStl(), L"filtered_by_planes"));
    MStlGraphOperatorFilterByClippingPlanes filter;
    filter.SetGraph(m_graph);
    filter.SetGraphMask(planeClasses.get());
    filter.SetWorkWithGraphThickness(m_workWithGraphThickness);
    for (const MMPlaneEq<double>& plane : m_clippingPlanes)
        filter.AddPlane(plane);
    return filter.Operate();
}

// The polygon and the transform are rewritten in place, relative to the polygon's pixel box.
MStlGraphOperatorMarkPolygon::PixelFrame MStlGraphOperatorMarkPolygon::ConvertToPixelFrame() {
    const auto box = FindPolygonBBoxInPixelsDimention(m_polygon, m_pixelProportion);
    for (point2d& p : m_polygon)
        p = PointInPixelFrame(p, m_pixelProportion, box);
    const VelSDK::Math::point2i offset = {TruncateToInt32(box.min.x), TruncateToInt32(box.min.y)};
    if (m_perspective) {
        // Screen units to pixels after the divide: scaled by the pixel proportion, the grid
        // corner `offset` moved to (0, 0), pixel centres on half-integers.
        const double s = m_pixelProportion;
        m_pixelCamera = {m_projection.fx * s, m_projection.fy * s,
                         m_projection.cx * s + (0.5 - offset.x),
                         m_projection.cy * s + (0.5 - offset.y), m_projection.nearDistance};
    } else {
        m_modelTransform =
            FindModelToCameraViewTransformation(m_modelTransform, m_pixelProportion, offset);
    }
    return {box.max.x - box.min.x, box.max.y - box.min.y};
}

// Cut-away edges are dropped, cut edges become prisms, the others are decided in 2D. False
// when a cut edge needs a thickness the mesh does not have.
bool MStlGraphOperatorMarkPolygon::RouteEdges(const MStlScalarMaskGraphEdges* planeClasses,
                                              const PixelFrame& frame, EdgeRoutes& routes) const {
    const MStlBaseElementInfo* info =
        MStlBaseElementInfoStlDependency::GetDependency(m_graph->GetStl(), false);
    const EdgeProjection projection{m_modelTransform, m_perspective ? &m_pixelCamera : nullptr};
    for (MStlGraphEdge& edge : m_graph->GraphEdges()) {
        const double planeClass = planeClasses ? planeClasses->GetScalar(edge) : kUncut;
        if (planeClass == kCutAway)
            continue;
        if (planeClass == kCutByPlane) {
            double r0, r1;
            if (!PrismRadii(edge, m_workWithGraphThickness, info, r0, r1))
                return false;
            AddPrism(edge, r0, r1, routes.prisms);
        } else if (m_workWithGraphThickness) {
            CollectOutline(edge, info, projection, frame, m_pixelProportion, routes.candidates);
        } else {
            CollectSegment(edge, projection, frame, m_pixelProportion, routes.candidates);
        }
    }
    return true;
}
