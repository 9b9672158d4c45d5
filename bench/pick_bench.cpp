// The z-buffer picker, the importer and the mesh's life on the noisy torus scene.

#include <benchmark/benchmark.h>

#include "heap_counter.h"
#include "torus_scene.h"

namespace {

void SetScale(benchmark::State& state, std::size_t triangles) {
    state.counters["triangles"] = static_cast<double>(triangles);
}

void BM_Pick(benchmark::State& state, bench::PickOptions options) {
    MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(bench::Pick(mesh, options));
    SetScale(state, mesh.GetNumberOfTriangles());
}

constexpr bench::PickOptions kVisible{}, kThrough{true}, kCulling{false, true},
    kPlanes{false, false, true}, kBrush{false, false, false, true};

void BM_Load(benchmark::State& state) {
    const auto& file = bench::TorusPly(static_cast<std::size_t>(state.range(0)));
    std::size_t triangles = 0;
    for (auto _ : state) {
        auto mesh = velpick::ImportMesh(file, 1000.0);
        triangles = mesh->GetNumberOfTriangles();
        state.PauseTiming();
        mesh.reset();
        state.ResumeTiming();
    }
    SetScale(state, triangles);
}

void BM_Destroy(benchmark::State& state) {
    const auto& file = bench::TorusPly(static_cast<std::size_t>(state.range(0)));
    std::size_t triangles = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto mesh = velpick::ImportMesh(file, 1000.0);
        triangles = mesh->GetNumberOfTriangles();
        state.ResumeTiming();
        mesh.reset();
    }
    SetScale(state, triangles);
}

/// Bytes per triangle held by a loaded mesh.
void BM_MeshBytes(benchmark::State& state) {
    const auto& file = bench::TorusPly(static_cast<std::size_t>(state.range(0)));
    double perTriangle = 0;
    for (auto _ : state) {
        const std::size_t before = bench::HeapBytesInUse();
        auto mesh = velpick::ImportMesh(file, 1000.0);
        perTriangle =
            double(bench::HeapBytesInUse() - before) / double(mesh->GetNumberOfTriangles());
    }
    state.counters["bytes_per_triangle"] = perTriangle;
}

/// The visible pick with a disc of range(1) pixels radius, and its peak extra heap against
/// a bound from what it allocates: 8-byte depth cells, a region byte and a row span per
/// pixel row of the box; per vertex a float pixel point and an outcode; per triangle one
/// state byte; 64 KiB for the region's polygon and the small per-mesh vectors.
void BM_PickScale(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    bench::PickOptions options;
    options.discRadius = static_cast<double>(state.range(1));
    std::size_t peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        bench::ResetHeapPeak();
        const std::size_t before = bench::HeapBytesInUse();
        state.ResumeTiming();
        benchmark::DoNotOptimize(bench::Pick(mesh, options));
        peak = bench::HeapPeak() - before;
    }
    const double side = 2 * options.discRadius + 1;
    const double pixels = 3.14159265 * options.discRadius * options.discRadius;
    const double model = 9.0 * side * side + 16.0 * side + 13.0 * double(mesh.GetNumberOfPoints()) +
                         1.0 * double(mesh.GetNumberOfTriangles()) + 65536.0;
    state.counters["triangles"] = static_cast<double>(mesh.GetNumberOfTriangles());
    state.counters["region_pixels"] = pixels;
    state.counters["peak_bytes"] = static_cast<double>(peak);
    state.counters["model_bytes"] = model;
}

#define VELPICK_TORUS_SIZES Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)
BENCHMARK_CAPTURE(BM_Pick, visible, kVisible)->VELPICK_TORUS_SIZES->Arg(4000000);
BENCHMARK_CAPTURE(BM_Pick, through, kThrough)->VELPICK_TORUS_SIZES;
BENCHMARK_CAPTURE(BM_Pick, planes, kPlanes)->VELPICK_TORUS_SIZES;
// The mesh computes its triangle normals on the first culling pick and keeps them; a drag
// repeats the pick, so the first run is left out.
BENCHMARK_CAPTURE(BM_Pick, culling, kCulling)->VELPICK_TORUS_SIZES->MinWarmUpTime(0.5);
BENCHMARK_CAPTURE(BM_Pick, brush, kBrush)->VELPICK_TORUS_SIZES;
BENCHMARK(BM_Load)->Name("Mesh/load")->VELPICK_TORUS_SIZES;
BENCHMARK(BM_Destroy)->Name("Mesh/destroy")->VELPICK_TORUS_SIZES->Iterations(8);
BENCHMARK(BM_PickScale)
    ->Name("Scale/pick")
    ->Args({100000, 399})
    ->Args({1000000, 399})
    ->Args({4000000, 399})
    ->Args({1000000, 100})
    ->Args({1000000, 200})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MeshBytes)
    ->Name("Mesh/bytes")
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
