// Many views of one mesh: the 1M-triangle torus picked whole-screen from 64 orthographic
// cameras on a ring around it, through the batch that velpick.pick_views runs, on 1 and 2
// threads. Reported as views per second; the mesh is built once.

#include <cmath>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "camera_view.h"
#include "torus_scene.h"
#include "view_batch.h"

namespace {

constexpr std::size_t kViews = 64;
constexpr double kScreenUnits = bench::kViewPixels / bench::kPixelsPerUnit;

velpick::ViewBatch RingOfViews(MStlBase& mesh, int threads) {
    velpick::ViewBatch batch;
    batch.mesh = {&mesh, {}, true, {}, nullptr};
    const double pi = std::acos(-1.0);
    for (std::size_t v = 0; v < kViews; ++v) {
        const double angle = 2 * pi * static_cast<double>(v) / kViews;
        velpick::OrthoCamera camera{{300 * std::cos(angle), 300 * std::sin(angle), 120},
                                    {0, 0, 0},
                                    {0, 0, 1},
                                    kScreenUnits,
                                    kScreenUnits,
                                    kScreenUnits};
        batch.views.push_back({*velpick::CameraView(camera, 1000.0), camera});
    }
    velpick::SelectionRegion screen;
    screen.points = {{0, 0}, {kScreenUnits, 0}, {kScreenUnits, kScreenUnits}, {0, kScreenUnits}};
    batch.regions = {screen};
    batch.settings.unitsPerModelUnit = 1000.0;
    batch.settings.pixelProportion = bench::kPixelsPerUnit;
    batch.settings.threads = threads;
    return batch;
}

void BM_PickViews_Torus1M_64Views(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(1000000);
    const velpick::ViewBatch batch = RingOfViews(mesh, static_cast<int>(state.range(0)));
    std::vector<std::uint32_t> counts(mesh.GetNumberOfTriangles());
    for (auto _ : state) {
        std::vector<std::vector<std::uint32_t>> perView(kViews);
        velpick::PickViews(batch, 0, kViews,
                           [&](std::size_t view, const std::vector<std::size_t>& marked) {
                               perView[view].assign(marked.begin(), marked.end());
                           });
        benchmark::DoNotOptimize(perView.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kViews));
    state.SetLabel("items/s = views/s");
}
BENCHMARK(BM_PickViews_Torus1M_64Views)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(1.0);

}  // namespace
