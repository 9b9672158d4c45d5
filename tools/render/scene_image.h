#pragma once

#include <optional>
#include <vector>

#include <velpick/host/transform_matrix.h>
#include "pick_settings.h"
#include "placed_mesh.h"
#include "rgb_image.h"
#include "selection_region.h"

namespace velpick {

/// Which part of the screen a picture shows: screen point (x, y) lands at picture position
/// ((x − xmin) · pixelsPerUnit, (y − ymin) · pixelsPerUnit), pixel centres at half-integers.
struct ImageFrame {
    double xmin = 0.0, ymin = 0.0;
    double pixelsPerUnit = 1.0;
    int width = 1, height = 1;
};

/// The largest picture side drawn by default; larger scenes are scaled down to it.
constexpr int kMaxDefaultImageSide = 4096;

/// The screen rectangle `box` at `pixelsPerUnit`, rounded up to whole pixels (at least one)
/// and scaled down when a side would exceed kMaxDefaultImageSide. Nothing when the box, its
/// extent in pixels or the resulting frame is not finite (a view whose numbers overflowed).
std::optional<ImageFrame> NaturalFrame(const ScreenBox& box, double pixelsPerUnit);
/// The screen rectangle `box` scaled uniformly to fit a `width` × `height` picture, centred.
/// Nothing when the box or the resulting frame is not finite.
std::optional<ImageFrame> FittedFrame(const ScreenBox& box, int width, int height);

/// The screen bounds of the meshes' visible triangles seen through `view`, united with `box`.
ScreenBox ProjectedBounds(const std::vector<PlacedMesh>& meshes, const MMTransformMatrix& view,
                          const ScreenBox& box);

/// The view as a person would see it: visible triangles flat-shaded by how squarely they face
/// the viewer, marked ones in the highlight colour, nearest surface in front, and the region's
/// outline on top. A perspective view is drawn with the divide: what lies nearer than its near
/// plane is cut away, and depth compares the reciprocal distance, which is linear across the
/// picture. The region is given as the view takes it (image coordinates for a pinhole camera).
/// Every picture position is clamped before it becomes a pixel index, so triangles or region
/// points that overflow to infinity or NaN are clipped or left out.
RgbImage RenderScene(const std::vector<PlacedMesh>& meshes, const View& view,
                     const SelectionRegion& region, const ImageFrame& frame);

}  // namespace velpick
