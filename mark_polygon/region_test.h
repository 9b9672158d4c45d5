#pragma once

// The mark-through test of the polygon-marking operator: no depth, only whether a pixel-space
// triangle covers any pixel of the selection region.

#include <velpick/host/point.h>
#include "polygon_marking/selection_raster.h"

namespace AU_MarkOperations::PolygonMarking {

/// True when the triangle's span scan reaches a set region pixel. The scan covers columns
/// trunc(xLeft) … trunc(xRight) of rows trunc(top y) … trunc(bottom y), clamped to the grid,
/// with the boundaries sampled from each edge's own start rather than at pixel centres; a
/// sliver row whose boundaries crossed covers the one column trunc(xRight).
bool _TriangleTouchesRegion(_RegionRaster& raster, const VelSDK::Math::point3f& a,
                            const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c);

}  // namespace AU_MarkOperations::PolygonMarking
