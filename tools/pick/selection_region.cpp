#include "selection_region.h"

#include <algorithm>
#include <cmath>

#include <velpick/camera_view.h>

namespace velpick {

using VelSDK::Math::point2d;

namespace {

ScreenBox PointBounds(const std::vector<point2d>& points) {
    ScreenBox box{0.0, 0.0, 0.0, 0.0};
    if (!points.empty())
        box = {points[0].x, points[0].y, points[0].x, points[0].y};
    for (const point2d& p : points) {
        box = {std::min(box.xmin, p.x), std::min(box.ymin, p.y), std::max(box.xmax, p.x),
               std::max(box.ymax, p.y)};
    }
    return box;
}

RegionPixelBox PolygonPixelBox(const std::vector<point2d>& polygon, double pixelProportion) {
    const auto bounds = AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention(
        polygon, pixelProportion);
    const auto xmin = static_cast<std::int64_t>(bounds.min.x);
    const auto ymin = static_cast<std::int64_t>(bounds.min.y);
    return {xmin, ymin, static_cast<std::int64_t>(bounds.max.x) - xmin + 1,
            static_cast<std::int64_t>(bounds.max.y) - ymin + 1};
}

RegionPixelBox BrushPixelBox(const SelectionRegion& brush, double pixelProportion) {
    const double p = pixelProportion;
    const auto radius = static_cast<std::int64_t>(brush.brushRadius * p);
    const ScreenBox path = PointBounds(brush.points);
    const auto xmin = static_cast<std::int64_t>(std::floor(p * path.xmin)) - radius;
    const auto ymin = static_cast<std::int64_t>(std::floor(p * path.ymin)) - radius;
    const auto xmax = static_cast<std::int64_t>(std::ceil(p * path.xmax)) + radius;
    const auto ymax = static_cast<std::int64_t>(std::ceil(p * path.ymax)) + radius;
    return {xmin, ymin, xmax - xmin + 1, ymax - ymin + 1};
}

}  // namespace

RegionPixelBox ComputeRegionPixelBox(const SelectionRegion& region, double pixelProportion) {
    return region.shape == SelectionRegion::Shape::kPolygon
               ? PolygonPixelBox(region.points, pixelProportion)
               : BrushPixelBox(region, pixelProportion);
}

ScreenBox RegionScreenBounds(const SelectionRegion& region) {
    ScreenBox box = PointBounds(region.points);
    if (region.shape == SelectionRegion::Shape::kBrush) {
        const double r = region.brushRadius;
        box = {box.xmin - r, box.ymin - r, box.xmax + r, box.ymax + r};
    }
    return box;
}

}  // namespace velpick
