#pragma once

// A brute-force oracle for the pickers under a pinhole: rays from the eye through pixel centres,
// first hit beyond the near plane (Möller–Trumbore in eye space), and the scenes both the
// z-buffer and the scan-line picker are held to with it.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/pinhole_projection.h>
#include "support/scene_builders.h"

namespace pinhole {

using AU_MarkOperations::PolygonMarking::PerspectiveProjection;
using VelSDK::Math::point3d;

constexpr double kNear = 100.0;  // internal units

inline point3d Sub(point3d a, point3d b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline point3d Cross(point3d a, point3d b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double Dot(point3d a, point3d b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// Eye space from model space: the eye at `eye` looking at `target`.
inline MMTransformMatrix LookAt(point3d eye, point3d target) {
    MMTransformMatrix shift, turn;
    shift.MakeTranslation({-eye.x, -eye.y, -eye.z});
    turn.MakeRotationInPlane(Sub(eye, target), {0, 0, 1}, {0, 0, 0});
    return turn.PostMultiply(shift);
}

/// A camera of vertical field of view `fovDegrees` over a square view `size` pixels wide, its
/// principal point at (centre, centre); y runs down the screen when `yDown`.
inline PerspectiveProjection Camera(double fovDegrees, double size, double centre, bool yDown) {
    const double f = 0.5 * size / std::tan(fovDegrees * std::acos(-1.0) / 360.0);
    return {f, yDown ? -f : f, centre, centre, kNear};
}

/// Per triangle (mesh order), how many pixel centres (x + 0.5, y + 0.5), x and y in [from, to),
/// see it first. Under `camera`, rays from the eye, hits nearer than its near plane not
/// counted; without one, `view` maps to the screen and rays run along −z.
inline std::vector<int> RayCastHits(MStlBase& mesh, const MMTransformMatrix& view,
                                    const std::optional<PerspectiveProjection>& camera, int from,
                                    int to) {
    std::vector<std::array<point3d, 3>> eyeSpace;
    for (MStlTriangle& t : mesh.Triangles()) {
        auto& v = eyeSpace.emplace_back();
        for (std::size_t k = 0; k < 3; ++k)
            v[k] = view.TransformPoint(t.GetVertex(k));
    }
    std::vector<int> hits(eyeSpace.size(), 0);
    for (double y = from + 0.5; y < to; ++y)
        for (double x = from + 0.5; x < to; ++x) {
            const point3d origin = camera ? point3d{0, 0, 0} : point3d{x, y, 1e9};
            const point3d dir =  // of unit depth: under the camera t is the depth
                camera ? point3d{(x - camera->cx) / camera->fx, (y - camera->cy) / camera->fy, -1}
                       : point3d{0, 0, -1};
            double nearest = INFINITY;
            std::optional<std::size_t> first;
            for (std::size_t i = 0; i < eyeSpace.size(); ++i) {
                const auto& v = eyeSpace[i];
                const point3d e1 = Sub(v[1], v[0]), e2 = Sub(v[2], v[0]), p = Cross(dir, e2);
                const point3d s = Sub(origin, v[0]), q = Cross(s, e1);
                const double det = Dot(e1, p), u = Dot(s, p) / det, w = Dot(dir, q) / det;
                const double t = Dot(e2, q) / det;
                const bool beyondNear = camera ? t >= camera->nearDistance : t > 0;
                if (det != 0 && u >= 0 && w >= 0 && u + w <= 1 && beyondNear && t < nearest) {
                    nearest = t;
                    first = i;
                }
            }
            if (first)
                ++hits[*first];
        }
    return hits;
}

inline std::vector<bool> Marks(MStlBase& mesh, const IStlMarkTriangles& sink) {
    std::vector<bool> marked;
    for (MStlTriangle& t : mesh.Triangles())
        marked.push_back(sink.IsMarked(t));
    return marked;
}

/// A mesh seen through a pinhole, and how far a pick of it may stray from the ray cast.
struct Scene {
    std::unique_ptr<MStlBase> mesh;
    MMTransformMatrix eye;
    double fovDegrees;
    double unseenShare;        // marks the ray cast does not see, per triangle it sees
    bool fromInside = false;   // seen from inside a closed mesh
    int hiddenFrom = 1 << 30;  // triangles from this index on lie wholly hidden
};

/// A sphere and a smaller one half hiding it.
inline Scene Spheres() {
    return {scene::oneSurface([](MStlSurface& s) {
                scene::addUvSphere(s, {0, 0, 0}, 3000, 16, 32);
                scene::addUvSphere(s, {1800, -900, 2600}, 1300, 10, 20);
            }),
            LookAt({1500, 2500, 14000}, {0, 0, 0}), 60, 0.1};
}

/// A floor from across the near plane to far away, cubes just above it far off and cubes just
/// under it, hidden. Depth interpolated linearly on the screen misplaces the far floor. The
/// z-buffer marks the cubes' faces of a pixel or two along their silhouettes.
inline Scene Floor() {
    Scene floor{scene::oneSurface([](MStlSurface& s) {
                    scene::addQuad(s, {-40000, -1000, 0}, {80000, 0, 0}, {0, 0, -200000});
                    for (int k = -2; k <= 2; ++k)
                        scene::addCube(s, {k * 4000.0, 0, -80000}, 900, 1);
                    for (int k = -2; k <= 2; ++k)
                        scene::addCube(s, {k * 4000.0 + 2000, -2000, -70000}, 900, 1);
                }),
                LookAt({0, 3000, 0}, {0, -1000, -80000}), 40, 1.5};
    floor.hiddenFrom = 2 + 5 * 12;
    return floor;
}

/// The eye inside a closed room: the walls around it cross the near plane.
inline Scene Room() {
    return {scene::cube({0, 0, 0}, 3000, 2), LookAt({0, 0, 0}, {0.2, 0.1, -1}), 100, 0.0, true};
}

/// A cube seen from near a corner, at `kCornerEye`.
inline const point3d kCornerEye{1300, 1200, 1500};
inline Scene CornerCube() {
    return {scene::cube({0, 0, 0}, 1000, 3), LookAt(kCornerEye, {0, 0, 0}), 120, 0.0};
}

/// Per triangle of `mesh`, whether `eye` lies in front of its plane.
inline std::vector<bool> FacingEye(MStlBase& mesh, point3d eye) {
    std::vector<bool> facing;
    for (MStlTriangle& t : mesh.Triangles()) {
        const point3d a = t.GetVertex(0), b = t.GetVertex(1), c = t.GetVertex(2);
        facing.push_back(Dot(Cross(Sub(b, a), Sub(c, a)), Sub(eye, a)) > 0);
    }
    return facing;
}

/// Holds a pick's marks (mesh order) against the ray cast's first hits: every triangle that
/// `certain` pixel centres see first is marked; nothing wholly nearer than the near plane or
/// hidden is; marks the ray cast does not see stay within the scene's share.
inline void ExpectMarksSeen(const Scene& scene, const std::vector<int>& hits,
                            const std::vector<bool>& marked, int certain) {
    int seen = 0, unseenMarked = 0, index = 0;
    for (MStlTriangle& t : scene.mesh->Triangles()) {
        double farthest = -INFINITY;
        for (std::size_t k = 0; k < 3; ++k)
            farthest = std::max(farthest, -scene.eye.TransformPoint(t.GetVertex(k)).z);
        seen += hits[index] > 0;
        unseenMarked += marked[index] && hits[index] == 0;
        EXPECT_TRUE(marked[index] || hits[index] < certain) << "seen triangle " << index;
        EXPECT_FALSE(marked[index] && (farthest < kNear || index >= scene.hiddenFrom))
            << "triangle behind the eye or hidden " << index;
        ++index;
    }
    EXPECT_GT(seen, 5);
    EXPECT_LE(unseenMarked, seen * scene.unseenShare);
}

}  // namespace pinhole
