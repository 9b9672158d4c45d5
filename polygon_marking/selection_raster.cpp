#include "polygon_marking/selection_raster.h"

#include <algorithm>
#include <cfloat>
#include <vector>

#include "polygon_marking/brush_footprint.h"

namespace AU_MarkOperations::PolygonMarking {

using VelSDK::Math::point2d;

namespace {

// The pixel size of every selection region: samples at pixel centres.
constexpr double kRegionPixelSize = 1.0;

// Refuses rasters over kMaxRasterCells, counted in 64 bits so that the product cannot wrap, and
// sizes no 32-bit grid can hold (a negative height, a width beyond the int32 range).
bool SizeAccepted(std::uint32_t width, std::int32_t height) {
    const std::int64_t cells = std::int64_t{width} * height;
    return height >= 0 && width <= static_cast<std::uint32_t>(INT32_MAX) &&
           cells <= kMaxRasterCells;
}

void ReleaseBuffers(_DepthRaster& raster) {
    raster.m_depth.reset();
    raster.m_region.reset();
}

void ReleaseBuffers(_RegionRaster& raster) {
    raster.m_region.reset();
}

// The frame shared by the four builders: the size is stored and the old buffers are released
// before the size check, so a refused build leaves the raster empty.
template <class Raster>
bool StartBuild(Raster& raster, std::uint32_t width, std::int32_t height) {
    raster.m_width = static_cast<std::int32_t>(width);
    raster.m_height = height;
    ReleaseBuffers(raster);
    return SizeAccepted(width, height);
}

std::unique_ptr<PixelGrid> BrushRegion(std::int32_t width, std::int32_t height, const point2d* path,
                                       std::size_t count, std::int32_t radius) {
    auto region = std::make_unique<PixelGrid>(width, height, kRegionPixelSize, false);
    PaintBrushPath(*region, path, count, radius);
    return region;
}

std::unique_ptr<PixelGrid> PolygonRegion(std::int32_t width, std::int32_t height,
                                         const point2d* polygon, std::size_t count) {
    const std::vector<point2d> vertices(polygon, polygon + count);
    return std::make_unique<PixelGrid>(vertices, width, height, kRegionPixelSize, false);
}

// Every depth entry starts farther than any triangle, with no owner.
void AllocateDepthBuffers(_DepthRaster& raster) {
    const std::size_t cells = std::size_t(raster.m_width) * std::size_t(raster.m_height);
    raster.m_depth.reset(new _DepthEntry[cells]);
    std::fill(raster.m_depth.get(), raster.m_depth.get() + cells,
              _DepthEntry{-FLT_MAX, {kNoOwner}});
}

}  // namespace

std::uint64_t _RasterBytes(std::uint32_t width, std::int32_t height, bool depth) {
    if (!SizeAccepted(width, height))
        return 0;
    const std::uint64_t cells = std::uint64_t{width} * static_cast<std::uint64_t>(height);
    return depth ? cells * (sizeof(_DepthEntry) + 1) : cells;
}

bool _BuildBrushDepthRaster(_DepthRaster& raster, std::uint32_t width, std::int32_t height,
                            const point2d* path, std::size_t count, std::int32_t radius) {
    if (!StartBuild(raster, width, height))
        return false;
    raster.m_region = BrushRegion(raster.m_width, height, path, count, radius);
    AllocateDepthBuffers(raster);
    return true;
}

bool _BuildPolygonDepthRaster(_DepthRaster& raster, std::uint32_t width, std::int32_t height,
                              const point2d* polygon, std::size_t count) {
    if (!StartBuild(raster, width, height))
        return false;
    raster.m_region = PolygonRegion(raster.m_width, height, polygon, count);
    AllocateDepthBuffers(raster);
    return true;
}

bool _BuildBrushRegionRaster(_RegionRaster& raster, std::uint32_t width, std::int32_t height,
                             const point2d* path, std::size_t count, std::int32_t radius) {
    if (!StartBuild(raster, width, height))
        return false;
    raster.m_region = BrushRegion(raster.m_width, height, path, count, radius);
    return true;
}

bool _BuildPolygonRegionRaster(_RegionRaster& raster, std::uint32_t width, std::int32_t height,
                               const point2d* polygon, std::size_t count) {
    if (!StartBuild(raster, width, height))
        return false;
    raster.m_region = PolygonRegion(raster.m_width, height, polygon, count);
    return true;
}

}  // namespace AU_MarkOperations::PolygonMarking
