// The importer's building step alone: a polygon soup already in memory becomes a host mesh
// (scaling to internal units, rounding, vertex merging). The Python module's mesh building from
// numpy arrays is measured against this (python/bench_build.py).

#include <benchmark/benchmark.h>

#include <cstdint>

#include "polygon_soup.h"

namespace {

// The grid of the PLY import benchmark: side × side vertices, two triangles per cell.
velpick::detail::PolygonSoup GridSoup(int side) {
    velpick::detail::PolygonSoup soup;
    for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i)
            soup.AddVertex(i * 0.5f, j * 0.5f, (i * j % 7) * 0.25f);
    for (int j = 0; j + 1 < side; ++j)
        for (int i = 0; i + 1 < side; ++i) {
            const std::uint32_t a = j * side + i, b = a + 1, c = a + side + 1, d = a + side;
            for (const std::uint32_t corner : {a, b, c, a, c, d}) {
                soup.corners.push_back(corner);
                if (soup.corners.size() % 3 == 0)
                    soup.CloseFace();
            }
        }
    return soup;
}

// side 708 gives 2 · 707² = 999 698 triangles.
void BM_BuildMeshFromSoup(benchmark::State& state) {
    const velpick::detail::PolygonSoup soup = GridSoup(static_cast<int>(state.range(0)));
    std::size_t triangles = 0;
    for (auto _ : state) {
        const auto mesh = velpick::detail::BuildMesh(soup, 1000.0);
        triangles = mesh->GetNumberOfTriangles();
        benchmark::DoNotOptimize(triangles);
    }
    state.counters["triangles"] = static_cast<double>(triangles);
}
BENCHMARK(BM_BuildMeshFromSoup)->Arg(708)->Unit(benchmark::kMillisecond);

}  // namespace
