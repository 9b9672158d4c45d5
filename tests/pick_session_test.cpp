// A session's picks against the one-shot z-buffer operator and scan-line detector on the same
// scene, over random regions, views, switches and meshes; strokes against single picks.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/mark_polygon.h>
#include <velpick/pick_session.h>
#include <velpick/visibility_detector.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point2d;
using Detector = MStlBaseOperatorVisibilityDetector;

namespace {

constexpr double kPixelsPerUnit = 4.0;
/// A stroke's segments, picked one by one, against one pick of its whole path: at least this
/// Jaccard index (measured 0.985 to 0.995 on these strokes).
constexpr double kStrokeJaccard = 0.98;

/// Each mesh's marked triangles, ascending, as the session reports them.
class Recorder : public MStlMarkTrianglesByMasks {
  public:
    explicit Recorder(const SessionMesh& m) : MStlMarkTrianglesByMasks(*m.mesh) {}
    void Mark(MStlTriangle& t) override { marked.insert(t.GetMaskIndex()); }
    void Unmark(MStlTriangle& t) override { marked.insert(t.GetMaskIndex()); }
    std::set<std::uint32_t> marked;  // each once: the pieces of a cut triangle mark it again
};

/// A torus, and two walls of a cube, one (maybe switched hidden) never markable, seen from
/// a random direction, orthographic or through a pinhole whose near plane may cut the torus,
/// picked by `picker` (the scan-line detector with either rule).
struct Scene {
    std::unique_ptr<MStlBase> torus, cube = std::make_unique<MStlBase>();
    MStlSurface* markable = cube->AddSurface(nullptr);  // the cube's markable wall
    std::vector<SessionMesh> meshes;
    SessionSettings settings;

    Scene(std::mt19937& random, bool perspective, SessionPicker picker, int rings = 40)
        : torus(scene::ToHostMesh(scene::NoisyTorus(rings, rings * 3 / 5, 3000, 1200, 0.2))) {
        std::uniform_real_distribution<double> unit(-1.0, 1.0);
        MStlSurface& wall = *cube->AddSurface(nullptr);
        const scene::V lo{-900, -900, 1500}, e{1800, 0, 0}, f{0, 1800, 0}, g{0, 0, 1800};
        scene::addGrid(wall, lo + g, e, f, 3);
        scene::addGrid(*markable, lo, g, f, 3);
        wall.SetVisible(random() % 2);
        MMTransformMatrix view, shift, first;
        view.MakeRotationInPlane({0, 0, 1}, {unit(random), unit(random), 1.5}, {0, 0, 0});
        shift.MakeTranslation({unit(random) * 500, 0, 0});
        first.MakeScale1D(0.01);
        if (perspective) {
            first.MakeTranslation({0, 0, -8000.0});  // internal units
            const double near = random() % 3 == 0 ? 6000.0 : 100.0;
            settings.perspective = PerspectiveProjection{80.0, 80.0, 0.0, 0.0, near};
        }
        view = first.PostMultiply(view);
        meshes = {{torus.get(), view, {}, true, {}}, {cube.get(), view, shift, false, {markable}}};
        settings.picker = picker;
        settings.pixelProportion = kPixelsPerUnit;
        settings.linesPerPixel = 3.0;
        if (picker == SessionPicker::kScanLine && random() % 2)
            settings.visibilityRule = Detector::VisibilityRule::Nearest;
        settings.visibilityDepthTolerance = 20.0;
        settings.skipHiddenSurfaces = random() % 2;
        settings.backFaceCulling = random() % 3 == 0;
        settings.markThrough = random() % 5 == 0;
        settings.threads = 1 + static_cast<int>(random() % 2);
        if (random() % 4 == 0)
            settings.clippingPlanes.push_back({0.3, -1.0, 0.2, 400.0});
    }

    /// The one-shot picker's marks per mesh, set up as the command line sets it up.
    SessionMarks OneShot(const SessionRegion& region) const {
        std::deque<Recorder> sinks(meshes.begin(), meshes.end());
        settings.picker == SessionPicker::kZBuffer ? ZBuffer(region, sinks)
                                                   : ScanLine(region, sinks);
        SessionMarks marks;
        for (Recorder& sink : sinks)
            marks.emplace_back(sink.marked.begin(), sink.marked.end());
        return marks;
    }

    void ZBuffer(const SessionRegion& region, std::deque<Recorder>& sinks) const {
        MStlBaseOperatorMarkPolygon op(kPixelsPerUnit, settings.depthTolerance,
                                       settings.skipHiddenSurfaces, settings.unitsPerModelUnit);
        for (std::size_t i = 0; i < meshes.size(); ++i)
            op.AddStl(meshes[i].mesh, &meshes[i].view, &meshes[i].placement,
                      meshes[i].markWholeMesh, &sinks[i]);
        op.SetMarkableSurface(markable);  // of the cube, registered last
        for (const auto& plane : settings.clippingPlanes)
            op.AddClippingPlane(plane);
        if (region.brushRadius)
            op.SetBrushPath(region.points, static_cast<std::size_t>(*region.brushRadius));
        else
            op.SetPolygon(region.points);
        op.SetBackFaceCulling(settings.backFaceCulling);
        op.SetMarkThrough(settings.markThrough);
        if (settings.perspective)
            op.SetPerspective(*settings.perspective);
        EXPECT_TRUE(op.operate());
    }

    /// The detector in downward pixels: y mirrored, a pinhole's projection scaled and mirrored.
    void ScanLine(const SessionRegion& region, std::deque<Recorder>& sinks) const {
        const double p = kPixelsPerUnit;
        Detector d;
        MMTransformMatrix toPixels;
        if (!settings.perspective)
            toPixels.MakeScale3D(p, -p, p);
        for (std::size_t i = 0; i < meshes.size(); ++i) {
            MMTransformMatrix toScreen = meshes[i].placement;
            toScreen.PreMultiply(meshes[i].view).PreMultiply(toPixels);
            d.AddStlAndTransformation(meshes[i].mesh, toScreen, meshes[i].placement,
                                      meshes[i].markWholeMesh, &sinks[i]);
        }
        d.SetMarkableSurface(*markable);
        for (const auto& plane : settings.clippingPlanes)
            d.AddClippingPlane(plane);
        if (const auto& c = settings.perspective)
            d.SetPerspective({p * c->fx, -p * c->fy, p * c->cx, -p * c->cy, c->nearDistance});
        std::vector<point2d> path;
        for (const point2d& q : region.points)
            path.push_back({q.x * p, -q.y * p});
        d.SetPath(path);
        d.SetMode(region.brushRadius ? Detector::Brush : Detector::Polygon);
        d.SetBrushRadius(region.brushRadius.value_or(0.0) * p);
        d.SetPixelProportion(settings.linesPerPixel);
        d.SetMarkThrough(settings.markThrough);
        d.SetMarkFlippedTriangles(!settings.backFaceCulling);
        d.SetCheckSurfaceVisibility(settings.skipHiddenSurfaces);
        d.SetRule(settings.visibilityRule);
        d.SetDepthTolerance(settings.visibilityDepthTolerance);
        d.Operate();
    }
};

/// A star-shaped lasso of 3 to 9 corners, or a brush path of 1 to 3 points.
SessionRegion RandomRegion(std::mt19937& random) {
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const point2d centre{unit(random) * 35, unit(random) * 35};
    const int corners = 3 + static_cast<int>(random() % 7);
    SessionRegion region;
    for (int k = 0; k < corners; ++k) {
        const double angle = 2 * std::acos(-1.0) * k / corners, r = 2 + 10 * (1 + unit(random));
        region.points.push_back({centre.x + r * std::cos(angle), centre.y + r * std::sin(angle)});
    }
    if (random() % 4 == 0)  // a rectangle: every edge of its box borders the region
        region.points = {{centre.x - 9, centre.y - 5},
                         {centre.x + 9, centre.y - 5},
                         {centre.x + 9, centre.y + 5},
                         {centre.x - 9, centre.y + 5}};
    else if (random() % 3 == 0) {
        region.points.resize(1 + random() % 3);
        region.brushRadius = static_cast<double>(random() % 4);
    }
    return region;
}

TEST(PickSession, GivesTheOneShotMarksOnRandomRegionsAndRefusesWhatTheyRefuse) {
    std::mt19937 random(31);
    std::size_t marked = 0;
    for (int trial = 0; trial < 24; ++trial) {
        const bool scanLine = trial % 3 == 0;
        Scene s(random, trial % 2 == 1,
                scanLine ? SessionPicker::kScanLine : SessionPicker::kZBuffer, scanLine ? 120 : 40);
        PickSession session(s.meshes, s.settings);
        const std::size_t triangles =
            s.torus->GetNumberOfTriangles() + s.cube->GetNumberOfTriangles();
        EXPECT_LE(session.MemoryBytes(), 16 * triangles);
        for (int pick = 0; pick < 12; ++pick) {
            const SessionRegion region = RandomRegion(random);
            SessionMarks marks;
            ASSERT_EQ(session.Pick(region, marks), SessionStatus::kDone);
            EXPECT_EQ(marks, s.OneShot(region)) << "trial " << trial << " pick " << pick;
            marked += marks[0].size() + marks[1].size();
        }
        // Refused, marks emptied: a z-buffer brush radius not whole or negative; a scan-line
        // sweep of more lines than a vector holds.
        SessionMarks refused{{7}};
        EXPECT_EQ(session.Pick(scanLine ? SessionRegion{{{0, -1e300}, {9, 1e300}, {-9, 0}}, {}}
                                        : SessionRegion{{{0, 0}}, trial % 2 ? 1.5 : -1.0},
                               refused),
                  SessionStatus::kRegionRefused);
        EXPECT_EQ(refused, SessionMarks(2));
    }
    EXPECT_GT(marked, 5000u);  // the regions do meet the meshes
}

TEST(PickSession, StrokeSegmentsReportEachTriangleOnceAndApproachTheWholePath) {
    std::mt19937 random(7);
    for (int trial = 0; trial < 6; ++trial) {
        Scene s(random, trial % 2 == 1, SessionPicker::kZBuffer, 200);
        s.settings = {};
        s.settings.picker = trial < 4 ? SessionPicker::kZBuffer : SessionPicker::kScanLine;
        s.settings.pixelProportion = kPixelsPerUnit;
        if (trial % 2)
            s.settings.perspective = PerspectiveProjection{80, 80, 0, 0, 100};
        PickSession session(s.meshes, s.settings);
        std::vector<point2d> path;
        for (int k = 0; k <= 30; ++k)  // a wavy stroke of 30 segments across the view
            path.push_back({-36.0 + 2.4 * k, 12.0 * std::sin(k * 0.4)});
        const SessionMarks first = s.OneShot({{path[0], path[1]}, 2.0});
        std::vector<std::uint32_t> stroke;
        for (int pass = 0; pass < 2; ++pass, session.NewStroke()) {
            SessionMarks fresh;
            session.AddStrokeSegment(path[0], path[1], 2.0, fresh);
            EXPECT_EQ(fresh, first);  // the first segment of a stroke, new or started over
        }
        for (int k = 0; k < 30; ++k) {
            SessionMarks fresh;
            ASSERT_EQ(session.AddStrokeSegment(path[k], path[k + 1], 2.0, fresh),
                      SessionStatus::kDone);
            stroke.insert(stroke.end(), fresh[0].begin(), fresh[0].end());
        }
        std::sort(stroke.begin(), stroke.end());
        EXPECT_EQ(std::adjacent_find(stroke.begin(), stroke.end()), stroke.end());  // once each
        const std::vector<std::uint32_t> whole = s.OneShot({path, 2.0})[0];
        std::vector<std::uint32_t> common;
        std::set_intersection(stroke.begin(), stroke.end(), whole.begin(), whole.end(),
                              std::back_inserter(common));
        const double jaccard =
            double(common.size()) / double(stroke.size() + whole.size() - common.size());
        EXPECT_GE(jaccard, kStrokeJaccard) << "trial " << trial;
        EXPECT_GT(whole.size(), 500u);
    }
}

}  // namespace
