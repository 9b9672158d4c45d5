#include <velpick/pick_session.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <velpick/camera_view.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_triangle.h>
#include <velpick/mark_polygon.h>
#include "session/screen_tile_index.h"
#include "session/triangle_bitmap.h"

namespace AU_MarkOperations::PolygonMarking {

namespace {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

/// Widening of every triangle's screen bounds and of every query box, in pixels: covers the
/// operator's float rounding of pixel coordinates relative to a region's corner, and the
/// rounding of its differently composed transform.
constexpr double kMarginPixels = 1.0;
/// Widening per pixel of distance from the frame's origin: float pixel coordinates round to
/// about 6e-8 of their size, and far vertices of large triangles still decide their bounds.
constexpr double kMarginPerPixel = 1e-6;
/// A z-buffer brush radius beyond this cannot be converted to whole screen units.
constexpr double kMaxWholeRadius = 1.8e19;
/// Query boxes beyond the operator's 32-bit pixel range run without a list: the operator
/// then refuses them or wraps exactly as without a session.
constexpr double kPixelRange = 2147483647.0;
/// Vertices per task when projecting on several threads.
constexpr std::size_t kVertexBlock = 16384;

double Widening(double coordinate) {
    return kMarginPixels + kMarginPerPixel * std::fabs(coordinate);
}

/// Each vertex's screen position in pixels, in the frame of a region whose corner pixel is
/// (0, 0): the operator's own pixel coordinates plus that corner. Computed from the float
/// coordinates the operator reads.
struct ProjectedVertices {
    std::vector<point2d> pixels;
    std::vector<std::uint8_t> behindNear;  // perspective only: nearer than the near plane
};

/// The most threads a build uses: `threads` as a pick takes it, within the caller's arena.
int BuildThreads(int threads) {
    const int arena = tbb::this_task_arena::max_concurrency();
    return threads >= 1 ? std::min(threads, arena) : arena;
}

point3d FloatCoordinates(const MStlPoint& p) {
    return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
}

ProjectedVertices ProjectVertices(const SessionMesh& m, const SessionSettings& settings) {
    MMTransformMatrix modelView = m.view;
    modelView.PostMultiply(m.placement);
    const double scale = settings.pixelProportion;
    const MMTransformMatrix toPixels =
        FindModelToCameraViewTransformation(modelView, scale, VelSDK::Math::point2i{0, 0});
    const std::size_t count = m.mesh->GetNumberOfPoints();
    ProjectedVertices out{std::vector<point2d>(count), {}};
    if (settings.perspective)
        out.behindNear.assign(count, 0);
    const auto project = [&](std::size_t v) {
        const point3d p = FloatCoordinates(m.mesh->GetPoint(v));
        if (!settings.perspective) {
            const point3d pixel = toPixels.TransformPoint(p);
            out.pixels[v] = {pixel.x, pixel.y};
            return;
        }
        const PerspectiveProjection& camera = *settings.perspective;
        const point3d eye = modelView.TransformPoint(p);
        const double depth = -eye.z;
        if (depth < camera.nearDistance) {
            out.behindNear[v] = 1;
            return;
        }
        out.pixels[v] = {(camera.cx + camera.fx * eye.x / depth) * scale + 0.5,
                         (camera.cy + camera.fy * eye.y / depth) * scale + 0.5};
    };
    // Each vertex writes only its own entries, so the result does not depend on the threads.
    if (BuildThreads(settings.threads) <= 1 || count <= kVertexBlock) {
        for (std::size_t v = 0; v < count; ++v)
            project(v);
        return out;
    }
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, kVertexBlock),
                      [&](const tbb::blocked_range<std::size_t>& vertices) {
                          for (std::size_t v = vertices.begin(); v != vertices.end(); ++v)
                              project(v);
                      });
    return out;
}

/// A triangle's widened bounds; wholly behind the near plane it is never drawn, across it
/// always a candidate, and so is a triangle with a non-finite corner.
Footprint TriangleFootprint(const MStlTriangle& t, const ProjectedVertices& vertices,
                            PixelBounds& b) {
    const std::uint32_t corners[3] = {t.GetPointIndex(0), t.GetPointIndex(1), t.GetPointIndex(2)};
    if (!vertices.behindNear.empty()) {
        const int behind = vertices.behindNear[corners[0]] + vertices.behindNear[corners[1]] +
                           vertices.behindNear[corners[2]];
        if (behind == 3)
            return Footprint::kNowhere;
        if (behind > 0)
            return Footprint::kEverywhere;
    }
    const point2d& a = vertices.pixels[corners[0]];
    const point2d& c = vertices.pixels[corners[1]];
    const point2d& d = vertices.pixels[corners[2]];
    b = {std::min({a.x, c.x, d.x}), std::min({a.y, c.y, d.y}), std::max({a.x, c.x, d.x}),
         std::max({a.y, c.y, d.y})};
    if (!std::isfinite(b.xmin) || !std::isfinite(b.ymin) || !std::isfinite(b.xmax) ||
        !std::isfinite(b.ymax))
        return Footprint::kEverywhere;
    b = {b.xmin - Widening(b.xmin), b.ymin - Widening(b.ymin), b.xmax + Widening(b.xmax),
         b.ymax + Widening(b.ymax)};
    return Footprint::kBounds;
}

/// Records the triangles an operator marks or unmarks, by index.
class RecordingSink : public IStlMarkTriangles {
  public:
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override { m_triangles.push_back(t.GetMaskIndex()); }
    void Unmark(MStlTriangle& t) override { m_triangles.push_back(t.GetMaskIndex()); }
    /// Ascending, each once (a triangle cut into pieces may be marked once per piece).
    std::vector<std::uint32_t> Take() {
        if (!std::is_sorted(m_triangles.begin(), m_triangles.end()))
            std::sort(m_triangles.begin(), m_triangles.end());
        m_triangles.erase(std::unique(m_triangles.begin(), m_triangles.end()), m_triangles.end());
        return std::move(m_triangles);
    }

  private:
    std::vector<std::uint32_t> m_triangles;
};

}  // namespace

class PickSession::Impl {
  public:
    Impl(std::vector<SessionMesh> meshes, SessionSettings settings);
    SessionStatus Pick(const SessionRegion& region, SessionMarks& marks);
    SessionStatus AddStrokeSegment(const point2d& from, const point2d& to, double radius,
                                   SessionMarks& newlyMarked);
    void NewStroke();
    std::size_t MemoryBytes() const;

  private:
    /// A mesh with its index and the bitmaps a call gathers into.
    struct IndexedMesh {
        SessionMesh source;
        std::unique_ptr<ScreenTileIndex> index;  // null for a null mesh
        TriangleBitmap candidates;
        TriangleBitmap stroke;
    };

    bool _QueryBox(const SessionRegion& region, PixelBounds& box) const;
    SessionStatus _PickZBuffer(const SessionRegion& region, const PixelBounds* box,
                               SessionMarks& marks);

    std::vector<IndexedMesh> m_meshes;
    SessionSettings m_settings;
};

PickSession::Impl::Impl(std::vector<SessionMesh> meshes, SessionSettings settings)
    : m_settings(std::move(settings)) {
    for (SessionMesh& m : meshes) {
        const std::uint32_t triangles =
            m.mesh ? static_cast<std::uint32_t>(m.mesh->GetNumberOfTriangles()) : 0;
        IndexedMesh& indexed = m_meshes.emplace_back(IndexedMesh{
            std::move(m), nullptr, TriangleBitmap(triangles), TriangleBitmap(triangles)});
        if (!indexed.source.mesh)
            continue;
        const ProjectedVertices vertices = ProjectVertices(indexed.source, m_settings);
        const MStlBase& mesh = *indexed.source.mesh;
        indexed.index = std::make_unique<ScreenTileIndex>(
            triangles,
            [&](std::uint32_t t, PixelBounds& b) {
                return TriangleFootprint(mesh.GetTriangle(t), vertices, b);
            },
            BuildThreads(m_settings.threads));
    }
}

// The region's pixel box as the z-buffer operator computes it, widened by the margin; false
// when it is empty or beyond the operator's pixel range.
bool PickSession::Impl::_QueryBox(const SessionRegion& region, PixelBounds& box) const {
    const double p = m_settings.pixelProportion;
    if (!region.brushRadius) {
        const auto pixels = FindPolygonBBoxInPixelsDimention(region.points, p);
        box = {pixels.min.x, pixels.min.y, pixels.max.x, pixels.max.y};
    } else {
        const double r = std::trunc(*region.brushRadius * p);
        box = {HUGE_VAL, HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
        for (const point2d& point : region.points)
            box = {std::min(box.xmin, std::floor(p * point.x) - r),
                   std::min(box.ymin, std::floor(p * point.y) - r),
                   std::max(box.xmax, std::ceil(p * point.x) + r),
                   std::max(box.ymax, std::ceil(p * point.y) + r)};
    }
    for (double bound : {box.xmin, box.ymin, box.xmax, box.ymax})
        if (!(std::fabs(bound) < kPixelRange))
            return false;
    box = {box.xmin - Widening(box.xmin), box.ymin - Widening(box.ymin),
           box.xmax + Widening(box.xmax), box.ymax + Widening(box.ymax)};
    return true;
}

SessionStatus PickSession::Impl::Pick(const SessionRegion& region, SessionMarks& marks) {
    marks.assign(m_meshes.size(), {});
    if (m_settings.picker != SessionPicker::kZBuffer)
        return SessionStatus::kPickerUnavailable;
    if (region.brushRadius) {
        const double r = *region.brushRadius;
        if (!(r >= 0.0 && r <= kMaxWholeRadius && r == std::floor(r)))
            return SessionStatus::kRegionRefused;
    }
    PixelBounds box{};
    const bool listed = _QueryBox(region, box);
    return _PickZBuffer(region, listed ? &box : nullptr, marks);
}

// A fresh one-shot operator over the whole scene, restricted, when `box` is given, to the
// triangles whose tiles meet it.
SessionStatus PickSession::Impl::_PickZBuffer(const SessionRegion& region, const PixelBounds* box,
                                              SessionMarks& marks) {
    const SessionSettings& s = m_settings;
    MStlBaseOperatorMarkPolygon op(s.pixelProportion, s.depthTolerance, s.skipHiddenSurfaces,
                                   s.unitsPerModelUnit);
    std::vector<RecordingSink> sinks(m_meshes.size());
    std::vector<std::uint32_t> candidates;
    for (std::size_t i = 0; i < m_meshes.size(); ++i) {
        IndexedMesh& m = m_meshes[i];
        op.AddStl(m.source.mesh, &m.source.view, &m.source.placement, m.source.markWholeMesh,
                  &sinks[i]);
        if (!m.source.mesh)
            continue;
        for (MStlSurface* surface : m.source.markableSurfaces)
            op.SetMarkableSurface(surface);
        if (!box)
            continue;
        m.index->Gather(*box, m.candidates);
        candidates.clear();
        m.candidates.Drain(candidates);
        op.SetCandidateTriangles(candidates.data(), candidates.size());
    }
    for (const MMPlaneEq<double>& plane : s.clippingPlanes)
        op.AddClippingPlane(plane);
    if (region.brushRadius)
        op.SetBrushPath(region.points, static_cast<std::size_t>(*region.brushRadius));
    else
        op.SetPolygon(region.points);
    op.SetBackFaceCulling(s.backFaceCulling);
    op.SetMarkThrough(s.markThrough);
    op.SetUnmark(s.unmark);
    op.SetThreads(s.threads);
    if (s.perspective)
        op.SetPerspective(*s.perspective);
    if (!op.operate())
        return SessionStatus::kRegionRefused;
    for (std::size_t i = 0; i < m_meshes.size(); ++i)
        marks[i] = sinks[i].Take();
    return SessionStatus::kDone;
}

SessionStatus PickSession::Impl::AddStrokeSegment(const point2d& from, const point2d& to,
                                                  double radius, SessionMarks& newlyMarked) {
    const SessionStatus status = Pick({{from, to}, radius}, newlyMarked);
    for (std::size_t i = 0; i < m_meshes.size(); ++i) {
        std::vector<std::uint32_t>& marked = newlyMarked[i];
        TriangleBitmap& stroke = m_meshes[i].stroke;
        marked.erase(std::remove_if(marked.begin(), marked.end(),
                                    [&](std::uint32_t t) { return !stroke.Set(t); }),
                     marked.end());
    }
    return status;
}

void PickSession::Impl::NewStroke() {
    for (IndexedMesh& m : m_meshes)
        m.stroke.Clear();
}

std::size_t PickSession::Impl::MemoryBytes() const {
    std::size_t bytes = 0;
    for (const IndexedMesh& m : m_meshes)
        bytes += (m.index ? m.index->MemoryBytes() : 0) + m.candidates.MemoryBytes() +
                 m.stroke.MemoryBytes();
    return bytes;
}

PickSession::PickSession(std::vector<SessionMesh> meshes, SessionSettings settings)
    : m_impl(std::make_unique<Impl>(std::move(meshes), std::move(settings))) {}

PickSession::~PickSession() = default;

bool PickSession::PickerAvailable(SessionPicker picker) {
    return picker == SessionPicker::kZBuffer;
}

SessionStatus PickSession::Pick(const SessionRegion& region, SessionMarks& marks) {
    return m_impl->Pick(region, marks);
}

SessionStatus PickSession::AddStrokeSegment(const point2d& from, const point2d& to, double radius,
                                            SessionMarks& newlyMarked) {
    return m_impl->AddStrokeSegment(from, to, radius, newlyMarked);
}

void PickSession::NewStroke() {
    m_impl->NewStroke();
}

std::size_t PickSession::MemoryBytes() const {
    return m_impl->MemoryBytes();
}

}  // namespace AU_MarkOperations::PolygonMarking
