#include <velpick/mark_polygon.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include <velpick/camera_view.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include "support/ray_cast_oracle.h"
#include "support/scene_builders.h"

using AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation;
using VelSDK::Math::point2d;
using VelSDK::Math::point2i;

namespace {

// Scenes are seen through a view of 1 screen unit per millimetre (1000 internal units) at 10
// pixels per screen unit.
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

const MMTransformMatrix kView = Scale(0.001), kNoPlacement;

std::vector<point2d> Rectangle(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

using TrianglePredicate = std::function<bool(const MStlTriangle&)>;

std::vector<const MStlTriangle*> Marked(MStlBase& mesh) {
    std::vector<const MStlTriangle*> result;
    for (MStlTriangle& t : mesh.Triangles())
        if (t.IsMarked())
            result.push_back(&t);
    return result;
}

/// What a pick is checked against: the rays, the region in the grid frame and its extent.
struct Pick {
    oracle::RayCastOracle rays;
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

/// A mesh of an oracle scene: wholly markable, or only its `markable` surface (none if null).
struct Placed {
    std::unique_ptr<MStlBase> mesh;
    MMTransformMatrix placement;
    bool whole = true;
    MStlSurface* markable = nullptr;
};

enum Option { kFront = 0, kCulling = 1, kThrough = 2, kSkipHidden = 4 };

struct OracleCase {
    using Build = std::function<std::vector<Placed>()>;
    OracleCase(const char* name, Build build, int options = kFront,
               std::vector<point2d> region = Rectangle(-5, -5, 5, 5), std::size_t brushRadius = 0,
               std::optional<MMPlaneEq<double>> plane = std::nullopt)
        : name(name),
          build(std::move(build)),
          culling(options & kCulling),
          through(options & kThrough),
          skipHidden(options & kSkipHidden),
          region(std::move(region)),
          brushRadius(brushRadius),
          plane(plane) {}

    const char* name;
    Build build;
    bool culling, through, skipHidden;
    std::vector<point2d> region;
    std::size_t brushRadius;                 // screen units; 0: `region` is a lasso
    std::optional<MMPlaneEq<double>> plane;  // placement space; placements with planes only shift
};

/// The region in the picker's pixel frame, as the rays see it: lasso corners and brush
/// centres floored to pixels relative to the box's lower-left pixel.
Pick RegionPick(const OracleCase& c, point2i& origin) {
    const int r = int(c.brushRadius * kPixelsPerMm);
    double minX = c.region[0].x, minY = c.region[0].y;
    for (const point2d& p : c.region)
        minX = std::min(minX, p.x), minY = std::min(minY, p.y);
    origin = {int(std::floor(minX * kPixelsPerMm)) - r, int(std::floor(minY * kPixelsPerMm)) - r};
    const double centre = r ? 0.5 : 0.0;  // discs are centred on pixel centres
    std::vector<point2d> pixels;
    int width = 0, height = 0;
    for (const point2d& p : c.region) {
        pixels.push_back({std::floor(p.x * kPixelsPerMm) - origin.x + centre,
                          std::floor(p.y * kPixelsPerMm) - origin.y + centre});
        width = std::max(width, int(pixels.back().x) + r + 1);
        height = std::max(height, int(pixels.back().y) + r + 1);
    }
    return {{}, r ? oracle::BrushRegion(pixels, r) : oracle::PolygonRegion(pixels), width, height};
}

/// Runs the case's pick and holds it against rays cast through every region pixel.
void ExpectOraclePick(const OracleCase& c) {
    SCOPED_TRACE(c.name);
    std::vector<Placed> meshes = c.build();
    MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, c.skipHidden);
    for (Placed& p : meshes) {
        picker.AddStl(p.mesh.get(), &kView, &p.placement, p.whole, nullptr);
        picker.SetMarkableSurface(p.markable);
    }
    if (c.plane)
        picker.AddClippingPlane(*c.plane);
    picker.SetBackFaceCulling(c.culling);
    picker.SetMarkThrough(c.through);
    if (c.brushRadius)
        picker.SetBrushPath(c.region, c.brushRadius);
    else
        picker.SetPolygon(c.region);
    ASSERT_TRUE(picker.operate());

    point2i origin;
    Pick pick = RegionPick(c, origin);
    std::optional<MMPlaneEq<double>> modelPlane;
    for (const Placed& p : meshes) {
        if (c.plane)
            modelPlane = {c.plane->a, c.plane->b, c.plane->c,
                          c.plane->SignedValue(p.placement.TransformPoint({0, 0, 0}))};
        MMTransformMatrix modelView = kView;
        modelView.PostMultiply(p.placement);
        TrianglePredicate drawn;
        if (c.skipHidden)
            drawn = [](const MStlTriangle& t) { return t.GetSurface()->GetVisible(); };
        pick.rays.AddMesh(*p.mesh,
                          FindModelToCameraViewTransformation(modelView, kPixelsPerMm, origin),
                          drawn, modelPlane);
    }
    const TrianglePredicate markable = [&](const MStlTriangle& t) {
        for (const Placed& p : meshes)
            if (p.mesh.get() == t.GetStl())
                return (p.whole || t.GetSurface() == p.markable) &&
                       (!c.culling || t.GetNormal().z > 0);
        return false;
    };
    int sampled = 0;
    const int missed = MissedPixels(pick, markable, c.through, &sampled);
    EXPECT_GT(sampled, 100);
    EXPECT_LE(missed, c.through ? 0 : kAllowedMissFraction * sampled)
        << missed << " of " << sampled;
    for (const Placed& p : meshes)
        for (const MStlTriangle* t : Marked(*p.mesh)) {
            const oracle::Projected* projected = pick.rays.Find(t);
            EXPECT_TRUE(projected && Explained(pick, *projected, c.through));
            EXPECT_TRUE(markable(*t));
            if (modelPlane) {  // a triangle wholly on the cut-away side is never marked
                EXPECT_GE(std::max({modelPlane->SignedValue(t->GetVertex(0)),
                                    modelPlane->SignedValue(t->GetVertex(1)),
                                    modelPlane->SignedValue(t->GetVertex(2))}),
                          0.0);
            }
        }
}

std::vector<Placed> One(std::unique_ptr<MStlBase> mesh, const MMTransformMatrix& placement = {}) {
    std::vector<Placed> meshes;
    meshes.push_back({std::move(mesh), placement});
    return meshes;
}

std::vector<Placed> SphereBehindAPlateWithAHole() {
    std::vector<Placed> meshes = One(scene::uvSphere({0, 0, 0}, 3000));
    meshes.push_back({scene::plateWithHole(6000, 1500, 5000), {}});
    return meshes;
}

/// One mesh: a ball surface behind a shield surface, with the shield hidden or only
/// `ballMarkable`; and a small plate in front that is never markable.
std::vector<Placed> BallAndShield(bool hiddenShield) {
    std::vector<Placed> meshes;
    Placed& p = meshes.emplace_back(Placed{std::make_unique<MStlBase>(), {}, hiddenShield});
    MStlSurface* ball = p.mesh->AddSurface(nullptr);
    MStlSurface* shield = p.mesh->AddSurface(nullptr);
    scene::addUvSphere(*ball, {0, 0, 0}, 3000, 24, 48);
    if (hiddenShield) {
        scene::addGrid(*shield, {-6000, -6000, 5000}, {12000, 0, 0}, {0, 12000, 0}, 4);
        shield->SetVisible(false);
        return meshes;
    }
    scene::addPlateWithHole(*shield, 6000, 1500, 5000, 16);
    p.markable = ball;
    meshes.push_back({scene::plate(1000, 6000, 2), {}, false});
    return meshes;
}

TEST(MarkPolygon, PicksWhatRaysThroughTheRegionHit) {
    const auto sphere = [] { return scene::uvSphere({0, 0, 0}, 3000); };
    const OracleCase cases[] = {
        {"sphere behind a plate with a hole", SphereBehindAPlateWithAHole},
        {"mark-through", SphereBehindAPlateWithAHole, kThrough, Rectangle(-2, -1, 2, 1.5)},
        {"placed cubes hide each other",
         [] {
             std::vector<Placed> meshes = One(scene::cube({0, 0, 0}, 2000, 8));
             meshes.push_back({scene::cube({0, 0, 0}, 2000, 8), Translation(1500, 1000, 4500)});
             return meshes;
         }},
        {"culling keeps the front half", [&] { return One(sphere()); }, kCulling},
        {"culling with a markable surface", [] { return BallAndShield(false); }, kCulling},
        {"markable surface, the rest occludes", [] { return BallAndShield(false); }},
        {"hidden surface skipped", [] { return BallAndShield(true); }, kSkipHidden},
        {"hidden surface drawn", [] { return BallAndShield(true); }},
        // Placed 1000 units nearer, the plane keeps model z ≤ 0: the far side shows.
        {"clipping plane opens the sphere", [&] { return One(sphere(), Translation(0, 0, 1000)); },
         kFront, Rectangle(-5, -5, 5, 5), 0, MMPlaneEq<double>{0, 0, -1, 1000}},
        {"brush stroke",
         [] { return One(scene::plate(6000, 0, 40)); },
         kFront,
         {{-4, -3}, {0, 1}, {4, -2}},
         1},
    };
    for (const OracleCase& c : cases)
        ExpectOraclePick(c);
}

bool Operate(MStlBaseOperatorMarkPolygon& picker, MStlBase& mesh, bool whole = true,
             const std::vector<point2d>& lasso = Rectangle(-5, -5, 5, 5)) {
    picker.AddStl(&mesh, &kView, &kNoPlacement, whole, nullptr);
    picker.SetPolygon(lasso);
    return picker.operate();
}

TEST(MarkPolygon, MarkThroughTurnsBackFaceCullingOffForLaterRuns) {
    auto awayPlate = scene::oneSurface([](MStlSurface& s) {  // facing −z, away from the viewer
        scene::addGrid(s, {-2000, -2000, 0}, {0, 4000, 0}, {4000, 0, 0}, 4);
    });
    MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
    picker.SetBackFaceCulling(true);
    picker.SetMarkThrough(true);
    ASSERT_TRUE(Operate(picker, *awayPlate));
    EXPECT_EQ(Marked(*awayPlate).size(), awayPlate->GetNumberOfTriangles());
    for (MStlTriangle& t : awayPlate->Triangles())
        t.Unmark();
    picker.SetMarkThrough(false);
    ASSERT_TRUE(picker.operate());
    EXPECT_EQ(Marked(*awayPlate).size(), awayPlate->GetNumberOfTriangles());
}

// A triangle seen edge-on (normal · viewing direction exactly 0) still draws a line of pixels;
// culling counts it as back-facing, both for a wholly markable mesh and for a markable surface.
TEST(MarkPolygon, BackFaceCullingTreatsEdgeOnAsBackFacing) {
    for (const bool culling : {false, true})
        for (const bool whole : {true, false}) {
            MStlBase mesh;
            MStlSurface* surface = mesh.AddSurface(nullptr);
            MStlTriangle* edgeOn = surface->AddTriangle(0, -2000, -1000, 0, 2000, 0, 0, 0, 1000);
            MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
            picker.SetBackFaceCulling(culling);
            picker.AddStl(&mesh, &kView, &kNoPlacement, whole, nullptr);
            picker.SetMarkableSurface(whole ? nullptr : surface);
            picker.SetPolygon(Rectangle(-5, -5, 5, 5));
            ASSERT_TRUE(picker.operate());
            EXPECT_EQ(edgeOn->IsMarked(), !culling) << "whole " << whole;
        }
}

/// Records the order in which triangles are marked, each run of calls for one triangle once.
struct MarkOrder : IStlMarkTriangles {
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override {
        if (marked.empty() || marked.back() != &t)
            marked.push_back(&t);
    }
    void Unmark(MStlTriangle&) override {}

    std::vector<const MStlTriangle*> marked;
};

// A triangle, listed from each of its vertices in turn, then one on every plane's kept side.
// A triangle with no point strictly on a plane's kept side (≥ 0) is dropped; one with every
// vertex on it, the plane included, is marked whole in its place; any other is cut, and its
// pieces are marked after the mesh's whole triangles (mark-through marks in triangle order). A
// plane without a normal maps to NaN and removes every triangle, alone or with others.
TEST(MarkPolygon, ClippingPlaneVerdicts) {
    using Corners = std::array<std::array<int, 3>, 3>;
    enum Verdict { kRemoved, kDropped, kWhole, kCut };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const MMPlaneEq<double> acrossX{1, 0, 0, 0}, inPlane{0, 0, 1, 0};
    const Corners big{{{-3000, -3000, 0}, {3000, -2000, 0}, {0, 3000, 0}}};
    struct Case {
        const char* name;
        Corners corners;
        std::vector<MMPlaneEq<double>> planes;
        Verdict verdict;
    };
    const Case cases[] = {
        {"one vertex cut",
         {{{-1000, -3000, 0}, {3000, -4000, 0}, {3000, -2000, 0}}},
         {acrossX},
         kCut},
        {"two vertices cut",
         {{{-3000, -3000, 0}, {2000, -1000, 0}, {-3000, 1000, 0}}},
         {acrossX},
         kCut},
        {"one below, two on the plane",
         {{{-1000, 0, 0}, {0, -3000, 0}, {0, 3000, 0}}},
         {acrossX},
         kDropped},
        {"one above, two on the plane",
         {{{1000, 0, 0}, {0, 3000, 0}, {0, -3000, 0}}},
         {acrossX},
         kWhole},
        {"lying in the plane", big, {inPlane}, kWhole},
        {"lying in the second plane", big, {acrossX, inPlane}, kCut},
        {"lying in the first plane", big, {inPlane, acrossX}, kCut},
        {"zero normal", big, {{0, 0, 0, 1}}, kRemoved},
        {"zero plane", big, {{0, 0, 0, 0}}, kRemoved},
        {"zero normal, cutting away", big, {{0, 0, 0, -1}}, kRemoved},
        {"tiny normal", big, {{1e-170, 0, 0, 5}}, kRemoved},
        {"NaN normal", big, {{nan, 0, 1, 0}}, kRemoved},
        {"zero normal after a cut", big, {acrossX, {0, 0, 0, 1}}, kRemoved},
        {"zero normal before a keeping plane", big, {{0, 0, 0, 1}, {0, 0, 1, 1e9}}, kRemoved},
    };
    for (const Case& c : cases)
        for (int rotation = 0; rotation < 3; ++rotation)
            for (const bool markThrough : {false, true}) {
                MStlBase mesh;
                MStlSurface& surface = *mesh.AddSurface(nullptr);
                const auto& p = c.corners[rotation];
                const auto& q = c.corners[(rotation + 1) % 3];
                const auto& r = c.corners[(rotation + 2) % 3];
                const MStlTriangle* t =
                    surface.AddTriangle(p[0], p[1], p[2], q[0], q[1], q[2], r[0], r[1], r[2]);
                const MStlTriangle* other =
                    surface.AddTriangle(1000, 1000, 0, 3000, 1000, 0, 2000, 3000, 0);
                MarkOrder sink;
                MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
                picker.AddStl(&mesh, &kView, &kNoPlacement, true, &sink);
                for (const MMPlaneEq<double>& plane : c.planes)
                    picker.AddClippingPlane(plane);
                picker.SetMarkThrough(markThrough);
                picker.SetPolygon(Rectangle(-5, -5, 5, 5));
                ASSERT_TRUE(picker.operate());
                std::vector<const MStlTriangle*> expected;
                if (c.verdict == kWhole || (c.verdict == kCut && markThrough))
                    expected = {t, other};
                else if (c.verdict == kCut)
                    expected = {other, t};
                else if (c.verdict == kDropped)
                    expected = {other};
                EXPECT_EQ(sink.marked, expected)
                    << c.name << ", rotation " << rotation << ", through " << markThrough;
            }
}

TEST(MarkPolygon, DefaultToleranceIsFiftyInternalUnitsAtFivePixelsPerUnit) {
    // A back plate entirely covered by a front plate is marked only within the tolerance.
    for (auto [gap, backMarked] : {std::pair{30, true}, {80, false}}) {
        auto front = scene::plate(800, 0, 2);
        auto back = scene::plate(700, -gap, 2);
        MStlBaseOperatorMarkPolygon defaults;
        defaults.AddStl(back.get(), &kView, &kNoPlacement, true, nullptr);
        ASSERT_TRUE(Operate(defaults, *front, true, Rectangle(-1, -1, 1, 1)));
        EXPECT_EQ(Marked(*front).size(), front->GetNumberOfTriangles());
        EXPECT_EQ(Marked(*back).size(), backMarked ? back->GetNumberOfTriangles() : 0)
            << "gap " << gap;
    }
    // 100 internal units per screen unit, 5 pixels per unit: (1.3, 2.0) is floored to pixel
    // (6, 10), the box origin, so the pixel whose centre is screen (1.2, 2.0) is selected and
    // the one at (1.0, 2.0) is not. At 10 pixels per unit the first would lie left of the box.
    const MMTransformMatrix view = Scale(0.01);
    MStlBase mesh;
    MStlSurface& s = *mesh.AddSurface(nullptr);
    MStlTriangle* inside = s.AddTriangle(118, 198, 0, 122, 198, 0, 120, 202, 0);
    MStlTriangle* outside = s.AddTriangle(98, 198, 0, 102, 198, 0, 100, 202, 0);
    MStlBaseOperatorMarkPolygon picker;
    picker.AddStl(&mesh, &view, &kNoPlacement, true, nullptr);
    picker.SetPolygon({{1.3, 2.0}, {3.0, 2.0}, {3.0, 4.0}, {1.3, 4.0}});
    ASSERT_TRUE(picker.operate());
    EXPECT_TRUE(inside->IsMarked());
    EXPECT_FALSE(outside->IsMarked());
}

TEST(MarkPolygon, DegenerateRegions) {
    auto sphere = scene::uvSphere({0, 0, 0}, 3000, 8, 16);
    MStlBaseOperatorMarkPolygon picker;
    EXPECT_TRUE(Operate(picker, *sphere, true, {}));
    picker.SetBrushPath({}, 2);
    EXPECT_TRUE(picker.operate());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // 700 001 × 400 001 pixels exceed the raster limit; so do paths and radii beyond 32 bits.
    picker.SetPolygon(Rectangle(0, 0, 140000, 80000));
    EXPECT_FALSE(picker.operate());
    picker.SetBrushPath({{0, 0}, {nan, 1}}, 1);
    EXPECT_FALSE(picker.operate());
    picker.SetBrushPath({{0, 0}, {1e12, 1}}, 1);
    EXPECT_FALSE(picker.operate());
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
