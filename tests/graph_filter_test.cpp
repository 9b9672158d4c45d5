#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <utility>
#include <vector>

#include <velpick/graph_filter_by_clipping_planes.h>
#include <velpick/host/named_mask.h>
#include "support/graph_builders.h"

namespace {

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
// edge's class depends on its direction. With several planes (thin), a cut by one and a cut-away
// by another give cut away whatever the order, and a plane that only the later one affects
// still counts.
TEST_F(FilterTest, ClassesOfOnePlaneWithAndWithoutThicknessAndOfTwoPlanes) {
    // Edge ends, then the class without and with thickness, and with both planes.
    const std::tuple<graphs::Corner, graphs::Corner, std::array<float, 3>> cases[] = {
        {{0, 0, -5}, {0, 0, 7}, {kCut, kCut, kInvisible}},
        {{0, 0, -5}, {0, 0, 0}, {kInvisible, kInvisible, kInvisible}},
        {{0, 0, 0}, {0, 0, 5}, {kVisible, kCut, kInvisible}},  // a vertex exactly on the plane
        {{0, 0, 5}, {0, 0, 0}, {kVisible, kCut, kInvisible}},
        {{0, 0, 0}, {9, 0, 0}, {kInvisible, kCut, kInvisible}},
        {{0, 0, -2}, {0, 0, 0}, {kInvisible, kInvisible, kInvisible}},
        {{0, 0, 0}, {0, 0, -2}, {kInvisible, kCut, kInvisible}},
        {{5, 0, 1}, {5, 0, 9}, {kVisible, kCut, kVisible}},
        {{0, 0, 3}, {0, 0, 9}, {kVisible, kVisible, kInvisible}},
        {{3, 0, -5}, {3, 0, 7}, {kCut, kCut, kCut}},
        {{0, 0, 5}, {3, 0, 7}, {kVisible, kVisible, kCut}},
    };
    for (const auto& [from, to, classes] : cases)
        mesh.setThickness(mesh.edge(from, to), 4, 4);
    // The second plane keeps x ≥ 1.
    const std::vector<MMPlaneEq<double>> runs[] = {
        {kUpwards}, {kUpwards}, {kUpwards, {1, 0, 0, -1}}, {{1, 0, 0, -1}, kUpwards}};
    for (int r = 0; r < 4; ++r) {
        ASSERT_TRUE(run(runs[r], r == 1));
        for (const MStlGraphEdge& edge : mesh.graph.GraphEdges())  // edge i from case i
            EXPECT_EQ(value(edge), std::get<2>(cases[edge.GetMaskIndex()])[std::min(r, 2)])
                << "run " << r << " edge " << edge.GetMaskIndex();
    }
}

// Without element information thickness changes nothing; without planes nothing is written;
// a NaN plane neither cuts nor cuts away.
TEST_F(FilterTest, MissingInputsNoPlanesNaNAndChosenValues) {
    const MStlGraphEdge& edge = mesh.edge({0, 0, -5}, {0, 0, 7});
    const MStlGraphEdge& near = mesh.edge({5, 0, 1}, {5, 0, 9});
    MStlGraphOperatorFilterByClippingPlanes filter;
    filter.AddPlane(kUpwards);
    filter.SetGraph(&mesh.graph);
    EXPECT_FALSE(filter.Operate());  // no mask
    ASSERT_TRUE(run({}, false) && value(edge) == kUntouched);
    ASSERT_TRUE(run({kUpwards}, true));
    EXPECT_EQ(std::pair(value(edge), value(near)), std::pair(kCut, kVisible));
    ASSERT_TRUE(run({{0, 0, NAN, 0}}, false));
    EXPECT_EQ(value(edge), kVisible);
    filter.SetGraphMask(&mask);
    filter.SetIntersectingValue(2.0f);
    ASSERT_TRUE(filter.Operate());
    EXPECT_EQ(value(edge), 2.0f);
}

}  // namespace
