// The z-buffer picker, the importer and the mesh's life on the noisy torus scene.

#include <benchmark/benchmark.h>

#include <malloc.h>

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
        auto mesh = velpick::ImportMesh(file);
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
        auto mesh = velpick::ImportMesh(file);
        triangles = mesh->GetNumberOfTriangles();
        state.ResumeTiming();
        mesh.reset();
    }
    SetScale(state, triangles);
}

std::size_t HeapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// Heap bytes per triangle held by a loaded mesh.
void BM_MeshBytes(benchmark::State& state) {
    const auto& file = bench::TorusPly(static_cast<std::size_t>(state.range(0)));
    double perTriangle = 0;
    for (auto _ : state) {
        malloc_trim(0);
        const std::size_t before = HeapBytes();
        auto mesh = velpick::ImportMesh(file);
        perTriangle = double(HeapBytes() - before) / double(mesh->GetNumberOfTriangles());
    }
    state.counters["bytes_per_triangle"] = perTriangle;
}

#define VELPICK_TORUS_SIZES Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)
BENCHMARK_CAPTURE(BM_Pick, visible, kVisible)->VELPICK_TORUS_SIZES;
BENCHMARK_CAPTURE(BM_Pick, through, kThrough)->VELPICK_TORUS_SIZES;
BENCHMARK_CAPTURE(BM_Pick, planes, kPlanes)->VELPICK_TORUS_SIZES;
BENCHMARK_CAPTURE(BM_Pick, culling, kCulling)->VELPICK_TORUS_SIZES;
BENCHMARK_CAPTURE(BM_Pick, brush, kBrush)->VELPICK_TORUS_SIZES;
BENCHMARK(BM_Load)->Name("Mesh/load")->VELPICK_TORUS_SIZES;
BENCHMARK(BM_Destroy)->Name("Mesh/destroy")->VELPICK_TORUS_SIZES->Iterations(8);
BENCHMARK(BM_MeshBytes)
    ->Name("Mesh/bytes")
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
