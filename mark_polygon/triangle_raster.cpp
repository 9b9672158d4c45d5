#include "mark_polygon/triangle_raster.h"

namespace AU_MarkOperations::PolygonMarking {

void _FinalizeDepthRows(_DepthRaster& raster, std::uint8_t* flags, RowRange rows) {
    if (rows.Empty())
        return;
    const float tolerance = static_cast<float>(raster.m_depthTolerance);
    const std::size_t first = static_cast<std::size_t>(rows.first) * raster.m_width;
    const std::size_t end = static_cast<std::size_t>(rows.last + 1) * raster.m_width;
    const bool* region = *raster.m_region + first;
    _DepthEntry* entry = raster.m_depth.get() + first;
    for (const _DepthEntry* last = raster.m_depth.get() + end; entry != last; ++entry, ++region) {
        if (!*region)
            continue;
        if (const std::uint32_t nearest = entry->owner; nearest != kNoOwner) {
            if (flags[nearest] & kCoveredFlag)
                flags[nearest] |= kVisibleFlag;
            else
                flags[nearest] &= ~kVisibleFlag;
        }
        entry->threshold = entry->depth - tolerance;
    }
}

void _FinalizeDepthRaster(_DepthRaster& raster, std::uint8_t* flags) {
    raster.m_finalized = true;
    _FinalizeDepthRows(raster, flags, AllRows(raster.m_height));
}

}  // namespace AU_MarkOperations::PolygonMarking
