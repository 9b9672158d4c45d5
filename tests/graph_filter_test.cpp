#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include <velpick/graph_filter_by_clipping_planes.h>
#include <velpick/host/named_mask.h>
#include "support/graph_builders.h"

namespace {

using graphs::Corner;

constexpr float kVisible = 1.0f, kCut = 0.0f, kInvisible = -1.0f, kUntouched = 42.0f;
const MMPlaneEq<double> kUpwards{0, 0, 1, 0};  // keeps z ≥ 0

bool Filter(graphs::GraphMesh& mesh, MStlScalarMaskGraphEdges& mask,
            const std::vector<MMPlaneEq<double>>& planes, bool thickness) {
    MStlGraphOperatorFilterByClippingPlanes filter;
    filter.SetGraph(&mesh.graph);
    filter.SetGraphMask(&mask);
    filter.SetWorkWithGraphThickness(thickness);
    for (const auto& plane : planes)
        filter.AddPlane(plane);
    return filter.Operate();
}

struct FilterTest : ::testing::Test {
    graphs::GraphMesh mesh;
    MStlScalarMaskGraphEdges mask{mesh.stl, kUntouched};

    bool run(const std::vector<MMPlaneEq<double>>& planes, bool thickness) {
        return Filter(mesh, mask, planes, thickness);
    }
    float value(const MStlGraphEdge& edge) const { return float(mask.GetScalar(edge)); }
};

// Thickness (4, 4) gives radius 2; only vertex 0 is widened in the cut-away test, so a thick
// edge's class depends on its direction.
TEST_F(FilterTest, ClassesOfOnePlaneWithAndWithoutThickness) {
    struct Case {
        Corner from, to;
        float thin, thick;
    };
    const Case cases[] = {
        {{0, 0, 5}, {0, 0, 7}, kVisible, kVisible},
        {{0, 0, -5}, {0, 0, 7}, kCut, kCut},
        {{0, 0, -5}, {0, 0, 0}, kInvisible, kInvisible},
        {{0, 0, 0}, {0, 0, 5}, kVisible, kCut},
        {{0, 0, 0}, {9, 0, 0}, kInvisible, kCut},
        {{0, 0, -2}, {0, 0, 0}, kInvisible, kInvisible},
        {{0, 0, 0}, {0, 0, -2}, kInvisible, kCut},
        {{5, 0, 1}, {5, 0, 9}, kVisible, kCut},
        {{0, 0, 3}, {0, 0, 9}, kVisible, kVisible},
    };
    for (const Case& c : cases)
        mesh.setThickness(mesh.edge(c.from, c.to), 4, 4);
    for (bool thickness : {false, true}) {
        ASSERT_TRUE(run({kUpwards}, thickness));
        std::size_t i = 0;
        for (const MStlGraphEdge& edge : mesh.graph.GraphEdges()) {
            EXPECT_EQ(value(edge), thickness ? cases[i].thick : cases[i].thin) << "edge " << i;
            ++i;
        }
    }
    // Without element information, thickness changes nothing.
    graphs::GraphMesh bare;
    const MStlGraphEdge& near = bare.edge({5, 0, 1}, {5, 0, 9});
    MStlScalarMaskGraphEdges bareMask(bare.stl, kUntouched);
    ASSERT_TRUE(Filter(bare, bareMask, {kUpwards}, true));
    EXPECT_EQ(bareMask.GetScalar(near), kVisible);
}

TEST_F(FilterTest, MissingInputsNoPlanesNaNAndChosenValues) {
    const MStlGraphEdge& edge = mesh.edge({0, 0, -5}, {0, 0, 7});
    MStlGraphOperatorFilterByClippingPlanes filter;
    filter.AddPlane(kUpwards);
    EXPECT_FALSE(filter.Operate());
    filter.SetGraph(&mesh.graph);
    EXPECT_FALSE(filter.Operate());  // no mask
    EXPECT_TRUE(run({}, false));     // no planes: nothing written
    EXPECT_EQ(value(edge), kUntouched);

    const double nan = std::numeric_limits<double>::quiet_NaN();
    ASSERT_TRUE(run({{0, 0, nan, 0}}, false));  // NaN neither cuts nor cuts away
    EXPECT_EQ(value(edge), kVisible);

    filter.SetGraphMask(&mask);
    filter.SetIntersectingValue(2.0f);
    ASSERT_TRUE(filter.Operate());
    EXPECT_EQ(value(edge), 2.0f);
}

// Without thickness the class does not depend on the order of the planes: cut away when both
// vertices are on or below some plane, else cut when one is strictly below some plane.
TEST_F(FilterTest, ThinEdgesAgainstAnOrderFreeOracle) {
    std::mt19937 random(18);
    std::uniform_int_distribution<int> c(-20, 20);
    for (int i = 0; i < 300; ++i)
        mesh.edge({c(random), c(random), c(random)}, {c(random), c(random), c(random)});
    std::vector<MMPlaneEq<double>> planes;
    for (int i = 0; i < 3; ++i)
        planes.push_back(
            {c(random) % 3 * 1.0, c(random) % 3 * 1.0, c(random) % 3 * 1.0, c(random) * 1.0});
    for (int order = 0; order < 3;
         ++order, std::rotate(planes.begin(), planes.begin() + 1, planes.end())) {
        ASSERT_TRUE(run(planes, false));
        for (const MStlGraphEdge& edge : mesh.graph.GraphEdges()) {
            bool cutAway = false, cut = false;
            for (const auto& plane : planes) {
                const MStlPoint &p = *edge.GetVertex(0), &q = *edge.GetVertex(1);
                const double d0 = plane.a * p[0] + plane.b * p[1] + plane.c * p[2] + plane.d;
                const double d1 = plane.a * q[0] + plane.b * q[1] + plane.c * q[2] + plane.d;
                cutAway |= std::max(d0, d1) <= 0;
                cut |= std::min(d0, d1) < 0;
            }
            EXPECT_EQ(value(edge), cutAway ? kInvisible : (cut ? kCut : kVisible));
        }
    }
}

}  // namespace
