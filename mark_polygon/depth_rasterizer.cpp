#include "mark_polygon/depth_rasterizer.h"

namespace AU_MarkOperations::PolygonMarking {

void _FinalizeDepthRaster(_DepthRaster& raster, std::uint8_t* flags) {
    raster.m_finalized = true;
    const float tolerance = static_cast<float>(raster.m_depthTolerance);
    const bool* region = *raster.m_region;
    _DepthEntry* entry = raster.m_depth.get();
    const _DepthEntry* end = entry + static_cast<std::size_t>(raster.m_width) *
                                         static_cast<std::size_t>(raster.m_height);
    for (; entry != end; ++entry, ++region) {
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

}  // namespace AU_MarkOperations::PolygonMarking
