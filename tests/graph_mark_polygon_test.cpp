#include "graph_mark_polygon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "feature_graphs.h"
#include "mesh_import.h"
#include "named_mask.h"
#include "support/graph_builders.h"

namespace {

namespace fs = std::filesystem;
using graphs::GraphMesh;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using Code = MStlGraphOperatorMarkPolygon::EReturnCode;

constexpr float kUnmarked = 0.5f;  // the output mask's value before a run
const MMPlaneEq<double> kAboveZero{0, 0, 1, 0};

std::vector<point2d> Square(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

struct Marks {
    Code code;
    std::vector<bool> marked;  // per edge in graph order
};

// Runs a fresh operator over the graph and reads the marks, checking that only 1.0 is
// written and that the temporary mask is gone.
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
    Marks run{op.Operate(output, markWholeCandidates), {}};
    for (const MStlGraphEdge& edge : graph.GraphEdges()) {
        const double value = output.GetScalar(edge);
        EXPECT_TRUE(value == kUnmarked || value == 1.0) << value;
        run.marked.push_back(value == 1.0);
    }
    EXPECT_TRUE(graph.GetStl()->_NamedMasks().empty());
    return run;
}

// ---- Hand-built graphs: identity view, one pixel per unit ----

struct GraphMarkTest : ::testing::Test {
    GraphMesh mesh;
    MMTransformMatrix identity;
    const std::vector<point2d> lasso = Square(100, 100, 200, 200);

    Marks mark(bool thickness, bool whole = false,
               const std::vector<MMPlaneEq<double>>& planes = {}) {
        return MarkGraph(mesh.graph, identity, lasso, 1.0, thickness, whole, planes);
    }
};

TEST_F(GraphMarkTest, ReturnCodesLeaveTheOutputAsPromised) {
    const MStlGraphEdge& edge = mesh.edge({120, 150, -50}, {180, 150, 50});
    MStlScalarMaskGraphEdges output(mesh.stl, kUnmarked);
    MStlGraphOperatorMarkPolygon op;
    EXPECT_EQ(op.Operate(output, false), Code::NoGraph);  // also with no polygon
    op.SetGraph(mesh.graph, identity);
    op.SetPolygon({{0, 0}, {300, 300}});
    EXPECT_EQ(op.Operate(output, false), Code::PolygonTooSmall);

    // Thickness on, an edge across the plane and no element information.
    op.SetPolygon(lasso);
    op.AddClippingPlane(kAboveZero);
    EXPECT_EQ(op.Operate(output, true), Code::MissingEdgeThickness);
    EXPECT_EQ(output.GetScalar(edge), kUnmarked);
    EXPECT_TRUE(mesh.stl._NamedMasks().empty());

    // A mask of the filter's name already on the mesh: the filter cannot run. The blocking
    // mask stays, and the operator is unchanged: once it is gone the same run succeeds.
    using Named = MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>;
    auto* blocker = Named::Create(&mesh.stl, L"filtered_by_planes");
    ASSERT_NE(blocker, nullptr);
    op.SetGraph(mesh.graph, identity);
    op.SetPolygon(lasso);
    op.SetWorkWithGraphThickness(false);
    EXPECT_EQ(op.Operate(output, true), Code::PlaneFilterFailed);
    EXPECT_EQ(output.GetScalar(edge), kUnmarked);
    EXPECT_EQ(mesh.stl._NamedMasks().size(), 1u);
    VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>()(
        blocker);
    EXPECT_EQ(op.Operate(output, true), Code::Success);
    EXPECT_EQ(output.GetScalar(edge), 1.0);
    EXPECT_TRUE(mesh.stl._NamedMasks().empty());
}

TEST_F(GraphMarkTest, WholeCandidatesAreMarkedByThePixelBoxAlone) {
    const std::vector<point2d> triangle = {{100, 100}, {200, 100}, {100, 200}};
    mesh.edge({120, 120, 0}, {130, 110, 0});  // inside the triangle
    mesh.edge({185, 185, 0}, {195, 190, 0});  // in its box only
    mesh.edge({230, 150, 0}, {260, 150, 0});  // right of the box
    mesh.edge({150, 40, 9}, {150, 260, 9});   // across the box, no end inside
    const MMTransformMatrix& view = identity;
    EXPECT_EQ(MarkGraph(mesh.graph, view, triangle, 1.0, false, false).marked,
              (std::vector<bool>{true, false, false, true}));
    EXPECT_EQ(MarkGraph(mesh.graph, view, triangle, 1.0, false, true).marked,
              (std::vector<bool>{true, true, false, true}));
}

TEST_F(GraphMarkTest, ThickEdgesReachIntoTheLasso) {
    const MStlGraphEdge& wide = mesh.edge({120, 220, 0}, {180, 220, 0});  // 20 above the lasso
    const MStlGraphEdge& thin = mesh.edge({120, 230, 0}, {180, 230, 0});  // 30 above
    const MStlGraphEdge& unset = mesh.edge({120, 60, 0}, {180, 60, 0});   // 40 below
    mesh.setThickness(wide, 60, 60);                                      // radius 30
    mesh.setThickness(thin, 20, 20);                                      // radius 10
    mesh.setThickness(unset, 0, 0);  // counts as 5000: radius 2500
    EXPECT_EQ(mark(true).marked, (std::vector<bool>{true, false, true}));
    EXPECT_EQ(mark(false).marked, (std::vector<bool>{false, false, false}));
}

TEST_F(GraphMarkTest, PlanesCutEdgesAwayOrLeaveTheirVisiblePart) {
    mesh.edge({120, 150, -50}, {180, 150, -10});  // cut away, though under the lasso
    mesh.edge({120, 130, -50}, {180, 130, 50});   // kept part under the lasso
    mesh.edge({300, 160, 50}, {150, 160, -100});  // kept part beyond the lasso
    mesh.edge({120, 110, 5}, {180, 110, 5});      // above the plane: decided in 2D
    mesh.edge({120, 190, 5}, {180, 260, 5});      // above the plane, partly under the lasso
    for (bool thickness : {false, true}) {
        if (thickness)
            for (const MStlGraphEdge& edge : mesh.graph.GraphEdges())
                mesh.setThickness(edge, 8, 8);
        const Marks run = mark(thickness, false, {kAboveZero});
        EXPECT_EQ(run.code, Code::Success);
        EXPECT_EQ(run.marked, (std::vector<bool>{false, true, false, true, true}));
    }
}

// Prisms hide one another: a thin cut edge behind a wide one is not marked, the same edge
// alone is.
TEST(GraphMarkOcclusion, CutEdgeBehindAnotherPrismIsHidden) {
    const MMTransformMatrix identity;
    const auto lasso = Square(100, 100, 200, 200);
    for (bool withOccluder : {false, true}) {
        GraphMesh mesh;
        const MStlGraphEdge& hidden = mesh.edge({130, 170, -10}, {170, 170, 100});
        mesh.setThickness(hidden, 4, 4);
        if (withOccluder) {
            const MStlGraphEdge& front = mesh.edge({100, 170, -10}, {200, 170, 300});
            mesh.setThickness(front, 60, 60);
        }
        const Marks run = MarkGraph(mesh.graph, identity, lasso, 1.0, true, false, {kAboveZero});
        ASSERT_EQ(run.code, Code::Success);
        EXPECT_EQ(run.marked[0], !withOccluder);
        if (withOccluder) {
            EXPECT_TRUE(run.marked[1]);
        }
    }
}

// The polygon and transform are converted in place: a second run without fresh setters sees
// the edge half a pixel further right, just outside the lasso's last column.
TEST_F(GraphMarkTest, SecondRunNeedsFreshPolygonAndGraph) {
    const MStlGraphEdge& edge = mesh.edge({199, 120, 0}, {199, 180, 0});
    MStlScalarMaskGraphEdges output(mesh.stl, kUnmarked);
    MStlGraphOperatorMarkPolygon op;
    op.SetPixelProportion(1.0);
    op.SetWorkWithGraphThickness(false);
    const auto run = [&](bool freshSetters) {
        output.SetScalar(edge, kUnmarked);
        if (freshSetters) {
            op.SetGraph(mesh.graph, identity);
            op.SetPolygon(lasso);
        }
        EXPECT_EQ(op.Operate(output, false), Code::Success);
        return output.GetScalar(edge) == 1.0;
    };
    EXPECT_TRUE(run(true));
    EXPECT_FALSE(run(false));
    EXPECT_TRUE(run(true));
}

// ---- An imported mesh and its sharp-edge graph against pixel oracles ----

// Even-odd fill of pixel centres and segment-against-pixel tests, in the operator's pixel
// frame: the lasso floored to whole pixels relative to its floored lower corner, model points
// mapped by the view, scaled and moved by that corner and half a pixel.
class PixelOracle {
  public:
    PixelOracle(const std::vector<point2d>& lasso, double pixelProportion)
        : m_scale(pixelProportion) {
        m_min = {INFINITY, INFINITY};
        point2d max = {-INFINITY, -INFINITY};
        for (const point2d& p : lasso) {
            const point2d q = {std::floor(p.x * m_scale), std::floor(p.y * m_scale)};
            m_polygon.push_back(q);
            m_min = {std::min(m_min.x, q.x), std::min(m_min.y, q.y)};
            max = {std::max(max.x, q.x), std::max(max.y, q.y)};
        }
        for (point2d& q : m_polygon)
            q = {q.x - m_min.x, q.y - m_min.y};
        m_box = {max.x - m_min.x, max.y - m_min.y};
        for (int row = 0; row <= m_box.y; ++row)
            for (int column = 0; column <= m_box.x; ++column)
                if (Inside({column + 0.5, row + 0.5}))
                    m_set.push_back({column, row});
    }

    point2d Project(const MMTransformMatrix& view, const MStlPoint& vertex) const {
        const point3d s =
            view(point3d{double(vertex[0]), double(vertex[1]), double(vertex[2])}, false);
        return {s.x * m_scale - m_min.x + 0.5, s.y * m_scale - m_min.y + 0.5};
    }
    /// Whether the segment passes through some set pixel shrunk (margin < 0) or grown
    /// (margin > 0) by |margin| on every side.
    bool TouchesSetPixel(point2d a, point2d b, double margin) const {
        for (const auto& [column, row] : m_set)
            if (Clips(a, b, {column - margin, row - margin},
                      {column + 1 + margin, row + 1 + margin}))
                return true;
        return false;
    }
    /// Whether the segment reaches the box [0, w] × [0, h] shrunk or grown by |margin|.
    bool TouchesBox(point2d a, point2d b, double margin) const {
        return Clips(a, b, {-margin, -margin}, {m_box.x + margin, m_box.y + margin});
    }
    std::size_t SetPixels() const { return m_set.size(); }

  private:
    bool Inside(point2d p) const {
        bool inside = false;
        for (std::size_t i = 0, j = m_polygon.size() - 1; i < m_polygon.size(); j = i++) {
            const point2d &a = m_polygon[i], &b = m_polygon[j];
            if ((a.y > p.y) != (b.y > p.y) && p.x < a.x + (p.y - a.y) * (b.x - a.x) / (b.y - a.y))
                inside = !inside;
        }
        return inside;
    }
    // Liang–Barsky: does the segment meet the closed box lo..hi?
    static bool Clips(point2d a, point2d b, point2d lo, point2d hi) {
        double t0 = 0, t1 = 1;
        const double d[2] = {b.x - a.x, b.y - a.y}, start[2] = {a.x, a.y};
        const double low[2] = {lo.x, lo.y}, high[2] = {hi.x, hi.y};
        for (int axis = 0; axis < 2; ++axis) {
            if (d[axis] == 0) {
                if (start[axis] < low[axis] || start[axis] > high[axis])
                    return false;
                continue;
            }
            double tLow = (low[axis] - start[axis]) / d[axis];
            double tHigh = (high[axis] - start[axis]) / d[axis];
            if (tLow > tHigh)
                std::swap(tLow, tHigh);
            t0 = std::max(t0, tLow);
            t1 = std::min(t1, tHigh);
            if (t0 > t1)
                return false;
        }
        return true;
    }

    double m_scale;
    point2d m_min, m_box;
    std::vector<point2d> m_polygon;
    std::vector<std::array<int, 2>> m_set;
};

class ImportedTerrainTest : public ::testing::Test {
  protected:
    static constexpr double kPixelProportion = 4.0;
    static constexpr double kMargin = 1e-6;  // pixels; rounding of the two projections

    void SetUp() override {
        const fs::path file =
            fs::temp_directory_path() /
            ("graph_mark_terrain_" + std::to_string(std::random_device()()) + ".off");
        std::ofstream(file) << TerrainOff(20, 7);
        mesh = velpick::ImportMesh(file);
        fs::remove(file);
        graph = AddSharpEdgeGraph(*mesh, 10.0, false);
        ASSERT_GT(graph->GetNumberOfEdges(), 300u);
        // Tilted view in model units (the mesh is in thousandths), then moved into the lasso.
        const double c = std::cos(0.5), s = std::sin(0.5), ct = std::cos(0.6), st = std::sin(0.6);
        const double k = 1e-3;
        view = MMTransformMatrix({k * c, -k * s, 0, 3,                 //
                                  k * s * ct, k * c * ct, -k * st, 2,  //
                                  k * s * st, k * c * st, k * ct, 0,   //
                                  0, 0, 0, 1});
        // Pixel corners chosen so that every side has an odd dx + dy: no pixel centre lies on
        // a side, where even-odd rules may differ.
        const int corners[8][2] = {{22, 31}, {52, 14}, {83, 36}, {70, 60},
                                   {78, 85}, {41, 73}, {13, 60}, {8, 46}};
        for (const auto& corner : corners)
            lasso.push_back({corner[0] / kPixelProportion, corner[1] / kPixelProportion});
    }

    // A height field of n × n unit cells with random heights in steps of 0.4, as OFF text.
    static std::string TerrainOff(int n, unsigned seed) {
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> step(0, 2);
        std::string text =
            "OFF\n" + std::to_string((n + 1) * (n + 1)) + " " + std::to_string(2 * n * n) + " 0\n";
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i)
                text += std::to_string(i) + " " + std::to_string(j) + " " +
                        std::to_string(0.4 * step(random)) + "\n";
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const int a = j * (n + 1) + i, b = a + 1, c = a + n + 2, d = a + n + 1;
                text += "3 " + std::to_string(a) + " " + std::to_string(b) + " " +
                        std::to_string(c) + "\n3 " + std::to_string(a) + " " + std::to_string(c) +
                        " " + std::to_string(d) + "\n";
            }
        return text;
    }

    std::unique_ptr<MStlBase> mesh;
    MStlGraph* graph = nullptr;
    MMTransformMatrix view;
    std::vector<point2d> lasso;
};

TEST_F(ImportedTerrainTest, EdgesUnderTheLassoAgainstPixelOracle) {
    const PixelOracle oracle(lasso, kPixelProportion);
    const Marks precise = MarkGraph(*graph, view, lasso, kPixelProportion, false, false);
    const Marks whole = MarkGraph(*graph, view, lasso, kPixelProportion, false, true);
    std::size_t i = 0, marked = 0, outside = 0, boxOnly = 0;
    for (const MStlGraphEdge& edge : graph->GraphEdges()) {
        const point2d a = oracle.Project(view, *edge.GetVertex(0));
        const point2d b = oracle.Project(view, *edge.GetVertex(1));
        if (oracle.TouchesSetPixel(a, b, -kMargin)) {
            EXPECT_TRUE(precise.marked[i]) << "edge " << i;
        }
        if (!oracle.TouchesSetPixel(a, b, kMargin)) {
            EXPECT_FALSE(precise.marked[i]) << "edge " << i;
        }
        // The box test hands the pixel proportion on as the tolerance, in pixels.
        if (oracle.TouchesBox(a, b, -kMargin)) {
            EXPECT_TRUE(whole.marked[i]) << "edge " << i;
        }
        if (!oracle.TouchesBox(a, b, kPixelProportion + kMargin)) {
            EXPECT_FALSE(whole.marked[i]) << "edge " << i;
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

TEST_F(ImportedTerrainTest, PlaneKeepsUncutEdgesAndNeverMarksCutAwayOnes) {
    // Keeps x ≥ 9.5 model units: about half the terrain.
    const MMPlaneEq<double> plane{1, 0, 0, -9500};
    const Marks open = MarkGraph(*graph, view, lasso, kPixelProportion, false, false);
    const Marks cut = MarkGraph(*graph, view, lasso, kPixelProportion, false, false, {plane});
    ASSERT_EQ(cut.code, Code::Success);
    std::size_t i = 0, cutEdges = 0;
    for (const MStlGraphEdge& edge : graph->GraphEdges()) {
        const double d0 = edge.GetVertex(0)->GetX() - 9500.0,
                     d1 = edge.GetVertex(1)->GetX() - 9500.0;
        if (d0 <= 0 && d1 <= 0) {
            EXPECT_FALSE(cut.marked[i]) << "edge " << i;
        } else if (d0 >= 0 && d1 >= 0)
            EXPECT_EQ(cut.marked[i], open.marked[i]) << "edge " << i;
        else
            ++cutEdges;
        ++i;
    }
    EXPECT_GT(cutEdges, 0u);
}

}  // namespace
