#include <velpick/pick_session.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <stdexcept>
#include <utility>

#include <tbb/task_arena.h>

#include <velpick/camera_view.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_triangle.h>
#include <velpick/mark_polygon.h>
#include <velpick/visibility_detector.h>
#include "session/projected_vertices.h"
#include "session/screen_tile_index.h"
#include "session/triangle_bitmap.h"

namespace AU_MarkOperations::PolygonMarking {

namespace {

using VelSDK::Math::point2d;

/// A z-buffer brush radius beyond this cannot be converted to whole screen units.
constexpr double kMaxWholeRadius = 1.8e19;
/// Query boxes beyond the z-buffer's 32-bit pixel range run without a list: the operator
/// then refuses them or wraps exactly as without a session.
constexpr double kPixelRange = 2147483647.0;

/// The most threads a build uses: `threads` as a pick takes it, within the caller's arena.
int BuildThreads(int threads) {
    const int arena = tbb::this_task_arena::max_concurrency();
    return threads >= 1 ? std::min(threads, arena) : arena;
}

/// The triangles an operator marked or unmarked in one call, by index.
class MarkList {
  public:
    void Add(const MStlTriangle& t) { m_triangles.push_back(t.GetMaskIndex()); }
    /// Ascending, each once (a triangle cut into pieces may be marked once per piece); the
    /// list is left empty.
    std::vector<std::uint32_t> Take() {
        if (!std::is_sorted(m_triangles.begin(), m_triangles.end()))
            std::sort(m_triangles.begin(), m_triangles.end());
        m_triangles.erase(std::unique(m_triangles.begin(), m_triangles.end()), m_triangles.end());
        return std::move(m_triangles);
    }

  private:
    std::vector<std::uint32_t> m_triangles;
};

/// The z-buffer operator's sink: records marks, changes nothing.
class RecordingSink : public IStlMarkTriangles {
  public:
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override { marks.Add(t); }
    void Unmark(MStlTriangle& t) override { marks.Add(t); }
    MarkList marks;
};

/// The scan-line detector's sink, which must be a mask sink: records marks and leaves its mask
/// (registered with the mesh for the sink's life) untouched.
class RecordingMaskSink : public MStlMarkTrianglesByMasks {
  public:
    explicit RecordingMaskSink(MStlBase& mesh)
        : MStlMarkTrianglesByMasks(mesh), m_triangles(mesh.GetNumberOfTriangles()) {}
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override { marks.Add(t); }
    void Unmark(MStlTriangle& t) override { marks.Add(t); }
    /// The mask's bytes: one per triangle, in whole blocks.
    std::size_t MemoryBytes() const {
        constexpr std::size_t kBlock = MDataMask<MStlTriangle, unsigned char>::kBlockSize;
        return (m_triangles + kBlock - 1) / kBlock * kBlock;
    }
    MarkList marks;

  private:
    std::size_t m_triangles;
};

/// The scan-line detector's cull box for `path` (its downward pixels) and brush `radius` (its
/// pixels, 0 for a polygon): the path's closed bounds widened by the radius. False when the
/// detector marks nothing at once: a coordinate or the radius not finite.
bool DetectorCullBox(const std::vector<point2d>& path, double radius, PixelBounds& box) {
    box = {DBL_MAX, DBL_MAX, -DBL_MAX, -DBL_MAX};
    for (const point2d& p : path) {
        if (!std::isfinite(p.x) || !std::isfinite(p.y))
            return false;
        box = {std::min(box.xmin, p.x), std::min(box.ymin, p.y), std::max(box.xmax, p.x),
               std::max(box.ymax, p.y)};
    }
    if (!std::isfinite(radius))
        return false;
    box = {box.xmin - radius, box.ymin - radius, box.xmax + radius, box.ymax + radius};
    // A negative radius turns the box inside out; the detector still keeps every piece that
    // spans it, and each of those meets the box turned right way round.
    if (box.xmin > box.xmax)
        std::swap(box.xmin, box.xmax);
    if (box.ymin > box.ymax)
        std::swap(box.ymin, box.ymax);
    return true;
}

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
        std::unique_ptr<RecordingMaskSink> detectorSink;  // scan-line sessions only
    };

    /// The ascending triangles of `m` whose tiles meet `box`.
    const std::vector<std::uint32_t>& _Candidates(IndexedMesh& m, const PixelBounds& box);
    bool _ZBufferQueryBox(const SessionRegion& region, PixelBounds& box) const;
    SessionStatus _PickZBuffer(const SessionRegion& region, SessionMarks& marks);
    SessionStatus _PickScanLine(const SessionRegion& region, SessionMarks& marks);
    /// Runs `operate` on the session's threads.
    template <class Operate>
    void _OnSessionThreads(Operate&& operate);

    std::vector<IndexedMesh> m_meshes;
    SessionSettings m_settings;
    /// The scan-line detector's arena of settings.threads threads; null: the caller's arena.
    std::unique_ptr<tbb::task_arena> m_arena;
    std::vector<std::uint32_t> m_candidates;
};

PickSession::Impl::Impl(std::vector<SessionMesh> meshes, SessionSettings settings)
    : m_settings(std::move(settings)) {
    const bool scanLine = m_settings.picker == SessionPicker::kScanLine;
    if (scanLine && m_settings.threads >= 1)
        m_arena = std::make_unique<tbb::task_arena>(m_settings.threads);
    const int threads = BuildThreads(m_settings.threads);
    for (SessionMesh& m : meshes) {
        const std::uint32_t triangles =
            m.mesh ? static_cast<std::uint32_t>(m.mesh->GetNumberOfTriangles()) : 0;
        IndexedMesh& indexed = m_meshes.emplace_back(IndexedMesh{
            std::move(m), nullptr, TriangleBitmap(triangles), TriangleBitmap(triangles), nullptr});
        if (!indexed.source.mesh)
            continue;
        const ProjectedVertices vertices = ProjectVertices(indexed.source, m_settings, threads);
        MStlBase& mesh = *indexed.source.mesh;
        indexed.index = std::make_unique<ScreenTileIndex>(
            triangles,
            [&](std::uint32_t t, PixelBounds& b) {
                return TriangleFootprint(mesh.GetTriangle(t), vertices, b);
            },
            threads);
        if (scanLine)
            indexed.detectorSink = std::make_unique<RecordingMaskSink>(mesh);
    }
}

const std::vector<std::uint32_t>& PickSession::Impl::_Candidates(IndexedMesh& m,
                                                                 const PixelBounds& box) {
    m.index->Gather(box, m.candidates);
    m_candidates.clear();
    m.candidates.Drain(m_candidates);
    return m_candidates;
}

template <class Operate>
void PickSession::Impl::_OnSessionThreads(Operate&& operate) {
    if (m_arena)
        m_arena->execute(operate);
    else
        operate();
}

// The region's pixel box as the z-buffer operator computes it, widened by the margin; false
// when it is empty or beyond the operator's pixel range.
bool PickSession::Impl::_ZBufferQueryBox(const SessionRegion& region, PixelBounds& box) const {
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
    return m_settings.picker == SessionPicker::kScanLine ? _PickScanLine(region, marks)
                                                         : _PickZBuffer(region, marks);
}

// A fresh one-shot operator over the whole scene, restricted, when the region's box is within
// the operator's pixel range, to the triangles whose tiles meet it.
SessionStatus PickSession::Impl::_PickZBuffer(const SessionRegion& region, SessionMarks& marks) {
    if (region.brushRadius) {
        const double r = *region.brushRadius;
        if (!(r >= 0.0 && r <= kMaxWholeRadius && r == std::floor(r)))
            return SessionStatus::kRegionRefused;
    }
    PixelBounds box{};
    const bool listed = _ZBufferQueryBox(region, box);
    const SessionSettings& s = m_settings;
    MStlBaseOperatorMarkPolygon op(s.pixelProportion, s.depthTolerance, s.skipHiddenSurfaces,
                                   s.unitsPerModelUnit);
    std::vector<RecordingSink> sinks(m_meshes.size());
    for (std::size_t i = 0; i < m_meshes.size(); ++i) {
        IndexedMesh& m = m_meshes[i];
        op.AddStl(m.source.mesh, &m.source.view, &m.source.placement, m.source.markWholeMesh,
                  &sinks[i]);
        if (!m.source.mesh)
            continue;
        for (MStlSurface* surface : m.source.markableSurfaces)
            op.SetMarkableSurface(surface);
        if (listed) {
            const std::vector<std::uint32_t>& candidates = _Candidates(m, box);
            op.SetCandidateTriangles(candidates.data(), candidates.size());
        }
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
        marks[i] = sinks[i].marks.Take();
    return SessionStatus::kDone;
}

// A fresh detector set up as the command line's scan-line picker sets it up, every mesh
// restricted to the triangles whose tiles meet the detector's own cull box. Null meshes mark
// nothing and take no part.
SessionStatus PickSession::Impl::_PickScanLine(const SessionRegion& region, SessionMarks& marks) {
    const SessionSettings& s = m_settings;
    const double p = s.pixelProportion;
    std::vector<point2d> path;
    path.reserve(region.points.size());
    for (const point2d& point : region.points)
        path.push_back({point.x * p, -(point.y * p)});
    const double radius = region.brushRadius ? *region.brushRadius * p : 0.0;
    PixelBounds box{};
    if (!DetectorCullBox(path, radius, box))
        return SessionStatus::kDone;  // the detector's own answer: nothing marked
    box = {box.xmin - Widening(box.xmin), box.ymin - Widening(box.ymin),
           box.xmax + Widening(box.xmax), box.ymax + Widening(box.ymax)};

    using Detector = MStlBaseOperatorVisibilityDetector;
    Detector detector;
    for (IndexedMesh& m : m_meshes) {
        if (!m.source.mesh)
            continue;
        detector.AddStlAndTransformation(m.source.mesh, DetectorModelToScreen(m.source, s),
                                         m.source.placement, m.source.markWholeMesh,
                                         m.detectorSink.get());
        for (const MStlSurface* surface : m.source.markableSurfaces)
            detector.SetMarkableSurface(*surface);
        const std::vector<std::uint32_t>& candidates = _Candidates(m, box);
        detector.SetCandidateTriangles(candidates.data(), candidates.size());
        m.detectorSink->marks.Take();  // nothing left of an interrupted call
    }
    for (const MMPlaneEq<double>& plane : s.clippingPlanes)
        detector.AddClippingPlane(plane);
    if (s.perspective)
        detector.SetPerspective(DetectorProjection(*s.perspective, p));
    detector.SetPath(std::move(path));
    detector.SetMode(region.brushRadius ? Detector::Brush : Detector::Polygon);
    detector.SetBrushRadius(radius);
    detector.SetPixelProportion(s.linesPerPixel);
    detector.SetMarkThrough(s.markThrough);
    detector.SetMark(!s.unmark);
    detector.SetMarkFlippedTriangles(!s.backFaceCulling);
    detector.SetCheckSurfaceVisibility(s.skipHiddenSurfaces);
    detector.SetRule(s.visibilityRule);
    detector.SetDepthTolerance(s.visibilityDepthTolerance);
    try {
        _OnSessionThreads([&] { detector.Operate(); });
    } catch (const std::length_error&) {
        return SessionStatus::kRegionRefused;  // raised before anything is marked
    }
    for (std::size_t i = 0; i < m_meshes.size(); ++i)
        if (m_meshes[i].detectorSink)
            marks[i] = m_meshes[i].detectorSink->marks.Take();
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
                 m.stroke.MemoryBytes() + (m.detectorSink ? m.detectorSink->MemoryBytes() : 0);
    return bytes;
}

PickSession::PickSession(std::vector<SessionMesh> meshes, SessionSettings settings)
    : m_impl(std::make_unique<Impl>(std::move(meshes), std::move(settings))) {}

PickSession::~PickSession() = default;

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
