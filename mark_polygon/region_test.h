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
    const detail::RowRange rows =
        detail::WalkTriangle(raster.m_rowSpans.get(), raster.m_height, a, b, c);
    const std::int32_t width = raster.m_width;
    const bool* regionRow =
        static_cast<bool*>(*raster.m_region) + static_cast<std::size_t>(rows.first) * width;
    for (std::int32_t row = rows.first; row <= rows.last; ++row, regionRow += width) {
        detail::RowColumns columns;
        if (!detail::ClampRegionRow(raster.m_rowSpans[row], width, columns))
            continue;
        const bool* first = regionRow + columns.first;
        if (std::find(first, first + columns.Count(), true) != first + columns.Count())
            return true;
    }
    return false;
}

}  // namespace AU_MarkOperations::PolygonMarking
