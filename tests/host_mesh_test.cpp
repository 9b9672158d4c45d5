#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <velpick/host/element_info.h>
#include <velpick/host/feature_graphs.h>
#include <velpick/host/huge_pages.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/named_mask.h>
#include <velpick/host/stl_base.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"

namespace {

using VelSDK::Math::point3d;
using Corner = std::array<int, 3>;

MStlTriangle* addTriangle(MStlSurface& surface, Corner a, Corner b, Corner c) {
    return surface.AddTriangle(a[0], a[1], a[2], b[0], b[1], b[2], c[0], c[1], c[2]);
}

// A cube of edge 10 from the origin with outward normals, 12 triangles on one surface.
std::unique_ptr<MStlBase> cube() {
    return scene::cube({5, 5, 5}, 5, 1);
}

// Triangle i of a strip of distinct triangles, for meshes that cross mask block boundaries.
MStlTriangle* addNumberedTriangle(MStlSurface& surface, int i) {
    return addTriangle(surface, {i, 0, 0}, {i, 1, 0}, {i, 0, 1});
}

double dot(const point3d& a, const point3d& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

// ---- Masks ----

class MaskTest : public ::testing::Test {
  protected:
    MStlBase stl;
    MStlSurface& surface = *stl.AddSurface(nullptr);
};

TEST_F(MaskTest, GrowsInStepAcrossBlockBoundaryAndUnregisters) {
    using Mask = MDataMask<MStlTriangle, int>;
    const int count = Mask::kBlockSize + 1;
    const std::size_t before = stl.GetMasks().GetNumberOfMasks();
    {
        Mask mask(stl.GetMasks(), -1);
        EXPECT_EQ(stl.GetMasks().GetNumberOfMasks(), before + 1);
        for (int i = 0; i < count; ++i) {
            MStlTriangle* triangle = addNumberedTriangle(surface, i);
            EXPECT_EQ(mask.GetInfo(*triangle), -1);
            mask.SetInfo(*triangle, i);
            EXPECT_EQ(mask.Size(), stl.GetNumberOfTriangles());
        }
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(mask.GetInfo(stl.GetTriangle(i)), i);
    }
    EXPECT_EQ(stl.GetMasks().GetNumberOfMasks(), before);
    addNumberedTriangle(surface, 2000);  // would touch a dangling mask if still registered
    // A mask made late starts with its default for every element.
    MDataMask<MStlPoint, float> pointMask(stl.GetMasks(), 2.5f);
    MDataMask<MStlTriangle, unsigned char> triangleMask(stl.GetMasks(), 9);
    ASSERT_EQ(pointMask.Size(), stl.GetNumberOfPoints());
    ASSERT_EQ(triangleMask.Size(), count + 1u);
    for (const MStlPoint& p : stl.Vertices())
        EXPECT_EQ(pointMask.GetInfo(p), 2.5f);
    for (const MStlTriangle& t : stl.Triangles())
        EXPECT_EQ(triangleMask.GetInfo(t), 9);
}

TEST_F(MaskTest, CopySwapAndCopyFromAcrossBlocks) {
    MDataMask<MStlTriangle, int> mask(stl.GetMasks(), 0), copy(stl.GetMasks(), 0);
    for (int i = 0; i < 1100; ++i)
        mask.SetInfo(*addNumberedTriangle(surface, i), i * 10);
    mask.CopyInfo(stl.GetTriangle(5), stl.GetTriangle(1030));
    EXPECT_EQ(mask.GetInfo(stl.GetTriangle(1030)), 50);
    mask.CopyInfo(std::size_t{1099}, std::size_t{6});
    EXPECT_EQ(mask[6], 10990);
    mask.SwapInfo(stl.GetTriangle(0), stl.GetTriangle(1099));
    EXPECT_EQ(mask[0], 10990);
    EXPECT_EQ(mask[1099], 0);
    mask.SwapInfo(std::size_t{0}, std::size_t{1099});
    EXPECT_EQ(mask[0], 0);
    copy.CopyFrom(mask);
    for (std::size_t i = 0; i < 1100; ++i)
        EXPECT_EQ(copy[i], mask[i]);
    mask._SetDefault(1050);
    EXPECT_EQ(mask[1050], 0);
    EXPECT_EQ(copy[1050], 10500);
}

TEST(MaskLifetimeTest, MasksOutlivingTheirMeshAreDetached) {
    auto stl = std::make_unique<MStlBase>();
    auto mask = std::make_unique<MDataMask<MStlTriangle, int>>(stl->GetMasks(), 4);
    mask->SetInfo(*addNumberedTriangle(*stl->AddSurface(nullptr), 0), 11);
    auto* named = MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>::Create(
        stl.get(), L"late");
    ASSERT_NE(named, nullptr);
    stl.reset();
    EXPECT_EQ(mask->GetOwner(), nullptr);
    EXPECT_EQ((*mask)[0], 11);
    EXPECT_EQ(mask->Size(), 1u);
    mask.reset();  // must not unregister from the dead mesh
    VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>()(
        named);
}

// ---- Mesh, surfaces, triangles ----

TEST(MeshTest, EqualCoordinatesShareOneVertexNumberedInCornerOrder) {
    MStlBase stl;
    MStlSurface& a = *stl.AddSurface(nullptr);
    MStlSurface& b = *stl.AddSurface(nullptr);
    MStlTriangle* t0 = addTriangle(a, {0, 0, 0}, {5, 0, 0}, {0, 5, 0});
    MStlTriangle* t1 = addTriangle(b, {5, 0, 0}, {0, 5, 0}, {5, 5, -2});
    MStlTriangle* t2 = addTriangle(b, {7, 7, 7}, {0, 5, 0}, {8, 8, 8});
    EXPECT_EQ(stl.GetNumberOfPoints(), 6u);
    EXPECT_EQ(t0->GetPoint(1), t1->GetPoint(0));
    EXPECT_EQ(t0->GetPoint(2), t1->GetPoint(1));
    EXPECT_EQ(stl.FindPoint(5, 5, -2), t1->GetPoint(2));
    EXPECT_EQ(stl.FindPoint(5, 5, 2), nullptr);
    EXPECT_EQ(t1->GetSurface(), &b);
    EXPECT_EQ(&stl.GetTriangle(1), t1);
    for (std::size_t k = 0; k < 3; ++k)
        EXPECT_EQ(t0->GetPoint(k)->GetMaskIndex(), k);
    EXPECT_EQ(t1->GetPoint(2)->GetMaskIndex(), 3u);
    EXPECT_EQ(t2->GetPoint(0)->GetMaskIndex(), 4u);
    EXPECT_EQ(t2->GetPointIndex(2), 5u);
}

TEST(MeshTest, ManyElementsKeepTheirPlaceOrderAndSurfaces) {
    // Enough triangles to fill several storage chunks, alternating between two surfaces, with
    // vertices added without the coordinate index and found through it afterwards.
    MStlBase stl;
    MStlSurface* surfaces[2] = {stl.AddSurface(nullptr), stl.AddSurface(nullptr)};
    const int n = 40000;
    std::vector<MStlPoint*> points;
    for (int i = 0; i < n + 2; ++i)
        points.push_back(stl.AddDistinctPoint(i, -i, 2 * i));
    std::vector<MStlTriangle*> triangles;
    for (int i = 0; i < n; ++i)
        triangles.push_back(
            surfaces[i % 3 == 0]->AddTriangle(*points[i], *points[i + 1], *points[i + 2]));
    EXPECT_EQ(stl.FindOrAddPoint(n, -n, 2 * n), points[n]);
    EXPECT_EQ(stl.FindPoint(1, -1, 2), points[1]);
    EXPECT_EQ(stl.GetNumberOfPoints(), std::size_t(n + 2));

    std::size_t i = 0;
    for (MStlTriangle& t : stl.Triangles()) {
        ASSERT_EQ(&t, triangles[i]);
        EXPECT_EQ(t.GetMaskIndex(), i);
        EXPECT_EQ(t.GetPoint(2), points[i + 2]);
        EXPECT_EQ(t.GetSurface(), surfaces[i % 3 == 0]);
        ++i;
    }
    EXPECT_EQ(i, std::size_t(n));
    std::size_t previous = 0, count = 0;
    for (const MStlTriangle& t : std::as_const(*surfaces[1]).Triangles()) {
        EXPECT_EQ(t.GetMaskIndex() % 3, 0u);
        EXPECT_TRUE(count == 0 || t.GetMaskIndex() > previous);
        previous = t.GetMaskIndex(), ++count;
    }
    EXPECT_EQ(count, surfaces[1]->GetNumberOfTriangles());
    EXPECT_EQ(count, std::size_t((n + 2) / 3));

    const auto normals = stl.GetTriangleNormals();
    ASSERT_EQ(normals->size(), std::size_t(n));
    EXPECT_EQ((*normals)[n - 1], triangles[n - 1]->GetNormal());
}

TEST(MeshTest, BatchOfTrianglesEqualsSingleAdditions) {
    // Two meshes built alike, one triangle at a time and in batches, with surfaces taking
    // turns and a batch that crosses storage chunks; a triangle mask registered beforehand.
    MStlBase single, batched;
    MDataMask<MStlTriangle, int> singleMask(single.GetMasks(), 4),
        batchedMask(batched.GetMasks(), 4);
    std::mt19937 random(9);
    std::vector<std::uint32_t> corners;
    for (MStlBase* stl : {&single, &batched})
        for (int v = 0; v < 500; ++v)
            stl->AddDistinctPoint(v, 2 * v, 3 * v);
    MStlSurface* singleSurfaces[2] = {single.AddSurface(nullptr), single.AddSurface(nullptr)};
    MStlSurface* batchedSurfaces[2] = {batched.AddSurface(nullptr), batched.AddSurface(nullptr)};
    for (const std::size_t count : {1u, 0u, 20000u, 7u, 3u}) {
        const int s = static_cast<int>(count % 2);
        corners.resize(3 * count);
        for (std::uint32_t& corner : corners)
            corner = random() % 500;
        for (std::size_t t = 0; t < count; ++t)
            singleSurfaces[s]->AddTriangle(single.GetPoint(corners[3 * t]),
                                           single.GetPoint(corners[3 * t + 1]),
                                           single.GetPoint(corners[3 * t + 2]));
        batchedSurfaces[s]->AddTriangles(corners.data(), count);
    }
    ASSERT_EQ(batched.GetNumberOfTriangles(), single.GetNumberOfTriangles());
    EXPECT_EQ(batchedMask.Size(), batched.GetNumberOfTriangles());
    for (std::size_t t = 0; t < single.GetNumberOfTriangles(); ++t) {
        const MStlTriangle &a = single.GetTriangle(t), &b = batched.GetTriangle(t);
        EXPECT_EQ(b.GetMaskIndex(), t);
        for (std::size_t k = 0; k < 3; ++k)
            ASSERT_EQ(b.GetPointIndex(k), a.GetPointIndex(k)) << t;
        EXPECT_EQ(b.GetSurface() == batchedSurfaces[1], a.GetSurface() == singleSurfaces[1]);
        EXPECT_EQ(batchedMask.GetInfo(b), 4);
    }
    for (int s = 0; s < 2; ++s) {
        std::vector<std::size_t> expected, actual;
        for (const MStlTriangle& t : singleSurfaces[s]->Triangles())
            expected.push_back(t.GetMaskIndex());
        for (const MStlTriangle& t : batchedSurfaces[s]->Triangles())
            actual.push_back(t.GetMaskIndex());
        EXPECT_EQ(actual, expected);
        EXPECT_EQ(batchedSurfaces[s]->GetNumberOfTriangles(), expected.size());
    }

    // A corner naming no vertex refuses the whole batch.
    const std::uint32_t bad[] = {0, 1, 2, 3, 4, 500};
    EXPECT_THROW(batchedSurfaces[0]->AddTriangles(bad, 2), std::out_of_range);
    EXPECT_EQ(batched.GetNumberOfTriangles(), single.GetNumberOfTriangles());
}

TEST(MeshTest, BatchOfVerticesEqualsSingleAdditions) {
    // Batches of every size around the storage chunk, a vertex mask registered beforehand,
    // and the coordinate index built afterwards over the batched vertices.
    MStlBase single, batched;
    MDataMask<MStlPoint, int> singleMask(single.GetMasks(), 6), batchedMask(batched.GetMasks(), 6);
    std::vector<std::int32_t> xyz;
    std::size_t made = 0;
    for (const std::size_t count : {0u, 1u, 16383u, 16385u, 5u}) {
        xyz.clear();
        for (std::size_t k = 0; k < count; ++k, ++made) {
            const auto v = static_cast<std::int32_t>(made);
            xyz.insert(xyz.end(), {v, -3 * v, v * v % 1001});
            single.AddDistinctPoint(xyz[3 * k], xyz[3 * k + 1], xyz[3 * k + 2]);
        }
        batched.AddDistinctPoints(xyz.data(), count);
        ASSERT_EQ(batched.GetNumberOfPoints(), made);
        EXPECT_EQ(batchedMask.Size(), made);
    }
    for (std::size_t i = 0; i < made; ++i) {
        const MStlPoint &a = single.GetPoint(i), &b = batched.GetPoint(i);
        ASSERT_EQ((std::array<int, 3>{b[0], b[1], b[2]}), (std::array<int, 3>{a[0], a[1], a[2]}));
        EXPECT_EQ(b.GetMaskIndex(), i);
        EXPECT_EQ(batchedMask.GetInfo(b), 6);
    }
    const MStlPoint& last = batched.GetPoint(made - 1);
    EXPECT_EQ(batched.FindPoint(last[0], last[1], last[2]), &last);
    EXPECT_EQ(batched.FindOrAddPoint(1, -3, 1), &batched.GetPoint(1));
    EXPECT_EQ(batched.GetNumberOfPoints(), made);
}

TEST(MeshTest, ReservedStorageKeepsElementsInPlaceAndInOrder) {
    // Storage reserved ahead, outgrown, reserved again mid-chunk and outgrown again: every
    // vertex keeps its address and number, and walks see them all in creation order.
    MStlBase stl;
    std::vector<const MStlPoint*> made;
    const auto addUpTo = [&](int count) {
        for (int v = static_cast<int>(made.size()); v < count; ++v)
            made.push_back(stl.AddDistinctPoint(v, 7 * v, -v));
    };
    stl.Reserve(20000, 0);
    addUpTo(25000);
    stl.Reserve(40001, 0);
    stl.Reserve(100, 0);  // less than held: nothing changes
    addUpTo(40001);
    addUpTo(50000);
    ASSERT_EQ(stl.GetNumberOfPoints(), made.size());
    std::size_t i = 0;
    for (const MStlPoint& p : stl.Vertices()) {
        ASSERT_EQ(&p, made[i]) << i;
        EXPECT_EQ(&stl.GetPoint(i), made[i]);
        const int v = static_cast<int>(i);
        EXPECT_EQ((std::array<int, 3>{p[0], p[1], p[2]}), (std::array<int, 3>{v, 7 * v, -v}));
        EXPECT_EQ(p.GetMaskIndex(), i);
        ++i;
    }
    EXPECT_EQ(i, made.size());
}

TEST(HugePageAdviceTest, LeavesContentsAloneForAnyRange) {
    std::vector<unsigned char> bytes(5u << 20);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 131 + 7);
    const std::vector<unsigned char> before = bytes;
    MStlAdviseHugePages(bytes.data(), bytes.size());
    MStlAdviseHugePages(bytes.data() + 12345, 3u << 20);  // unaligned at both ends
    MStlAdviseHugePages(bytes.data() + 1, 100);           // within one small page
    MStlAdviseHugePages(bytes.data(), 0);
    EXPECT_EQ(bytes, before);
    bytes.assign(bytes.size(), 0);  // still ordinary writable memory
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 0), static_cast<long>(bytes.size()));
}

TEST(MeshTest, SurfaceIteratorVisitsTreeDepthFirstOnce) {
    MStlBase stl;
    MStlSurface* a = stl.AddSurface(nullptr);
    MStlSurface* a1 = stl.AddSurface(a);
    MStlSurface* b = stl.AddSurface(nullptr);
    MStlSurface* a1x = stl.AddSurface(a1);
    MStlSurface* a2 = stl.AddSurface(a);
    MStlSurface* b1 = stl.AddSurface(b);
    const std::vector<MStlSurface*> expected = {a, a1, a1x, a2, b, b1};

    std::vector<MStlSurface*> visited;
    for (auto it = MStlIteratorFeatureSurface::Begin(&stl);
         it != MStlIteratorFeatureSurface::End(&stl); it._GoToNextSubFeature())
        visited.push_back(&*it);
    EXPECT_EQ(visited, expected);

    visited.clear();
    for (MStlSurface& s : stl.Surfaces())
        visited.push_back(&s);
    EXPECT_EQ(visited, expected);

    MStlBase empty;
    EXPECT_FALSE(MStlIteratorFeatureSurface::Begin(&empty));
}

TEST(MeshTest, NormalIsUnitAndFollowsRightHandRule) {
    MStlBase stl;
    MStlSurface& s = *stl.AddSurface(nullptr);
    EXPECT_EQ(addTriangle(s, {0, 0, 0}, {10, 0, 0}, {0, 10, 0})->GetNormal(), (point3d{0, 0, 1}));
    EXPECT_EQ(addTriangle(s, {0, 0, 0}, {0, 10, 0}, {10, 0, 0})->GetNormal(), (point3d{0, 0, -1}));
    EXPECT_EQ(addTriangle(s, {0, 0, 0}, {1, 1, 1}, {2, 2, 2})->GetNormal(), (point3d{0, 0, 0}));

    std::mt19937 random(7);
    std::uniform_int_distribution<int> coordinate(-100000, 100000);
    auto corner = [&] {
        return Corner{coordinate(random), coordinate(random), coordinate(random)};
    };
    for (int i = 0; i < 200; ++i) {
        const MStlTriangle& t = *addTriangle(s, corner(), corner(), corner());
        const point3d a = t.GetVertex(0), b = t.GetVertex(1), c = t.GetVertex(2);
        const point3d u{b.x - a.x, b.y - a.y, b.z - a.z}, v{c.x - a.x, c.y - a.y, c.z - a.z};
        const point3d n = t.GetNormal();
        EXPECT_NEAR(dot(n, n), 1.0, 1e-12);
        EXPECT_NEAR(dot(n, u) / std::sqrt(dot(u, u)), 0.0, 1e-9);
        EXPECT_NEAR(dot(n, v) / std::sqrt(dot(v, v)), 0.0, 1e-9);
        // Counter-clockwise about n: the turn from u to v is positive about n.
        const point3d uxv{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
        EXPECT_GT(dot(n, uxv), 0.0);
    }
}

TEST(MeshTest, ElementInfoAndMarkingSinkOnACube) {
    const auto mesh = cube();
    MStlBase& stl = *mesh;
    MStlGraph* graph = AddSharpEdgeGraph(stl, 30.0, false);
    EXPECT_EQ(MStlBaseElementInfoStlDependency::GetDependency(&stl, false), nullptr);
    EXPECT_EQ(MStlBaseElementInfoStlDependency::GetDependency(nullptr, true), nullptr);
    auto* info = MStlBaseElementInfoStlDependency::GetDependency(&stl, true);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(MStlBaseElementInfoStlDependency::GetDependency(&stl, false), info);
    const MStlGraphEdge& edge = *graph->GraphEdges().begin();
    EXPECT_EQ(info->GetEdgeThickness(edge).first, 0);  // unset
    EXPECT_EQ(info->GetEdgeThickness(edge).second, 0);

    SCOPED_TRACE("the marking sink marks in its mask, not on the triangle");
    MStlMarkTrianglesByMasks sink(stl);
    IStlMarkTriangles& asInterface = sink;
    asInterface.Mark(stl.GetTriangle(3));
    asInterface.Mark(stl.GetTriangle(7));
    asInterface.Unmark(stl.GetTriangle(7));
    EXPECT_TRUE(sink.IsMarked(stl.GetTriangle(3)));
    EXPECT_FALSE(sink.IsMarked(stl.GetTriangle(7)));
    EXPECT_EQ(sink.GetNumberOfMarked(), 1u);
    for (const MStlTriangle& t : stl.Triangles())
        EXPECT_FALSE(t.IsMarked());
}

TEST(MeshTest, NamedMaskNameIsTakenUntilDeleted) {
    using Named = MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>;
    const VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>
        release;
    MStlBase stl;
    EXPECT_EQ(Named::Create(nullptr, L"x"), nullptr);
    MStlScalarMaskGraphEdges* first = Named::Create(&stl, L"filtered_by_planes");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Named::Create(&stl, L"filtered_by_planes"), nullptr);
    // Another thread's operator gets its own mask of that name.
    std::thread([&] {
        MStlScalarMaskGraphEdges* mine = Named::Create(&stl, L"filtered_by_planes");
        EXPECT_NE(mine, nullptr);
        release(mine);
    }).join();
    MStlScalarMaskGraphEdges* other = Named::Create(&stl, L"other");
    ASSERT_NE(other, nullptr);
    release(first);
    MStlScalarMaskGraphEdges* again = Named::Create(&stl, L"filtered_by_planes");
    EXPECT_NE(again, nullptr);
    release(again);
    release(other);
    EXPECT_EQ(stl.GetMasks().GetNumberOfMasks(), 0u);
}

// ---- Sharp-edge graphs ----

constexpr double kDegrees = 180.0 / 3.14159265358979323846;

using VertexPair = std::pair<const MStlPoint*, const MStlPoint*>;

VertexPair unordered(const MStlPoint* a, const MStlPoint* b) {
    return std::minmax(a, b);
}

std::vector<VertexPair> graphEdges(const MStlGraph& graph) {
    std::vector<VertexPair> edges;
    for (const MStlGraphEdge& e : graph.GraphEdges())
        edges.push_back({e.GetVertex(0), e.GetVertex(1)});
    return edges;
}

// Independent oracle: for every pair of vertices, the triangles that contain both.
std::set<VertexPair> bruteForceSharpEdges(MStlBase& stl, double degrees, bool borders) {
    std::set<VertexPair> result;
    for (const MStlPoint& p : stl.Vertices())
        for (const MStlPoint& q : stl.Vertices()) {
            if (!std::less<const MStlPoint*>()(&p, &q))
                continue;
            std::vector<const MStlTriangle*> users;
            for (const MStlTriangle& t : stl.Triangles()) {
                int hits = 0;
                for (std::size_t k = 0; k < 3; ++k)
                    hits += t.GetPoint(k) == &p || t.GetPoint(k) == &q;
                if (hits == 2)
                    users.push_back(&t);
            }
            bool sharp = users.size() > 2 || (borders && users.size() == 1);
            if (users.size() == 2) {
                const point3d n0 = users[0]->GetNormal(), n1 = users[1]->GetNormal();
                const bool hasAngle = dot(n0, n0) > 0.0 && dot(n1, n1) > 0.0;
                const double angle = std::acos(std::clamp(dot(n0, n1), -1.0, 1.0)) * kDegrees;
                sharp = (hasAngle && angle > degrees) ||
                        (borders && users[0]->GetSurface() != users[1]->GetSurface());
            }
            if (sharp)
                result.insert(unordered(&p, &q));
        }
    return result;
}

TEST(SharpEdgeGraphTest, CubeHasTwelveSharpEdgesAndSixFlatDiagonals) {
    const auto mesh = cube();
    MStlBase& stl = *mesh;
    EXPECT_EQ(AddSharpEdgeGraph(stl, 30.0, false)->GetNumberOfEdges(), 12u);
    EXPECT_EQ(AddSharpEdgeGraph(stl, 0.0, false)->GetNumberOfEdges(), 12u);   // diagonals: 0°
    EXPECT_EQ(AddSharpEdgeGraph(stl, -1.0, false)->GetNumberOfEdges(), 18u);  // every edge
    EXPECT_EQ(AddSharpEdgeGraph(stl, 90.0, true)->GetNumberOfEdges(), 0u);    // closed, 90°
    EXPECT_THROW(AddSharpEdgeGraph(stl, NAN, false), std::invalid_argument);
    EXPECT_EQ(stl.GetGraphs().size(), 4u);  // the rejected call adds no graph
    for (const MStlGraphEdge& e : stl.GetGraphs()[0]->GraphEdges()) {
        int differingAxes = 0;
        for (std::size_t axis = 0; axis < 3; ++axis)
            differingAxes += (*e.GetVertex(0))[axis] != (*e.GetVertex(1))[axis];
        EXPECT_EQ(differingAxes, 1);  // a cube edge, not a face diagonal
        EXPECT_EQ(e.GetGraph(), stl.GetGraphs()[0].get());
    }
}

TEST(SharpEdgeGraphTest, SurfaceBordersComeOnceInOrderOfFirstAppearanceAndNonManifoldEdges) {
    MStlBase stl;
    MStlSurface& a = *stl.AddSurface(nullptr);
    MStlSurface& b = *stl.AddSurface(nullptr);
    addTriangle(a, {0, 0, 0}, {10, 0, 0}, {0, 10, 0});
    addTriangle(b, {10, 0, 0}, {10, 10, 0}, {0, 10, 0});  // coplanar, other surface
    EXPECT_EQ(AddSharpEdgeGraph(stl, 10.0, false)->GetNumberOfEdges(), 0u);
    auto p = [&](int x, int y) { return stl.FindPoint(x, y, 0); };
    const std::vector<VertexPair> expected = {{p(0, 0), p(10, 0)},
                                              {p(10, 0), p(0, 10)},
                                              {p(0, 10), p(0, 0)},
                                              {p(10, 0), p(10, 10)},
                                              {p(10, 10), p(0, 10)}};
    EXPECT_EQ(graphEdges(*AddSharpEdgeGraph(stl, 10.0, true)), expected);

    MStlBase fins;
    MStlSurface& f = *fins.AddSurface(nullptr);
    for (Corner tip : {Corner{5, 10, 0}, Corner{5, -10, 0}, Corner{5, 0, 10}})
        addTriangle(f, {0, 0, 0}, {10, 0, 0}, tip);
    const std::vector<VertexPair> edges = graphEdges(*AddSharpEdgeGraph(fins, 179.0, false));
    ASSERT_EQ(edges.size(), 1u);
    EXPECT_EQ(unordered(edges[0].first, edges[0].second),
              unordered(fins.FindPoint(0, 0, 0), fins.FindPoint(10, 0, 0)));
}

TEST(SharpEdgeGraphTest, MatchesBruteForceOnRandomMeshes) {
    std::mt19937 random(11);
    std::uniform_int_distribution<int> coordinate(0, 3);
    for (int trial = 0; trial < 20; ++trial) {
        MStlBase stl;
        MStlSurface* surfaces[2] = {stl.AddSurface(nullptr), stl.AddSurface(nullptr)};
        auto corner = [&] {
            return Corner{coordinate(random), coordinate(random), coordinate(random)};
        };
        for (int i = 0; i < 30; ++i) {
            const Corner a = corner(), b = corner(), c = corner();
            if (a != b && b != c && a != c)
                addTriangle(*surfaces[i % 2], a, b, c);
        }
        for (double degrees : {-1.0, 25.0, 50.0, 100.0, 150.0})  // off the common exact angles
            for (bool borders : {false, true}) {
                const std::vector<VertexPair> edges =
                    graphEdges(*AddSharpEdgeGraph(stl, degrees, borders));
                std::set<VertexPair> got;
                for (const VertexPair& e : edges)
                    got.insert(unordered(e.first, e.second));
                EXPECT_EQ(got.size(), edges.size()) << "an edge appears twice";
                EXPECT_EQ(got, bruteForceSharpEdges(stl, degrees, borders));
            }
    }
}

// ---- The graph picker's feature graph ----

// Independent oracle: vertex pairs in an ordered map, edges in order of their first half-edge,
// vertices numbered in order of first use, angles from acos.
std::vector<VertexPair> mapFeatureEdges(const MStlBase& stl, double degrees) {
    struct Seen {
        std::size_t firstHalfEdge;
        const MStlPoint *from, *to;
        std::vector<const MStlTriangle*> users;
    };
    std::map<VertexPair, Seen> byPair;
    std::map<const MStlPoint*, std::size_t> number;
    std::size_t halfEdge = 0;
    for (const MStlTriangle& t : stl.Triangles())
        for (std::size_t c = 0; c < 3; ++c, ++halfEdge) {
            const MStlPoint *a = t.GetPoint(c), *b = t.GetPoint((c + 1) % 3);
            number.try_emplace(a, number.size());
            byPair.try_emplace(unordered(a, b), Seen{halfEdge, a, b, {}})
                .first->second.users.push_back(&t);
        }
    std::map<std::size_t, VertexPair> inOrder;
    for (const auto& [pair, e] : byPair) {
        bool keep = e.users.size() != 2;
        if (!keep) {
            const point3d n0 = e.users[0]->GetNormal(), n1 = e.users[1]->GetNormal();
            keep = dot(n0, n0) > 0.0 && dot(n1, n1) > 0.0 &&
                   std::acos(std::clamp(dot(n0, n1), -1.0, 1.0)) * kDegrees > degrees;
        }
        if (keep)
            inOrder[e.firstHalfEdge] =
                number[e.from] < number[e.to] ? VertexPair{e.from, e.to} : VertexPair{e.to, e.from};
    }
    std::vector<VertexPair> edges;
    for (const auto& [first, pair] : inOrder)
        edges.push_back(pair);
    return edges;
}

// The torus with its vertices created in reverse, so that first use and creation order differ.
std::unique_ptr<MStlBase> reversedTorus() {
    const scene::IndexedMesh torus = scene::NoisyTorus(12, 16, 6000.0, 2500.0, 0.3);
    auto stl = std::make_unique<MStlBase>();
    std::vector<std::int32_t> xyz;
    for (auto v = torus.vertices.rbegin(); v != torus.vertices.rend(); ++v)
        xyz.insert(xyz.end(), v->begin(), v->end());
    stl->AddDistinctPoints(xyz.data(), torus.vertices.size());
    std::vector<std::uint32_t> corners;
    for (const auto& face : torus.faces)
        for (std::uint32_t v : face)
            corners.push_back(static_cast<std::uint32_t>(torus.vertices.size() - 1 - v));
    stl->AddSurface(nullptr)->AddTriangles(corners.data(), torus.faces.size());
    return stl;
}

TEST(FeatureEdgeGraphTest, SameEdgesInTheSameOrderAsAMapOfVertexPairs) {
    std::vector<std::unique_ptr<MStlBase>> meshes;
    meshes.push_back(cube());
    meshes.push_back(scene::ToHostMesh(scene::NoisyTorus(20, 30, 60000.0, 25000.0, 0.04)));
    meshes.push_back(reversedTorus());
    meshes.push_back(std::make_unique<MStlBase>());  // fins: non-manifold, borders, a sliver
    MStlSurface& fins = *meshes.back()->AddSurface(nullptr);
    for (Corner tip : {Corner{5, 10, 0}, Corner{5, -10, 1}, Corner{5, 0, 10}, Corner{20, 0, 0}})
        addTriangle(fins, {0, 0, 0}, {10, 0, 0}, tip);
    for (const auto& stl : meshes)
        for (double degrees : {-1.0, 0.5, 12.5, 25.0, 50.0, 100.0, 150.0}) {
            std::vector<VertexPair> edges;
            for (const MStlGraphEdge& e : FeatureEdgeGraph(*stl, degrees).GraphEdges())
                edges.push_back({e.GetVertex(0), e.GetVertex(1)});
            EXPECT_EQ(edges, mapFeatureEdges(*stl, degrees)) << degrees << " degrees";
        }
}

TEST(FeatureEdgeGraphTest, BuiltOncePerAngleAndAgainWhenTrianglesAreAdded) {
    const auto mesh = cube();
    MStlGraph* graphs[4];
    std::vector<std::thread> threads;
    for (MStlGraph*& graph : graphs)
        threads.emplace_back([&] { graph = &FeatureEdgeGraph(*mesh, 30.0); });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(std::set<MStlGraph*>(std::begin(graphs), std::end(graphs)).size(), 1u);
    EXPECT_EQ(&FeatureEdgeGraph(*mesh, 30.0), graphs[0]);
    EXPECT_NE(&FeatureEdgeGraph(*mesh, 100.0), graphs[0]);
    EXPECT_EQ(graphs[0]->GetStl(), mesh.get());
    EXPECT_TRUE(mesh->GetGraphs().empty());  // the cache's graphs are not listed
    addTriangle(*mesh->GetTopSurfaces()[0], {50, 0, 0}, {60, 0, 0}, {50, 10, 0});
    EXPECT_EQ(FeatureEdgeGraph(*mesh, 30.0).GetNumberOfEdges(), 12u + 3u);  // its borders
    EXPECT_THROW(FeatureEdgeGraph(*mesh, NAN), std::invalid_argument);
}

}  // namespace
