#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <velpick/host/point.h>

namespace velpick {

/// The screen region a pick selects: a closed polygon, or a path swept by a disc.
struct SelectionRegion {
    enum class Shape { kPolygon, kBrush };

    Shape shape = Shape::kPolygon;
    std::vector<VelSDK::Math::point2d> points;  // polygon vertices or path points, screen units
    double brushRadius = 0.0;  // screen units; brush only (whole for the z-buffer picker)
};

/// The pixel raster of a selection region: lower-left pixel and size, both ends inclusive.
struct RegionPixelBox {
    std::int64_t xmin = 0, ymin = 0;
    std::int64_t width = 0, height = 0;
};

/// The raster the picking operator builds for `region` at `pixelProportion` pixels per screen
/// unit. A polygon's box is its floored pixel bounds; a brush's is the path bounds rounded
/// outward (floor below, ceil above) and widened by the radius in pixels, truncated.
RegionPixelBox ComputeRegionPixelBox(const SelectionRegion& region, double pixelProportion);

/// The region's extent in screen units: the polygon's bounds, or the path's bounds widened by
/// the radius. Used to frame pictures.
struct ScreenBox {
    double xmin, ymin, xmax, ymax;
};
ScreenBox RegionScreenBounds(const SelectionRegion& region);

}  // namespace velpick
