#pragma once

// The z-buffer passes of the polygon-marking operator over a _DepthRaster: draw every
// triangle into the depth buffer, turn the buffer into thresholds, then ask of each candidate
// whether it reaches the front within the depth tolerance.
//
// Vertices are in grid pixels relative to the region's lower-left pixel (pixel centres on
// half-integers), z is depth in model length units, larger z nearer to the viewer.
//
// The drawing and visibility routines are inline: the picker calls them once per triangle,
// and most triangles cover one or two pixels, so a call and its set-up would cost more than
// the pixels.

#include <cstddef>
#include <cstdint>

#include <velpick/host/point.h>
#include "mark_polygon/triangle_setup.h"
#include "polygon_marking/selection_raster.h"

namespace AU_MarkOperations::PolygonMarking {

namespace detail {

/// Visits the pixels of a triangle's span scan that lie inside the grid, row by row:
/// `visitPixel(entry, inRegion, z)` gets the pixel's depth entry, whether it belongs to the
/// region, and the triangle's depth there. Stops early, returning true, when the visitor
/// returns true. The depth starts at the row's first column and steps once per column; the
/// step costs a division, so it is only computed for rows of several columns, which in a
/// dense mesh are the fewer.
template <class PixelVisitor>
inline bool ScanDepthPixels(_DepthRaster& raster, const VelSDK::Math::point3f& a,
                            const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c,
                            PixelVisitor&& visitPixel) {
    const GridWidth width(raster.m_width);
    _DepthEntry* depth = raster.m_depth.get();
    const bool* region = *raster.m_region;
    return ScanTriangleRows(raster.m_rowSpans.get(), raster.m_height, a, b, c,
                            [&](std::int32_t row, const _DepthSpan& span) {
                                RowColumns columns;
                                if (!ClampDepthRow(span, width, columns))
                                    return false;
                                const std::size_t first =
                                    static_cast<std::size_t>(row) * width.columns + columns.first;
                                _DepthEntry* entry = depth + first;
                                const bool* inRegion = region + first;
                                float z = columns.z;
                                if (visitPixel(*entry, *inRegion, z))
                                    return true;
                                const std::int32_t count = columns.Count();
                                if (count == 1)
                                    return false;
                                const float step = RowDepthStep(span, columns, width);
                                for (std::int32_t column = 1; column < count; ++column) {
                                    z += step;
                                    if (visitPixel(entry[column], inRegion[column], z))
                                        return true;
                                }
                                return false;
                            });
}

}  // namespace detail

/// Draws the triangle into every region pixel its span scan covers. A pixel takes the
/// triangle's depth and `owner` only when strictly nearer than what it holds, so of two
/// triangles at equal depth the one drawn first keeps the pixel. Returns whether the scan
/// reached a region pixel, won or not. An occluder draws as kNoOwner.
inline bool _RasterizeTriangleDepth(_DepthRaster& raster, const VelSDK::Math::point3f& a,
                                    const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c,
                                    std::uint32_t owner) {
    bool covered = false;
    detail::ScanDepthPixels(raster, a, b, c, [&](_DepthEntry& entry, bool inRegion, float z) {
        if (!inRegion)
            return false;
        covered = true;
        if (z > entry.depth) {
            entry.depth = z;
            entry.owner = owner;
        }
        return false;
    });
    return covered;
}

/// Closes the depth pass. In every region pixel the owner, if any, becomes visible:
/// `flags[owner]` gets kVisibleFlag when it has kCoveredFlag, loses it otherwise. Then the
/// owner is overwritten by the threshold depth − tolerance. A region pixel never drawn gets
/// threshold −FLT_MAX. Pixels outside the region are left as they are. `flags` is indexed by
/// owner number and must reach every owner drawn.
void _FinalizeDepthRaster(_DepthRaster& raster, std::uint8_t* flags);

/// Whether the triangle reaches the front of a finalized raster: first a vertex lying in a
/// region pixel with z ≥ that pixel's threshold; when all three vertices lie in region pixels
/// and none passes, the triangle is hidden without further work; otherwise a span pixel of
/// the region with z > threshold (strictly).
inline bool _TestTriangleVisibility(_DepthRaster& raster, const VelSDK::Math::point3f& a,
                                    const VelSDK::Math::point3f& b,
                                    const VelSDK::Math::point3f& c) {
    // The three vertices are tested together, without early exits, so that their cells are
    // fetched at once; a vertex outside the grid reads cell 0 and is masked out.
    const std::uint32_t width = static_cast<std::uint32_t>(raster.m_width);
    const std::uint32_t height = static_cast<std::uint32_t>(raster.m_height);
    const bool* region = *raster.m_region;
    const _DepthEntry* depth = raster.m_depth.get();
    int verticesInRegion = 0;
    bool vertexReachesFront = false;
    for (const VelSDK::Math::point3f* vertex : {&a, &b, &c}) {
        const auto column = static_cast<std::uint32_t>(detail::TruncateToInt32(vertex->x));
        const auto row = static_cast<std::uint32_t>(detail::TruncateToInt32(vertex->y));
        const bool inGrid = column < width && row < height;
        const std::size_t cell = inGrid ? std::size_t{row} * width + column : 0;
        const bool inRegion = inGrid & region[cell];
        verticesInRegion += inRegion;
        vertexReachesFront |= inRegion & (vertex->z >= depth[cell].threshold);
    }
    if (vertexReachesFront)
        return true;
    if (verticesInRegion == 3)
        return false;

    return detail::ScanDepthPixels(raster, a, b, c,
                                   [](const _DepthEntry& entry, bool inRegion, float z) {
                                       return inRegion && z > entry.threshold;
                                   });
}

}  // namespace AU_MarkOperations::PolygonMarking
