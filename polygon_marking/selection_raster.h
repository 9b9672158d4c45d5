#pragma once

// The selection rasters of the z-buffer picker: the region under a polygon or brush path as a
// PixelGrid, plus the buffers the triangle rasterizer writes. All coordinates are grid pixels
// relative to the region's lower-left pixel.

#include <cstddef>
#include <cstdint>
#include <memory>

#include <velpick/host/point.h>
#include <velpick/pixel_grid.h>

namespace AU_MarkOperations::PolygonMarking {

/// Regions over this many cells are refused before anything is allocated.
constexpr std::int64_t kMaxRasterCells = 0x7fffffff;

/// Bits of the flag byte the picker keeps per candidate triangle or piece.
constexpr std::uint8_t kCoveredFlag = 1;  // the triangle won or touched a region pixel
constexpr std::uint8_t kVisibleFlag = 2;  // the triangle is visible and will be marked

/// The owner number of a depth cell that no candidate holds: never drawn, or last won by a
/// triangle drawn only as an occluder. Candidates are numbered from 1.
constexpr std::uint32_t kNoOwner = 0;

/// One pixel of the depth buffer. During the depth pass `owner` numbers the nearest
/// candidate; finalization overwrites it with `threshold` = depth − tolerance.
struct _DepthEntry {
    float depth;
    union {
        std::uint32_t owner;
        float threshold;
    };
};
static_assert(sizeof(_DepthEntry) == 8, "a depth cell is a float and a 32-bit owner");

/// One row of a triangle between its left and right edges, as the edge walk hands it to the
/// pixel loop: columns in grid pixels and the depths at both ends.
struct _DepthSpan {
    float xLeft, xRight, zLeft, zRight;
};

/// The same row for the region-only walk, without depths.
struct _RegionSpan {
    float xLeft, xRight;
};

/// Region plus z-buffer, for picking only the front-most surface.
struct _DepthRaster {
    std::size_t m_depthTolerance = 0;  // model length in internal units
    std::unique_ptr<_DepthEntry[]> m_depth;
    std::unique_ptr<PixelGrid> m_region;
    std::int32_t m_width = 0;
    std::int32_t m_height = 0;
    bool m_finalized = false;
};

/// Region only, for mark-through picking.
struct _RegionRaster {
    std::shared_ptr<PixelGrid> m_region;
    std::int32_t m_width = 0;
    std::int32_t m_height = 0;
};

/// The bytes the builders allocate for a width × height raster: per pixel a region cell and,
/// with `depth`, a depth entry. 0 for a size the builders refuse.
std::uint64_t _RasterBytes(std::uint32_t width, std::int32_t height, bool depth);

/// Builds the region of a brush path: a disc at every point and a stroke between consecutive
/// points (count ≥ 1), plus the depth buffer with every entry {−FLT_MAX, kNoOwner}. Returns false,
/// with the old buffers released, the size stored and nothing allocated, when width·height
/// exceeds kMaxRasterCells (or the height is negative, or the width beyond the int32 range).
bool _BuildBrushDepthRaster(_DepthRaster& raster, std::uint32_t width, std::int32_t height,
                            const VelSDK::Math::point2d* path, std::size_t count,
                            std::int32_t radius);
/// As above for the scan-converted polygon (closed implicitly).
bool _BuildPolygonDepthRaster(_DepthRaster& raster, std::uint32_t width, std::int32_t height,
                              const VelSDK::Math::point2d* polygon, std::size_t count);
/// The brush region without a depth buffer.
bool _BuildBrushRegionRaster(_RegionRaster& raster, std::uint32_t width, std::int32_t height,
                             const VelSDK::Math::point2d* path, std::size_t count,
                             std::int32_t radius);
/// The polygon region without a depth buffer.
bool _BuildPolygonRegionRaster(_RegionRaster& raster, std::uint32_t width, std::int32_t height,
                               const VelSDK::Math::point2d* polygon, std::size_t count);

}  // namespace AU_MarkOperations::PolygonMarking
