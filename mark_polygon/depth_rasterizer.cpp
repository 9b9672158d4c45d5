#include "mark_polygon/depth_rasterizer.h"

#include <cstddef>
#include <cstdint>

#include "mark_polygon/triangle_setup.h"

namespace AU_MarkOperations::PolygonMarking {

using VelSDK::Math::point3f;

namespace {

/// Visits the span rows of a walked triangle: for each row with columns inside the grid,
/// `visitRow(entry, region, columns)` gets the depth entry and region cell of the row's first
/// column. Stops early, returning true, when the visitor returns true.
template <class RowVisitor>
bool ScanDepthRows(_DepthRaster& raster, detail::RowRange rows, RowVisitor visitRow) {
    const std::int32_t width = raster.m_width;
    const std::size_t rowOffset = static_cast<std::size_t>(rows.first) * width;
    _DepthEntry* entryRow = raster.m_depth.get() + rowOffset;
    const bool* regionRow = static_cast<bool*>(*raster.m_region) + rowOffset;
    for (std::int32_t row = rows.first; row <= rows.last;
         ++row, entryRow += width, regionRow += width) {
        detail::RowColumns columns;
        if (!detail::ClampDepthRow(raster.m_rowSpans[row], width, columns))
            continue;
        if (visitRow(entryRow + columns.first, regionRow + columns.first, columns))
            return true;
    }
    return false;
}

/// Strict nearer-wins over one row; the record is told of every region pixel it covers.
template <bool kHasRecord>
void DrawRow(_DepthEntry* entry, const bool* region, const detail::RowColumns& columns,
             _TriangleRecord* record) {
    float z = columns.z;
    for (const _DepthEntry* end = entry + columns.Count(); entry != end;
         ++entry, ++region, z += columns.dzdx) {
        if (!*region)
            continue;
        if (z > entry->depth) {
            entry->depth = z;
            entry->triangle = record;
        }
        if constexpr (kHasRecord)
            record->flags |= kCoveredFlag;
    }
}

/// Whether some region pixel of the row lies strictly in front of its threshold.
bool RowReachesFront(const _DepthEntry* entry, const bool* region,
                     const detail::RowColumns& columns) {
    float z = columns.z;
    for (const _DepthEntry* end = entry + columns.Count(); entry != end;
         ++entry, ++region, z += columns.dzdx) {
        if (*region && z > entry->threshold)
            return true;
    }
    return false;
}

/// The finalized entry of the region pixel holding the vertex, or null when the vertex lies
/// outside the grid or outside the region.
const _DepthEntry* RegionEntryAt(const _DepthRaster& raster, const point3f& vertex) {
    const std::int32_t column = detail::TruncateToInt32(vertex.x);
    const std::int32_t row = detail::TruncateToInt32(vertex.y);
    if (column < 0 || column >= raster.m_width || row < 0 || row >= raster.m_height)
        return nullptr;
    const std::size_t cell = static_cast<std::size_t>(row) * raster.m_width + column;
    if (!static_cast<bool*>(*raster.m_region)[cell])
        return nullptr;
    return &raster.m_depth[cell];
}

}  // namespace

void _RasterizeTriangleDepth(_DepthRaster& raster, const point3f& a, const point3f& b,
                             const point3f& c, _TriangleRecord* record) {
    const detail::RowRange rows =
        detail::WalkTriangle(raster.m_rowSpans.get(), raster.m_height, a, b, c);
    ScanDepthRows(
        raster, rows,
        [record](_DepthEntry* entry, const bool* region, const detail::RowColumns& columns) {
            if (record)
                DrawRow<true>(entry, region, columns, record);
            else
                DrawRow<false>(entry, region, columns, nullptr);
            return false;
        });
}

void _FinalizeDepthRaster(_DepthRaster& raster) {
    raster.m_finalized = true;
    const float tolerance = static_cast<float>(raster.m_depthTolerance);
    const bool* region = *raster.m_region;
    _DepthEntry* entry = raster.m_depth.get();
    const _DepthEntry* end = entry + static_cast<std::size_t>(raster.m_width) *
                                         static_cast<std::size_t>(raster.m_height);
    for (; entry != end; ++entry, ++region) {
        if (!*region)
            continue;
        if (_TriangleRecord* nearest = entry->triangle) {
            if (nearest->flags & kCoveredFlag)
                nearest->flags |= kVisibleFlag;
            else
                nearest->flags &= ~kVisibleFlag;
        }
        entry->threshold = entry->depth - tolerance;
    }
}

void _TestTriangleVisibility(_DepthRaster& raster, const point3f& a, const point3f& b,
                             const point3f& c, _TriangleRecord& record) {
    int verticesInRegion = 0;
    for (const point3f* vertex : {&a, &b, &c}) {
        const _DepthEntry* entry = RegionEntryAt(raster, *vertex);
        if (!entry)
            continue;
        ++verticesInRegion;
        if (vertex->z >= entry->threshold) {
            record.flags |= kVisibleFlag;
            return;
        }
    }
    if (verticesInRegion == 3)
        return;

    const detail::RowRange rows =
        detail::WalkTriangle(raster.m_rowSpans.get(), raster.m_height, a, b, c);
    if (ScanDepthRows(raster, rows, RowReachesFront))
        record.flags |= kVisibleFlag;
}

}  // namespace AU_MarkOperations::PolygonMarking
