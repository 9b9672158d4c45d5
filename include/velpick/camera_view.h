#pragma once

#include <vector>

#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>

namespace AU_MarkOperations::PolygonMarking {

/// The transform from model space to the pixel grid of a selection region: `view` (model to
/// screen units), then `scale` pixels per screen unit, then the depth axis stretched so that
/// depth stays in model length units, then the grid corner pixel `origin` moved to (0, 0) with
/// pixel centres on half-integers. With identity view, scale 1 and origin (0, 0), model point
/// (0, 0, 0) maps to (0.5, 0.5, 0).
MMTransformMatrix FindModelToCameraViewTransformation(const MMTransformMatrix& view, double scale,
                                                      const VelSDK::Math::point2i& origin);

/// The pixel bounding box (min x, min y, max x, max y) of a screen polygon at `scale` pixels
/// per screen unit: every bound is scaled and floored (maxima too, not rounded up). An empty
/// polygon gives −2147483648 in all four fields.
VelSDK::Math::boundingbox<double, 2> FindPolygonBBoxInPixelsDimention(
    const std::vector<VelSDK::Math::point2d>& polygon, double scale);

/// A screen point in the pixel frame of a region whose pixel box is `box` (as
/// FindPolygonBBoxInPixelsDimention gives it): (floor(x·scale) − box.min.x,
/// floor(y·scale) − box.min.y).
VelSDK::Math::point2d PointInPixelFrame(const VelSDK::Math::point2d& point, double scale,
                                        const VelSDK::Math::boundingbox<double, 2>& box);

}  // namespace AU_MarkOperations::PolygonMarking
