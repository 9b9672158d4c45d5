#pragma once

// A brute-force picking oracle: every triangle projected into the pixel frame of a selection
// region (pixel centres at half-integers, z = depth, larger nearer), and viewing rays cast
// through pixel centres against all of them. Independent of the rasterizer: exact
// point-in-triangle tests and plane depths, no spans, no buffers.

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_triangle.h>
#include <velpick/host/transform_matrix.h>

namespace oracle {

using VelSDK::Math::point3d;

struct Projected {
    MStlTriangle* triangle;
    point3d p[3];
    double minX, maxX, minY, maxY;
    const MMTransformMatrix* modelToPixel;
    std::optional<MMPlaneEq<double>> clip;  // model space, kept side ≥ 0
};

struct Hit {
    MStlTriangle* triangle;
    double z;
};

/// Barycentric weights of (x, y); infinite or NaN when the triangle is seen edge-on.
inline void Weights(const Projected& t, double x, double y, double w[3]) {
    const point3d &a = t.p[0], &b = t.p[1], &c = t.p[2];
    const double area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
    w[0] = ((b.x - x) * (c.y - y) - (c.x - x) * (b.y - y)) / area;
    w[1] = ((c.x - x) * (a.y - y) - (a.x - x) * (c.y - y)) / area;
    w[2] = 1.0 - w[0] - w[1];
}

/// Depth of the triangle's plane at (x, y), inside the triangle or not; NaN when edge-on.
inline double PlaneDepth(const Projected& t, double x, double y) {
    double w[3];
    Weights(t, x, y, w);
    return w[0] * t.p[0].z + w[1] * t.p[1].z + w[2] * t.p[2].z;
}

/// The plane depth when (x, y) lies in the closed triangle; nothing otherwise or edge-on.
inline std::optional<double> DepthInside(const Projected& t, double x, double y) {
    double w[3];
    Weights(t, x, y, w);
    if (!std::isfinite(w[0]) || !std::isfinite(w[1]) || w[0] < 0 || w[1] < 0 || w[2] < 0)
        return std::nullopt;
    return w[0] * t.p[0].z + w[1] * t.p[1].z + w[2] * t.p[2].z;
}

inline double SegmentDistance(double x, double y, const point3d& p, const point3d& q) {
    const double dx = q.x - p.x, dy = q.y - p.y, len2 = dx * dx + dy * dy;
    const double s =
        len2 > 0.0 ? std::clamp(((x - p.x) * dx + (y - p.y) * dy) / len2, 0.0, 1.0) : 0.0;
    return std::hypot(x - (p.x + s * dx), y - (p.y + s * dy));
}

/// 2D distance from (x, y) to the projected triangle (0 inside).
inline double Distance(const Projected& t, double x, double y) {
    if (DepthInside(t, x, y))
        return 0.0;
    return std::min({SegmentDistance(x, y, t.p[0], t.p[1]), SegmentDistance(x, y, t.p[1], t.p[2]),
                     SegmentDistance(x, y, t.p[2], t.p[0])});
}

/// How fast the triangle's depth changes per pixel across the screen.
inline double DepthSlope(const Projected& t) {
    const double z0 = PlaneDepth(t, 0.0, 0.0);
    return std::hypot(PlaneDepth(t, 1.0, 0.0) - z0, PlaneDepth(t, 0.0, 1.0) - z0);
}

class RayCastOracle {
  public:
    /// Projects the triangles of `mesh` that `drawn` accepts (all visible ones by default).
    /// With `clip`, only the part of each triangle on the plane's kept side is hit by rays.
    void AddMesh(MStlBase& mesh, const MMTransformMatrix& modelToPixel,
                 std::function<bool(const MStlTriangle&)> drawn = {},
                 std::optional<MMPlaneEq<double>> clip = std::nullopt) {
        m_transforms.push_back(std::make_unique<MMTransformMatrix>(modelToPixel));
        for (MStlTriangle& triangle : mesh.Triangles()) {
            if (!triangle.IsVisible() || (drawn && !drawn(triangle)))
                continue;
            Projected t{&triangle, {}, 0, 0, 0, 0, m_transforms.back().get(), clip};
            for (int i = 0; i < 3; ++i)
                modelToPixel.Transform(t.p[i], triangle.GetVertex(i), false);
            std::tie(t.minX, t.maxX) = std::minmax({t.p[0].x, t.p[1].x, t.p[2].x});
            std::tie(t.minY, t.maxY) = std::minmax({t.p[0].y, t.p[1].y, t.p[2].y});
            m_triangles.push_back(t);
        }
    }

    /// Every drawn triangle the viewing ray through (x, y) hits on a kept side.
    std::vector<Hit> AllHits(double x, double y) const {
        std::vector<Hit> hits;
        for (const Projected& t : m_triangles) {
            if (x < t.minX || x > t.maxX || y < t.minY || y > t.maxY)
                continue;
            const std::optional<double> z = DepthInside(t, x, y);
            if (z && Kept(t, x, y, *z))
                hits.push_back({t.triangle, *z});
        }
        return hits;
    }

    /// The nearest hit, if any.
    std::optional<Hit> FirstHit(double x, double y) const {
        std::optional<Hit> best;
        for (const Hit& hit : AllHits(x, y))
            if (!best || hit.z > best->z)
                best = hit;
        return best;
    }

    /// The projection of a drawn triangle, or null.
    const Projected* Find(const MStlTriangle* triangle) const {
        for (const Projected& t : m_triangles)
            if (t.triangle == triangle)
                return &t;
        return nullptr;
    }

  private:
    static bool Kept(const Projected& t, double x, double y, double z) {
        point3d model;
        if (t.clip)
            t.modelToPixel->InverseTransform(model, point3d{x, y, z}, false);
        return !t.clip || t.clip->SignedValue(model) >= 0.0;
    }

    std::vector<std::unique_ptr<MMTransformMatrix>> m_transforms;
    std::vector<Projected> m_triangles;
};

/// A selection region in the grid frame (cell (c, r) sampled at (c + 0.5, r + 0.5)):
/// Margin > 0 inside, < 0 outside, |Margin| the distance to the boundary.
using RegionMargin = std::function<double(double x, double y)>;

/// Even-odd test of (x, y) against a closed polygon: a ray towards +x crosses its sides an
/// odd number of times.
inline bool InsideEvenOdd(const std::vector<VelSDK::Math::point2d>& polygon, double x, double y) {
    bool inside = false;
    for (std::size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
        const auto &a = polygon[i], &b = polygon[j];
        if ((a.y > y) != (b.y > y) && x < (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x)
            inside = !inside;
    }
    return inside;
}

/// The even-odd interior of a closed pixel polygon.
inline RegionMargin PolygonRegion(std::vector<VelSDK::Math::point2d> polygon) {
    return [polygon](double x, double y) {
        double distance = std::numeric_limits<double>::max();
        for (std::size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
            const auto &a = polygon[i], &b = polygon[j];
            distance = std::min(distance, SegmentDistance(x, y, {a.x, a.y, 0}, {b.x, b.y, 0}));
        }
        return InsideEvenOdd(polygon, x, y) ? distance : -distance;
    };
}

/// Everything within `radius` of an open pixel path.
inline RegionMargin BrushRegion(std::vector<VelSDK::Math::point2d> path, double radius) {
    return [path, radius](double x, double y) {
        double distance = std::numeric_limits<double>::max();
        for (std::size_t i = 0; i < path.size(); ++i) {
            const auto &a = path[i], &b = path[std::min(i + 1, path.size() - 1)];
            distance = std::min(distance, SegmentDistance(x, y, {a.x, a.y, 0}, {b.x, b.y, 0}));
        }
        return radius - distance;
    };
}

}  // namespace oracle
