#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "mesh_import.h"

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

}  // namespace
