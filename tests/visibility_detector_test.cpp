#include <velpick/visibility_detector.h>

#include <gtest/gtest.h>
#include <tbb/task_arena.h>

#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include "support/scene_builders.h"
#include "support/screen_frame.h"
#include "support/visibility_oracle.h"

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using Detector = MStlBaseOperatorVisibilityDetector;
using TriangleSet = std::set<const MStlTriangle*>;
using scene::Lasso;
using scene::ScreenFrame;

namespace {

// Model coordinates are internal units; the screen frame puts 100 units in a pixel.
constexpr double kPixelsPerUnit = 0.01;

// Model point of a screen position, for building scenes in pixels.
scene::V Px(double x, double y, double depth) {
    return {(x - 50) / kPixelsPerUnit, (50 - y) / kPixelsPerUnit, depth / kPixelsPerUnit};
}

// A plate facing the viewer over the screen square [x0, x1] × [y0, y1] at `depth`, cut into
// cells × cells quads.
std::unique_ptr<MStlBase> Plate(double x0, double y0, double x1, double y1, double depth,
                                int cells) {
    return scene::oneSurface([&](MStlSurface& s) {
        const scene::V corner = Px(x0, y1, depth);
        scene::addGrid(s, corner, {(x1 - x0) / kPixelsPerUnit, 0, 0},
                       {0, (y1 - y0) / kPixelsPerUnit, 0}, cells);
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

// A sink that counts the calls it receives per triangle.
class CountingSink : public MStlMarkTrianglesByMasks {
  public:
    using MStlMarkTrianglesByMasks::MStlMarkTrianglesByMasks;
    void Mark(MStlTriangle& t) override {
        ++marks[&t];
        MStlMarkTrianglesByMasks::Mark(t);
    }
    void Unmark(MStlTriangle& t) override {
        ++unmarks[&t];
        MStlMarkTrianglesByMasks::Unmark(t);
    }
    std::map<const MStlTriangle*, int> marks, unmarks;
};

// A scene of meshes in one screen frame, run through the detector and through the oracle.
class VisibilityScene : public ::testing::Test {
  protected:
    MStlBase& Add(std::unique_ptr<MStlBase> mesh, bool markable = true) {
        meshes.push_back(std::move(mesh));
        markableMesh.push_back(markable);
        return *meshes.back();
    }

    void Register(Detector& detector) const {
        for (std::size_t i = 0; i < meshes.size(); ++i)
            detector.AddStlAndTransformation(meshes[i].get(), frame, MMTransformMatrix(),
                                             markableMesh[i], nullptr);
    }

    TriangleSet Run(const std::function<void(Detector&)>& configure) {
        for (auto& mesh : meshes)
            for (MStlTriangle& t : mesh->Triangles())
                t.Unmark();
        Detector detector;
        Register(detector);
        configure(detector);
        detector.Operate();
        TriangleSet marked;
        for (auto& mesh : meshes)
            marked.merge(MarkedIn(*mesh));
        return marked;
    }

    oracle::VisibilityOracle Oracle(const oracle::RegionMargin& region, bool throughAll,
                                    oracle::KeptMargin kept = {}) const {
        oracle::VisibilityOracle o;
        for (std::size_t i = 0; i < meshes.size(); ++i)
            o.AddMesh(
                *meshes[i], frame, [&, i](const MStlTriangle&) { return bool(markableMesh[i]); },
                kept);
        o.Run(region, 20, 20, 80, 80, 0.25, 0.3, throughAll);
        return o;
    }

    // The detector's marks lie between the oracle's certain and possible sets.
    static void ExpectBracketed(const TriangleSet& marked, const oracle::VisibilityOracle& o) {
        EXPECT_TRUE(Includes(marked, o.Certain()))
            << "missed " << o.Certain().size() << " certain, marked " << marked.size();
        EXPECT_TRUE(Includes(o.Possible(), marked))
            << "marked " << marked.size() << " of " << o.Possible().size() << " possible";
        EXPECT_FALSE(o.Certain().empty());
    }

    const MMTransformMatrix frame = ScreenFrame();
    std::vector<std::unique_ptr<MStlBase>> meshes;
    std::vector<char> markableMesh;
};

TEST_F(VisibilityScene, NearerOfTwoOverlappingPlatesHidesTheOtherUnlessMarkingThrough) {
    MStlBase& back = Add(Plate(25, 25, 75, 75, 1, 10));
    MStlBase& front = Add(Plate(38, 38, 62, 62, 5, 6));
    const auto region = oracle::PolygonRegion(Lasso());
    const TriangleSet visible = Run([](Detector& d) { d.SetPath(Lasso()); });
    ExpectBracketed(visible, Oracle(region, false));
    EXPECT_FALSE(MarkedIn(front).empty());
    // Back cells entirely under the front plate stay unmarked: cells span 5 px, the front plate
    // covers the back cells between 40 and 60 completely.
    for (const MStlTriangle* t : MarkedIn(back)) {
        bool underFront = true;
        for (std::size_t i = 0; i < 3; ++i) {
            const point3d c = frame(t->GetVertex(i), false);
            underFront = underFront && c.x > 39.9 && c.x < 60.1 && c.y > 39.9 && c.y < 60.1;
        }
        EXPECT_FALSE(underFront);
    }

    const TriangleSet through = Run([](Detector& d) {
        d.SetPath(Lasso());
        d.SetMarkThrough(true);
    });
    ExpectBracketed(through, Oracle(region, true));
    EXPECT_TRUE(Includes(through, visible));
    EXPECT_GT(through.size(), visible.size());

    markableMesh[1] = false;  // an unmarkable front plate hides without being marked
    ExpectBracketed(Run([](Detector& d) { d.SetPath(Lasso()); }), Oracle(region, false));
    EXPECT_TRUE(MarkedIn(front).empty());
}

TEST_F(VisibilityScene, NearestRuleSeesAPieceRisingThroughAPlateAndPiecesInOnePlane) {
    MStlBase& plate = Add(Plate(25, 25, 75, 75, 1, 1));
    MStlBase& twin = Add(Plate(25, 25, 75, 75, 1, 1));  // the same plate again
    // Rising from depth 0 at the top to 2 at the bottom: in front of the plates below y = 50.
    MStlBase& riser = Add(scene::oneSurface([](MStlSurface& s) {
        scene::addTriangle(s, Px(40, 40, 0), Px(50, 60, 2), Px(60, 40, 0));
    }));
    const auto nearest = [](double tolerance) {
        return [tolerance](Detector& d) {
            d.SetPath(Lasso());
            d.SetRule(Detector::VisibilityRule::Nearest);
            d.SetDepthTolerance(tolerance);
        };
    };
    EXPECT_EQ(Run(nearest(0.01)).size(), 5u);
    // Without a tolerance a plate's depth equals its twin's only where both interpolate alike.
    EXPECT_TRUE(Includes(Run(nearest(0)), MarkedIn(riser)));
    EXPECT_EQ(MarkedIn(riser).size(), 1u);
    // Seen from behind, the riser still hides the plates where it is in front.
    meshes[2] = scene::oneSurface(
        [](MStlSurface& s) { scene::addTriangle(s, Px(40, 40, 0), Px(60, 40, 0), Px(50, 60, 2)); });
    const TriangleSet hidden = Run([](Detector& d) {
        d.SetPath({{48.6, 56}, {51.4, 56}, {50, 58.5}});  // inside the riser
        d.SetRule(Detector::VisibilityRule::Nearest);
    });
    EXPECT_TRUE(hidden.empty());
    EXPECT_TRUE(MarkedIn(plate).empty() && MarkedIn(twin).empty());
}

TEST_F(VisibilityScene, OnlyTheKeptPieceOfAClippedTriangleIsSeen) {
    // One front quad of two triangles over the whole lasso, cut at screen x = 47.3 (model
    // x = −270): the left part is gone and the back plate shows there.
    Add(Plate(25, 25, 75, 75, 1, 10));
    MStlBase& front = Add(Plate(30, 30, 70, 70, 5, 1));
    const MMPlaneEq<double> keepRight{1, 0, 0, 270};
    const TriangleSet marked = Run([&](Detector& d) {
        d.SetPath(Lasso());
        d.AddClippingPlane(keepRight);
    });
    const auto kept = [](const point3d& p) { return p.x - 47.3; };
    ExpectBracketed(marked, Oracle(oracle::PolygonRegion(Lasso()), false, kept));
    EXPECT_EQ(MarkedIn(front).size(), 2u);
}

TEST_F(VisibilityScene, BrushStroke) {
    Add(Plate(25, 25, 75, 75, 1, 16));
    Add(Plate(45, 30, 55, 70, 4, 4));
    const std::vector<point2d> stroke = {{30.2, 40.1}, {48.7, 52.9}, {69.1, 44.3}, {66.0, 70.4}};
    const TriangleSet marked = Run([&](Detector& d) {
        d.SetMode(Detector::Brush);
        d.SetBrushRadius(3.1);
        d.SetPath(stroke);
    });
    ExpectBracketed(marked, Oracle(oracle::BrushRegion(stroke, 3.1), false));
}

TEST_F(VisibilityScene, UnmarkingTakesExactlyWhatMarkingTakes) {
    MStlBase& sphere = Add(scene::uvSphere(Px(50, 50, 0), 1500, 12, 24));
    Add(Plate(25, 25, 75, 48, 20, 3));
    const TriangleSet marked = Run([](Detector& d) { d.SetPath(Lasso()); });
    ASSERT_FALSE(marked.empty());
    for (auto& mesh : meshes)
        for (MStlTriangle& t : mesh->Triangles())
            t.Mark();
    Detector detector;
    Register(detector);
    detector.SetPath(Lasso());
    detector.SetMark(false);
    detector.Operate();
    TriangleSet unmarked;
    for (auto& mesh : meshes)
        for (MStlTriangle& t : mesh->Triangles())
            if (!t.IsMarked())
                unmarked.insert(&t);
    EXPECT_EQ(unmarked, marked);
    EXPECT_FALSE(MarkedIn(sphere).empty());
}

TEST_F(VisibilityScene, PieceAcrossManyChunksAndLinesIsMarkedOnce) {
    MStlBase& mesh = Add(scene::oneSurface([](MStlSurface& s) {
        scene::addTriangle(s, Px(21, 22, 1), Px(45, 78, 1), Px(79, 30, 1));
    }));
    CountingSink sink(mesh);
    tbb::task_arena arena(4);
    arena.execute([&] {
        Detector detector;
        detector.AddStlAndTransformation(&mesh, frame, MMTransformMatrix(), true, &sink);
        detector.SetPixelProportion(20);  // over a thousand lines
        detector.SetPath(Lasso());
        detector.Operate();
        detector.SetMark(false);
        detector.Operate();
    });
    ASSERT_EQ(sink.marks.size(), 1u);
    EXPECT_EQ(sink.marks.begin()->second, 1);
    ASSERT_EQ(sink.unmarks.size(), 1u);
    EXPECT_EQ(sink.unmarks.begin()->second, 1);
    EXPECT_FALSE(mesh.GetTriangle(0).IsMarked());  // the sink, not the triangle, took the marks
}

TEST_F(VisibilityScene, EdgeOnWallNeitherHidesNorDisturbsThePlateBehind) {
    // A wall in the model plane y = const projects to a horizontal screen line; the sweep
    // turns the screen so that its lines cross it instead of running along it.
    Add(Plate(25, 25, 75, 75, 1, 10));
    const oracle::VisibilityOracle plateOnly = Oracle(oracle::PolygonRegion(Lasso()), false);
    MStlBase& wall = Add(scene::oneSurface([](MStlSurface& s) {
        scene::addQuad(s, Px(30, 50, 2), {4000, 0, 0}, {0, 0, 600});
    }));
    std::vector<TriangleSet> runs;
    for (int threads : {1, 4}) {
        tbb::task_arena arena(threads);
        arena.execute([&] { runs.push_back(Run([](Detector& d) { d.SetPath(Lasso()); })); });
        const TriangleSet wallMarks = MarkedIn(wall);
        EXPECT_FALSE(wallMarks.empty()) << threads;
        TriangleSet plateMarks = runs.back();
        for (const MStlTriangle* t : wallMarks)
            plateMarks.erase(t);
        ExpectBracketed(plateMarks, plateOnly);
    }
    EXPECT_EQ(runs[0], runs[1]);
}

TEST_F(VisibilityScene, ClosedMeshInYDownFrameMarksOnlyFacesTowardsTheViewer) {
    MStlBase& sphere = Add(scene::uvSphere(Px(50, 50, 0), 1800, 16, 32));
    MStlBase& box = Add(scene::cube(Px(50, 50, -40), 1000, 3));
    for (bool through : {false, true}) {
        const TriangleSet marked = Run([&](Detector& d) {
            d.SetPath(Lasso());
            d.SetMarkThrough(through);
        });
        EXPECT_FALSE(marked.empty());
        // Faces seen exactly edge-on (the cube's sides) do not count as flipped.
        for (const MStlTriangle* t : marked)
            EXPECT_GE(t->GetNormal().z, 0.0) << through;
        EXPECT_TRUE(MarkedIn(box).empty() || through);
    }
    const TriangleSet all = Run([](Detector& d) {
        d.SetPath(Lasso());
        d.SetMarkThrough(true);
        d.SetMarkFlippedTriangles(true);
    });
    std::size_t backFacing = 0;
    for (const MStlTriangle* t : all)
        backFacing += t->GetNormal().z < 0.0;
    EXPECT_GT(backFacing, 0u);
    EXPECT_FALSE(MarkedIn(sphere).empty());
}

}  // namespace
