#include <velpick/graph_mark_polygon.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include <velpick/host/feature_graphs.h>
#include <velpick/host/named_mask.h>
#include "support/graph_builders.h"
#include "support/ray_cast_oracle.h"

namespace {

using graphs::GraphMesh;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using Code = MStlGraphOperatorMarkPolygon::EReturnCode;

constexpr float kUnmarked = 0.5f;  // the output mask's value before a run
const MMPlaneEq<double> kAboveZero{0, 0, 1, 0};
const MMTransformMatrix kIdentity;
const std::vector<point2d> kSquare = {{100, 100}, {200, 100}, {200, 200}, {100, 200}};

struct Marks {
    Code code;
    std::vector<bool> marked;  // per edge in graph order
};

// Runs a fresh operator and reads the marks, checking that only 1.0 is written and that no
// temporary mask is left on the mesh.
Marks MarkGraph(MStlGraph& graph, const MMTransformMatrix& view,
                const std::vector<point2d>& polygon, double pixelProportion, bool thickness,
                bool markWholeCandidates, const std::vector<MMPlaneEq<double>>& planes = {}) {
    MStlScalarMaskGraphEdges output(*graph.GetStl(), kUnmarked);
    MStlGraphOperatorMarkPolygon op;
    op.SetGraph(graph, view);
    op.SetPolygon(polygon);
    op.SetPixelProportion(pixelProportion);
    op.SetWorkWithGraphThickness(thickness);
    for (const auto& plane : planes)
        op.AddClippingPlane(plane);
    Marks marks{op.Operate(output, markWholeCandidates), {}};
    for (const MStlGraphEdge& edge : graph.GraphEdges()) {
        const double value = output.GetScalar(edge);
        EXPECT_TRUE(value == kUnmarked || value == 1.0) << value;
        marks.marked.push_back(value == 1.0);
    }
    EXPECT_TRUE(graph.GetStl()->_NamedMasks().masks.empty());
    return marks;
}

// Identity view, one pixel per unit.
Marks MarkUnderSquare(GraphMesh& mesh, bool thickness, std::vector<MMPlaneEq<double>> planes = {}) {
    return MarkGraph(mesh.graph, kIdentity, kSquare, 1.0, thickness, false, planes);
}

TEST(GraphMarkPolygon, ReturnCodesLeaveTheOutputAsPromised) {
    GraphMesh mesh;
    const MStlGraphEdge& edge = mesh.edge({120, 150, -50}, {180, 150, 50});
    MStlScalarMaskGraphEdges output(mesh.stl, kUnmarked);
    MStlGraphOperatorMarkPolygon op;
    EXPECT_EQ(op.Operate(output, false), Code::NoGraph);  // also with no polygon
    op.SetGraph(mesh.graph, kIdentity);
    op.SetPolygon({{0, 0}, {300, 300}});
    EXPECT_EQ(op.Operate(output, false), Code::PolygonTooSmall);
    op.SetPolygon(kSquare);
    op.AddClippingPlane(kAboveZero);  // cuts the edge, which has no thickness
    EXPECT_EQ(op.Operate(output, true), Code::MissingEdgeThickness);
    EXPECT_EQ(output.GetScalar(edge), kUnmarked);
    EXPECT_TRUE(mesh.stl._NamedMasks().masks.empty());

    // A mask of the filter's name already on the mesh stops the run before any conversion:
    // the blocking mask stays, and once it is gone the same operator succeeds.
    auto* blocker = MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>::Create(
        &mesh.stl, L"filtered_by_planes");
    op.SetGraph(mesh.graph, kIdentity);
    op.SetPolygon(kSquare);
    op.SetWorkWithGraphThickness(false);
    EXPECT_EQ(op.Operate(output, true), Code::PlaneFilterFailed);
    EXPECT_EQ(output.GetScalar(edge), kUnmarked);
    EXPECT_EQ(mesh.stl._NamedMasks().masks.size(), 1u);
    VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>()(
        blocker);
    EXPECT_EQ(op.Operate(output, true), Code::Success);
    EXPECT_EQ(output.GetScalar(edge), 1.0);
    EXPECT_TRUE(mesh.stl._NamedMasks().masks.empty());
}

TEST(GraphMarkPolygon, ThickEdgesReachIntoTheLasso) {
    GraphMesh mesh;
    mesh.setThickness(mesh.edge({120, 220, 0}, {180, 220, 0}), 60, 60);  // radius 30, 20 away
    mesh.setThickness(mesh.edge({120, 230, 0}, {180, 230, 0}), 20, 20);  // radius 10, 30 away
    mesh.setThickness(mesh.edge({120, 60, 0}, {180, 60, 0}), 0, 0);      // unset: radius 2500
    EXPECT_EQ(MarkUnderSquare(mesh, true).marked, (std::vector<bool>{true, false, true}));
    EXPECT_EQ(MarkUnderSquare(mesh, false).marked, (std::vector<bool>{false, false, false}));

    // Without element info the outline A, B, A has no area: only the box test marks.
    GraphMesh bare;
    bare.edge({120, 150, 0}, {180, 160, 0});
    EXPECT_FALSE(MarkGraph(bare.graph, kIdentity, kSquare, 1.0, true, false).marked[0]);
    EXPECT_TRUE(MarkGraph(bare.graph, kIdentity, kSquare, 1.0, true, true).marked[0]);
    EXPECT_TRUE(MarkUnderSquare(bare, false).marked[0]);
}

TEST(GraphMarkPolygon, PlanesCutEdgesAwayOrLeaveTheirVisiblePart) {
    GraphMesh mesh;
    mesh.edge({120, 150, -50}, {180, 150, -10});  // cut away, though under the lasso
    mesh.edge({120, 130, -50}, {180, 130, 50});   // kept part under the lasso
    mesh.edge({300, 160, 50}, {150, 160, -100});  // kept part beyond the lasso
    mesh.edge({120, 110, 5}, {180, 110, 5});      // above the plane: decided in 2D
    for (bool thickness : {false, true}) {
        for (const MStlGraphEdge& edge : mesh.graph.GraphEdges())
            mesh.setThickness(edge, 8, 8);
        const Marks marks = MarkUnderSquare(mesh, thickness, {kAboveZero});
        EXPECT_EQ(marks.code, Code::Success);
        EXPECT_EQ(marks.marked, (std::vector<bool>{false, true, false, true}));
    }
    // Prisms hide one another: a thin cut edge behind a wide one is not marked.
    const MStlGraphEdge& hidden = mesh.edge({130, 170, -10}, {170, 170, 100});
    mesh.setThickness(hidden, 4, 4);
    EXPECT_TRUE(MarkUnderSquare(mesh, true, {kAboveZero}).marked[4]);
    mesh.setThickness(mesh.edge({100, 170, -10}, {200, 170, 300}), 60, 60);
    const Marks behind = MarkUnderSquare(mesh, true, {kAboveZero});
    EXPECT_FALSE(behind.marked[4]);
    EXPECT_TRUE(behind.marked[5]);
}

// The polygon and transform are converted in place: a second run without fresh setters sees
// the edge half a pixel further right, just outside the lasso's last column.
TEST(GraphMarkPolygon, SecondRunNeedsFreshPolygonAndGraph) {
    GraphMesh mesh;
    const MStlGraphEdge& edge = mesh.edge({199, 120, 0}, {199, 180, 0});
    MStlScalarMaskGraphEdges output(mesh.stl, kUnmarked);
    MStlGraphOperatorMarkPolygon op;
    op.SetPixelProportion(1.0);
    op.SetWorkWithGraphThickness(false);
    const auto run = [&](bool freshSetters) {
        output.SetScalar(edge, kUnmarked);
        if (freshSetters) {
            op.SetGraph(mesh.graph, kIdentity);
            op.SetPolygon(kSquare);
        }
        EXPECT_EQ(op.Operate(output, false), Code::Success);
        return output.GetScalar(edge) == 1.0;
    };
    EXPECT_TRUE(run(true));
    EXPECT_FALSE(run(false));
    EXPECT_TRUE(run(true));
}

// ---- A terrain's sharp-edge graph against pixel oracles ----

// Liang–Barsky: whether the segment ab meets the closed box lo..hi.
bool Meets(point2d a, point2d b, point2d lo, point2d hi) {
    double t0 = 0, t1 = 1;
    const double start[2] = {a.x, a.y}, d[2] = {b.x - a.x, b.y - a.y};
    const double low[2] = {lo.x, lo.y}, high[2] = {hi.x, hi.y};
    for (int axis = 0; axis < 2; ++axis) {
        if (d[axis] == 0) {
            if (start[axis] < low[axis] || start[axis] > high[axis])
                return false;
            continue;
        }
        const double ta = (low[axis] - start[axis]) / d[axis];
        const double tb = (high[axis] - start[axis]) / d[axis];
        t0 = std::max(t0, std::min(ta, tb));
        t1 = std::min(t1, std::max(ta, tb));
    }
    return t0 <= t1;
}

// A height field of n × n cells of 1000 internal units with random heights in steps of 400,
// each cell split into two triangles.
std::unique_ptr<MStlBase> Terrain(int n) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> step(0, 2);
    std::vector<std::int32_t> heights((n + 1) * (n + 1));
    for (std::int32_t& height : heights)
        height = 400 * step(random);
    auto mesh = std::make_unique<MStlBase>();
    MStlSurface& surface = *mesh->AddSurface(nullptr);
    const auto corner = [&](int i, int j) {
        return mesh->FindOrAddPoint(1000 * i, 1000 * j, heights[j * (n + 1) + i]);
    };
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            surface.AddTriangle(*corner(i, j), *corner(i + 1, j), *corner(i + 1, j + 1));
            surface.AddTriangle(*corner(i, j), *corner(i + 1, j + 1), *corner(i, j + 1));
        }
    return mesh;
}

// The lasso's corners in pixels, chosen so that every side has an odd dx + dy: no pixel
// centre lies on a side, where even-odd rules may differ.
constexpr int kCorners[8][2] = {{22, 31}, {52, 14}, {83, 36}, {70, 60},
                                {78, 85}, {41, 73}, {13, 60}, {8, 46}};
constexpr double kPixelProportion = 4.0;
constexpr double kMargin = 1e-6;  // pixels: the rounding of two ways of projecting

struct TerrainUnderALasso : ::testing::Test {
    void SetUp() override {
        mesh = Terrain(20);
        graph = AddSharpEdgeGraph(*mesh, 10.0, false);
        ASSERT_GT(graph->GetNumberOfEdges(), 300u);
        for (const auto& corner : kCorners) {
            lasso.push_back({corner[0] / kPixelProportion, corner[1] / kPixelProportion});
            pixelLasso.push_back({corner[0] - 8.0, corner[1] - 14.0});  // from the lowest pixel
        }
        for (int row = 0; row <= 71; ++row)
            for (int column = 0; column <= 75; ++column)
                if (oracle::InsideEvenOdd(pixelLasso, column + 0.5, row + 0.5))
                    setPixels.push_back({double(column), double(row)});
    }
    // The tilted view (model units: the mesh is in thousandths) moved into the lasso, and the
    // pixel frame: scaled, relative to the lasso's lowest pixel, centres on half pixels.
    point2d Project(const MStlPoint& v) const {
        const double c = std::cos(0.5), s = std::sin(0.5), ct = std::cos(0.6), st = std::sin(0.6);
        const point3d p = {v[0] * 1e-3, v[1] * 1e-3, v[2] * 1e-3};
        const double x = c * p.x - s * p.y + 3, y = ct * (s * p.x + c * p.y) - st * p.z + 2;
        return {x * kPixelProportion - 8 + 0.5, y * kPixelProportion - 14 + 0.5};
    }
    MMTransformMatrix View() const {
        const double c = std::cos(0.5), s = std::sin(0.5), ct = std::cos(0.6), st = std::sin(0.6);
        const double k = 1e-3;
        return MMTransformMatrix({k * c, -k * s, 0, 3, k * s * ct, k * c * ct, -k * st, 2,
                                  k * s * st, k * c * st, k * ct, 0, 0, 0, 0, 1});
    }
    bool TouchesSetPixel(point2d a, point2d b, double margin) const {
        return std::any_of(setPixels.begin(), setPixels.end(), [&](const point2d& p) {
            return Meets(a, b, {p.x - margin, p.y - margin}, {p.x + 1 + margin, p.y + 1 + margin});
        });
    }

    std::unique_ptr<MStlBase> mesh;
    MStlGraph* graph = nullptr;
    std::vector<point2d> lasso, pixelLasso, setPixels;
};

TEST_F(TerrainUnderALasso, EdgesUnderTheLassoAgainstPixelOracles) {
    const Marks precise = MarkGraph(*graph, View(), lasso, kPixelProportion, false, false);
    const Marks whole = MarkGraph(*graph, View(), lasso, kPixelProportion, false, true);
    std::size_t i = 0, marked = 0, outside = 0, boxOnly = 0;
    for (const MStlGraphEdge& edge : graph->GraphEdges()) {
        const point2d a = Project(*edge.GetVertex(0)), b = Project(*edge.GetVertex(1));
        if (TouchesSetPixel(a, b, -kMargin) || !TouchesSetPixel(a, b, kMargin)) {
            EXPECT_EQ(precise.marked[i], TouchesSetPixel(a, b, -kMargin)) << "edge " << i;
        }
        // Whole candidates: the 75 × 71 pixel box, reached within the pixel proportion.
        const double reach = kPixelProportion + kMargin;
        if (Meets(a, b, {kMargin, kMargin}, {75 - kMargin, 71 - kMargin}) ||
            !Meets(a, b, {-reach, -reach}, {75 + reach, 71 + reach})) {
            EXPECT_EQ(whole.marked[i], Meets(a, b, {0, 0}, {75, 71})) << "edge " << i;
        }
        EXPECT_TRUE(whole.marked[i] || !precise.marked[i]);
        marked += precise.marked[i];
        outside += !whole.marked[i];
        boxOnly += whole.marked[i] && !precise.marked[i];
        ++i;
    }
    EXPECT_GT(marked, 50u);
    EXPECT_GT(outside, 50u);
    EXPECT_GT(boxOnly, 10u);
}

TEST_F(TerrainUnderALasso, PlaneKeepsUncutEdgesAndNeverMarksCutAwayOnes) {
    const MMPlaneEq<double> plane{1, 0, 0, -9500};  // keeps x ≥ 9.5 model units
    const Marks open = MarkGraph(*graph, View(), lasso, kPixelProportion, false, false);
    const Marks cut = MarkGraph(*graph, View(), lasso, kPixelProportion, false, false, {plane});
    ASSERT_EQ(cut.code, Code::Success);
    std::size_t i = 0, cutEdges = 0;
    for (const MStlGraphEdge& edge : graph->GraphEdges()) {
        const double d0 = edge.GetVertex(0)->GetX() - 9500.0,
                     d1 = edge.GetVertex(1)->GetX() - 9500.0;
        if (std::max(d0, d1) <= 0) {
            EXPECT_FALSE(cut.marked[i]) << "edge " << i;
        } else if (std::min(d0, d1) >= 0) {
            EXPECT_EQ(cut.marked[i], open.marked[i]) << "edge " << i;
        } else {
            ++cutEdges;
        }
        ++i;
    }
    EXPECT_GT(cutEdges, 0u);
}

}  // namespace
