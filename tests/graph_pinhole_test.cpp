// Graph edges through a pinhole: nothing behind the eye is marked, edges across the near plane
// keep their far part, and far away with a narrow field of view the marks are the
// orthographic ones but for a few boundary edges.

#include <gtest/gtest.h>

#include <velpick/graph_mark_polygon.h>
#include "support/graph_builders.h"
#include "support/pinhole_oracle.h"

using VelSDK::Math::point2d;

namespace pinhole {
namespace {

/// A floor grid of edges at y = −1000 over x, z in [−20000, 20000], each 400 units thick.
struct Floor : graphs::GraphMesh {
    Floor() {
        for (int i = -10; i <= 10; ++i)
            for (int j = -10; j < 10; ++j) {
                setThickness(edge({i * 2000, -1000, j * 2000}, {i * 2000, -1000, j * 2000 + 2000}),
                             400, 400);
                setThickness(edge({j * 2000, -1000, i * 2000}, {j * 2000 + 2000, -1000, i * 2000}),
                             400, 400);
            }
    }
};

/// Marks per edge: edges thick when `variant` has bit 1; with bit 2, x ≤ 8000 is kept and the
/// edges at x = 8000 become prisms.
std::vector<bool> Pick(Floor& floor, const MMTransformMatrix& view,
                       const std::optional<PerspectiveProjection>& camera,
                       const std::vector<point2d>& polygon, int variant) {
    MStlScalarMaskGraphEdges output(floor.stl, 0.0f);
    MStlGraphOperatorMarkPolygon op;
    op.SetGraph(floor.graph, view);
    op.SetPolygon(polygon);
    op.SetWorkWithGraphThickness(variant & 1);
    if (camera)
        op.SetPerspective(*camera);
    if (variant & 2)
        op.AddClippingPlane({-1, 0, 0, 8000});
    EXPECT_EQ(op.Operate(output, false), MStlGraphOperatorMarkPolygon::Success);
    std::vector<bool> marked;
    for (const MStlGraphEdge& edge : floor.graph.GraphEdges())
        marked.push_back(output.GetScalar(edge) == 1.0f);
    return marked;
}

// The eye at the origin looking along −z over the floor, a full-view lasso: edges wholly behind
// the near plane (z > −near) are never marked, also as prisms; those across it in view are.
TEST(PinholeGraph, NothingBehindTheEyeAndEdgesAcrossTheNearPlaneKeepTheirFarPart) {
    constexpr double kNear = 500;
    const std::vector<point2d> view{{-100, -100}, {100, -100}, {100, 100}, {-100, 100}};
    Floor floor;
    for (int variant = 0; variant < 4; ++variant) {
        const auto marked =
            Pick(floor, {}, PerspectiveProjection{50, 50, 0, 0, kNear}, view, variant);
        int index = 0;
        for (const MStlGraphEdge& edge : floor.graph.GraphEdges()) {
            // Values, not std::minmax's references to the temporaries.
            const double z0 = (*edge.GetVertex(0))[2], z1 = (*edge.GetVertex(1))[2];
            const double zLow = std::min(z0, z1), zHigh = std::max(z0, z1);
            EXPECT_FALSE(marked[index] && zLow > -kNear) << index;
            // Across it with x within the depth: the far end projects inside the lasso.
            const bool acrossInView =
                zLow <= -2000 && zHigh >= 0 && std::abs((*edge.GetVertex(0))[0]) <= 2000;
            EXPECT_TRUE(marked[index] || !acrossInView) << index;
            ++index;
        }
    }
}

// Far away with a tiny field of view, the marks are those of the orthographic view of the
// matching scale, thin or thick, but for a few edges on the lasso's border.
TEST(PinholeGraph, FarNarrowCameraMatchesTheOrthographicMarks) {
    constexpr double kDistance = 4e7, kScale = 1.0 / 400;
    const double s = kDistance / std::hypot(1.0, 0.4);
    const MMTransformMatrix eye = LookAt({0, s, 0.4 * s}, {0, 0, 0});
    MMTransformMatrix orthographic = eye, scale;
    scale.MakeScale3D(kScale, kScale, 1.0);
    orthographic.PreMultiply(scale);
    const PerspectiveProjection camera{kDistance * kScale, kDistance * kScale, 0, 0, 1000};
    const std::vector<point2d> lasso{{-30, -25}, {35, -20}, {10, 32}, {-25, 15}};
    Floor floor;
    for (const int thickness : {0, 1}) {
        const auto p = Pick(floor, eye, camera, lasso, thickness);
        const auto o = Pick(floor, orthographic, std::nullopt, lasso, thickness);
        int differ = 0;
        for (std::size_t i = 0; i < p.size(); ++i)
            differ += p[i] != o[i];
        EXPECT_GT(std::count(o.begin(), o.end(), true), 50);
        EXPECT_LE(differ, 4) << "thickness " << thickness;
    }
}

}  // namespace
}  // namespace pinhole
