#include "mark_polygon/region_test.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "mark_polygon/triangle_setup.h"

namespace AU_MarkOperations::PolygonMarking {

bool _TriangleTouchesRegion(_RegionRaster& raster, const VelSDK::Math::point3f& a,
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
