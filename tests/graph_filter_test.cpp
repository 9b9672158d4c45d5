#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include <velpick/graph_filter_by_clipping_planes.h>
#include <velpick/host/named_mask.h>
#include "support/graph_builders.h"

namespace {

using graphs::Corner;

constexpr float kVisible = 1.0f, kCut = 0.0f, kInvisible = -1.0f, kUntouched = 42.0f;
const MMPlaneEq<double> kUpwards{0, 0, 1, 0};  // keeps z ≥ 0

struct FilterTest : ::testing::Test {
    graphs::GraphMesh mesh;
    MStlScalarMaskGraphEdges mask{mesh.stl, kUntouched};

    bool run(const std::vector<MMPlaneEq<double>>& planes, bool thickness) {
        MStlGraphOperatorFilterByClippingPlanes filter;
        filter.SetGraph(&mesh.graph);
        filter.SetGraphMask(&mask);
        filter.SetWorkWithGraphThickness(thickness);
        for (const auto& plane : planes)
            filter.AddPlane(plane);
        return filter.Operate();
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
        {{0, 0, 0}, {0, 0, 5}, kVisible, kCut},  // a vertex exactly on the plane
        {{0, 0, 5}, {0, 0, 0}, kVisible, kCut},
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
}

TEST_F(FilterTest, WithoutElementInformationThicknessChangesNothing) {
    const MStlGraphEdge& near = mesh.edge({5, 0, 1}, {5, 0, 9});
    ASSERT_TRUE(run({kUpwards}, true));
    EXPECT_EQ(value(near), kVisible);
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

// Several planes: a cut on one plane and a cut-away on another give cut away whatever the
// order; a plane that only the later one of two affects still counts.
TEST_F(FilterTest, EveryPlaneCountsAndCutAwayWins) {
    const MMPlaneEq<double> kRightOfOne{1, 0, 0, -1};  // keeps x ≥ 1
    const MStlGraphEdge& crossing = mesh.edge({0, 0, -5}, {0, 0, 7});
    const MStlGraphEdge& right = mesh.edge({3, 0, -5}, {3, 0, 7});
    const MStlGraphEdge& above = mesh.edge({0, 0, 5}, {3, 0, 7});
    for (const auto& planes :
         {std::vector{kUpwards, kRightOfOne}, std::vector{kRightOfOne, kUpwards}}) {
        ASSERT_TRUE(run(planes, false));
        EXPECT_EQ(value(crossing), kInvisible);
        EXPECT_EQ(value(right), kCut);
        EXPECT_EQ(value(above), kCut);
    }
}

}  // namespace
