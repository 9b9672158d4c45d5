#include "session/projected_vertices.h"

#include <algorithm>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <velpick/camera_view.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_point.h>
#include <velpick/host/stl_triangle.h>

namespace AU_MarkOperations::PolygonMarking {

namespace {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

/// Vertices per task when projecting on several threads.
constexpr std::size_t kVertexBlock = 16384;
/// A vertex whose depth is within this share of the depth terms' magnitudes of the near
/// distance may fall on either side of the detector's near plane, which it evaluates in model
/// space with its own rounding.
constexpr double kNearPlaneSlack = 1e-12;

/// Calls project(v) for every vertex. Each vertex writes only its own entries, so the result
/// does not depend on the threads.
template <class Project>
void ForEachVertex(std::size_t count, int threads, Project&& project) {
    if (threads <= 1 || count <= kVertexBlock) {
        for (std::size_t v = 0; v < count; ++v)
            project(v);
        return;
    }
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, kVertexBlock),
                      [&](const tbb::blocked_range<std::size_t>& vertices) {
                          for (std::size_t v = vertices.begin(); v != vertices.end(); ++v)
                              project(v);
                      });
}

point3d FloatCoordinates(const MStlPoint& p) {
    return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
}

point3d DoubleCoordinates(const MStlPoint& p) {
    return {double(p[0]), double(p[1]), double(p[2])};
}

// The z-buffer's pixels at pixel corner (0, 0), from the float coordinates it reads.
ProjectedVertices ZBufferVertices(const SessionMesh& m, const SessionSettings& settings,
                                  int threads) {
    MMTransformMatrix modelView = m.view;
    modelView.PostMultiply(m.placement);
    const double scale = settings.pixelProportion;
    const MMTransformMatrix toPixels =
        FindModelToCameraViewTransformation(modelView, scale, VelSDK::Math::point2i{0, 0});
    const std::size_t count = m.mesh->GetNumberOfPoints();
    ProjectedVertices out{std::vector<point2d>(count), {}};
    if (settings.perspective)
        out.nearSide.assign(count, ProjectedVertices::kInFront);
    ForEachVertex(count, threads, [&](std::size_t v) {
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
            out.nearSide[v] = ProjectedVertices::kBehind;
            return;
        }
        out.pixels[v] = {(camera.cx + camera.fx * eye.x / depth) * scale + 0.5,
                         (camera.cy + camera.fy * eye.y / depth) * scale + 0.5};
    });
    return out;
}

// The detector's downward pixels, with its own matrix product and arithmetic: an uncut
// triangle's bounds are exactly those it culls with.
ProjectedVertices DetectorVertices(const SessionMesh& m, const SessionSettings& settings,
                                   int threads) {
    const MMTransformMatrix toScreen = DetectorModelToScreen(m, settings);
    const std::size_t count = m.mesh->GetNumberOfPoints();
    ProjectedVertices out{std::vector<point2d>(count), {}};
    if (!settings.perspective) {
        ForEachVertex(count, threads, [&](std::size_t v) {
            const point3d pixel = toScreen.TransformPoint(DoubleCoordinates(m.mesh->GetPoint(v)));
            out.pixels[v] = {pixel.x, pixel.y};
        });
        return out;
    }
    const PerspectiveProjection camera =
        DetectorProjection(*settings.perspective, settings.pixelProportion);
    out.nearSide.assign(count, ProjectedVertices::kInFront);
    ForEachVertex(count, threads, [&](std::size_t v) {
        const point3d p = DoubleCoordinates(m.mesh->GetPoint(v));
        const point3d eye = toScreen.TransformPoint(p);
        const double depth = -eye.z;
        const double slack =
            kNearPlaneSlack *
            (std::fabs(toScreen.Get(2, 0) * p.x) + std::fabs(toScreen.Get(2, 1) * p.y) +
             std::fabs(toScreen.Get(2, 2) * p.z) + std::fabs(toScreen.Get(2, 3)) +
             camera.nearDistance);
        if (depth < camera.nearDistance + slack) {
            out.nearSide[v] = depth < camera.nearDistance - slack ? ProjectedVertices::kBehind
                                                                  : ProjectedVertices::kOnNear;
            return;
        }
        out.pixels[v] = {camera.cx + camera.fx * eye.x / depth,
                         camera.cy + camera.fy * eye.y / depth};
    });
    return out;
}

}  // namespace

ProjectedVertices ProjectVertices(const SessionMesh& m, const SessionSettings& settings,
                                  int threads) {
    return settings.picker == SessionPicker::kScanLine ? DetectorVertices(m, settings, threads)
                                                       : ZBufferVertices(m, settings, threads);
}

Footprint TriangleFootprint(const MStlTriangle& t, const ProjectedVertices& vertices,
                            PixelBounds& b) {
    const std::uint32_t corners[3] = {t.GetPointIndex(0), t.GetPointIndex(1), t.GetPointIndex(2)};
    if (!vertices.nearSide.empty()) {
        const auto side = [&](int k) { return vertices.nearSide[corners[k]]; };
        if (side(0) == ProjectedVertices::kBehind && side(1) == ProjectedVertices::kBehind &&
            side(2) == ProjectedVertices::kBehind)
            return Footprint::kNowhere;
        if (side(0) != ProjectedVertices::kInFront || side(1) != ProjectedVertices::kInFront ||
            side(2) != ProjectedVertices::kInFront)
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

MMTransformMatrix DetectorModelToScreen(const SessionMesh& m, const SessionSettings& settings) {
    MMTransformMatrix toScreen = m.placement;
    toScreen.PreMultiply(m.view);
    if (settings.perspective)
        return toScreen;
    MMTransformMatrix scale, mirror;
    scale.MakeScale1D(settings.pixelProportion);
    mirror.MakeScale3D(1.0, -1.0, 1.0);
    return toScreen.PreMultiply(scale.PreMultiply(mirror));
}

PerspectiveProjection DetectorProjection(const PerspectiveProjection& projection,
                                         double pixelProportion) {
    const double p = pixelProportion;
    return {p * projection.fx, -(p * projection.fy), p * projection.cx, -(p * projection.cy),
            projection.nearDistance};
}

}  // namespace AU_MarkOperations::PolygonMarking
