#include "mark_polygon/triangle_raster.h"

#include <cfloat>

namespace AU_MarkOperations::PolygonMarking {

namespace {

/// Depth − tolerance, depth stored as is.
struct DepthMinusTolerance {
    float tolerance;
    float operator()(float depth) const { return depth - tolerance; }
};

/// The same for a reciprocal depth q = k/depth: the q of the depth k/q + tolerance.
struct ReciprocalBehindByTolerance {
    double k, tolerance;
    float operator()(float q) const {
        if (q == -FLT_MAX)
            return q;
        return static_cast<float>(k / (k / static_cast<double>(q) + tolerance));
    }
};

template <class Threshold>
void FinalizeRows(_DepthRaster& raster, std::uint8_t* flags, RowRange rows, Threshold threshold) {
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
        entry->threshold = threshold(entry->depth);
    }
}

}  // namespace

void _FinalizeDepthRows(_DepthRaster& raster, std::uint8_t* flags, RowRange rows,
                        double reciprocalScale) {
    if (rows.Empty())
        return;
    if (reciprocalScale > 0.0) {
        FinalizeRows(raster, flags, rows,
                     ReciprocalBehindByTolerance{reciprocalScale,
                                                 static_cast<double>(raster.m_depthTolerance)});
    } else {
        FinalizeRows(raster, flags, rows,
                     DepthMinusTolerance{static_cast<float>(raster.m_depthTolerance)});
    }
}

void _FinalizeDepthRaster(_DepthRaster& raster, std::uint8_t* flags, double reciprocalScale) {
    raster.m_finalized = true;
    _FinalizeDepthRows(raster, flags, AllRows(raster.m_height), reciprocalScale);
}

}  // namespace AU_MarkOperations::PolygonMarking
