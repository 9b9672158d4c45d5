#include <velpick/mark_polygon.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <vector>

#include <velpick/camera_view.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include "support/ray_cast_oracle.h"
#include "support/scene_builders.h"

using AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation;
using VelSDK::Math::point2d;
using VelSDK::Math::point2i;
using VelSDK::Math::point3d;

namespace {

constexpr double kPixelsPerMm = 10.0;
constexpr double kToleranceMm = 0.05;
constexpr double kToleranceUnits = 50.0;  // kToleranceMm at the default 1000 units per mm
// Pixels whose first hit the z-buffer may give to a neighbouring triangle: the spans sample
// each boundary once per row rather than at pixel centres, so a few silhouette and sliver
// pixels go to the triangle next door.
constexpr double kAllowedMissFraction = 0.01;

MMTransformMatrix Scale(double factor) {
    MMTransformMatrix m;
    m.MakeScale1D(factor);
    return m;
}

MMTransformMatrix Translation(double x, double y, double z) {
    MMTransformMatrix m;
    m.MakeTranslation({x, y, z});
    return m;
}

std::vector<point2d> Rectangle(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

using TrianglePredicate = std::function<bool(const MStlTriangle&)>;

bool IsMarked(const MStlTriangle& t) {
    return t.IsMarked();
}
bool Any(const MStlTriangle&) {
    return true;
}

std::vector<const MStlTriangle*> Marked(MStlBase& mesh,
                                        const TrianglePredicate& marked = IsMarked) {
    std::vector<const MStlTriangle*> result;
    for (MStlTriangle& t : mesh.Triangles())
        if (marked(t))
            result.push_back(&t);
    return result;
}

TrianglePredicate OnSurface(const MStlSurface* surface) {
    return [surface](const MStlTriangle& t) { return t.GetSurface() == surface; };
}

void UnmarkAll(MStlBase& mesh) {
    for (MStlTriangle& t : mesh.Triangles())
        t.Unmark();
}

/// What a pick is checked against: the rays, the region in the grid frame and its extent.
struct Pick {
    const oracle::RayCastOracle& rays;
    oracle::RegionMargin region;
    int width, height;
};

/// Region pixels, well inside, where the first hit (every hit when `through`) is markable but
/// left unmarked; `sampled` counts the markable hits looked at.
int MissedPixels(const Pick& pick, const TrianglePredicate& markable, bool through, int* sampled) {
    int missed = 0;
    *sampled = 0;
    for (int row = 0; row < pick.height; ++row)
        for (int column = 0; column < pick.width; ++column) {
            const double x = column + 0.5, y = row + 0.5;
            if (pick.region(x, y) < 1.0)
                continue;
            std::vector<oracle::Hit> hits;
            if (through)
                hits = pick.rays.AllHits(x, y);
            else if (const auto first = pick.rays.FirstHit(x, y))
                hits.push_back(*first);
            for (const oracle::Hit& hit : hits)
                if (markable(*hit.triangle))
                    ++*sampled, missed += !hit.triangle->IsMarked();
        }
    return missed;
}

/// Whether a marked triangle has a pixel centre near it, near the region, where it is not
/// behind the front by more than the tolerance (any depth when `throughMode`). A triangle seen
/// edge-on covers no pixel centre but still draws a line of pixels; its nearest vertex stands
/// for its depth there.
bool Explained(const Pick& pick, const oracle::Projected& t, bool throughMode) {
    constexpr double kNear = 1.5;  // pixels: a span may reach a pixel this far from the triangle
    const double slope = oracle::DepthSlope(t);
    const bool edgeOn = !std::isfinite(slope);
    const double slack = edgeOn ? 1.0 : 2.0 * slope + 1.0;
    for (int row = int(std::floor(t.minY - 2)); row <= int(t.maxY + 2); ++row)
        for (int column = int(std::floor(t.minX - 2)); column <= int(t.maxX + 2); ++column) {
            const double x = column + 0.5, y = row + 0.5;
            if (pick.region(x, y) < -kNear || oracle::Distance(t, x, y) > kNear)
                continue;
            if (throughMode)
                return true;
            const auto front = pick.rays.FirstHit(x, y);
            const double depth =
                edgeOn ? std::max({t.p[0].z, t.p[1].z, t.p[2].z}) : oracle::PlaneDepth(t, x, y);
            if (!front || depth >= front->z - kToleranceUnits - slack)
                return true;
        }
    return false;
}

int UnexplainedMarks(const Pick& pick, const std::vector<const MStlTriangle*>& marked,
                     bool throughMode = false) {
    int unexplained = 0;
    for (const MStlTriangle* triangle : marked) {
        const oracle::Projected* t = pick.rays.Find(triangle);
        unexplained += !t || !Explained(pick, *t, throughMode);
    }
    return unexplained;
}

void ExpectFrontPick(const Pick& pick, const TrianglePredicate& markable,
                     const std::vector<MStlBase*>& meshes) {
    int sampled = 0;
    const int missed = MissedPixels(pick, markable, false, &sampled);
    EXPECT_GT(sampled, 100);
    EXPECT_LE(missed, kAllowedMissFraction * sampled) << missed << " of " << sampled;
    for (MStlBase* mesh : meshes) {
        const std::vector<const MStlTriangle*> picked = Marked(*mesh);
        EXPECT_EQ(UnexplainedMarks(pick, picked), 0);
        for (const MStlTriangle* t : picked)
            EXPECT_TRUE(markable(*t));
    }
}

/// Scenes seen through a view of 1 screen unit per millimetre (1000 internal units) at 10
/// pixels per screen unit, selected by a lasso in screen units.
class MarkPolygonScene : public ::testing::Test {
  protected:
    static point2i Origin(const std::vector<point2d>& polygon) {
        double minX = polygon[0].x, minY = polygon[0].y;
        for (const point2d& p : polygon)
            minX = std::min(minX, p.x), minY = std::min(minY, p.y);
        return {int(std::floor(minX * kPixelsPerMm)), int(std::floor(minY * kPixelsPerMm))};
    }
    /// The lasso's pixel polygon in the grid frame, its extent and the model-to-pixel maps.
    static Pick LassoPick(const std::vector<point2d>& polygon, const oracle::RayCastOracle& rays) {
        const point2i origin = Origin(polygon);
        std::vector<point2d> pixels;
        double maxX = -1e300, maxY = -1e300;
        for (const point2d& p : polygon) {
            pixels.push_back({std::floor(p.x * kPixelsPerMm) - origin.x,
                              std::floor(p.y * kPixelsPerMm) - origin.y});
            maxX = std::max(maxX, pixels.back().x), maxY = std::max(maxY, pixels.back().y);
        }
        return {rays, oracle::PolygonRegion(pixels), int(maxX) + 1, int(maxY) + 1};
    }
    MMTransformMatrix ModelToPixel(const point2i& origin,
                                   const MMTransformMatrix& placement = MMTransformMatrix()) const {
        MMTransformMatrix modelView = view;
        modelView.PostMultiply(placement);
        return FindModelToCameraViewTransformation(modelView, kPixelsPerMm, origin);
    }
    /// Rays through the lasso's pixels against unplaced meshes.
    oracle::RayCastOracle Rays(const std::vector<MStlBase*>& meshes,
                               const std::vector<point2d>& polygon) const {
        oracle::RayCastOracle rays;
        for (MStlBase* mesh : meshes)
            rays.AddMesh(*mesh, ModelToPixel(Origin(polygon)));
        return rays;
    }
    /// Sets the lasso and runs the picker.
    static bool Operate(MStlBaseOperatorMarkPolygon& picker, const std::vector<point2d>& polygon) {
        picker.SetPolygon(polygon);
        return picker.operate();
    }
    void Add(MStlBaseOperatorMarkPolygon& op, MStlBase& mesh, bool whole = true,
             IStlMarkTriangles* sink = nullptr,
             const MMTransformMatrix& placement = MMTransformMatrix()) {
        op.AddStl(&mesh, &view, &placement, whole, sink);
    }

    MMTransformMatrix view = Scale(0.001);
    std::vector<point2d> lasso = Rectangle(-5, -5, 5, 5);
    MStlBaseOperatorMarkPolygon op{kPixelsPerMm, kToleranceMm, false};
};

TEST_F(MarkPolygonScene, SphereBehindAPlateWithAHoleFrontPickAndMarkThrough) {
    auto sphere = scene::uvSphere({0, 0, 0}, 3000);
    auto plate = scene::plateWithHole(6000, 1500, 5000);
    for (bool through : {false, true}) {
        SCOPED_TRACE(through ? "mark through" : "front only");
        UnmarkAll(*sphere), UnmarkAll(*plate);
        MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
        Add(picker, *sphere);
        Add(picker, *plate);
        const auto polygon = through ? Rectangle(-2, -1, 2, 1.5) : lasso;
        picker.SetMarkThrough(through);
        ASSERT_TRUE(Operate(picker, polygon));

        const oracle::RayCastOracle rays = Rays({sphere.get(), plate.get()}, polygon);
        const Pick pick = LassoPick(polygon, rays);
        const std::size_t sphereMarks = Marked(*sphere).size();
        if (!through) {
            ExpectFrontPick(pick, Any, {sphere.get(), plate.get()});
            EXPECT_GT(sphereMarks, 20u);
            EXPECT_LT(sphereMarks, sphere->GetNumberOfTriangles() / 4);
            continue;
        }
        int sampled = 0;
        EXPECT_EQ(MissedPixels(pick, Any, true, &sampled), 0);
        EXPECT_GT(sampled, 1000);
        EXPECT_EQ(UnexplainedMarks(pick, Marked(*sphere), true), 0);
        EXPECT_EQ(UnexplainedMarks(pick, Marked(*plate), true), 0);
        int nearSide = 0, farSide = 0;  // both sides of the sphere are marked
        for (const MStlTriangle* t : Marked(*sphere))
            (t->GetNormal().z > 0 ? nearSide : farSide)++;
        EXPECT_GT(nearSide, 10);
        EXPECT_GT(farSide, 10);
    }
}

TEST_F(MarkPolygonScene, MeshesWithDifferentPlacementsHideEachOther) {
    auto back = scene::cube({0, 0, 0}, 2000, 8);
    auto front = scene::cube({0, 0, 0}, 2000, 8);
    const MMTransformMatrix frontPlacement = Translation(1500, 1000, 4500);
    Add(op, *back);
    Add(op, *front, true, nullptr, frontPlacement);
    ASSERT_TRUE(Operate(op, lasso));

    oracle::RayCastOracle rays = Rays({back.get()}, lasso);
    rays.AddMesh(*front, ModelToPixel(Origin(lasso), frontPlacement));
    ExpectFrontPick(LassoPick(lasso, rays), Any, {back.get(), front.get()});
    int topMarked = 0, topHidden = 0;  // the front cube covers part of the back one's top
    for (MStlTriangle& t : back->Triangles())
        if (t.GetNormal().z > 0.5)
            (t.IsMarked() ? topMarked : topHidden)++;
    EXPECT_GT(topMarked, 10);
    EXPECT_GT(topHidden, 10);
}

TEST_F(MarkPolygonScene, BackFaceCullingKeepsTheFrontHalfOfAClosedMesh) {
    auto sphere = scene::uvSphere({0, 0, 0}, 3000);
    Add(op, *sphere);
    op.SetBackFaceCulling(true);
    ASSERT_TRUE(Operate(op, lasso));
    const auto facesViewer = [](const MStlTriangle& t) { return t.GetNormal().z > 0; };
    ExpectFrontPick(LassoPick(lasso, Rays({sphere.get()}, lasso)), facesViewer, {sphere.get()});
}

TEST_F(MarkPolygonScene, MarkThroughTurnsBackFaceCullingOffForLaterRuns) {
    auto awayPlate = scene::oneSurface([](MStlSurface& s) {  // facing −z, away from the viewer
        scene::addGrid(s, {-2000, -2000, 0}, {0, 4000, 0}, {4000, 0, 0}, 4);
    });
    const std::size_t all = awayPlate->GetNumberOfTriangles();
    Add(op, *awayPlate);
    op.SetBackFaceCulling(true);
    op.SetMarkThrough(true);
    ASSERT_TRUE(Operate(op, lasso));
    EXPECT_EQ(Marked(*awayPlate).size(), all);

    UnmarkAll(*awayPlate);
    op.SetMarkThrough(false);
    ASSERT_TRUE(op.operate());
    EXPECT_EQ(Marked(*awayPlate).size(), all);
}

TEST_F(MarkPolygonScene, OnlyMarkableSurfacesAreMarkedWhileTheRestOccludes) {
    auto mesh = std::make_unique<MStlBase>();
    MStlSurface* ball = mesh->AddSurface(nullptr);
    MStlSurface* shield = mesh->AddSurface(nullptr);
    scene::addUvSphere(*ball, {0, 0, 0}, 3000, 24, 48);
    scene::addPlateWithHole(*shield, 6000, 1500, 5000, 16);
    Add(op, *mesh, /*whole=*/false);
    op.SetMarkableSurface(ball);
    ASSERT_TRUE(Operate(op, lasso));
    ExpectFrontPick(LassoPick(lasso, Rays({mesh.get()}, lasso)), OnSurface(ball), {mesh.get()});
    EXPECT_GT(Marked(*mesh).size(), 20u);

    // A mesh added without a markable surface only occludes.
    auto sphere = scene::uvSphere({0, 0, 0}, 3000);
    auto plate = scene::plate(6000, 5000, 4);
    MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
    Add(picker, *sphere);
    Add(picker, *plate, /*whole=*/false);
    ASSERT_TRUE(Operate(picker, lasso));
    EXPECT_TRUE(Marked(*sphere).empty());
    EXPECT_TRUE(Marked(*plate).empty());
}

TEST_F(MarkPolygonScene, HiddenSurfacesAreSkippedOnlyWhenAsked) {
    for (bool skip : {true, false}) {
        SCOPED_TRACE(skip);
        auto mesh = std::make_unique<MStlBase>();
        MStlSurface* ball = mesh->AddSurface(nullptr);
        MStlSurface* shield = mesh->AddSurface(nullptr);
        scene::addUvSphere(*ball, {0, 0, 0}, 3000, 24, 48);
        scene::addGrid(*shield, {-6000, -6000, 5000}, {12000, 0, 0}, {0, 12000, 0}, 4);
        shield->SetVisible(false);
        MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, skip);
        Add(picker, *mesh);
        ASSERT_TRUE(Operate(picker, lasso));

        oracle::RayCastOracle rays;
        rays.AddMesh(*mesh, ModelToPixel(Origin(lasso)), skip ? OnSurface(ball) : Any);
        ExpectFrontPick(LassoPick(lasso, rays), OnSurface(skip ? ball : shield), {mesh.get()});
    }
}

TEST_F(MarkPolygonScene, ClippingPlaneOpensTheSphereToItsFarSide) {
    auto sphere = scene::uvSphere({0, 0, 0}, 3000);
    // Placed 1000 units nearer; the plane keeps placement z ≤ 1000, i.e. model z ≤ 0.
    const MMTransformMatrix placement = Translation(0, 0, 1000);
    Add(op, *sphere, true, nullptr, placement);
    op.AddClippingPlane({0, 0, -1, 1000});
    ASSERT_TRUE(Operate(op, lasso));

    oracle::RayCastOracle rays;
    rays.AddMesh(*sphere, ModelToPixel(Origin(lasso), placement), {},
                 MMPlaneEq<double>{0, 0, -1, 0});
    ExpectFrontPick(LassoPick(lasso, rays), Any, {sphere.get()});
    int farSide = 0;
    for (const MStlTriangle* t : Marked(*sphere)) {
        EXPECT_LE(std::min({t->GetVertex(0).z, t->GetVertex(1).z, t->GetVertex(2).z}), 0.0);
        farSide += t->GetNormal().z < 0;
    }
    EXPECT_GT(farSide, sphere->GetNumberOfTriangles() / 4);
}

TEST_F(MarkPolygonScene, PlaneWithoutANormalRemovesEveryTriangle) {
    // The mapped equation is NaN everywhere: every triangle is cut and no piece survives,
    // alone, after a plane that cuts the sphere, or before one that keeps it whole.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<std::vector<MMPlaneEq<double>>> planeSets = {{{0, 0, 0, 1}},
                                                                   {{0, 0, 0, 0}},
                                                                   {{0, 0, 0, -1}},
                                                                   {{1e-170, 0, 0, 5}},
                                                                   {{nan, 0, 1, 0}},
                                                                   {{1, 0, 0, 0}, {0, 0, 0, 1}},
                                                                   {{0, 0, 0, 1}, {0, 0, 1, 1e9}}};
    auto sphere = scene::uvSphere({0, 0, 0}, 3000);
    for (const bool markThrough : {false, true})
        for (const auto& planes : planeSets) {
            MStlBaseOperatorMarkPolygon picker{kPixelsPerMm, kToleranceMm, false};
            Add(picker, *sphere);
            for (const MMPlaneEq<double>& plane : planes)
                picker.AddClippingPlane(plane);
            picker.SetMarkThrough(markThrough);
            ASSERT_TRUE(Operate(picker, lasso));
            EXPECT_TRUE(Marked(*sphere).empty())
                << planes.size() << " planes, first " << planes[0].a << " " << planes[0].d
                << (markThrough ? ", mark-through" : "");
            UnmarkAll(*sphere);
        }
}

TEST_F(MarkPolygonScene, PlaneVerdictDoesNotDependOnWhichVertexComesFirst) {
    // Triangles against the plane x = 0 (kept side x ≥ 0), each listed from all three of its
    // vertices in turn: a triangle with some part on the kept side is marked whatever the
    // rotation, one with no point strictly on the kept side never is.
    using Corners = std::array<std::array<int, 3>, 3>;
    struct Case {
        const char* name;
        Corners corners;
        bool marked;
    };
    const Case cases[] = {
        {"one vertex below", {{{-1000, -3000, 0}, {3000, -4000, 0}, {3000, -2000, 0}}}, true},
        {"two vertices below", {{{-3000, -3000, 0}, {2000, -1000, 0}, {-3000, 1000, 0}}}, true},
        {"one below, two on the plane", {{{-1000, 0, 0}, {0, -3000, 0}, {0, 3000, 0}}}, false},
        {"one above, two on the plane", {{{1000, 0, 0}, {0, 3000, 0}, {0, -3000, 0}}}, true},
    };
    // A triangle lying in the second plane (every vertex exactly on it) is kept by it, also when
    // the first plane sends it to the clipper; its part on the first plane's kept side is marked.
    const MMPlaneEq<double> acrossX{1, 0, 0, 0}, inPlane{0, 0, 1, 0};
    for (const auto& planes : {std::vector{acrossX, inPlane}, std::vector{inPlane, acrossX}}) {
        auto mesh = std::make_unique<MStlBase>();
        MStlTriangle* lying =
            mesh->AddSurface(nullptr)->AddTriangle(-3000, -3000, 0, 3000, -2000, 0, 0, 3000, 0);
        MStlBaseOperatorMarkPolygon picker{kPixelsPerMm, kToleranceMm, false};
        Add(picker, *mesh);
        for (const MMPlaneEq<double>& plane : planes)
            picker.AddClippingPlane(plane);
        ASSERT_TRUE(Operate(picker, lasso));
        EXPECT_TRUE(lying->IsMarked()) << "lying in the plane, first plane c = " << planes[0].c;
    }
    for (const Case& c : cases)
        for (int rotation = 0; rotation < 3; ++rotation) {
            auto mesh = std::make_unique<MStlBase>();
            const auto& p = c.corners[rotation];
            const auto& q = c.corners[(rotation + 1) % 3];
            const auto& r = c.corners[(rotation + 2) % 3];
            MStlTriangle* triangle = mesh->AddSurface(nullptr)->AddTriangle(
                p[0], p[1], p[2], q[0], q[1], q[2], r[0], r[1], r[2]);
            MStlBaseOperatorMarkPolygon picker{kPixelsPerMm, kToleranceMm, false};
            Add(picker, *mesh);
            picker.AddClippingPlane({1, 0, 0, 0});
            ASSERT_TRUE(Operate(picker, lasso));
            EXPECT_EQ(triangle->IsMarked(), c.marked) << c.name << ", rotation " << rotation;
        }
}

TEST_F(MarkPolygonScene, UnmarkRestoresTheMarksOfBefore) {
    auto sphere = scene::uvSphere({0, 0, 0}, 3000);
    auto plate = scene::plateWithHole(6000, 1500, 5000);
    plate->GetTriangle(0).Mark();  // a corner outside the lasso
    sphere->GetTriangle(sphere->GetNumberOfTriangles() / 2).Mark();
    const auto before = Marked(*plate), beforeSphere = Marked(*sphere);
    for (bool unmark : {false, true}) {
        MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
        Add(picker, *sphere);
        Add(picker, *plate);
        picker.SetUnmark(unmark);
        ASSERT_TRUE(Operate(picker, Rectangle(-3, -3, 3, 3)));
        if (!unmark) {
            EXPECT_GT(Marked(*plate).size(), before.size() + 10);
        }
    }
    EXPECT_EQ(Marked(*plate), before);
    EXPECT_LE(Marked(*sphere).size(), beforeSphere.size());
}

TEST_F(MarkPolygonScene, BrushStrokeMarksAlongThePath) {
    auto plate = scene::plate(6000, 0, 40);
    const std::vector<point2d> path{{-4, -3}, {0, 1}, {4, -2}};
    const std::size_t radius = 1;  // screen units: 10 pixels
    Add(op, *plate);
    op.SetBrushPath(path, radius);
    ASSERT_TRUE(op.operate());

    const int r = int(radius * kPixelsPerMm);
    const point2i origin{int(std::floor(-4 * kPixelsPerMm)) - r,
                         int(std::floor(-3 * kPixelsPerMm)) - r};
    std::vector<point2d> pixels;
    for (const point2d& p : path)
        pixels.push_back({std::floor(p.x * kPixelsPerMm) - origin.x + 0.5,
                          std::floor(p.y * kPixelsPerMm) - origin.y + 0.5});
    oracle::RayCastOracle rays;
    rays.AddMesh(*plate, ModelToPixel(origin));
    const Pick pick{rays, oracle::BrushRegion(pixels, r), 8 * 10 + 2 * r + 1, 4 * 10 + 2 * r + 1};
    ExpectFrontPick(pick, Any, {plate.get()});
}

// A triangle seen edge-on (normal · viewing direction exactly 0) still draws a line of pixels;
// culling counts it as back-facing, both for a wholly markable mesh and for a markable surface.
TEST_F(MarkPolygonScene, BackFaceCullingTreatsEdgeOnAsBackFacing) {
    for (const bool culling : {false, true})
        for (const bool whole : {true, false}) {
            auto mesh = std::make_unique<MStlBase>();
            MStlSurface* surface = mesh->AddSurface(nullptr);
            MStlTriangle* edgeOn = surface->AddTriangle(0, -2000, -1000, 0, 2000, 0, 0, 0, 1000);
            MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
            Add(picker, *mesh, whole);
            if (!whole)
                picker.SetMarkableSurface(surface);
            picker.SetBackFaceCulling(culling);
            ASSERT_TRUE(Operate(picker, lasso));
            EXPECT_EQ(edgeOn->IsMarked(), !culling) << "whole " << whole;
        }
}

TEST_F(MarkPolygonScene, DefaultToleranceIsFiftyInternalUnits) {
    // A back plate entirely covered by a front plate is marked only within the tolerance.
    for (auto [gap, backMarked] : {std::pair{30, true}, {80, false}}) {
        auto front = scene::plate(800, 0, 2);
        auto back = scene::plate(700, -gap, 2);
        MStlBaseOperatorMarkPolygon defaults, explicitOnes(5.0, 0.05, false);
        for (MStlBaseOperatorMarkPolygon* picker : {&defaults, &explicitOnes}) {
            Add(*picker, *front);
            Add(*picker, *back);
            ASSERT_TRUE(Operate(*picker, Rectangle(-1, -1, 1, 1)));
            EXPECT_EQ(Marked(*front).size(), front->GetNumberOfTriangles());
            EXPECT_EQ(Marked(*back).size(), backMarked ? back->GetNumberOfTriangles() : 0)
                << "gap " << gap;
            UnmarkAll(*front), UnmarkAll(*back);
        }
    }
}

TEST(MarkPolygonSetUp, PolygonVerticesAreFlooredToPixelsAtTheDefaultFivePerUnit) {
    // 100 internal units per screen unit, 5 pixels per screen unit: (1.3, 2.0) becomes pixel
    // (6, 10), the box origin, so the pixel whose centre is screen (1.2, 2.0) is selected and
    // the one at (1.0, 2.0) is not. At 10 pixels per unit the first would lie left of the box.
    const MMTransformMatrix view = Scale(0.01), placement;
    MStlBase mesh;
    MStlSurface& s = *mesh.AddSurface(nullptr);
    MStlTriangle* inside = s.AddTriangle(118, 198, 0, 122, 198, 0, 120, 202, 0);
    MStlTriangle* outside = s.AddTriangle(98, 198, 0, 102, 198, 0, 100, 202, 0);
    MStlBaseOperatorMarkPolygon picker;
    picker.AddStl(&mesh, &view, &placement, true, nullptr);
    picker.SetPolygon({{1.3, 2.0}, {3.0, 2.0}, {3.0, 4.0}, {1.3, 4.0}});
    ASSERT_TRUE(picker.operate());
    EXPECT_TRUE(inside->IsMarked());
    EXPECT_FALSE(outside->IsMarked());
}

TEST(MarkPolygonSetUp, DegenerateRegions) {
    auto sphere = scene::uvSphere({0, 0, 0}, 3000, 8, 16);
    const MMTransformMatrix view = Scale(0.001), placement;
    MStlBaseOperatorMarkPolygon picker;
    picker.AddStl(sphere.get(), &view, &placement, true, nullptr);

    picker.SetPolygon({});
    EXPECT_TRUE(picker.operate());
    picker.SetBrushPath({}, 2);
    EXPECT_TRUE(picker.operate());
    EXPECT_TRUE(Marked(*sphere).empty());

    // 700 001 × 400 001 pixels exceed the raster limit.
    picker.SetPolygon(Rectangle(0, 0, 140000, 80000));
    EXPECT_FALSE(picker.operate());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    picker.SetBrushPath({{0, 0}, {nan, 1}}, 1);
    EXPECT_FALSE(picker.operate());
    picker.SetBrushPath({{0, 0}, {1e12, 1}}, 1);
    EXPECT_FALSE(picker.operate());
    // Radii beyond the 32-bit pixel range, at 5 pixels per unit.
    for (const std::size_t radius : {std::size_t{1} << 29, std::size_t{1} << 40, SIZE_MAX}) {
        picker.SetBrushPath({{0, 0}}, radius);
        EXPECT_FALSE(picker.operate()) << radius;
    }
    EXPECT_TRUE(Marked(*sphere).empty());

    MStlBaseOperatorMarkPolygon empty;
    empty.SetPolygon(Rectangle(0, 0, 1, 1));
    EXPECT_TRUE(empty.operate());
}

}  // namespace
