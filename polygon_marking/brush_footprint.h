#pragma once

// The cells a brush path covers: a disc at every path point and a stroke of the same
// half-width between consecutive points. The painting only sets cells; it never clears them
// and does not clip: the caller sizes the grid so that every disc fits inside it (a stroke's
// right end beyond the grid is clamped to the last column).

#include <cstddef>
#include <cstdint>
#include <vector>

#include <velpick/host/point.h>
#include <velpick/pixel_grid.h>

namespace AU_MarkOperations::PolygonMarking {

/// Sets the cells under the brush path (count ≥ 1 points in pixels, truncated toward zero):
/// for each consecutive pair a disc at the first point and a stroke to the second, then a disc
/// at the last point.
void PaintBrushPath(PixelGrid& grid, const VelSDK::Math::point2d* path, std::size_t count,
                    std::int32_t radius);

/// The disc's half-width at row offsets 0 … radius from the midpoint circle in quarter units.
/// For radius ≥ 3 the rows ±1 keep the full half-width and the outermost rows are narrow: a
/// slightly squared footprint. A negative radius gives no rows.
std::vector<std::int32_t> DiscHalfWidths(std::int32_t radius);

/// Sets, on every row centre.y + t with |t| < halfWidths.size(), the cells within
/// halfWidths[|t|] of centre.x.
void StampDisc(PixelGrid& grid, const std::vector<std::int32_t>& halfWidths,
               VelSDK::Math::point2i centre);

/// Sets the cells of the band of half-width `radius` from `from` to `to`: an axis-parallel
/// block when the points share a row or column, otherwise the quadrilateral whose corners are
/// both points offset perpendicular to the direction lengthened by one pixel on each axis.
void DrawStroke(PixelGrid& grid, VelSDK::Math::point2i from, VelSDK::Math::point2i to,
                std::int32_t radius);

}  // namespace AU_MarkOperations::PolygonMarking
