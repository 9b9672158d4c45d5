// The scan-line detector restricted to a candidate list gives exactly the marks of the full
// run, when the list holds every triangle whose screen bounds meet the region box (and, under
// a pinhole, every triangle across the near plane), on random views and regions.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/visibility_detector.h>
#include "support/scene_builders.h"

using AU_MarkOperations::PolygonMarking::PerspectiveProjection;
using Detector = MStlBaseOperatorVisibilityDetector;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

struct PickSetup {
    MMTransformMatrix view;  // into eye space under the camera, else to the screen
    std::optional<PerspectiveProjection> camera;
    std::vector<point2d> path;
    Detector::Mode mode;
    double radius;
    Detector::VisibilityRule rule;
};

std::vector<bool> Pick(MStlBase& mesh, const PickSetup& run,
                       const std::vector<std::uint32_t>* candidates) {
    MStlMarkTrianglesByMasks sink(mesh);
    Detector detector;
    detector.AddStlAndTransformation(&mesh, run.view, MMTransformMatrix(), true, &sink);
    if (candidates) {
        EXPECT_TRUE(detector.SetCandidateTriangles(candidates->data(), candidates->size()));
    }
    if (run.camera)
        detector.SetPerspective(*run.camera);
    detector.SetPath(run.path);
    detector.SetMode(run.mode);
    detector.SetBrushRadius(run.radius);
    detector.SetRule(run.rule);
    detector.SetDepthTolerance(20.0);
    detector.AddClippingPlane({0.3, 1, 0, 500});
    detector.Operate();
    std::vector<bool> marked;
    for (MStlTriangle& t : mesh.Triangles())
        marked.push_back(sink.IsMarked(t));
    return marked;
}

/// Every triangle whose projected bounds meet the region box widened by the brush radius,
/// and under the camera every one with a corner nearer than the near plane but not all.
std::vector<std::uint32_t> Candidates(MStlBase& mesh, const PickSetup& run) {
    double lo[2] = {1e300, 1e300}, hi[2] = {-1e300, -1e300};
    for (const point2d& p : run.path)
        for (int k = 0; k < 2; ++k) {
            lo[k] = std::min(lo[k], (&p.x)[k] - run.radius);
            hi[k] = std::max(hi[k], (&p.x)[k] + run.radius);
        }
    std::vector<std::uint32_t> list;
    std::uint32_t index = 0;
    for (MStlTriangle& t : mesh.Triangles()) {
        double min[2] = {1e300, 1e300}, max[2] = {-1e300, -1e300};
        int nearer = 0;
        for (std::size_t c = 0; c < 3; ++c) {
            point3d p;
            run.view.Transform(p, t.GetVertex(c), false);
            if (run.camera) {
                nearer += -p.z < run.camera->nearDistance;
                p = {run.camera->cx + run.camera->fx * p.x / -p.z,
                     run.camera->cy + run.camera->fy * p.y / -p.z, 0};
            }
            for (int k = 0; k < 2; ++k) {
                min[k] = std::min(min[k], (&p.x)[k]);
                max[k] = std::max(max[k], (&p.x)[k]);
            }
        }
        const bool meets = max[0] >= lo[0] && min[0] <= hi[0] && max[1] >= lo[1] && min[1] <= hi[1];
        if ((nearer == 0 && meets) || nearer == 1 || nearer == 2)
            list.push_back(index);
        ++index;
    }
    return list;
}

// Two surfaces whose triangles interleave in the mesh (the surface walk's order is not the
// mesh's, and decides ties), seen from random eyes, some inside the scene, through a pinhole or an
// affine view.
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
    int compared = 0, markedRuns = 0;
    for (int trial = 0; trial < 40; ++trial) {
        PickSetup run;
        const point3d eye{7000 * unit(random), 7000 * unit(random), 9000 * unit(random)};
        MMTransformMatrix shift, turn;
        shift.MakeTranslation({-eye.x, -eye.y, -eye.z});
        turn.MakeRotationInPlane({unit(random), unit(random), 1.0}, {0, 0, 1}, {0, 0, 0});
        run.view = turn.PostMultiply(shift);
        if (trial % 4 == 3) {
            MMTransformMatrix scale;
            scale.MakeScale3D(0.02, -0.02, 0.02);
            run.view.PreMultiply(scale);
        } else {
            run.camera = PerspectiveProjection{120, -120, 0, 0, 200};
        }
        for (int k = 0; k < 3 + trial % 4; ++k)
            run.path.push_back({120 * unit(random), 120 * unit(random)});
        run.mode = trial % 2 ? Detector::Brush : Detector::Polygon;
        run.radius = run.mode == Detector::Brush ? 8 + 10 * unit(random) : 0;
        run.rule =
            trial % 3 ? Detector::VisibilityRule::Ordered : Detector::VisibilityRule::Nearest;
        const std::vector<bool> full = Pick(mesh, run, nullptr);
        std::vector<std::uint32_t> list = Candidates(mesh, run);
        EXPECT_EQ(Pick(mesh, run, &list), full) << "trial " << trial;
        ++compared;
        // A list missing one marked triangle is caught.
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
    EXPECT_TRUE(detector.SetCandidateTriangles(descending + 1, 1));
}

}  // namespace
