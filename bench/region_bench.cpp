// Selection-region fills at the size of a large screen lasso: a 4000 × 4000 region from a
// 1000-vertex star-shaped polygon, and from a 200-point brush path of radius 25.

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "polygon_marking/selection_raster.h"

namespace {

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point2d;

constexpr int kRegionSize = 4000;
constexpr int kLassoVertices = 1000;
constexpr int kBrushPoints = 200;
constexpr int kBrushRadius = 25;

// A star around the region's centre: every vertex at a random distance on its own ray.
std::vector<point2d> RandomLasso() {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> radius(0.2 * kRegionSize, 0.49 * kRegionSize);
    std::vector<point2d> lasso;
    for (int i = 0; i < kLassoVertices; ++i) {
        const double angle = 2 * M_PI * i / kLassoVertices;
        const double r = radius(random);
        lasso.push_back(
            {kRegionSize / 2.0 + r * std::cos(angle), kRegionSize / 2.0 + r * std::sin(angle)});
    }
    return lasso;
}

// Random points kept a disc's width away from the region's border.
std::vector<point2d> RandomBrushPath() {
    std::mt19937 random(12);
    const double margin = kBrushRadius + 2.0;
    std::uniform_real_distribution<double> coordinate(margin, kRegionSize - margin);
    std::vector<point2d> path;
    for (int i = 0; i < kBrushPoints; ++i)
        path.push_back({coordinate(random), coordinate(random)});
    return path;
}

void SetCellRate(benchmark::State& state) {
    state.counters["cells"] =
        benchmark::Counter(double(kRegionSize) * kRegionSize * double(state.iterations()),
                           benchmark::Counter::kIsRate);
}

void BM_PolygonRegion(benchmark::State& state) {
    const std::vector<point2d> lasso = RandomLasso();
    _RegionRaster raster;
    for (auto _ : state) {
        const bool built =
            _BuildPolygonRegionRaster(raster, kRegionSize, kRegionSize, lasso.data(), lasso.size());
        benchmark::DoNotOptimize(built);
    }
    SetCellRate(state);
}
BENCHMARK(BM_PolygonRegion)->Unit(benchmark::kMillisecond);

void BM_BrushRegion(benchmark::State& state) {
    const std::vector<point2d> path = RandomBrushPath();
    _RegionRaster raster;
    for (auto _ : state) {
        const bool built = _BuildBrushRegionRaster(raster, kRegionSize, kRegionSize, path.data(),
                                                   path.size(), kBrushRadius);
        benchmark::DoNotOptimize(built);
    }
    SetCellRate(state);
}
BENCHMARK(BM_BrushRegion)->Unit(benchmark::kMillisecond);

}  // namespace
