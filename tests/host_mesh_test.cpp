#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
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

double dot(const point3d& a, const point3d& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

// ---- A mesh against the triangle soup it was built from ----

// Triangles of three distinct points of the lattice [-range/2, range/2)³ scaled by `spacing`,
// on two surfaces that take turns every `run` triangles.
struct Soup {
    std::vector<std::array<Corner, 3>> triangles;
    std::size_t run;
    std::map<Corner, std::uint32_t> number;  // in order of first use
    int surface(std::size_t i) const { return i / run % 2; }
};

Soup randomSoup(unsigned seed, std::size_t count, std::size_t run, int range, int spacing) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> step(-range / 2, range - 1 - range / 2);
    Soup soup{{}, run, {}};
    while (soup.triangles.size() < count) {
        std::array<Corner, 3> t;
        for (Corner& c : t)
            for (int& x : c)
                x = step(random) * spacing;
        if (t[0] == t[1] || t[1] == t[2] || t[0] == t[2])
            continue;
        soup.triangles.push_back(t);
        for (const Corner& c : t)
            soup.number.try_emplace(c, soup.number.size());
    }
    return soup;
}

// The mesh's number for a soup vertex: in batches vertices are made last used first, so that
// creation and first use differ.
std::uint32_t vertexOf(const Soup& soup, bool inBatches, const Corner& c) {
    const std::uint32_t n = soup.number.at(c);
    return inBatches ? std::uint32_t(soup.number.size()) - 1 - n : n;
}

// The two ways a mesh grows: by coordinates, merging equal ones; or (inBatches) distinct
// vertices in batches, then each run of a surface as a batch by vertex number and its last
// triangle by coordinates.
std::array<MStlSurface*, 2> build(MStlBase& stl, const Soup& soup, bool inBatches) {
    const std::array surfaces = {stl.AddSurface(nullptr), stl.AddSurface(nullptr)};
    const std::size_t n = soup.number.size(), count = soup.triangles.size();
    std::vector<std::int32_t> xyz(3 * n);
    std::vector<std::uint32_t> corners;
    for (const auto& [c, number] : soup.number)
        std::copy(c.begin(), c.end(), &xyz[3 * vertexOf(soup, inBatches, c)]);
    for (const auto& t : soup.triangles)
        for (const Corner& c : t)
            corners.push_back(vertexOf(soup, inBatches, c));
    if (inBatches) {
        stl.Reserve(n / 2, count / 2);                              // outgrown below
        const std::size_t first = std::min<std::size_t>(n, 16385);  // past a storage chunk
        stl.AddDistinctPoints(xyz.data(), first);
        stl.AddDistinctPoints(xyz.data() + 3 * first, n - first);
    }
    for (std::size_t i = 0, j = 1; i < count; i = j++) {
        while (inBatches && j < count && soup.surface(j) == soup.surface(i))
            ++j;
        surfaces[soup.surface(i)]->AddTriangles(corners.data() + 3 * i, j - i - 1);
        const auto& t = soup.triangles[j - 1];
        addTriangle(*surfaces[soup.surface(i)], t[0], t[1], t[2]);
    }
    return surfaces;
}

// The right-hand unit normal of a soup triangle, zero when its corners are collinear.
point3d expectedNormal(const std::array<Corner, 3>& t) {
    const auto e = [&](int k, int axis) { return double(t[k][axis] - t[0][axis]); };
    const point3d n{e(1, 1) * e(2, 2) - e(1, 2) * e(2, 1), e(1, 2) * e(2, 0) - e(1, 0) * e(2, 2),
                    e(1, 0) * e(2, 1) - e(1, 1) * e(2, 0)};
    const double length = std::sqrt(dot(n, n));
    return length > 0 ? point3d{n.x / length, n.y / length, n.z / length} : n;
}

TEST(MeshTest, EveryWayOfGrowingGivesTheSoupsVerticesTrianglesSurfacesMasksAndNormals) {
    constexpr double kNormalTolerance = 1e-12;
    // A small soup shares vertices; the large one spans storage chunks and mask blocks.
    for (const Soup& soup : {randomSoup(1, 30, 3, 4, 1), randomSoup(2, 40000, 20000, 40, 5000)})
        for (const bool inBatches : {false, true}) {
            MStlBase stl;
            MDataMask<MStlPoint, int> pointMask(stl.GetMasks(), 6);
            const auto surfaces = build(stl, soup, inBatches);
            ASSERT_EQ(stl.GetNumberOfPoints(), soup.number.size());
            ASSERT_EQ(stl.GetNumberOfTriangles(), soup.triangles.size());
            for (const auto& [c, number] : soup.number) {
                const MStlPoint& p = stl.GetPoint(vertexOf(soup, inBatches, c));
                EXPECT_EQ(stl.FindPoint(c[0], c[1], c[2]), &p);
                EXPECT_EQ(pointMask.GetInfo(p), 6);
            }
            std::array<std::vector<std::size_t>, 2> onSurface, listed;
            std::size_t i = 0;
            for (const MStlTriangle& t : stl.Triangles()) {
                EXPECT_EQ(t.GetMaskIndex(), i);
                for (std::size_t k = 0; k < 3; ++k)
                    ASSERT_EQ(t.GetPointIndex(k), vertexOf(soup, inBatches, soup.triangles[i][k]));
                EXPECT_EQ(t.GetSurface(), surfaces[soup.surface(i)]);
                onSurface[soup.surface(i)].push_back(i);
                const point3d n = t.GetNormal(), e = expectedNormal(soup.triangles[i]);
                ASSERT_LT(std::hypot(n.x - e.x, n.y - e.y, n.z - e.z), kNormalTolerance) << i;
                ++i;
            }
            for (int s = 0; s < 2; ++s)
                for (const MStlTriangle& t : std::as_const(*surfaces[s]).Triangles())
                    listed[s].push_back(t.GetMaskIndex());
            EXPECT_EQ(listed, onSurface);
            // A corner naming no vertex refuses the whole batch.
            const std::uint32_t bad[] = {0, 1, 2, 0, 1, std::uint32_t(soup.number.size())};
            EXPECT_THROW(surfaces[0]->AddTriangles(bad, 2), std::out_of_range);
            EXPECT_EQ(stl.GetNumberOfTriangles(), i);
        }
}

TEST(MaskTest, NamesAreTakenPerThreadUntilReleasedAndMasksOutliveTheirMesh) {
    auto stl = std::make_unique<MStlBase>();
    const auto create = [&](const wchar_t* name) { return NamedEdgeMask::Create(stl.get(), name); };
    MStlScalarMaskGraphEdges *first = create(L"filtered_by_planes"), *other = create(L"other");
    MStlScalarMaskGraphEdges* theirs = nullptr;  // another thread's operator gets its own
    std::thread([&] { theirs = create(L"filtered_by_planes"); }).join();
    ASSERT_TRUE(first && other && theirs);
    EXPECT_EQ(create(L"filtered_by_planes"), nullptr);
    releaseNamed(first);
    releaseNamed(theirs);
    EXPECT_NE(first = create(L"filtered_by_planes"), nullptr);
    releaseNamed(first);
    EXPECT_EQ(stl->GetMasks().GetNumberOfMasks(), 1u);
    // A mask that goes first unregisters (growing would touch it otherwise); one that outlives
    // its mesh is detached, as is a named mask.
    { MDataMask<MStlTriangle, int> gone(stl->GetMasks(), 3); }
    auto mask = std::make_unique<MDataMask<MStlTriangle, int>>(stl->GetMasks(), 4);
    mask->SetInfo(*addTriangle(*stl->AddSurface(nullptr), {0, 0, 0}, {0, 1, 0}, {0, 0, 1}), 11);
    stl.reset();
    EXPECT_EQ(mask->GetOwner(), nullptr);
    EXPECT_EQ((std::array{(*mask)[0], int(mask->Size())}), (std::array{11, 1}));
    mask.reset();  // must not unregister from the dead mesh
    releaseNamed(other);
}

TEST(MeshTest, SurfacesAreVisitedDepthFirstOnce) {
    MStlBase stl;
    std::vector<MStlSurface*> made, visited;
    for (int parent : {-1, 0, -1, 1, 0, 2})  // a, a1, b, a1x, a2, b1
        made.push_back(stl.AddSurface(parent < 0 ? nullptr : made[parent]));
    for (MStlSurface& s : stl.Surfaces())
        visited.push_back(&s);
    EXPECT_EQ(visited, (std::vector{made[0], made[1], made[3], made[4], made[2], made[5]}));
}

// ---- Sharp-edge and feature graphs ----

using VertexPair = std::pair<const MStlPoint*, const MStlPoint*>;

std::vector<VertexPair> graphEdges(const MStlGraph& graph) {
    std::vector<VertexPair> edges;
    for (const MStlGraphEdge& e : graph.GraphEdges())
        edges.push_back({e.GetVertex(0), e.GetVertex(1)});
    return edges;
}

// Independent oracle: the half-edges (3 × triangle + corner, from corner c to c + 1) of every
// vertex pair in an ordered map; the kept pairs in order of the half-edge that first met them.
// A sharp-edge graph orients an edge as first met, a feature graph from the vertex first used;
// an angle counts only between two non-zero normals, by acos.
std::vector<VertexPair> edgeOracle(const MStlBase& stl, double degrees, bool feature,
                                   bool borders) {
    const auto from = [&](std::size_t h) { return stl.GetTriangle(h / 3).GetPoint(h % 3); };
    const auto to = [&](std::size_t h) { return stl.GetTriangle(h / 3).GetPoint((h + 1) % 3); };
    std::map<VertexPair, std::vector<std::size_t>> halfEdges;
    std::map<const MStlPoint*, std::size_t> number;
    for (std::size_t h = 0; h < 3 * stl.GetNumberOfTriangles(); ++h) {
        number.try_emplace(from(h), number.size());
        halfEdges[std::minmax(from(h), to(h))].push_back(h);
    }
    std::vector<VertexPair> edges;
    for (std::size_t h = 0; h < 3 * stl.GetNumberOfTriangles(); ++h) {
        const std::vector<std::size_t>& uses = halfEdges[std::minmax(from(h), to(h))];
        const std::size_t n = uses.size();
        const MStlTriangle &t0 = stl.GetTriangle(uses[0] / 3),
                           &t1 = stl.GetTriangle(uses[n > 1] / 3);
        const point3d n0 = t0.GetNormal(), n1 = t1.GetNormal();
        const bool sharp = n == 2 && dot(n0, n0) > 0 && dot(n1, n1) > 0 &&
                           std::acos(std::clamp(dot(n0, n1), -1.0, 1.0)) * 180 / M_PI > degrees;
        const bool border = n == 1 || (n == 2 && t0.GetSurface() != t1.GetSurface());
        if (uses[0] == h && (feature ? n != 2 || sharp : n > 2 || sharp || (borders && border)))
            edges.push_back(feature && number[from(h)] > number[to(h)]
                                ? VertexPair{to(h), from(h)}
                                : VertexPair{from(h), to(h)});
    }
    return edges;
}

TEST(EdgeGraphTest, SharpAndFeatureGraphsMatchAMapOfVertexPairs) {
    std::vector<std::unique_ptr<MStlBase>> meshes;
    meshes.push_back(scene::cube({5, 5, 5}, 5, 1));
    meshes.push_back(scene::ToHostMesh(scene::NoisyTorus(20, 30, 60000.0, 25000.0, 0.04)));
    for (unsigned seed = 0; seed < 20; ++seed) {  // non-manifold, borders, degenerate
        meshes.push_back(std::make_unique<MStlBase>());
        build(*meshes.back(), randomSoup(seed, 30, 3, 4, 1), true);
    }
    // Threads asking at once share one build of a feature graph.
    MStlGraph* theirs = nullptr;
    std::thread other([&] { theirs = &FeatureEdgeGraph(*meshes[1], 30.0); });
    MStlGraph* mine = &FeatureEdgeGraph(*meshes[1], 30.0);
    other.join();
    EXPECT_EQ(mine, theirs);
    for (const auto& stl : meshes)
        for (double degrees : {-1.0, 0.5, 12.5, 25.0, 50.0, 100.0, 150.0}) {  // off exact angles
            SCOPED_TRACE(degrees);
            EXPECT_EQ(graphEdges(FeatureEdgeGraph(*stl, degrees)),
                      edgeOracle(*stl, degrees, true, false));
            for (bool borders : {false, true})
                EXPECT_EQ(graphEdges(*AddSharpEdgeGraph(*stl, degrees, borders)),
                          edgeOracle(*stl, degrees, false, borders));
        }
    // On the cube's exact angles: the diagonals make 0°, the cube's edges 90°, both not above.
    MStlBase& cube = *meshes[0];
    EXPECT_EQ(AddSharpEdgeGraph(cube, 0.0, false)->GetNumberOfEdges(), 12u);
    EXPECT_EQ(AddSharpEdgeGraph(cube, 90.0, true)->GetNumberOfEdges(), 0u);
    EXPECT_THROW(AddSharpEdgeGraph(cube, NAN, false), std::invalid_argument);
    EXPECT_THROW(FeatureEdgeGraph(cube, NAN), std::invalid_argument);
    EXPECT_EQ(cube.GetGraphs().size(), 7u * 2 + 2);  // neither the cache's nor a rejected one
    addTriangle(*cube.GetTopSurfaces()[0], {50, 0, 0}, {60, 0, 0}, {50, 10, 0});
    EXPECT_EQ(FeatureEdgeGraph(cube, 25.0).GetNumberOfEdges(), 12u + 3u);  // built again
}

}  // namespace
