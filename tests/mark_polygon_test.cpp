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
constexpr double kPixelsPerMm = 10.0, kToleranceMm = 0.05;
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

const MMTransformMatrix kView = Scale(0.001), kNoPlacement;

std::vector<point2d> Rectangle(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

const std::vector<point2d> kSquare = Rectangle(-5, -5, 5, 5);

using TrianglePredicate = std::function<bool(const MStlTriangle&)>;

constexpr int kFront = 0, kCulling = 1, kThrough = 2, kMarkableSurface = 4, kHiddenPlate = 8;

/// The rays through the square's pixels, and the square in the picker's pixel frame, whose
/// origin is the lower-left pixel of the square's box.
struct Pick {
    static constexpr int kWindow = 100;  // the square's width in pixels

    /// Region pixels, well inside, whose first hit (every hit when `through`) is markable but
    /// left unmarked; `sampled` counts the markable hits looked at.
    int Missed(const TrianglePredicate& markable, bool through, int& sampled) const {
        int missed = 0;
        for (int row = 0; row < kWindow; ++row)
            for (int column = 0; column < kWindow; ++column) {
                const double x = column + 0.5, y = row + 0.5;
                if (region(x, y) < 1.0)
                    continue;
                const auto front = rays.FirstHit(x, y);
                for (const oracle::Hit& hit : rays.AllHits(x, y))
                    if ((through || hit.triangle == front->triangle) && markable(*hit.triangle))
                        ++sampled, missed += !hit.triangle->IsMarked();
            }
        return missed;
    }

    /// Whether a marked triangle has a pixel centre near it, near the region, where it is not
    /// behind the front by more than the tolerance (any depth when `through`).
    bool Explained(const oracle::Projected& t, bool through) const {
        constexpr double kNear = 1.5;  // pixels: a span may reach a pixel this far away
        const double slack = 2.0 * oracle::DepthSlope(t) + 1.0;
        for (int row = int(std::floor(t.minY - 2)); row <= int(t.maxY + 2); ++row)
            for (int column = int(std::floor(t.minX - 2)); column <= int(t.maxX + 2); ++column) {
                const double x = column + 0.5, y = row + 0.5;
                const auto front = rays.FirstHit(x, y);
                if (region(x, y) >= -kNear && oracle::Distance(t, x, y) <= kNear &&
                    (through || !front ||
                     oracle::PlaneDepth(t, x, y) >= front->z - kToleranceUnits - slack))
                    return true;
            }
        return false;
    }

    const point2i origin{-50, -50};
    const oracle::RegionMargin region =
        oracle::PolygonRegion({{0, 0}, {kWindow, 0}, {kWindow, kWindow}, {0, kWindow}});
    oracle::RayCastOracle rays;
};

/// Picks a sphere behind a plate with a hole, as two meshes, and holds the marks against rays
/// cast through every lasso pixel. With kMarkableSurface only the sphere's own surface is
/// markable: the plate and a square in front of the hole, a second surface of the sphere's
/// mesh, hide parts of it. With kHiddenPlate the plate is switched invisible and not drawn.
void ExpectOraclePick(int options, std::optional<MMPlaneEq<double>> plane = std::nullopt) {
    SCOPED_TRACE(options);
    const bool culling = options & kCulling, through = options & kThrough;
    const bool onlyBall = options & kMarkableSurface, hidden = options & kHiddenPlate;
    auto sphere = scene::uvSphere({0, 0, 0}, 3000), plate = scene::plateWithHole(6000, 1500, 5000);
    MStlSurface* ball = sphere->GetTopSurfaces().front().get();
    if (onlyBall)
        scene::addGrid(*sphere->AddSurface(nullptr), {-1000, -1000, 4000}, {2000, 0, 0},
                       {0, 2000, 0}, 2);
    plate->GetTopSurfaces().front()->SetVisible(!hidden);
    MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, hidden);
    for (MStlBase* mesh : {sphere.get(), plate.get()}) {
        picker.AddStl(mesh, &kView, &kNoPlacement, !onlyBall, nullptr);
        picker.SetMarkableSurface(onlyBall && mesh == sphere.get() ? ball : nullptr);
    }
    if (plane)
        picker.AddClippingPlane(*plane);
    picker.SetBackFaceCulling(culling);
    picker.SetMarkThrough(through);
    picker.SetPolygon(kSquare);
    ASSERT_TRUE(picker.operate());

    Pick pick;
    const TrianglePredicate markable = [&](const MStlTriangle& t) {
        return (!onlyBall || t.GetSurface() == ball) && (!culling || t.GetNormal().z > 0);
    };
    for (MStlBase* mesh : {sphere.get(), plate.get()})
        if (mesh == sphere.get() || !hidden)
            pick.rays.AddMesh(*mesh,
                              FindModelToCameraViewTransformation(kView, kPixelsPerMm, pick.origin),
                              {}, plane);
    int sampled = 0;
    const int missed = pick.Missed(markable, through, sampled);
    EXPECT_GT(sampled, 100);
    EXPECT_LE(missed, through ? 0 : kAllowedMissFraction * sampled) << missed;
    for (MStlBase* mesh : {sphere.get(), plate.get()})
        for (MStlTriangle& t : mesh->Triangles()) {
            // A triangle wholly on the cut-away side is never marked.
            const auto kept = [&](int k) { return plane->SignedValue(t.GetVertex(k)); };
            EXPECT_TRUE(!t.IsMarked() ||
                        (markable(t) && pick.rays.Find(&t) &&
                         pick.Explained(*pick.rays.Find(&t), through) &&
                         (!plane || std::max({kept(0), kept(1), kept(2)}) >= 0.0)));
        }
}

TEST(MarkPolygon, PicksWhatRaysThroughTheRegionHit) {
    for (const int options :
         {kFront, kThrough, kCulling, kCulling | kMarkableSurface, kHiddenPlate})
        ExpectOraclePick(options);
    // The plane keeps z ≤ 0: the plate is cut away, the sphere's far side shows.
    ExpectOraclePick(kFront, MMPlaneEq<double>{0, 0, -1, 0});
}

// A triangle seen edge-on (normal · viewing direction exactly 0) still draws a line of pixels;
// culling counts it as back-facing, both for a wholly markable mesh and for a markable surface.
// Mark-through marks it anyway and turns culling off for the picker's later runs.
TEST(MarkPolygon, BackFaceCullingDropsEdgeOnTrianglesUntilMarkThrough) {
    for (const bool culling : {false, true})
        for (const bool whole : {true, false}) {
            MStlBase mesh;
            MStlSurface* surface = mesh.AddSurface(nullptr);
            MStlTriangle* edgeOn = surface->AddTriangle(0, -2000, -1000, 0, 2000, 0, 0, 0, 1000);
            MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
            picker.SetBackFaceCulling(culling);
            picker.AddStl(&mesh, &kView, &kNoPlacement, whole, nullptr);
            picker.SetMarkableSurface(whole ? nullptr : surface);
            picker.SetPolygon(kSquare);
            for (const int run : {0, 1, 2}) {  // the second with mark-through
                picker.SetMarkThrough(run == 1);
                edgeOn->Unmark();
                ASSERT_TRUE(picker.operate());
                EXPECT_EQ(edgeOn->IsMarked(), !culling || run > 0) << whole << run;
            }
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
    enum Verdict { kRemoved, kDropped, kWhole, kCut };
    using Plane = MMPlaneEq<double>;
    using Corners = std::array<scene::V, 3>;
    const Plane acrossX{1, 0, 0, 0}, inPlane{0, 0, 1, 0}, noNormal{0, 0, 0, 1};
    const Corners big{{{-3000, -3000, 0}, {3000, -2000, 0}, {0, 3000, 0}}};
    const struct {
        Corners corners;
        std::vector<Plane> planes;
        Verdict verdict;
    } cases[] = {
        {{{{-1000, -3000, 0}, {3000, -4000, 0}, {3000, -2000, 0}}}, {acrossX}, kCut},
        {{{{-3000, -3000, 0}, {2000, -1000, 0}, {-3000, 1000, 0}}}, {acrossX}, kCut},
        {{{{-1000, 0, 0}, {0, -3000, 0}, {0, 3000, 0}}}, {acrossX}, kDropped},  // two on the plane
        {{{{1000, 0, 0}, {0, 3000, 0}, {0, -3000, 0}}}, {acrossX}, kWhole},
        {big, {inPlane}, kWhole},
        {big, {acrossX, inPlane}, kCut},
        {big, {inPlane, acrossX}, kCut},
        {big, {noNormal}, kRemoved},
        {big, {{1e-170, 0, 0, 5}}, kRemoved},
        {big, {{std::numeric_limits<double>::quiet_NaN(), 0, 1, 0}}, kRemoved},
        {big, {acrossX, noNormal}, kRemoved},
        {big, {noNormal, {0, 0, 1, 1e9}}, kRemoved},
    };
    for (const auto& c : cases)
        for (int rotation = 0; rotation < 3; ++rotation)
            for (const bool markThrough : {false, true}) {
                MStlBase mesh;
                MStlSurface& surface = *mesh.AddSurface(nullptr);
                const auto corner = [&](int k) { return c.corners[(rotation + k) % 3]; };
                const MStlTriangle* t =
                    scene::addTriangle(surface, corner(0), corner(1), corner(2));
                const MStlTriangle* other =
                    scene::addTriangle(surface, {1000, 1000, 0}, {3000, 1000, 0}, {2000, 3000, 0});
                MarkOrder sink;
                MStlBaseOperatorMarkPolygon picker(kPixelsPerMm, kToleranceMm, false);
                picker.AddStl(&mesh, &kView, &kNoPlacement, true, &sink);
                for (const Plane& plane : c.planes)
                    picker.AddClippingPlane(plane);
                picker.SetMarkThrough(markThrough);
                picker.SetPolygon(kSquare);
                ASSERT_TRUE(picker.operate());
                const std::vector<const MStlTriangle*> byVerdict[] = {
                    {}, {other}, {t, other}, {other, t}};
                EXPECT_EQ(sink.marked,
                          byVerdict[markThrough && c.verdict == kCut ? kWhole : c.verdict])
                    << "case " << &c - cases << ", rotation " << rotation << ", " << markThrough;
            }
}

// 100 internal units per screen unit, 5 pixels per unit: (1.3, 2.0) is floored to pixel
// (6, 10), the box origin, so the pixel whose centre is screen (1.2, 2.0) is selected and the
// one at (1.0, 2.0) is not; at 10 pixels per unit the first would lie left of the box. Behind a
// square, a triangle 30 units back is within the tolerance and one 80 units back is not.
// Empty regions mark nothing; oversized ones fail and mark nothing either.
TEST(MarkPolygon, DefaultsAreFivePixelsPerUnitAndFiftyUnitsOfTolerance) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        std::vector<point2d> path;
        std::size_t radius;  // 0: a lasso
        bool succeeds;
    } regions[] = {
        {{}, 0, true},
        {{}, 2, true},
        // 700 001 × 400 001 pixels exceed the raster limit; so do paths and radii beyond 32 bits.
        {Rectangle(0, 0, 140000, 80000), 0, false},
        {{{0, 0}, {nan, 1}}, 1, false},
        {{{0, 0}, {1e12, 1}}, 1, false},
        {{{0, 0}}, std::size_t{1} << 29, false},
        {{{0, 0}}, std::size_t{1} << 40, false},
        {{{0, 0}}, SIZE_MAX, false},
        {{{1.3, 2.0}, {3.0, 2.0}, {3.0, 4.0}, {1.3, 4.0}}, 0, true},
    };
    const MMTransformMatrix view = Scale(0.01);
    MStlBase mesh;
    MStlSurface& s = *mesh.AddSurface(nullptr);
    scene::addQuad(s, {180, 280, 0}, {140, 0, 0}, {0, 140, 0});
    s.AddTriangle(118, 198, 0, 122, 198, 0, 120, 202, 0);
    s.AddTriangle(220, 320, -30, 280, 320, -30, 250, 370, -30);
    const MStlTriangle* unmarked[] = {s.AddTriangle(98, 198, 0, 102, 198, 0, 100, 202, 0),
                                      s.AddTriangle(220, 320, -80, 280, 320, -80, 250, 370, -80)};
    MStlBaseOperatorMarkPolygon picker;
    picker.AddStl(&mesh, &view, &kNoPlacement, true, nullptr);
    for (const auto& r : regions) {
        r.radius ? picker.SetBrushPath(r.path, r.radius) : picker.SetPolygon(r.path);
        EXPECT_EQ(picker.operate(), r.succeeds) << &r - regions;
        for (const MStlTriangle& t : mesh.Triangles())
            EXPECT_EQ(t.IsMarked(),
                      &r == std::end(regions) - 1 && std::count(unmarked, unmarked + 2, &t) == 0);
    }
    MStlBaseOperatorMarkPolygon noMesh;
    noMesh.SetPolygon(Rectangle(0, 0, 1, 1));
    EXPECT_TRUE(noMesh.operate());
}

}  // namespace
