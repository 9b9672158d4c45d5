#pragma once

// The z-buffer passes of the polygon-marking operator over a _DepthRaster: draw every
// triangle into the depth buffer, turn the buffer into thresholds, then ask of each candidate
// whether it reaches the front within the depth tolerance.
//
// Vertices are in grid pixels relative to the region's lower-left pixel (pixel centres on
// half-integers), z is depth in model length units, larger z nearer to the viewer.

#include <velpick/host/point.h>
#include "polygon_marking/selection_raster.h"

namespace AU_MarkOperations::PolygonMarking {

/// Draws the triangle into every region pixel its span scan covers. A pixel takes the
/// triangle's depth and record only when strictly nearer than what it holds, so of two
/// triangles at equal depth the one drawn first keeps the pixel. A non-null record gets
/// kCoveredFlag for every region pixel covered, won or not; a null record draws an occluder.
void _RasterizeTriangleDepth(_DepthRaster& raster, const VelSDK::Math::point3f& a,
                             const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c,
                             _TriangleRecord* record);

/// Closes the depth pass. In every region pixel the nearest record, if any, becomes visible
/// (its kVisibleFlag takes the value of its kCoveredFlag), and the record slot is overwritten
/// by the threshold depth − tolerance. A region pixel never drawn gets threshold −FLT_MAX.
/// Pixels outside the region are left as they are.
void _FinalizeDepthRaster(_DepthRaster& raster);

/// Sets kVisibleFlag on `record` when the triangle reaches the front of a finalized raster:
/// first a vertex lying in a region pixel with z ≥ that pixel's threshold; when all three
/// vertices lie in region pixels and none passes, the triangle is hidden without further
/// work; otherwise a span pixel of the region with z > threshold (strictly).
void _TestTriangleVisibility(_DepthRaster& raster, const VelSDK::Math::point3f& a,
                             const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c,
                             _TriangleRecord& record);

}  // namespace AU_MarkOperations::PolygonMarking
