// PixelGrid (both constructors, both Intersect forms), the camera transform and the polygon
// bounds, on any numbers: sizes at the 32-bit limits, negative or NaN pixel sizes, far or
// non-finite coordinates. Intersect must leave the grid unchanged and every call must end.

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <velpick/camera_view.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pixel_grid.h>

namespace {

using AU_MarkOperations::PolygonMarking::PixelGrid;
using VelSDK::Math::point2d;

// Grids above this many cells are refused here only to keep each run fast.
constexpr std::int64_t kMaxFuzzCells = 1 << 16;

double Coordinate(FuzzedDataProvider& input) {
    switch (input.ConsumeIntegralInRange(0, 3)) {
        case 0:
            return input.ConsumeFloatingPointInRange(-64.0, 64.0);
        case 1:
            return input.ConsumeIntegralInRange(-8, 40) + input.ConsumeIntegralInRange(0, 4) / 4.0;
        default:
            return input.ConsumeFloatingPoint<double>();  // any double, NaN and inf included
    }
}

std::vector<point2d> Polygon(FuzzedDataProvider& input) {
    std::vector<point2d> polygon(input.ConsumeIntegralInRange<std::size_t>(0, 12));
    for (point2d& p : polygon)
        p = {Coordinate(input), Coordinate(input)};
    return polygon;
}

std::int32_t Side(FuzzedDataProvider& input) {
    return input.ConsumeBool() ? input.ConsumeIntegralInRange<std::int32_t>(-2, 48)
                               : input.ConsumeIntegral<std::int32_t>();
}

void CheckIntersectKeepsTheGrid(PixelGrid& grid, const std::vector<point2d>& polygon,
                                const std::array<point2d, 2>& segment) {
    const std::size_t cells = grid.GetWidth() > 0 && grid.GetHeight() > 0
                                  ? std::size_t(grid.GetWidth()) * std::size_t(grid.GetHeight())
                                  : 0;
    const bool* data = grid;
    const std::vector<bool> before(data, data + cells);
    grid.Intersect(polygon);
    grid.Intersect(segment);
    if (std::vector<bool>(data, data + cells) != before)
        __builtin_trap();
}

void FuzzGrid(FuzzedDataProvider& input) {
    const std::int32_t width = Side(input), height = Side(input);
    const double pixelSize = input.ConsumeBool() ? 1.0 : Coordinate(input);
    const bool initialValue = input.ConsumeBool();
    const std::vector<point2d> polygon = Polygon(input);
    const std::array<point2d, 2> segment{point2d{Coordinate(input), Coordinate(input)},
                                         point2d{Coordinate(input), Coordinate(input)}};
    const std::int64_t cells = std::int64_t{width} * height;
    if (cells < 0 || cells > INT32_MAX) {
        try {
            PixelGrid refused(width, height, pixelSize, initialValue);
        } catch (const std::length_error&) {
            return;
        }
        __builtin_trap();  // the header promises std::length_error
    }
    if (cells > kMaxFuzzCells)
        return;
    PixelGrid filled(polygon, width, height, pixelSize, initialValue);
    CheckIntersectKeepsTheGrid(filled, polygon, segment);
    PixelGrid plain(width, height, pixelSize, initialValue);
    CheckIntersectKeepsTheGrid(plain, Polygon(input), segment);
}

void FuzzCameraAndBounds(FuzzedDataProvider& input) {
    std::array<double, 16> rowMajor{};
    for (double& value : rowMajor)
        value = input.ConsumeBool() ? Coordinate(input) : 0.0;
    rowMajor[15] = 1.0;
    const MMTransformMatrix view(rowMajor);
    const VelSDK::Math::point2i origin{input.ConsumeIntegral<std::int32_t>(),
                                       input.ConsumeIntegral<std::int32_t>()};
    const double scale = Coordinate(input);
    AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation(view, scale, origin);
    AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention(Polygon(input), scale);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    FuzzCameraAndBounds(input);
    FuzzGrid(input);
    return 0;
}
