#pragma once

// The mark-through test of the polygon-marking operator: no depth, only whether a pixel-space
// triangle covers any pixel of the selection region.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <velpick/host/point.h>
#include "mark_polygon/triangle_setup.h"
#include "polygon_marking/selection_raster.h"

namespace AU_MarkOperations::PolygonMarking {

/// True when the triangle's span scan reaches a set region pixel. The scan covers columns
/// trunc(xLeft) … trunc(xRight) of rows trunc(top y) … trunc(bottom y), clamped to the grid,
/// with the boundaries sampled from each edge's own start rather than at pixel centres; a
/// sliver row whose boundaries crossed covers the one column trunc(xRight). Inline: it runs
/// once per triangle of a mark-through pick.
inline bool _TriangleTouchesRegion(_RegionRaster& raster, const VelSDK::Math::point3f& a,
                                   const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c) {
    const detail::GridWidth width(raster.m_width);
    const bool* region = *raster.m_region;
    return detail::ScanTriangleRows(
        raster.m_rowSpans.get(), raster.m_height, a, b, c,
        [&](std::int32_t row, const _RegionSpan& span) {
            detail::RowColumns columns;
            if (!detail::ClampRegionRow(span, width, columns))
                return false;
            const bool* first =
                region + static_cast<std::size_t>(row) * width.columns + columns.first;
            return std::find(first, first + columns.Count(), true) != first + columns.Count();
        });
}

}  // namespace AU_MarkOperations::PolygonMarking
