#include <velpick/graph_mark_polygon.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <velpick/host/feature_graphs.h>
#include <velpick/host/named_mask.h>
#include "support/graph_builders.h"
#include "support/ray_cast_oracle.h"
#include "support/scene_builders.h"

namespace {

using graphs::GraphMesh;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using Code = MStlGraphOperatorMarkPolygon::EReturnCode;

constexpr float kUnmarked = 0.5f;  // the output mask's value before a run
const MMPlaneEq<double> kAboveZero{0, 0, 1, 0};
const MMTransformMatrix kIdentity;
const std::vector<point2d> kSquare = {{100, 100}, {200, 100}, {200, 200}, {100, 200}};

using Marks = std::vector<bool>;  // per edge in graph order

// Runs a fresh operator and reads the marks, checking its return code, that only 1.0 is
// written and that the run leaves no named mask of its own on the mesh.
Marks MarkGraph(MStlGraph& graph, const MMTransformMatrix& view,
                const std::vector<point2d>& polygon, double pixelProportion, bool thickness,
                bool markWholeCandidates, const std::vector<MMPlaneEq<double>>& planes = {},
                Code expected = Code::Success) {
    const std::size_t namedBefore = graph.GetStl()->_NamedMasks().masks.size();
    MStlScalarMaskGraphEdges output(*graph.GetStl(), kUnmarked);
    MStlGraphOperatorMarkPolygon op;
    op.SetGraph(graph, view);
    op.SetPolygon(polygon);
    op.SetPixelProportion(pixelProportion);
    op.SetWorkWithGraphThickness(thickness);
    for (const auto& plane : planes)
        op.AddClippingPlane(plane);
    EXPECT_EQ(op.Operate(output, markWholeCandidates), expected);
    Marks marks;
    for (const MStlGraphEdge& edge : graph.GraphEdges()) {
        const double value = output.GetScalar(edge);
        EXPECT_TRUE(value == kUnmarked || value == 1.0) << value;
        marks.push_back(value == 1.0);
    }
    EXPECT_EQ(graph.GetStl()->_NamedMasks().masks.size(), namedBefore);
    return marks;
}

// Identity view, one pixel per unit.
Marks MarkUnderSquare(GraphMesh& mesh, bool thickness, std::vector<MMPlaneEq<double>> planes = {}) {
    return MarkGraph(mesh.graph, kIdentity, kSquare, 1.0, thickness, false, planes);
}

// Failed runs leave the output unmarked. Without element information an edge's outline A, B, A
// has no area: with thickness only the box test marks it.
TEST(GraphMarkPolygon, AnEdgeWithoutElementInformationAndFailedRuns) {
    GraphMesh mesh;
    mesh.edge({120, 150, -50}, {180, 150, 50});  // under the square, cut by the plane
    EXPECT_EQ((Marks{MarkUnderSquare(mesh, false)[0], MarkUnderSquare(mesh, true)[0],
                     MarkGraph(mesh.graph, kIdentity, kSquare, 1, true, true)[0]}),
              (Marks{true, false, true}));
    MStlScalarMaskGraphEdges output(mesh.stl, kUnmarked);
    EXPECT_EQ(MStlGraphOperatorMarkPolygon().Operate(output, false), Code::NoGraph);
    const auto run = [&](const std::vector<point2d>& polygon, bool thickness, Code code) {
        return MarkGraph(mesh.graph, kIdentity, polygon, 1, thickness, true, {kAboveZero}, code);
    };
    EXPECT_EQ(run({{0, 0}, {300, 300}}, false, Code::PolygonTooSmall), Marks{false});
    EXPECT_EQ(run(kSquare, true, Code::MissingEdgeThickness), Marks{false});  // no element info
    // A mask of the plane filter's name already on the mesh stops the run.
    auto* blocker = MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>::Create(
        &mesh.stl, L"filtered_by_planes");
    EXPECT_EQ(run(kSquare, false, Code::PlaneFilterFailed), Marks{false});
    VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>()(
        blocker);
    EXPECT_EQ(run(kSquare, false, Code::Success), Marks{true});
}

TEST(GraphMarkPolygon, ThickEdgesReachIntoTheLasso) {
    GraphMesh mesh;
    mesh.setThickness(mesh.edge({120, 220, 0}, {180, 220, 0}), 60, 60);  // radius 30, 20 away
    mesh.setThickness(mesh.edge({120, 230, 0}, {180, 230, 0}), 20, 20);  // radius 10, 30 away
    mesh.setThickness(mesh.edge({120, 60, 0}, {180, 60, 0}), 0, 0);      // unset: radius 2500
    EXPECT_EQ(MarkUnderSquare(mesh, true), (std::vector<bool>{true, false, true}));
    EXPECT_EQ(MarkUnderSquare(mesh, false), (std::vector<bool>{false, false, false}));
}

TEST(GraphMarkPolygon, PlanesCutEdgesAwayOrLeaveTheirVisiblePart) {
    GraphMesh mesh;
    mesh.edge({120, 150, -50}, {180, 150, -10});  // cut away, though under the lasso
    mesh.edge({120, 130, -50}, {180, 130, 50});   // kept part under the lasso
    mesh.edge({300, 160, 50}, {150, 160, -100});  // kept part beyond the lasso
    mesh.edge({120, 110, 5}, {180, 110, 5});      // above the plane: decided in 2D
    for (const MStlGraphEdge& edge : mesh.graph.GraphEdges())
        mesh.setThickness(edge, 8, 8);
    for (bool thickness : {false, true})
        EXPECT_EQ(MarkUnderSquare(mesh, thickness, {kAboveZero}),
                  (Marks{false, true, false, true}));
    // Prisms hide one another: a thin cut edge behind a wide one is not marked.
    mesh.setThickness(mesh.edge({130, 170, -10}, {170, 170, 100}), 4, 4);
    EXPECT_EQ(MarkUnderSquare(mesh, true, {kAboveZero}), (Marks{false, true, false, true, true}));
    mesh.setThickness(mesh.edge({100, 170, -10}, {200, 170, 300}), 60, 60);
    EXPECT_EQ(MarkUnderSquare(mesh, true, {kAboveZero}),
              (Marks{false, true, false, true, false, true}));
}

// ---- A sphere's sharp-edge graph against pixel oracles ----

// Whether the segment ab meets the closed box lo..hi: their boxes overlap and the box's corners
// are not all strictly on one side of the segment's line.
bool Meets(point2d a, point2d b, point2d lo, point2d hi) {
    if (std::max(a.x, b.x) < lo.x || std::min(a.x, b.x) > hi.x || std::max(a.y, b.y) < lo.y ||
        std::min(a.y, b.y) > hi.y)
        return false;
    const auto side = [&](double x, double y) {
        return (b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x);
    };
    const double s[4] = {side(lo.x, lo.y), side(hi.x, lo.y), side(hi.x, hi.y), side(lo.x, hi.y)};
    return *std::min_element(s, s + 4) <= 0 && *std::max_element(s, s + 4) >= 0;
}

// The lasso's corners in pixels, chosen so that every side has an odd dx + dy: no pixel
// centre lies on a side, where even-odd rules may differ.
constexpr int kCorners[8][2] = {{22, 31}, {52, 14}, {83, 36}, {70, 60},
                                {78, 85}, {41, 73}, {13, 60}, {8, 46}};
constexpr double kPixelProportion = 4.0;
constexpr double kMargin = 1e-6;  // pixels: the rounding of two ways of projecting

// Edges marked under the lasso against the pixels the lasso sets (the even-odd centres of its
// 75 × 71 pixel box) and, for whole candidates, against that box; with a plane, edges wholly
// on its kept side keep their marks and edges wholly beyond it lose them.
TEST(GraphMarkPolygon, SphereEdgesUnderALassoAgainstPixelOracles) {
    const auto mesh = scene::uvSphere({10000, 10000, 0}, 9000, 24, 32);
    MStlGraph& graph = *AddSharpEdgeGraph(*mesh, 5.0, false);
    std::vector<point2d> lasso, setPixels;
    for (const auto& corner : kCorners)
        lasso.push_back({corner[0] / kPixelProportion, corner[1] / kPixelProportion});
    // The pixels of the lasso's box, counted from its lowest pixel (8, 14), whose centres the
    // lasso holds.
    for (int row = 0; row <= 71; ++row)
        for (int column = 0; column <= 75; ++column)
            if (oracle::InsideEvenOdd(lasso, (column + 8.5) / kPixelProportion,
                                      (row + 14.5) / kPixelProportion))
                setPixels.push_back({double(column), double(row)});
    // A tilted view of the model (the mesh is in thousandths) moved into the lasso.
    const double c = std::cos(0.5), s = std::sin(0.5), ct = std::cos(0.6), st = std::sin(0.6);
    const double k = 1e-3;
    const MMTransformMatrix view({k * c, -k * s, 0, 3, k * s * ct, k * c * ct, -k * st, 2,
                                  k * s * st, k * c * st, k * ct, 0, 0, 0, 0, 1});
    // The pixel frame: scaled, relative to the lasso's lowest pixel, centres on half pixels.
    const auto project = [&](const MStlPoint* v) {
        const point3d p = view({double((*v)[0]), double((*v)[1]), double((*v)[2])}, false);
        return point2d{p.x * kPixelProportion - 8 + 0.5, p.y * kPixelProportion - 14 + 0.5};
    };
    const auto touchesSetPixel = [&](point2d a, point2d b, double margin) {
        return std::any_of(setPixels.begin(), setPixels.end(), [&](const point2d& p) {
            return Meets(a, b, {p.x - margin, p.y - margin}, {p.x + 1 + margin, p.y + 1 + margin});
        });
    };
    const MMPlaneEq<double> plane{1, 0, 0, -9500};  // keeps x ≥ 9.5 model units
    const Marks precise = MarkGraph(graph, view, lasso, kPixelProportion, false, false);
    const Marks whole = MarkGraph(graph, view, lasso, kPixelProportion, false, true);
    const Marks cut = MarkGraph(graph, view, lasso, kPixelProportion, false, false, {plane});
    std::size_t i = 0;
    for (const MStlGraphEdge& e : graph.GraphEdges()) {
        const point2d a = project(e.GetVertex(0)), b = project(e.GetVertex(1));
        const bool touches = touchesSetPixel(a, b, -kMargin);
        EXPECT_TRUE(touches ? precise[i] : !precise[i] || touchesSetPixel(a, b, kMargin)) << i;
        // Whole candidates: the 75 × 71 pixel box, reached within the pixel proportion.
        const double reach = kPixelProportion + kMargin;
        const bool inBox = Meets(a, b, {kMargin, kMargin}, {75 - kMargin, 71 - kMargin});
        const bool nearBox = Meets(a, b, {-reach, -reach}, {75 + reach, 71 + reach});
        EXPECT_TRUE(inBox ? whole[i] : !whole[i] || nearBox) << i;
        const auto [low, high] = std::minmax({e.GetVertex(0)->GetX(), e.GetVertex(1)->GetX()});
        EXPECT_TRUE((low < 9500 && high > 9500) || cut[i] == (low >= 9500 && precise[i])) << i;
        ++i;
    }
    EXPECT_GT(std::count(precise.begin(), precise.end(), true), 500);
    EXPECT_GT(std::count(whole.begin(), whole.end(), false), 100);
}

}  // namespace
