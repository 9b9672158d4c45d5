// The z-buffer picker on a one-million-triangle height field under a 1000 × 1000 pixel lasso
// and along a brush stroke; and on the 1M noisy torus of the table on two threads, beside the
// table's one-thread rows.

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <velpick/host/stl_base.h>
#include <velpick/host/stl_surface.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/mark_polygon.h>
#include "torus_scene.h"

namespace {

constexpr int kCells = 708;              // 2 · 708² ≈ 1 000 000 triangles
constexpr double kHalfSize = 10000.0;    // internal units: ±10 screen units under the view
constexpr double kPixelsPerUnit = 50.0;  // the ±10 unit lasso spans 1000 pixels

/// A wavy height field over [−kHalfSize, kHalfSize]², built once per process.
MStlBase& HeightField() {
    static const std::unique_ptr<MStlBase> mesh = [] {
        auto field = std::make_unique<MStlBase>();
        MStlSurface& surface = *field->AddSurface(nullptr);
        const double step = 2 * kHalfSize / kCells;
        const auto height = [](double x, double y) {
            return static_cast<int>(800.0 * std::sin(x / 1500.0) * std::cos(y / 1100.0));
        };
        for (int i = 0; i < kCells; ++i) {
            for (int j = 0; j < kCells; ++j) {
                const double x0 = -kHalfSize + i * step, y0 = -kHalfSize + j * step;
                const double x1 = x0 + step, y1 = y0 + step;
                const int ix0 = int(x0), iy0 = int(y0), ix1 = int(x1), iy1 = int(y1);
                surface.AddTriangle(ix0, iy0, height(x0, y0), ix1, iy0, height(x1, y0), ix1, iy1,
                                    height(x1, y1));
                surface.AddTriangle(ix0, iy0, height(x0, y0), ix1, iy1, height(x1, y1), ix0, iy1,
                                    height(x0, y1));
            }
        }
        return field;
    }();
    return *mesh;
}

/// A view tilted about the x axis, so that the waves hide one another.
MMTransformMatrix TiltedView() {
    MMTransformMatrix scale, tilt;
    scale.MakeScale1D(0.001);
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.5, 0.866}, {0, 0, 0});
    scale.PostMultiply(tilt);
    return scale;
}

void RunPick(benchmark::State& state, bool markThrough, bool brush) {
    MStlBase& mesh = HeightField();
    const MMTransformMatrix view = TiltedView(), placement;
    const std::vector<VelSDK::Math::point2d> lasso{{-10, -10}, {10, -10}, {10, 10}, {-10, 10}};
    const std::vector<VelSDK::Math::point2d> stroke{{-9, -6}, {-3, 4}, {2, -5}, {9, 6}};
    for (auto _ : state) {
        MStlBaseOperatorMarkPolygon picker(kPixelsPerUnit, 0.05, false);
        picker.AddStl(&mesh, &view, &placement, true, nullptr);
        if (brush)
            picker.SetBrushPath(stroke, 1);
        else
            picker.SetPolygon(lasso);
        picker.SetMarkThrough(markThrough);
        benchmark::DoNotOptimize(picker.operate());
    }
    state.counters["triangles_per_second"] =
        benchmark::Counter(static_cast<double>(mesh.GetNumberOfTriangles()),
                           benchmark::Counter::kIsIterationInvariantRate);
}

void BM_MarkPolygonVisible(benchmark::State& state) {
    RunPick(state, false, false);
}
void BM_MarkPolygonThrough(benchmark::State& state) {
    RunPick(state, true, false);
}
void BM_MarkPolygonBrush(benchmark::State& state) {
    RunPick(state, false, true);
}

BENCHMARK(BM_MarkPolygonVisible)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkPolygonThrough)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkPolygonBrush)->Unit(benchmark::kMillisecond);

void BM_PickTwoThreads(benchmark::State& state, bench::PickOptions options) {
    MStlBase& torus = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    options.threads = 2;
    for (auto _ : state)
        benchmark::DoNotOptimize(bench::Pick(torus, options));
    state.counters["triangles"] = static_cast<double>(torus.GetNumberOfTriangles());
}

void BM_PickPerspective(benchmark::State& state) {
    MStlBase& torus = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    bench::PickOptions options;
    options.perspective = true;
    for (auto _ : state)
        benchmark::DoNotOptimize(bench::Pick(torus, options));
    state.counters["triangles"] = static_cast<double>(torus.GetNumberOfTriangles());
}
// The half-view lasso through a pinhole, beside the table's orthographic rows.
BENCHMARK(BM_PickPerspective)
    ->Name("BM_Pick/perspective")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

// Named under BM_Pick so that bench/run picks them up; wall time, as two threads share the work.
const bool kTwoThreadRows = [] {
    const std::pair<const char*, bench::PickOptions> kinds[] = {
        {"visible", {}},
        {"through", {true}},
        {"culling", {false, true}},
        {"brush", {false, false, false, true}}};
    for (const auto& [kind, options] : kinds)
        benchmark::RegisterBenchmark((std::string("BM_Pick/") + kind + "_2threads").c_str(),
                                     BM_PickTwoThreads, options)
            ->Arg(1000000)
            ->MinWarmUpTime(0.5)  // the culling pick computes the normals on its first run
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    return true;
}();

}  // namespace
