// Graph edges through a pinhole: nothing behind the eye is marked, edges across the near plane
// keep their far part, and far away with a narrow field of view the marks are the
// orthographic ones but for a few boundary edges.

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include <velpick/graph_mark_polygon.h>
#include "support/graph_builders.h"

using AU_MarkOperations::PolygonMarking::PerspectiveProjection;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

/// A floor grid of edges at y = −1000 over x, z in [−20000, 20000], every edge `thickness`.
struct Floor : graphs::GraphMesh {
    explicit Floor(int thickness) {
        for (int i = -10; i <= 10; ++i)
            for (int j = -10; j < 10; ++j) {
                setThickness(edge({i * 2000, -1000, j * 2000}, {i * 2000, -1000, j * 2000 + 2000}),
                             thickness, thickness);
                setThickness(edge({j * 2000, -1000, i * 2000}, {j * 2000 + 2000, -1000, i * 2000}),
                             thickness, thickness);
            }
    }
};

std::vector<bool> Pick(Floor& floor, const MMTransformMatrix& view,
                       const std::optional<PerspectiveProjection>& camera,
                       const std::vector<point2d>& polygon, bool thickness, bool plane) {
    MStlScalarMaskGraphEdges output(floor.stl, 0.0f);
    MStlGraphOperatorMarkPolygon op;
    op.SetGraph(floor.graph, view);
    op.SetPolygon(polygon);
    op.SetWorkWithGraphThickness(thickness);
    if (camera)
        op.SetPerspective(*camera);
    if (plane)  // x ≤ 7000: edges at x = 7000…9000 become prisms
        op.AddClippingPlane({-1, 0, 0, 8000});
    EXPECT_EQ(op.Operate(output, false), MStlGraphOperatorMarkPolygon::Success);
    std::vector<bool> marked;
    for (const MStlGraphEdge& edge : floor.graph.GraphEdges())
        marked.push_back(output.GetScalar(edge) == 1.0f);
    return marked;
}

// The eye at the origin looking along −z over the floor, a full-view lasso: edges wholly behind
// the near plane (z > −near) are never marked, also as prisms; those across it are.
TEST(PinholeGraph, NothingBehindTheEyeAndEdgesAcrossTheNearPlaneKeepTheirFarPart) {
    constexpr double kNear = 500;
    const PerspectiveProjection camera{50, 50, 0, 0, kNear};
    const std::vector<point2d> view{{-100, -100}, {100, -100}, {100, 100}, {-100, 100}};
    for (const bool thickness : {false, true})
        for (const bool plane : {false, true}) {
            Floor floor(100);
            const std::vector<bool> marked =
                Pick(floor, MMTransformMatrix(), camera, view, thickness, plane);
            int index = 0, across = 0;
            for (const MStlGraphEdge& edge : floor.graph.GraphEdges()) {
                const double z0 = (*edge.GetVertex(0))[2], z1 = (*edge.GetVertex(1))[2];
                EXPECT_FALSE(marked[index] && std::min(z0, z1) > -kNear) << index;
                // In view: x within the depth, so the far end projects inside the lasso.
                const bool acrossInView = std::min(z0, z1) <= -2000 && std::max(z0, z1) >= 0 &&
                                          std::abs((*edge.GetVertex(0))[0]) <= 2000;
                across += acrossInView;
                EXPECT_TRUE(marked[index] || !acrossInView) << index;
                ++index;
            }
            EXPECT_EQ(across, 3);
        }
}

// Far away with a tiny field of view, the marks are those of the orthographic view of the
// matching scale, thin or thick, but for a few edges on the lasso's border.
TEST(PinholeGraph, FarNarrowCameraMatchesTheOrthographicMarks) {
    constexpr double kDistance = 4e7, kScale = 1.0 / 400;
    MMTransformMatrix eye, turn;
    turn.MakeRotationInPlane({0, 1, 0.4}, {0, 0, 1}, {0, 0, 0});
    eye.MakeTranslation({0, 0, -kDistance});
    eye.PostMultiply(turn);
    MMTransformMatrix orthographic = eye, scale;
    scale.MakeScale3D(kScale, kScale, 1.0);
    orthographic.PreMultiply(scale);
    const PerspectiveProjection camera{kDistance * kScale, kDistance * kScale, 0, 0, 1000};
    const std::vector<point2d> lasso{{-30, -25}, {35, -20}, {10, 32}, {-25, 15}};
    for (const bool thickness : {false, true}) {
        Floor floor(400);
        const auto p = Pick(floor, eye, camera, lasso, thickness, false);
        const auto o = Pick(floor, orthographic, std::nullopt, lasso, thickness, false);
        int differ = 0, marked = 0;
        for (std::size_t i = 0; i < p.size(); ++i) {
            differ += p[i] != o[i];
            marked += o[i];
        }
        EXPECT_GT(marked, 50);
        EXPECT_LE(differ, 4) << "thickness " << thickness;
    }
}

}  // namespace
