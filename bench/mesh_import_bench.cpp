#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "heap_counter.h"
#include "mesh_import.h"
#include "torus_scene.h"

namespace {

template <class T>
void append(std::string& bytes, T value) {
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    bytes.append(raw, sizeof(T));
}

// A binary PLY of a side × side vertex grid, two triangles per cell.
std::filesystem::path writeGridPly(int side) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("velpick_bench_grid_" + std::to_string(side) + ".ply");
    const long cells = static_cast<long>(side - 1) * (side - 1);
    std::string bytes =
        "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(side * side) +
        "\nproperty float x\nproperty float y\nproperty float z\nelement face " +
        std::to_string(2 * cells) + "\nproperty list uchar int vertex_indices\nend_header\n";
    for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i) {
            append<float>(bytes, i * 0.5f);
            append<float>(bytes, j * 0.5f);
            append<float>(bytes, (i * j % 7) * 0.25f);
        }
    for (int j = 0; j + 1 < side; ++j)
        for (int i = 0; i + 1 < side; ++i) {
            const std::int32_t a = j * side + i, b = a + 1, c = a + side + 1, d = a + side;
            for (const std::array<std::int32_t, 3>& t :
                 {std::array{a, b, c}, std::array{a, c, d}}) {
                append<std::uint8_t>(bytes, 3);
                for (std::int32_t index : t)
                    append<std::int32_t>(bytes, index);
            }
        }
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

// side 708 gives 2 · 707² = 999 698 triangles.
void BM_ImportBinaryPly(benchmark::State& state) {
    const auto path = writeGridPly(static_cast<int>(state.range(0)));
    std::size_t triangles = 0;
    for (auto _ : state) {
        const auto mesh = velpick::ImportMesh(path, 1000.0);
        triangles = mesh->GetNumberOfTriangles();
        benchmark::DoNotOptimize(triangles);
    }
    state.counters["triangles"] = static_cast<double>(triangles);
    std::filesystem::remove(path);
}
BENCHMARK(BM_ImportBinaryPly)->Arg(708)->Unit(benchmark::kMillisecond);

// The torus of the pick benchmarks as binary STL: the same float coordinates as its PLY file,
// each facet's corners in face order, zero normals.
std::filesystem::path writeTorusStl(std::size_t triangles) {
    const scene::IndexedMesh torus = bench::Torus(triangles);
    const auto path = std::filesystem::temp_directory_path() /
                      ("velpick_bench_torus_" + std::to_string(triangles) + ".stl");
    std::string bytes(80, ' ');
    bytes.reserve(84 + 50 * torus.faces.size());
    append<std::uint32_t>(bytes, static_cast<std::uint32_t>(torus.faces.size()));
    for (const auto& face : torus.faces) {
        for (int k = 0; k < 3; ++k)
            append<float>(bytes, 0.0f);
        for (const std::uint32_t v : face)
            for (const std::int32_t c : torus.vertices[v])
                append<float>(bytes, static_cast<float>(c / 1000.0));
        append<std::uint16_t>(bytes, 0);
    }
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

const std::filesystem::path& torusFile(const std::string& format, std::size_t triangles) {
    if (format == "ply")
        return bench::TorusPly(triangles);
    static const std::filesystem::path stl = writeTorusStl(triangles);
    return stl;
}

// The load of the torus file as a user's load: timed, the mesh released untimed.
void BM_LoadTorus(benchmark::State& state, const std::string& format) {
    const auto& file = torusFile(format, static_cast<std::size_t>(state.range(0)));
    std::size_t triangles = 0;
    for (auto _ : state) {
        auto mesh = velpick::ImportMesh(file, 1000.0);
        triangles = mesh->GetNumberOfTriangles();
        state.PauseTiming();
        mesh.reset();
        state.ResumeTiming();
    }
    state.counters["triangles"] = static_cast<double>(triangles);
}
BENCHMARK_CAPTURE(BM_LoadTorus, stl, std::string("stl"))
    ->Name("Mesh/load_stl")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

// The most heap the load of the torus file holds at once, the mesh included, per triangle.
void BM_LoadPeak(benchmark::State& state, const std::string& format) {
    const auto& file = torusFile(format, static_cast<std::size_t>(state.range(0)));
    double perTriangle = 0;
    for (auto _ : state) {
        bench::ResetHeapPeak();
        const std::size_t before = bench::HeapBytesInUse();
        const auto mesh = velpick::ImportMesh(file, 1000.0);
        perTriangle = double(bench::HeapPeak() - before) / double(mesh->GetNumberOfTriangles());
    }
    state.counters["peak_bytes_per_triangle"] = perTriangle;
}
BENCHMARK_CAPTURE(BM_LoadPeak, ply, std::string("ply"))
    ->Name("Mesh/load_peak/ply")
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoadPeak, stl, std::string("stl"))
    ->Name("Mesh/load_peak/stl")
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
