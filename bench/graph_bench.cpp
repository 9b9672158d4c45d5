// Graph-edge marking at screen size: the sharp-edge graph (about 100k edges) of a rough
// terrain filling a 1000 × 1000-pixel view, under a lasso covering half of the view; without
// clipping planes, and with one plane that cuts about 10 % of the edges. Then the graph
// picker's two costs on the 1M noisy torus at a 30° sharp angle: building the feature graph
// (once per mesh and angle) and the marking operator on the built graph.

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include <velpick/graph_filter_by_clipping_planes.h>
#include <velpick/graph_mark_polygon.h>
#include <velpick/host/element_info.h>
#include <velpick/host/feature_graphs.h>
#include <velpick/host/named_mask.h>
#include <velpick/host/stl_base.h>
#include "torus_scene.h"

namespace {

using VelSDK::Math::point2d;

constexpr int kCells = 190;             // terrain cells per side
constexpr int kCellSize = 1000;         // internal units
constexpr int kMaxHeight = 10000;       // heights uniform in [0, kMaxHeight]
constexpr double kViewPixels = 1000.0;  // the terrain spans the view
constexpr int kLassoVertices = 256;
constexpr std::int32_t kThickness = 400;  // bar width of every edge: two pixels
// The plane z ≥ kPlaneHeight cuts an edge with one vertex below it: 2p(1 − p) ≈ 10 % of the
// edges for p = 5.3 % of the heights below.
constexpr double kPlaneHeight = 0.053 * kMaxHeight;

struct Scene {
    MStlBase mesh;
    MStlGraph* graph = nullptr;
    MMTransformMatrix view;
    std::vector<point2d> lasso;
    std::unique_ptr<MStlScalarMaskGraphEdges> output;

    Scene() {
        std::mt19937 random(18);
        std::uniform_int_distribution<int> height(0, kMaxHeight);
        std::vector<int> heights((kCells + 1) * (kCells + 1));
        for (int& h : heights)
            h = height(random);
        const auto at = [&](int i, int j) { return heights[j * (kCells + 1) + i]; };
        MStlSurface& surface = *mesh.AddSurface(nullptr);
        for (int j = 0; j < kCells; ++j)
            for (int i = 0; i < kCells; ++i) {
                const int x0 = i * kCellSize, x1 = x0 + kCellSize;
                const int y0 = j * kCellSize, y1 = y0 + kCellSize;
                surface.AddTriangle(x0, y0, at(i, j), x1, y0, at(i + 1, j), x1, y1,
                                    at(i + 1, j + 1));
                surface.AddTriangle(x0, y0, at(i, j), x1, y1, at(i + 1, j + 1), x0, y1,
                                    at(i, j + 1));
            }
        graph = AddSharpEdgeGraph(mesh, 1.0, true);
        auto* info = MStlBaseElementInfoStlDependency::GetDependency(&mesh, true);
        for (const MStlGraphEdge& edge : graph->GraphEdges())
            info->SetEdgeThickness(edge, {kThickness, kThickness});
        view.MakeScale1D(kViewPixels / (kCells * kCellSize));
        // A circle of half the view's area around its centre.
        const double radius = kViewPixels * std::sqrt(0.5 / M_PI);
        for (int k = 0; k < kLassoVertices; ++k) {
            const double angle = 2 * M_PI * k / kLassoVertices;
            lasso.push_back({kViewPixels / 2 + radius * std::cos(angle),
                             kViewPixels / 2 + radius * std::sin(angle)});
        }
        output = std::make_unique<MStlScalarMaskGraphEdges>(mesh, 0.0f);
    }

    // Edges the plane cuts (thickness on or off), as the filter classifies them.
    double CutEdges(bool thickness) {
        MStlScalarMaskGraphEdges classes(mesh, 1.0f);
        MStlGraphOperatorFilterByClippingPlanes filter;
        filter.SetGraph(graph);
        filter.SetGraphMask(&classes);
        filter.SetWorkWithGraphThickness(thickness);
        filter.AddPlane({0, 0, 1, -kPlaneHeight});
        filter.Operate();
        double cut = 0;
        for (const MStlGraphEdge& edge : graph->GraphEdges())
            cut += classes.GetScalar(edge) == 0.0;
        return cut;
    }
};

Scene& TheScene() {
    static Scene scene;
    return scene;
}

// Arguments: thickness on (1) or off (0), one clipping plane (1) or none (0).
void BM_MarkGraphPolygon(benchmark::State& state) {
    Scene& scene = TheScene();
    const bool thickness = state.range(0) != 0, plane = state.range(1) != 0;
    std::size_t marked = 0;
    for (auto _ : state) {
        MStlGraphOperatorMarkPolygon op;
        op.SetGraph(*scene.graph, scene.view);
        op.SetPolygon(scene.lasso);
        op.SetPixelProportion(1.0);
        op.SetWorkWithGraphThickness(thickness);
        if (plane)
            op.AddClippingPlane({0, 0, 1, -kPlaneHeight});
        benchmark::DoNotOptimize(op.Operate(*scene.output, false));
    }
    for (const MStlGraphEdge& edge : scene.graph->GraphEdges())
        marked += scene.output->GetScalar(edge) == 1.0;
    state.counters["edges"] = double(scene.graph->GetNumberOfEdges());
    state.counters["marked"] = double(marked);
    if (plane)
        state.counters["cut"] = scene.CutEdges(thickness);
}
BENCHMARK(BM_MarkGraphPolygon)
    ->ArgNames({"thickness", "plane"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond);

constexpr std::size_t kTorusTriangles = 1000000;
constexpr double kSharpAngleDegrees = 30.0;

// The first pick's graph build: the cache is emptied before every iteration. The triangle
// normals stay cached on the mesh, as they do after any pick.
void BM_GraphBuild(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(kTorusTriangles);
    std::size_t edges = 0;
    for (auto _ : state) {
        state.PauseTiming();
        ReleaseFeatureEdgeGraphs(mesh);
        state.ResumeTiming();
        edges = FeatureEdgeGraph(mesh, kSharpAngleDegrees).GetNumberOfEdges();
    }
    state.counters["edges"] = double(edges);
}
BENCHMARK(BM_GraphBuild)->Unit(benchmark::kMillisecond);

// A later pick: the graph comes from the cache; the operator marks it under the disc lasso.
void BM_GraphPick(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(kTorusTriangles);
    MStlGraph& graph = FeatureEdgeGraph(mesh, kSharpAngleDegrees);
    const MMTransformMatrix view = bench::View();
    MStlScalarMaskGraphEdges output(mesh, 0.0f);
    for (auto _ : state) {
        MStlGraphOperatorMarkPolygon op;
        op.SetGraph(FeatureEdgeGraph(mesh, kSharpAngleDegrees), view);
        op.SetPolygon(bench::Disc());
        op.SetPixelProportion(bench::kPixelsPerUnit);
        op.SetWorkWithGraphThickness(false);
        benchmark::DoNotOptimize(op.Operate(output, false));
    }
    std::size_t marked = 0;
    for (const MStlGraphEdge& edge : graph.GraphEdges())
        marked += output.GetScalar(edge) == 1.0;
    state.counters["edges"] = double(graph.GetNumberOfEdges());
    state.counters["marked"] = double(marked);
}
BENCHMARK(BM_GraphPick)->Unit(benchmark::kMillisecond);

}  // namespace
