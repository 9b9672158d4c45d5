#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "graph_filter_by_clipping_planes.h"
#include "named_mask.h"
#include "support/graph_builders.h"

namespace {

using graphs::Corner;
using graphs::GraphMesh;

constexpr float kVisible = 1.0f, kCut = 0.0f, kInvisible = -1.0f;
constexpr float kUntouched = 42.0f;
const MMPlaneEq<double> kUpwards{0, 0, 1, 0};  // keeps z ≥ 0

struct FilterTest : ::testing::Test {
    GraphMesh mesh;
    MStlScalarMaskGraphEdges mask{mesh.stl, kUntouched};

    bool run(std::vector<MMPlaneEq<double>> planes, bool thickness) {
        MStlGraphOperatorFilterByClippingPlanes filter;
        filter.SetGraph(&mesh.graph);
        filter.SetGraphMask(&mask);
        filter.SetWorkWithGraphThickness(thickness);
        for (const auto& plane : planes)
            filter.AddPlane(plane);
        return filter.Operate();
    }
    float value(const MStlGraphEdge& edge) const {
        return static_cast<float>(mask.GetScalar(edge));
    }
};

TEST_F(FilterTest, ClassesOfOnePlaneWithoutThickness) {
    struct Case {
        Corner from, to;
        float expected;
    };
    const Case cases[] = {
        {{0, 0, 5}, {0, 0, 7}, kVisible},    {{0, 0, -5}, {0, 0, 7}, kCut},
        {{0, 0, -5}, {0, 0, 0}, kInvisible}, {{0, 0, 0}, {0, 0, 5}, kVisible},
        {{0, 0, 5}, {0, 0, 0}, kVisible},    {{0, 0, 0}, {9, 0, 0}, kInvisible},  // in the plane
        {{0, 0, 7}, {0, 0, -5}, kCut},       {{1, 2, -3}, {4, 5, -6}, kInvisible},
    };
    for (const Case& c : cases)
        mesh.edge(c.from, c.to);
    ASSERT_TRUE(run({kUpwards}, false));
    std::size_t i = 0;
    for (const MStlGraphEdge& edge : mesh.graph.GraphEdges()) {
        EXPECT_EQ(value(edge), cases[i].expected) << "edge " << i;
        ++i;
    }
}

TEST_F(FilterTest, ThickEdgeClassDependsOnDirection) {
    const MStlGraphEdge& down = mesh.edge({0, 0, -2}, {0, 0, 0});
    const MStlGraphEdge& up = mesh.edge({0, 0, 0}, {0, 0, -2});
    const MStlGraphEdge& above = mesh.edge({0, 0, 3}, {0, 0, 9});
    const MStlGraphEdge& near = mesh.edge({5, 0, 1}, {5, 0, 9});
    for (const MStlGraphEdge* edge : {&down, &up, &above, &near})
        mesh.setThickness(*edge, 4, 4);

    ASSERT_TRUE(run({kUpwards}, true));
    EXPECT_EQ(value(down), kInvisible);  // −2 ≤ −2 and 0 ≤ 0
    EXPECT_EQ(value(up), kCut);          // 0 is not ≤ −2, and r0 = 2 > 0
    EXPECT_EQ(value(above), kVisible);   // 3 ≥ 2 and 9 ≥ 2
    EXPECT_EQ(value(near), kCut);        // the bar reaches 1 − 2 below the plane

    // Thickness off: the element information is ignored.
    ASSERT_TRUE(run({kUpwards}, false));
    EXPECT_EQ(value(down), kInvisible);
    EXPECT_EQ(value(up), kInvisible);
    EXPECT_EQ(value(near), kVisible);
}

TEST_F(FilterTest, ThicknessWithoutElementInfoCountsAsZero) {
    const MStlGraphEdge& near = mesh.edge({5, 0, 1}, {5, 0, 9});
    const MStlGraphEdge& down = mesh.edge({0, 0, 0}, {0, 0, -2});
    ASSERT_TRUE(run({kUpwards}, true));
    EXPECT_EQ(value(near), kVisible);
    EXPECT_EQ(value(down), kInvisible);
}

TEST_F(FilterTest, CutAwayByALaterPlaneWinsOverACut) {
    const MStlGraphEdge& edge = mesh.edge({0, 0, -5}, {0, 0, 7});
    const MMPlaneEq<double> belowTen{0, 0, -1, -10};  // keeps z ≤ −10
    ASSERT_TRUE(run({kUpwards, belowTen}, false));
    EXPECT_EQ(value(edge), kInvisible);
    ASSERT_TRUE(run({belowTen, kUpwards}, false));
    EXPECT_EQ(value(edge), kInvisible);
}

TEST_F(FilterTest, MissingInputsAndNoPlanesLeaveTheMaskUntouched) {
    const MStlGraphEdge& edge = mesh.edge({0, 0, -5}, {0, 0, 7});
    MStlGraphOperatorFilterByClippingPlanes filter;
    filter.AddPlane(kUpwards);
    EXPECT_FALSE(filter.Operate());
    filter.SetGraph(&mesh.graph);
    EXPECT_FALSE(filter.Operate());  // still no mask
    filter.SetGraph(nullptr);
    filter.SetGraphMask(&mask);
    EXPECT_FALSE(filter.Operate());
    EXPECT_EQ(value(edge), kUntouched);

    EXPECT_TRUE(run({}, false));
    EXPECT_EQ(value(edge), kUntouched);
}

TEST_F(FilterTest, ChosenValuesAndNaNPlanes) {
    const MStlGraphEdge& cut = mesh.edge({0, 0, -5}, {0, 0, 7});
    const MStlGraphEdge& below = mesh.edge({0, 0, -5}, {0, 0, -7});
    const MStlGraphEdge& above = mesh.edge({0, 0, 5}, {0, 0, 7});
    MStlGraphOperatorFilterByClippingPlanes filter;
    filter.SetGraph(&mesh.graph);
    filter.SetGraphMask(&mask);
    filter.SetVisibleValue(3.0f);
    filter.SetIntersectingValue(2.0f);
    filter.SetInvisibleValue(7.0f);
    filter.AddPlane(kUpwards);
    ASSERT_TRUE(filter.Operate());
    EXPECT_EQ(value(cut), 2.0f);
    EXPECT_EQ(value(below), 7.0f);
    EXPECT_EQ(value(above), 3.0f);

    // A NaN signed value neither cuts an edge nor cuts it away.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    ASSERT_TRUE(run({{0, 0, nan, 0}}, false));
    for (const MStlGraphEdge* edge : {&cut, &below, &above})
        EXPECT_EQ(value(*edge), kVisible);
}

// Without thickness the class does not depend on the order of the planes: an edge is cut away
// when both vertices are on or below some plane, else cut when one is strictly below some plane.
TEST_F(FilterTest, ThinEdgesAgainstAnOrderFreeOracle) {
    std::mt19937 random(18);
    std::uniform_int_distribution<int> coordinate(-20, 20);
    std::vector<const MStlGraphEdge*> edges;
    for (int i = 0; i < 300; ++i)
        edges.push_back(&mesh.edge({coordinate(random), coordinate(random), coordinate(random)},
                                   {coordinate(random), coordinate(random), coordinate(random)}));
    std::vector<MMPlaneEq<double>> planes;
    for (int i = 0; i < 3; ++i)
        planes.push_back({double(coordinate(random) % 3), double(coordinate(random) % 3),
                          double(coordinate(random) % 3), double(coordinate(random))});
    for (int order = 0; order < 3; ++order) {
        ASSERT_TRUE(run(planes, false));
        for (const MStlGraphEdge* edge : edges) {
            bool cutAway = false, cut = false;
            for (const auto& plane : planes) {
                double d[2];
                for (int v = 0; v < 2; ++v) {
                    const MStlPoint& p = *edge->GetVertex(v);
                    d[v] = plane.a * p[0] + plane.b * p[1] + plane.c * p[2] + plane.d;
                }
                cutAway |= std::max(d[0], d[1]) <= 0;
                cut |= std::min(d[0], d[1]) < 0;
            }
            EXPECT_EQ(value(*edge), cutAway ? kInvisible : (cut ? kCut : kVisible));
        }
        std::rotate(planes.begin(), planes.begin() + 1, planes.end());
    }
}

}  // namespace
