// The scan-line detector restricted to a candidate list gives exactly the marks of the full
// run when the list holds every triangle whose screen bounds meet the region box (and, under
// a pinhole, every triangle across the near plane), on random views and regions; a list
// missing a marked triangle does not.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

#include <velpick/visibility_detector.h>
#include "support/pinhole_oracle.h"

using Detector = MStlBaseOperatorVisibilityDetector;
using VelSDK::Math::point2d;

namespace pinhole {
namespace {

struct PickSetup {
    MMTransformMatrix view;  // into eye space under the camera, else to the screen
    std::optional<PerspectiveProjection> camera;
    std::vector<point2d> path;
    double radius;  // a brush when positive, else a lasso
    Detector::VisibilityRule rule;
};

std::vector<bool> Pick(MStlBase& mesh, const PickSetup& run,
                       const std::vector<std::uint32_t>* list) {
    MStlMarkTrianglesByMasks sink(mesh);
    Detector detector;
    detector.AddStlAndTransformation(&mesh, run.view, MMTransformMatrix(), true, &sink);
    if (list)
        detector.SetCandidateTriangles(list->data(), list->size());
    if (run.camera)
        detector.SetPerspective(*run.camera);
    detector.SetPath(run.path);
    detector.SetMode(run.radius > 0 ? Detector::Brush : Detector::Polygon);
    detector.SetBrushRadius(run.radius);
    detector.SetRule(run.rule);
    detector.SetDepthTolerance(20.0);
    detector.AddClippingPlane({0.3, 1, 0, 500});
    detector.Operate();
    return Marks(mesh, sink);
}

/// Every triangle whose projected bounds meet the path's box widened by the brush radius, and
/// under the camera every one with some corners, not all, nearer than the near plane.
std::vector<std::uint32_t> Candidates(MStlBase& mesh, const PickSetup& run) {
    const auto byX = [](point2d a, point2d b) { return a.x < b.x; };
    const auto byY = [](point2d a, point2d b) { return a.y < b.y; };
    const auto [xLo, xHi] = std::minmax_element(run.path.begin(), run.path.end(), byX);
    const auto [yLo, yHi] = std::minmax_element(run.path.begin(), run.path.end(), byY);
    std::vector<std::uint32_t> list;
    std::uint32_t index = 0;
    for (MStlTriangle& t : mesh.Triangles()) {
        int nearer = 0, outside[4] = {};  // corners left of, right of, below and above the box
        for (std::size_t c = 0; c < 3; ++c) {
            point3d p = run.view.TransformPoint(t.GetVertex(c));
            if (const auto& k = run.camera) {
                nearer += -p.z < k->nearDistance;
                p = {k->cx + k->fx * p.x / -p.z, k->cy + k->fy * p.y / -p.z, 0};
            }
            outside[0] += p.x < xLo->x - run.radius;
            outside[1] += p.x > xHi->x + run.radius;
            outside[2] += p.y < yLo->y - run.radius;
            outside[3] += p.y > yHi->y + run.radius;
        }
        if (nearer == 0 ? std::count(outside, outside + 4, 3) == 0 : nearer < 3)
            list.push_back(index);
        ++index;
    }
    return list;
}

// Two surfaces whose triangles interleave in the mesh (the surface walk's order is not the
// mesh's, and decides ties), seen from random eyes, some inside the scene, through a pinhole
// or an affine view.
TEST(DetectorCandidates, ListedRunsMarkExactlyWhatFullRunsMark) {
    MStlBase mesh;
    MStlSurface& a = *mesh.AddSurface(nullptr);
    MStlSurface& b = *mesh.AddSurface(nullptr);
    scene::addUvSphere(a, {0, 0, 0}, 3000, 12, 24);
    scene::addUvSphere(b, {2500, 1000, 1500}, 1500, 10, 20);
    scene::addGrid(a, {-8000, -8000, -3500}, {16000, 0, 0}, {0, 16000, 0}, 12);
    // Coincident quads: the one walked first (in a) wins the ordered rule's ties.
    for (MStlSurface* surface : {&b, &a})
        scene::addQuad(*surface, {-2000, -2000, 3200}, {4000, 0, 0}, {0, 4000, 0});
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    MMTransformMatrix affine;  // to the screen, y down
    affine.MakeScale3D(0.02, -0.02, 0.02);
    int markedRuns = 0;
    for (int trial = 0; trial < 40; ++trial) {
        const point3d eye{7000 * unit(random), 7000 * unit(random), 9000 * unit(random)};
        PickSetup run{LookAt(eye, Sub(eye, {unit(random), unit(random), 1.0})),
                      PerspectiveProjection{120, -120, 0, 0, 200},
                      {},
                      0,
                      Detector::VisibilityRule(trial % 3 == 0)};  // every third Nearest
        if (trial % 4 == 3)
            run.view.PreMultiply(affine), run.camera.reset();
        for (int k = 0; k < 3 + trial % 4; ++k)
            run.path.push_back({120 * unit(random), 120 * unit(random)});
        run.radius = trial % 2 ? 9 + 8 * unit(random) : 0;
        const std::vector<bool> full = Pick(mesh, run, nullptr);
        std::vector<std::uint32_t> list = Candidates(mesh, run);
        EXPECT_EQ(Pick(mesh, run, &list), full) << "trial " << trial;
        const auto dropped =
            std::find_if(list.begin(), list.end(), [&](std::uint32_t t) { return full[t]; });
        if (dropped == list.end())
            continue;
        ++markedRuns;
        list.erase(dropped);
        EXPECT_NE(Pick(mesh, run, &list), full) << "trial " << trial;
    }
    EXPECT_GE(markedRuns, 20);
    const std::uint32_t descending[2] = {5, 3};
    Detector detector;
    detector.AddStlAndTransformation(&mesh, {}, {}, true, nullptr);
    EXPECT_FALSE(detector.SetCandidateTriangles(descending, 2));
}

}  // namespace
}  // namespace pinhole
