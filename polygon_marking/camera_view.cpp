#include <velpick/camera_view.h>

#include <cfloat>
#include <cmath>
#include <cstdint>

#include "polygon_marking/int32_truncation.h"

namespace AU_MarkOperations::PolygonMarking {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

MMTransformMatrix FindModelToCameraViewTransformation(const MMTransformMatrix& view, double scale,
                                                      const VelSDK::Math::point2i& origin) {
    MMTransformMatrix result(view);
    MMTransformMatrix step;

    step.MakeScale1D(scale);
    result.PreMultiply(step);

    // Depth keeps model length: stretch z by the length a unit step along the viewing
    // direction has after the view and the pixel scale.
    point3d depthAxis{0.0, 0.0, 1.0};
    result.InverseTransform(depthAxis, depthAxis, true);
    const double depthLength = std::sqrt(depthAxis.x * depthAxis.x + depthAxis.y * depthAxis.y +
                                         depthAxis.z * depthAxis.z);
    step.MakeScale3D(1.0, 1.0, depthLength);
    result.PreMultiply(step);

    // Grid pixel `origin` moves to (0, 0), and pixel centres land on half-integers.
    step.MakeTranslation(
        {0.5 - static_cast<double>(origin.x), 0.5 - static_cast<double>(origin.y), 0.0});
    result.PreMultiply(step);
    return result;
}

namespace {

// Floors a scaled bound, then passes it through a 32-bit integer as the pixel grid does. Out of
// range values (an empty polygon's ±DBL_MAX) become INT32_MIN, as the x86 conversion gives.
double toPixelBound(double bound, double scale) {
    return static_cast<double>(TruncateToInt32(std::floor(bound * scale)));
}

}  // namespace

VelSDK::Math::boundingbox<double, 2> FindPolygonBBoxInPixelsDimention(
    const std::vector<point2d>& polygon, double scale) {
    double minX = DBL_MAX, minY = DBL_MAX, maxX = -DBL_MAX, maxY = -DBL_MAX;
    for (const point2d& p : polygon) {
        if (p.x < minX)
            minX = p.x;
        if (p.y < minY)
            minY = p.y;
        if (p.x > maxX)
            maxX = p.x;
        if (p.y > maxY)
            maxY = p.y;
    }
    return {{toPixelBound(minX, scale), toPixelBound(minY, scale)},
            {toPixelBound(maxX, scale), toPixelBound(maxY, scale)}};
}

point2d PointInPixelFrame(const point2d& point, double scale,
                          const VelSDK::Math::boundingbox<double, 2>& box) {
    return {std::floor(point.x * scale) - box.min.x, std::floor(point.y * scale) - box.min.y};
}

}  // namespace AU_MarkOperations::PolygonMarking
