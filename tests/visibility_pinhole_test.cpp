// The scan-line detector under a pinhole, against a brute-force ray cast from the eye through
// every pixel centre of the view (first hit), against what lies behind the eye, and from near a
// cube's corner.

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/visibility_detector.h>
#include "support/scene_builders.h"

using AU_MarkOperations::PolygonMarking::PerspectiveProjection;
using Rule = MStlBaseOperatorVisibilityDetector::VisibilityRule;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

constexpr int kView = 160;       // pixels; the screen runs y down, as the detector's hosts do
constexpr double kNear = 100.0;  // internal units

point3d Sub(point3d a, point3d b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
point3d Cross(point3d a, point3d b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double Dot(point3d a, point3d b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// Eye space from model space: the eye at `eye` looking at `target`.
MMTransformMatrix LookAt(point3d eye, point3d target) {
    MMTransformMatrix shift, turn;
    shift.MakeTranslation({-eye.x, -eye.y, -eye.z});
    turn.MakeRotationInPlane(Sub(eye, target), {0, 0, 1}, {0, 0, 0});
    return turn.PostMultiply(shift);
}

PerspectiveProjection Camera(double fovDegrees) {
    const double f = 0.5 * kView / std::tan(fovDegrees * std::acos(-1.0) / 360.0);
    return {f, -f, 0.5 * kView, 0.5 * kView, kNear};
}

struct Scene {
    std::unique_ptr<MStlBase> mesh;
    MMTransformMatrix eye;
    PerspectiveProjection camera;
    bool markFlipped;   // the room is seen from inside
    double extraShare;  // marks the ray cast misses, per triangle it sees: slivers of far solids
    int hiddenFrom = 1 << 30;  // triangles from this index on lie wholly hidden
};

/// Per triangle (in mesh order), the pixel centres that see it first. Möller–Trumbore in eye
/// space; hits nearer than the near plane do not count.
std::vector<int> RayCast(const Scene& scene) {
    std::vector<std::array<point3d, 3>> eyeSpace;
    for (MStlTriangle& t : scene.mesh->Triangles()) {
        auto& v = eyeSpace.emplace_back();
        for (std::size_t k = 0; k < 3; ++k)
            scene.eye.Transform(v[k], t.GetVertex(k), false);
    }
    std::vector<int> hits(eyeSpace.size(), 0);
    const PerspectiveProjection& c = scene.camera;
    for (int row = 0; row < kView; ++row)
        for (int column = 0; column < kView; ++column) {
            const point3d dir{(column + 0.5 - c.cx) / c.fx, (row + 0.5 - c.cy) / c.fy, -1.0};
            double nearest = INFINITY;
            std::optional<std::size_t> first;
            for (std::size_t i = 0; i < eyeSpace.size(); ++i) {
                const auto& v = eyeSpace[i];
                const point3d e1 = Sub(v[1], v[0]), e2 = Sub(v[2], v[0]), p = Cross(dir, e2);
                const double det = Dot(e1, p);
                const point3d s = Sub({0, 0, 0}, v[0]), q = Cross(s, e1);
                const double u = Dot(s, p) / det, w = Dot(dir, q) / det, t = Dot(e2, q) / det;
                if (det != 0 && u >= 0 && w >= 0 && u + w <= 1 && t >= kNear && t < nearest) {
                    nearest = t;  // dir has unit depth: t is the depth
                    first = i;
                }
            }
            if (first)
                ++hits[*first];
        }
    return hits;
}

std::vector<bool> Pick(const Scene& scene, Rule rule, double depthTolerance = 1.0) {
    MStlMarkTrianglesByMasks sink(*scene.mesh);
    MStlBaseOperatorVisibilityDetector detector;
    detector.AddStlAndTransformation(scene.mesh.get(), scene.eye, MMTransformMatrix(), true, &sink);
    detector.SetPerspective(scene.camera);
    detector.SetRule(rule);
    detector.SetDepthTolerance(depthTolerance);
    detector.SetMarkFlippedTriangles(scene.markFlipped);
    detector.SetPath({{0, 0}, {kView, 0}, {kView, kView}, {0, kView}});
    detector.Operate();
    std::vector<bool> marked;
    for (MStlTriangle& t : scene.mesh->Triangles())
        marked.push_back(sink.IsMarked(t));
    return marked;
}

/// Depth of a model point in front of the eye.
double Depth(const Scene& scene, point3d p) {
    point3d e;
    scene.eye.Transform(e, p, false);
    return -e.z;
}

// Every triangle the ray cast sees first is marked, by both rules; what is marked beyond it is
// what lies between pixel centres. On the floor scene
// (a floor from the near plane to far away, small solids on it and under it far off) depth
// interpolated linearly on the screen puts the floor behind the solids under it; in the room around
// the eye, walls across the near plane are cut, not dropped, and nothing nearer than the plane is
// marked.
TEST(PinholeDetector, MarksWhatTheRayCastSeesFirstAndNothingBehindTheEye) {
    std::vector<Scene> scenes;
    scenes.push_back({scene::oneSurface([](MStlSurface& s) {
                          scene::addUvSphere(s, {0, 0, 0}, 3000, 16, 32);
                          scene::addUvSphere(s, {1800, -900, 2600}, 1300, 10, 20);
                      }),
                      LookAt({1500, 2500, 14000}, {0, 0, 0}), Camera(60), false, 0.1});
    scenes.push_back({scene::oneSurface([](MStlSurface& s) {
                          scene::addQuad(s, {-40000, -1000, 0}, {80000, 0, 0}, {0, 0, -200000});
                          for (int k = -2; k <= 2; ++k)
                              scene::addUvSphere(s, {k * 4000.0, 0, -80000}, 900, 2, 4);
                          for (int k = -2; k <= 2; ++k)
                              scene::addUvSphere(s, {k * 4000.0 + 2000, -2000, -70000}, 900, 2, 4);
                      }),
                      LookAt({0, 3000, 0}, {0, -1000, -80000}), Camera(40), false, 0.5, 42});
    scenes.push_back({scene::cube({0, 0, 0}, 3000, 2), LookAt({0, 0, 0}, {0.2, 0.1, -1}),
                      Camera(100), true, 0.0});
    for (const Scene& scene : scenes) {
        const std::vector<int> hits = RayCast(scene);
        for (Rule rule : {Rule::Ordered, Rule::Nearest}) {
            const std::vector<bool> marked = Pick(scene, rule);
            // The ordered rule compares crossing pieces at one point: it may lose a triangle
            // that a single pixel centre sees.
            const int certain = rule == Rule::Ordered ? 2 : 1;
            int seen = 0, unseenMarked = 0, index = 0;
            for (MStlTriangle& t : scene.mesh->Triangles()) {
                seen += hits[index] > 0;
                unseenMarked += marked[index] && hits[index] == 0;
                EXPECT_TRUE(marked[index] || hits[index] < certain) << "seen triangle " << index;
                const double farthest =
                    std::max({Depth(scene, t.GetVertex(0)), Depth(scene, t.GetVertex(1)),
                              Depth(scene, t.GetVertex(2))});
                EXPECT_FALSE(marked[index] && farthest < kNear) << "behind the eye " << index;
                EXPECT_FALSE(marked[index] && index >= scene.hiddenFrom) << "hidden " << index;
                ++index;
            }
            EXPECT_GT(seen, 5);
            EXPECT_LE(unseenMarked, seen * scene.extraShare);
        }
    }
}

// From near a corner, with flipped pieces left unmarked, a cube shows exactly the faces whose
// front the eye is on.
TEST(PinholeDetector, FlippedRuleFromNearACornerKeepsTheFacesTheEyeIsInFrontOf) {
    const point3d eyeAt{1300, 1200, 1500};
    const Scene cube{scene::cube({0, 0, 0}, 1000, 3), LookAt(eyeAt, {0, 0, 0}), Camera(120), false,
                     0.0};
    const std::vector<bool> marked = Pick(cube, Rule::Ordered);
    int index = 0;
    for (MStlTriangle& t : cube.mesh->Triangles()) {
        const point3d a = t.GetVertex(0), b = t.GetVertex(1), c = t.GetVertex(2);
        EXPECT_EQ(marked[index], Dot(Cross(Sub(b, a), Sub(c, a)), Sub(eyeAt, a)) > 0) << index;
        ++index;
    }
}

// The nearest rule's tolerance is a depth along the viewing axis: a plate 50 units behind
// another, wholly hidden by it, is marked with a tolerance above 50 and not below.
TEST(PinholeDetector, DepthToleranceIsADistanceAlongTheViewingAxis) {
    const Scene plates{scene::oneSurface([](MStlSurface& s) {
                           scene::addPlateWithHole(s, 1000, 0, 0, 2);
                           scene::addPlateWithHole(s, 1000, 0, -50, 2);
                       }),
                       LookAt({0, 0, 5000}, {0, 0, 0}), Camera(60), false, 0.0};
    for (const double tolerance : {40.0, 60.0}) {
        const std::vector<bool> marked = Pick(plates, Rule::Nearest, tolerance);
        for (int index = 0; index < 16; ++index)
            EXPECT_EQ(marked[index], index < 8 || tolerance > 50) << tolerance << " " << index;
    }
}

}  // namespace
