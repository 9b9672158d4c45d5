// The z-buffer picker under a perspective projection, against a brute-force ray cast from the
// eye through every region pixel centre (first hit), and against what lies behind the eye and
// which faces it sees.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/mark_polygon.h>
#include <velpick/pinhole_projection.h>
#include "support/scene_builders.h"

using AU_MarkOperations::PolygonMarking::PerspectiveProjection;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

constexpr double kPixelsPerUnit = 1.0;  // screen units are pixels
constexpr int kView = 200;              // the view is kView × kView pixels about (0, 0)
constexpr double kNear = 50.0;          // internal units
constexpr double kRateSlack = 0.01;     // miss rates compared to within one percent
constexpr double kExtraSlack = 0.02;    // rates of marks the ray cast does not see, two percent

class Collect : public IStlMarkTriangles {
  public:
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override { marked.insert(t.GetMaskIndex()); }
    void Unmark(MStlTriangle&) override {}
    std::set<std::size_t> marked;
};

/// Eye space from model space: the eye at `eye` looking at `target`, y up.
MMTransformMatrix LookAt(point3d eye, point3d target) {
    MMTransformMatrix shift, turn;
    shift.MakeTranslation({-eye.x, -eye.y, -eye.z});
    const point3d back{eye.x - target.x, eye.y - target.y, eye.z - target.z};
    turn.MakeRotationInPlane(back, {0, 0, 1}, {0, 0, 0});
    turn.PostMultiply(shift);
    return turn;
}

/// A full-view projection of vertical field of view `fovDegrees`.
PerspectiveProjection Camera(double fovDegrees) {
    const double f = 0.5 * kView / std::tan(fovDegrees * std::acos(-1.0) / 360.0);
    return {f, f, 0.0, 0.0, kNear};
}

std::vector<point2d> FullView() {
    const double h = 0.5 * kView;
    return {{-h, -h}, {h, -h}, {h, h}, {-h, h}};
}

std::set<std::size_t> Pick(MStlBase& mesh, const MMTransformMatrix& view,
                           const std::optional<PerspectiveProjection>& camera, bool culling,
                           const std::vector<point2d>& region = FullView()) {
    Collect sink;
    MStlBaseOperatorMarkPolygon picker(kPixelsPerUnit, 0.05, false, 1000.0);
    picker.AddStl(&mesh, &view, nullptr, true, &sink);
    if (camera)
        picker.SetPerspective(*camera);
    picker.SetPolygon(region);
    picker.SetBackFaceCulling(culling);
    EXPECT_TRUE(picker.operate());
    return sink.marked;
}

point3d Sub(point3d a, point3d b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
point3d Cross(point3d a, point3d b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double Dot(point3d a, point3d b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// Distance along the ray origin + t·dir (t > 0) to the triangle, if it is hit.
std::optional<double> RayHit(point3d origin, point3d dir, const point3d v[3]) {
    const point3d e1 = Sub(v[1], v[0]), e2 = Sub(v[2], v[0]), p = Cross(dir, e2);
    const double det = Dot(e1, p);
    if (det == 0.0)
        return std::nullopt;
    const point3d s = Sub(origin, v[0]);
    const double u = Dot(s, p) / det;
    const point3d q = Cross(s, e1);
    const double w = Dot(dir, q) / det, t = Dot(e2, q) / det;
    if (u < 0 || w < 0 || u + w > 1 || t <= 0)
        return std::nullopt;
    return t;
}

/// Per triangle, how many pixel centres of the view (one pixel in from its border) see it
/// first: rays from the eye in perspective, along −z in eye space otherwise. Points nearer
/// than the near plane are not seen.
std::vector<int> RayCastHits(MStlBase& mesh, const MMTransformMatrix& view,
                             const std::optional<PerspectiveProjection>& camera) {
    std::vector<std::array<point3d, 3>> eyeSpace;
    for (MStlTriangle& t : mesh.Triangles()) {
        std::array<point3d, 3> v;
        for (std::size_t k = 0; k < 3; ++k)
            view.Transform(v[k], t.GetVertex(k), false);
        eyeSpace.push_back(v);
    }
    std::vector<int> hits(eyeSpace.size(), 0);
    for (int row = 1; row < kView - 1; ++row)
        for (int column = 1; column < kView - 1; ++column) {
            const double sx = column + 0.5 - 0.5 * kView, sy = row + 0.5 - 0.5 * kView;
            point3d origin{0, 0, 0}, dir{0, 0, -1};
            if (camera)
                dir = {(sx - camera->cx) / camera->fx, (sy - camera->cy) / camera->fy, -1.0};
            else
                origin = {sx, sy, 1e9};
            double nearest = INFINITY;
            std::size_t first = SIZE_MAX;
            for (std::size_t i = 0; i < eyeSpace.size(); ++i) {
                const std::optional<double> t = RayHit(origin, dir, eyeSpace[i].data());
                if (!t)
                    continue;
                const double depth = -(origin.z + *t * dir.z);
                if (camera && depth < kNear)
                    continue;
                if (*t < nearest) {
                    nearest = *t;
                    first = i;
                }
            }
            if (first != SIZE_MAX)
                ++hits[first];
        }
    return hits;
}

/// Triangles the ray cast sees and how many of them are missed; triangles marked and how many
/// of them the ray cast does not see.
struct Score {
    double seen = 0, missed = 0, marked = 0, unseenMarked = 0;
};

Score Compare(const std::vector<int>& hits, const std::set<std::size_t>& marked) {
    Score s;
    for (std::size_t i = 0; i < hits.size(); ++i) {
        s.seen += hits[i] > 0;
        s.missed += hits[i] > 0 && !marked.count(i);
        s.marked += marked.count(i);
        s.unseenMarked += hits[i] == 0 && marked.count(i);
    }
    return s;
}

// A sphere and a torus half hiding it: the perspective pick misses no more of what the ray
// cast sees than the orthographic pick of the same scene (in eye space, scaled so that the
// scene fills the view alike) misses of its own ray cast.
TEST(PerspectivePick, MissesNoMoreThanTheOrthographicPickAgainstTheRayCast) {
    auto mesh = scene::oneSurface([](MStlSurface& s) {
        scene::addUvSphere(s, {0, 0, 0}, 3000, 20, 40);
        scene::addUvSphere(s, {1800, -900, 2600}, 1300, 12, 24);
    });
    const MMTransformMatrix eye = LookAt({1500, 2500, 14000}, {0, 0, 0});
    const auto camera = Camera(60.0);
    const Score perspective =
        Compare(RayCastHits(*mesh, eye, camera), Pick(*mesh, eye, camera, false));

    MMTransformMatrix orthographic, scale;
    scale.MakeScale3D(0.017, 0.017, 1.0);
    orthographic = eye;
    orthographic.PreMultiply(scale);
    const Score flat = Compare(RayCastHits(*mesh, orthographic, std::nullopt),
                               Pick(*mesh, orthographic, std::nullopt, false));
    // Miss rates and rates of marked triangles the ray cast does not see (tolerance and
    // silhouette slivers), each per triangle seen or marked.
    EXPECT_GT(perspective.seen, 300);
    EXPECT_LE(perspective.missed / perspective.seen, flat.missed / flat.seen + kRateSlack);
    EXPECT_LE(perspective.unseenMarked / perspective.marked,
              flat.unseenMarked / flat.marked + kExtraSlack);
}

// A long floor from just past the near plane to far away, and small boxes floating just above
// it far off: only what the ray cast sees is marked. Depth interpolated linearly on the screen
// puts the far floor in front of the boxes.
TEST(PerspectivePick, FloorAndFarBoxesMarkWhatTheRayCastSees) {
    auto mesh = scene::oneSurface([](MStlSurface& s) {
        scene::addQuad(s, {-40000, -1000, -200}, {80000, 0, 0}, {0, 0, -200000});
        for (int k = -2; k <= 2; ++k)
            scene::addCube(s, {k * 4000.0, 0, -80000}, 900, 2);
    });
    const MMTransformMatrix eye = LookAt({0, 3000, 0}, {0, -1000, -80000});
    const auto camera = Camera(40.0);
    const std::vector<int> hits = RayCastHits(*mesh, eye, camera);
    const std::set<std::size_t> marked = Pick(*mesh, eye, camera, false);
    for (std::size_t i = 0; i < hits.size(); ++i) {
        if (hits[i] >= 2) {
            EXPECT_TRUE(marked.count(i)) << "seen triangle " << i << " not marked";
        }
    }
    // The boxes' far faces lie a box width behind their front: never within the tolerance.
    std::size_t index = 0;
    for (MStlTriangle& t : mesh->Triangles()) {
        const point3d a = t.GetVertex(0), b = t.GetVertex(1), c = t.GetVertex(2);
        if (Cross(Sub(b, a), Sub(c, a)).z < 0) {
            EXPECT_FALSE(marked.count(index)) << "far face " << index << " marked";
        }
        ++index;
    }
}

// The eye inside a closed room: only what lies in front of the near plane is marked, and the
// walls around the eye, which cross the near plane, are cut rather than dropped.
TEST(PerspectivePick, NothingBehindTheEyeAndWallsAcrossTheNearPlaneCut) {
    auto room = scene::cube({0, 0, 0}, 3000, 1);  // each wall two triangles
    const MMTransformMatrix eye = LookAt({0, 0, 0}, {0.2, 0.1, -1});
    const auto camera = Camera(100.0);
    const std::set<std::size_t> marked = Pick(*room, eye, camera, false);
    const std::vector<int> hits = RayCastHits(*room, eye, camera);
    std::size_t index = 0;
    for (MStlTriangle& t : room->Triangles()) {
        double nearest = -INFINITY;  // the largest −z over the corners
        for (std::size_t k = 0; k < 3; ++k) {
            point3d v;
            eye.Transform(v, t.GetVertex(k), false);
            nearest = std::max(nearest, -v.z);
        }
        if (nearest < kNear) {
            EXPECT_FALSE(marked.count(index)) << "triangle " << index << " behind the eye";
        }
        EXPECT_EQ(marked.count(index) == 1, hits[index] > 0) << "triangle " << index;
        ++index;
    }
    EXPECT_GE(marked.size(), 5u);  // the far wall and the four walls across the near plane
}

// Seen from near a corner, a cube shows exactly the three faces whose planes the eye is in
// front of; culling keeps those and drops the others, whatever the lasso covers.
TEST(PerspectivePick, CullingFromNearACornerKeepsTheFacesTheEyeIsInFrontOf) {
    constexpr double kHalf = 1000;
    auto cube = scene::cube({0, 0, 0}, kHalf, 3);
    const point3d eyeAt{1300, 1200, 1500};
    const MMTransformMatrix eye = LookAt(eyeAt, {0, 0, 0});
    const std::set<std::size_t> marked = Pick(*cube, eye, Camera(120.0), true);
    std::size_t index = 0;
    for (MStlTriangle& t : cube->Triangles()) {
        const point3d a = t.GetVertex(0), b = t.GetVertex(1), c = t.GetVertex(2);
        const bool eyeInFront = Dot(Cross(Sub(b, a), Sub(c, a)), Sub(eyeAt, a)) > 0;
        EXPECT_EQ(marked.count(index) == 1, eyeInFront) << "triangle " << index;
        ++index;
    }
}

}  // namespace
