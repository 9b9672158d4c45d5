#include <velpick/visibility_detector.h>

#include <gtest/gtest.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"
#include "support/screen_frame.h"
#include "support/visibility_oracle.h"

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using Detector = MStlBaseOperatorVisibilityDetector;
using Configure = std::function<void(Detector&)>;
using TriangleSet = std::set<const MStlTriangle*>;
using scene::Lasso;

namespace {

// Model point of a screen position: the screen frame puts 100 internal units in a pixel.
scene::V Px(double x, double y, double depth) {
    return {(x - 50) * 100, (50 - y) * 100, depth * 100};
}

// A plate facing the viewer over the screen square [lo, hi]² at `depth`, of cells × cells quads.
std::unique_ptr<MStlBase> Plate(double lo, double hi, double depth, int cells) {
    return scene::oneSurface([&](MStlSurface& s) {
        scene::addGrid(s, Px(lo, hi, depth), {(hi - lo) * 100, 0, 0}, {0, (hi - lo) * 100, 0},
                       cells);
    });
}

TriangleSet MarkedIn(MStlBase& mesh) {
    TriangleSet marked;
    for (MStlTriangle& t : mesh.Triangles())
        if (t.IsMarked())
            marked.insert(&t);
    return marked;
}

bool Includes(const TriangleSet& outer, const TriangleSet& inner) {
    return std::includes(outer.begin(), outer.end(), inner.begin(), inner.end());
}

// Runs with the lasso and nothing else set.
void Plain(Detector&) {}

// Meshes in one screen frame, run through the detector and held against the oracle.
struct Scene {
    MStlBase& Add(std::unique_ptr<MStlBase> mesh, bool canMark = true) {
        meshes.push_back(std::move(mesh));
        markable.push_back(canMark);
        return *meshes.back();
    }

    // A run over the lasso unless `configure` sets another path.
    TriangleSet Run(const Configure& configure, MStlMarkTrianglesByMasks* sink = nullptr) {
        TriangleSet marked;
        for (auto& mesh : meshes)
            for (MStlTriangle& t : mesh->Triangles())
                t.Unmark();
        Detector detector;
        for (std::size_t i = 0; i < meshes.size(); ++i)
            detector.AddStlAndTransformation(meshes[i].get(), frame, {}, markable[i], sink);
        detector.SetPath(Lasso());
        configure(detector);
        detector.Operate();
        for (auto& mesh : meshes)
            marked.merge(MarkedIn(*mesh));
        return marked;
    }

    // Triangles facing the viewer turn clockwise on screen; edge-on ones count as facing.
    bool Facing(const MStlTriangle& t) const {
        point3d p[3];
        for (int k = 0; k < 3; ++k)
            frame.Transform(p[k], t.GetVertex(k), false);
        return (p[1].x - p[0].x) * (p[2].y - p[0].y) <= (p[1].y - p[0].y) * (p[2].x - p[0].x);
    }

    // The marks lie between the oracle's certain and possible sets; `nearest` ≥ 0 judges by the
    // nearest rule with that depth tolerance, on a finer grid.
    void ExpectBracketed(const TriangleSet& marked, const oracle::RegionMargin& region,
                         bool through, oracle::KeptMargin kept = {}, double nearest = -1) const {
        oracle::VisibilityOracle o;
        for (std::size_t i = 0; i < meshes.size(); ++i)
            o.AddMesh(
                *meshes[i], frame,
                [&, i](const MStlTriangle& t) { return markable[i] && Facing(t); }, kept);
        if (nearest >= 0)
            o.SetNearestRule(nearest);
        o.Run(region, 20, 20, 80, 80, nearest >= 0 ? 0.1 : 0.25, nearest >= 0 ? 0.15 : 0.3,
              through);
        EXPECT_TRUE(Includes(marked, o.Certain()));
        EXPECT_TRUE(Includes(o.Possible(), marked));
        EXPECT_GT(o.Certain().size(), 0u);
    }

    MMTransformMatrix frame = scene::ScreenFrame();
    std::vector<std::unique_ptr<MStlBase>> meshes;
    std::vector<bool> markable;
};

// The nearer of two overlapping plates hides the other unless marking through; a clipping plane
// at screen x = 47.3 (model x = −270) takes the front plate's left part away; an unmarkable
// front plate hides without being marked.
TEST(VisibilityDetector, OverlappingPlatesThroughALassoABrushAndAClippingPlane) {
    Scene s;
    s.Add(Plate(25, 75, 1, 10));
    s.Add(Plate(38, 62, 5, 6));
    const auto region = oracle::PolygonRegion(Lasso());
    s.ExpectBracketed(s.Run(Plain), region, false);
    s.ExpectBracketed(s.Run([](Detector& d) { d.SetMarkThrough(true); }), region, true);
    const std::vector<point2d> stroke = {{30.2, 40.1}, {48.7, 52.9}, {69.1, 44.3}, {66.0, 70.4}};
    s.ExpectBracketed(s.Run([&](Detector& d) {
        d.SetMode(Detector::Brush);
        d.SetBrushRadius(3.1);
        d.SetPath(stroke);
    }),
                      oracle::BrushRegion(stroke, 3.1), false);
    s.ExpectBracketed(s.Run([](Detector& d) {
        d.AddClippingPlane({1, 0, 0, 270});
    }),
                      region, false, [](const point3d& p) { return p.x - 47.3; });
    s.markable[1] = false;  // the oracle's possible set holds none of the front plate
    s.ExpectBracketed(s.Run(Plain), region, false);
}

TEST(VisibilityDetector, NearestRuleOnATiltedTorusMarksWhatDenseSamplesSee) {
    Scene s;
    s.Add(scene::ToHostMesh(scene::NoisyTorus(40, 60, 2500, 1000, 0.2)));
    MMTransformMatrix tilt;
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.6, 0.8}, {0, 0, 0});
    s.frame = scene::ScreenFrame(tilt);
    const double tolerance = 0.4;  // screen depth; the torus is 20 deep
    s.ExpectBracketed(s.Run([&](Detector& d) {
        d.SetRule(Detector::VisibilityRule::Nearest);
        d.SetDepthTolerance(tolerance);
    }),
                      oracle::PolygonRegion(Lasso()), false, {}, tolerance);
}

// A sink that counts the calls it receives per triangle.
struct CountingSink : MStlMarkTrianglesByMasks {
    using MStlMarkTrianglesByMasks::MStlMarkTrianglesByMasks;
    void Mark(MStlTriangle& t) override { ++calls[&t], MStlMarkTrianglesByMasks::Mark(t); }
    void Unmark(MStlTriangle& t) override { --calls[&t], MStlMarkTrianglesByMasks::Unmark(t); }
    std::map<const MStlTriangle*, int> calls;
};

TEST(VisibilityDetector, UnmarkingTakesWhatMarkingTakesEachPieceOnceAcrossManyChunks) {
    Scene s;
    MStlTriangle* big = nullptr;  // across over a thousand lines and many chunks
    MStlBase& mesh = s.Add(scene::oneSurface([&](MStlSurface& m) {
        scene::addUvSphere(m, Px(50, 50, 0), 1500, 12, 24);
        big = scene::addTriangle(m, Px(21, 22, 1), Px(45, 78, 1), Px(79, 30, 1));
    }));
    CountingSink sink(mesh);
    std::map<const MStlTriangle*, int> afterMarking;
    tbb::task_arena(4).execute([&] {
        for (const bool mark : {true, false}) {
            s.Run(
                [&](Detector& d) {
                    d.SetPixelProportion(20);
                    d.SetMark(mark);
                },
                &sink);
            afterMarking = mark ? sink.calls : afterMarking;
        }
    });
    EXPECT_GT(afterMarking.size(), 50u);
    EXPECT_TRUE(afterMarking.count(big) && !big->IsMarked());  // the sink took the marks
    for (auto [triangle, calls] : afterMarking)
        EXPECT_EQ(calls, 1);
    for (auto [triangle, calls] : sink.calls)  // each unmarked once, no other one unmarked
        EXPECT_EQ(calls, 0);
}

TEST(VisibilityDetector, EdgeOnWallNeitherHidesNorDisturbsThePlateBehind) {
    // A wall in the model plane y = const projects to a horizontal screen line; the sweep
    // turns the screen so that its lines cross it instead of running along it.
    Scene s;
    s.Add(Plate(25, 75, 1, 10));
    MStlBase& wall = s.Add(scene::oneSurface([](MStlSurface& m) {
        scene::addQuad(m, Px(30, 50, 2), {4000, 0, 0}, {0, 0, 600});
    }));
    TriangleSet runs[2];
    tbb::task_arena(1).execute([&] { runs[0] = s.Run(Plain); });
    tbb::task_arena(4).execute([&] { runs[1] = s.Run(Plain); });
    EXPECT_EQ(runs[0], runs[1]);
    const TriangleSet wallMarks = MarkedIn(wall);
    EXPECT_FALSE(wallMarks.empty());
    for (const MStlTriangle* t : wallMarks)
        runs[1].erase(t);
    s.markable[1] = false;  // the oracle judges the plate's marks alone
    s.ExpectBracketed(runs[1], oracle::PolygonRegion(Lasso()), false);
}

}  // namespace
