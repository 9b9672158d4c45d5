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

#include <velpick/host/feature_graphs.h>
#include <velpick/host/named_mask.h>
#include <velpick/host/stl_base.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"

namespace {

using VelSDK::Math::point3d;
using Corner = std::array<int, 3>;
using NamedEdgeMask = MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>;
const VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>
    releaseNamed;

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

Corner coordinates(const MStlPoint& p) {
    return {p[0], p[1], p[2]};
}

// ---- Masks ----

TEST(MaskTest, GrowsInStepAcrossBlocksCopiesSwapsAndUnregisters) {
    using Mask = MDataMask<MStlTriangle, int>;
    MStlBase stl;
    MStlSurface& surface = *stl.AddSurface(nullptr);
    const int count = Mask::kBlockSize + 76;
    {
        Mask mask(stl.GetMasks(), -1), copy(stl.GetMasks(), 0);
        EXPECT_EQ(stl.GetMasks().GetNumberOfMasks(), 2u);
        for (int i = 0; i < count; ++i) {
            MStlTriangle* triangle = addNumberedTriangle(surface, i);
            EXPECT_EQ(mask.GetInfo(*triangle), -1);
            mask.SetInfo(*triangle, 10 * i);
            EXPECT_EQ(mask.Size(), stl.GetNumberOfTriangles());
        }
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(mask.GetInfo(stl.GetTriangle(i)), 10 * i);
        mask.CopyInfo(stl.GetTriangle(5), stl.GetTriangle(1030));
        mask.CopyInfo(std::size_t{1099}, std::size_t{6});
        mask.SwapInfo(stl.GetTriangle(0), stl.GetTriangle(1099));
        EXPECT_EQ((std::array{mask[1030], mask[6], mask[0], mask[1099]}),
                  (std::array{50, 10990, 10990, 0}));
        mask.SwapInfo(std::size_t{0}, std::size_t{1099});
        EXPECT_EQ(mask[0], 0);
        copy.CopyFrom(mask);
        mask._SetDefault(1050);
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(copy[i], i == 1050 ? 10500 : mask[i]) << i;
        EXPECT_EQ(mask[1050], -1);
    }
    EXPECT_EQ(stl.GetMasks().GetNumberOfMasks(), 0u);
    addNumberedTriangle(surface, 2000);  // would touch a dangling mask if still registered
    // A mask made late starts with its default for every element.
    MDataMask<MStlPoint, float> pointMask(stl.GetMasks(), 2.5f);
    ASSERT_EQ(pointMask.Size(), stl.GetNumberOfPoints());
    for (const MStlPoint& p : stl.Vertices())
        EXPECT_EQ(pointMask.GetInfo(p), 2.5f);
}

TEST(MaskTest, MasksOutlivingTheirMeshAreDetached) {
    auto stl = std::make_unique<MStlBase>();
    auto mask = std::make_unique<MDataMask<MStlTriangle, int>>(stl->GetMasks(), 4);
    mask->SetInfo(*addNumberedTriangle(*stl->AddSurface(nullptr), 0), 11);
    auto* named = NamedEdgeMask::Create(stl.get(), L"late");
    ASSERT_NE(named, nullptr);
    stl.reset();
    EXPECT_EQ(mask->GetOwner(), nullptr);
    EXPECT_EQ((*mask)[0], 11);
    EXPECT_EQ(mask->Size(), 1u);
    mask.reset();  // must not unregister from the dead mesh
    releaseNamed(named);
}

TEST(MaskTest, NamedMaskNameIsTakenUntilDeletedPerThread) {
    MStlBase stl;
    EXPECT_EQ(NamedEdgeMask::Create(nullptr, L"x"), nullptr);
    MStlScalarMaskGraphEdges* first = NamedEdgeMask::Create(&stl, L"filtered_by_planes");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(NamedEdgeMask::Create(&stl, L"filtered_by_planes"), nullptr);
    // Another thread's operator gets its own mask of that name.
    std::thread([&] {
        MStlScalarMaskGraphEdges* mine = NamedEdgeMask::Create(&stl, L"filtered_by_planes");
        EXPECT_NE(mine, nullptr);
        releaseNamed(mine);
    }).join();
    MStlScalarMaskGraphEdges* other = NamedEdgeMask::Create(&stl, L"other");
    ASSERT_NE(other, nullptr);
    releaseNamed(first);
    MStlScalarMaskGraphEdges* again = NamedEdgeMask::Create(&stl, L"filtered_by_planes");
    EXPECT_NE(again, nullptr);
    releaseNamed(again);
    releaseNamed(other);
    EXPECT_EQ(stl.GetMasks().GetNumberOfMasks(), 0u);
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
    EXPECT_EQ((std::array<std::size_t, 3>{t0->GetPointIndex(0), t0->GetPointIndex(1),
                                          t0->GetPointIndex(2)}),
              (std::array<std::size_t, 3>{0, 1, 2}));
    EXPECT_EQ((std::array<std::size_t, 3>{t1->GetPoint(2)->GetMaskIndex(), t2->GetPointIndex(0),
                                          t2->GetPoint(2)->GetMaskIndex()}),
              (std::array<std::size_t, 3>{3, 4, 5}));
}

TEST(MeshTest, ElementsAddedOneByOneOrInBatchesKeepTheirPlaceOrderAndSurfaces) {
    // Storage reserved ahead, outgrown, reserved again mid-chunk and outgrown again; single
    // additions and batches of every size around the storage chunk; surfaces taking turns;
    // masks registered beforehand; vertices found through the coordinate index afterwards.
    MStlBase stl;
    MDataMask<MStlPoint, int> pointMask(stl.GetMasks(), 6);
    MDataMask<MStlTriangle, int> triangleMask(stl.GetMasks(), 4);
    const auto vertex = [](std::uint32_t i) {
        const auto v = static_cast<std::int32_t>(i);
        return Corner{v, -3 * v, v * v % 1001};
    };
    std::vector<const MStlPoint*> early;
    stl.Reserve(20000, 0);
    for (std::uint32_t i = 0; i < 25000; ++i)
        early.push_back(stl.AddDistinctPoint(vertex(i)[0], vertex(i)[1], vertex(i)[2]));
    stl.Reserve(40001, 0);
    stl.Reserve(100, 0);  // less than held: nothing changes
    for (const std::uint32_t count : {0u, 1u, 16383u, 16385u, 5u}) {
        std::vector<std::int32_t> xyz;
        for (std::uint32_t i = 0; i < count; ++i) {
            const Corner v = vertex(std::uint32_t(stl.GetNumberOfPoints()) + i);
            xyz.insert(xyz.end(), v.begin(), v.end());
        }
        stl.AddDistinctPoints(xyz.data(), count);
    }
    const std::uint32_t points = 25000 + 16383 + 16385 + 6;
    ASSERT_EQ(stl.GetNumberOfPoints(), points);
    EXPECT_EQ(pointMask.Size(), points);
    std::uint32_t i = 0;
    for (const MStlPoint& p : stl.Vertices()) {
        ASSERT_EQ(&p, &stl.GetPoint(i));
        EXPECT_TRUE(i >= early.size() || &p == early[i]) << i;
        EXPECT_EQ(coordinates(p), vertex(i)) << i;
        EXPECT_EQ(p.GetMaskIndex(), i);
        EXPECT_EQ(pointMask.GetInfo(p), 6);
        ++i;
    }
    EXPECT_EQ(i, points);
    const Corner last = vertex(points - 1);
    EXPECT_EQ(stl.FindPoint(last[0], last[1], last[2]), &stl.GetPoint(points - 1));
    EXPECT_EQ(stl.FindOrAddPoint(1, -3, 1), &stl.GetPoint(1));
    EXPECT_EQ(stl.GetNumberOfPoints(), points);

    std::mt19937 random(9);
    MStlSurface* surfaces[2] = {stl.AddSurface(nullptr), stl.AddSurface(nullptr)};
    std::vector<std::uint32_t> corners, onSurface[2];
    for (const std::uint32_t count : {1u, 0u, 20000u, 7u, 3u, 17001u}) {
        const std::size_t first = corners.size() / 3;
        corners.resize(corners.size() + 3 * count);
        for (std::size_t k = 3 * first; k < corners.size(); ++k)
            corners[k] = random() % points;
        for (std::uint32_t t = first; t < first + count; ++t)
            onSurface[count % 2].push_back(t);
        if (count == 17001u)  // one at a time
            for (std::size_t t = first; t < first + count; ++t)
                surfaces[count % 2]->AddTriangle(stl.GetPoint(corners[3 * t]),
                                                 stl.GetPoint(corners[3 * t + 1]),
                                                 stl.GetPoint(corners[3 * t + 2]));
        else
            surfaces[count % 2]->AddTriangles(&corners[3 * first], count);
    }
    ASSERT_EQ(stl.GetNumberOfTriangles(), corners.size() / 3);
    EXPECT_EQ(triangleMask.Size(), corners.size() / 3);
    std::size_t t = 0;
    for (const MStlTriangle& triangle : stl.Triangles()) {
        ASSERT_EQ(&triangle, &stl.GetTriangle(t));
        EXPECT_EQ(triangle.GetMaskIndex(), t);
        for (std::size_t k = 0; k < 3; ++k)
            ASSERT_EQ(triangle.GetPointIndex(k), corners[3 * t + k]) << t;
        EXPECT_EQ(triangleMask.GetInfo(triangle), 4);
        ++t;
    }
    for (int s = 0; s < 2; ++s) {
        std::vector<std::uint32_t> listed;
        for (const MStlTriangle& triangle : std::as_const(*surfaces[s]).Triangles()) {
            EXPECT_EQ(triangle.GetSurface(), surfaces[s]);
            listed.push_back(std::uint32_t(triangle.GetMaskIndex()));
        }
        EXPECT_EQ(listed, onSurface[s]);
        EXPECT_EQ(surfaces[s]->GetNumberOfTriangles(), onSurface[s].size());
    }
    const auto normals = stl.GetTriangleNormals();
    ASSERT_EQ(normals->size(), t);
    EXPECT_EQ((*normals)[t - 1], stl.GetTriangle(t - 1).GetNormal());
    // A corner naming no vertex refuses the whole batch.
    const std::uint32_t bad[] = {0, 1, 2, 3, 4, points};
    EXPECT_THROW(surfaces[0]->AddTriangles(bad, 2), std::out_of_range);
    EXPECT_EQ(stl.GetNumberOfTriangles(), t);
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
    std::vector<MStlSurface*> visited, ranged;
    for (auto it = MStlIteratorFeatureSurface::Begin(&stl);
         it != MStlIteratorFeatureSurface::End(&stl); it._GoToNextSubFeature())
        visited.push_back(&*it);
    for (MStlSurface& s : stl.Surfaces())
        ranged.push_back(&s);
    EXPECT_EQ(visited, expected);
    EXPECT_EQ(ranged, expected);
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
    const auto corner = [&] {
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

// ---- Sharp-edge and feature graphs ----

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

// Independent oracle: every vertex pair of the mesh in an ordered map, with the triangles that
// use it and the half-edge (triangle by triangle, corners 0–1, 1–2, 2–0) that first met it.
struct PairUse {
    std::size_t firstHalfEdge;
    const MStlPoint *from, *to;
    std::vector<const MStlTriangle*> users;

    // Two users whose normals are both non-zero and make more than `degrees`, by acos.
    bool Sharp(double degrees) const {
        if (users.size() != 2)
            return false;
        const point3d n0 = users[0]->GetNormal(), n1 = users[1]->GetNormal();
        return dot(n0, n0) > 0.0 && dot(n1, n1) > 0.0 &&
               std::acos(std::clamp(dot(n0, n1), -1.0, 1.0)) * kDegrees > degrees;
    }
};

std::map<VertexPair, PairUse> pairUses(const MStlBase& stl) {
    std::map<VertexPair, PairUse> uses;
    std::size_t halfEdge = 0;
    for (const MStlTriangle& t : stl.Triangles())
        for (std::size_t c = 0; c < 3; ++c, ++halfEdge) {
            const MStlPoint *a = t.GetPoint(c), *b = t.GetPoint((c + 1) % 3);
            uses.try_emplace(unordered(a, b), PairUse{halfEdge, a, b, {}})
                .first->second.users.push_back(&t);
        }
    return uses;
}

std::set<VertexPair> sharpEdgeOracle(const MStlBase& stl, double degrees, bool borders) {
    std::set<VertexPair> result;
    for (const auto& [pair, use] : pairUses(stl)) {
        const std::size_t n = use.users.size();
        if (n > 2 || use.Sharp(degrees) || (borders && n == 1) ||
            (borders && n == 2 && use.users[0]->GetSurface() != use.users[1]->GetSurface()))
            result.insert(pair);
    }
    return result;
}

// Edges in order of their first half-edge, from the vertex first used to the other.
std::vector<VertexPair> featureEdgeOracle(const MStlBase& stl, double degrees) {
    std::map<const MStlPoint*, std::size_t> number;
    for (const MStlTriangle& t : stl.Triangles())
        for (std::size_t c = 0; c < 3; ++c)
            number.try_emplace(t.GetPoint(c), number.size());
    std::map<std::size_t, VertexPair> inOrder;
    for (const auto& [pair, use] : pairUses(stl))
        if (use.users.size() != 2 || use.Sharp(degrees))
            inOrder[use.firstHalfEdge] = number[use.from] < number[use.to]
                                             ? VertexPair{use.from, use.to}
                                             : VertexPair{use.to, use.from};
    std::vector<VertexPair> edges;
    for (const auto& [first, pair] : inOrder)
        edges.push_back(pair);
    return edges;
}

TEST(SharpEdgeGraphTest, CubeThresholdsAndNaN) {
    const auto mesh = cube();
    MStlBase& stl = *mesh;
    EXPECT_EQ(AddSharpEdgeGraph(stl, 30.0, false)->GetNumberOfEdges(), 12u);
    EXPECT_EQ(AddSharpEdgeGraph(stl, 0.0, false)->GetNumberOfEdges(), 12u);   // diagonals: 0°
    EXPECT_EQ(AddSharpEdgeGraph(stl, -1.0, false)->GetNumberOfEdges(), 18u);  // every edge
    EXPECT_EQ(AddSharpEdgeGraph(stl, 90.0, true)->GetNumberOfEdges(), 0u);    // closed, 90°
    EXPECT_THROW(AddSharpEdgeGraph(stl, NAN, false), std::invalid_argument);
    EXPECT_EQ(stl.GetGraphs().size(), 4u);  // the rejected call adds no graph
    EXPECT_EQ(stl.GetGraphs()[0]->GraphEdges().begin()->GetGraph(), stl.GetGraphs()[0].get());
}

TEST(SharpEdgeGraphTest, SurfaceBordersComeOnceInOrderOfFirstAppearance) {
    MStlBase stl;
    addTriangle(*stl.AddSurface(nullptr), {0, 0, 0}, {10, 0, 0}, {0, 10, 0});
    addTriangle(*stl.AddSurface(nullptr), {10, 0, 0}, {10, 10, 0}, {0, 10, 0});  // coplanar
    EXPECT_EQ(AddSharpEdgeGraph(stl, 10.0, false)->GetNumberOfEdges(), 0u);
    auto p = [&](int x, int y) { return stl.FindPoint(x, y, 0); };
    const std::vector<VertexPair> expected = {{p(0, 0), p(10, 0)},
                                              {p(10, 0), p(0, 10)},
                                              {p(0, 10), p(0, 0)},
                                              {p(10, 0), p(10, 10)},
                                              {p(10, 10), p(0, 10)}};
    EXPECT_EQ(graphEdges(*AddSharpEdgeGraph(stl, 10.0, true)), expected);
}

TEST(SharpEdgeGraphTest, MatchesAMapOfVertexPairsOnRandomMeshes) {
    std::mt19937 random(11);
    std::uniform_int_distribution<int> coordinate(0, 3);
    for (int trial = 0; trial < 20; ++trial) {
        MStlBase stl;
        MStlSurface* surfaces[2] = {stl.AddSurface(nullptr), stl.AddSurface(nullptr)};
        const auto corner = [&] {
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
                EXPECT_EQ(got, sharpEdgeOracle(stl, degrees, borders));
            }
    }
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
            EXPECT_EQ(graphEdges(FeatureEdgeGraph(*stl, degrees)), featureEdgeOracle(*stl, degrees))
                << degrees << " degrees";
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
