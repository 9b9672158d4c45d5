#include "tools/camera.h"

#include <array>
#include <cmath>

namespace velpick {

using VelSDK::Math::point3d;

namespace {

// Below this sine of the angle between `up` and the viewing direction the screen's
// orientation is undefined.
constexpr double kMinUpSine = 1e-9;

point3d Minus(const point3d& a, const point3d& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
point3d Cross(const point3d& a, const point3d& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double Dot(const point3d& a, const point3d& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
double Length(const point3d& a) {
    return std::sqrt(Dot(a, a));
}
point3d Scaled(const point3d& a, double s) {
    return {a.x * s, a.y * s, a.z * s};
}

}  // namespace

std::optional<MMTransformMatrix> CameraView(const OrthoCamera& camera, double unitsPerModelUnit) {
    const point3d forward = Minus(camera.target, camera.eye);
    const double distance = Length(forward);
    if (!(distance > 0.0))
        return std::nullopt;
    const point3d ahead = Scaled(forward, 1.0 / distance);
    const point3d side = Cross(ahead, camera.up);
    const double upLength = Length(camera.up);
    if (!(upLength > 0.0) || !(Length(side) > kMinUpSine * upLength))
        return std::nullopt;

    // Screen axes: right, up and towards the eye (a right-handed frame, so nothing mirrors).
    const point3d right = Scaled(side, 1.0 / Length(side));
    const point3d upward = Cross(right, ahead);
    const point3d toEye = Scaled(ahead, -1.0);
    const double scale = camera.screenHeight / camera.height;
    const double perInternalUnit = scale / unitsPerModelUnit;
    const std::array<point3d, 3> axes{right, upward, toEye};
    const std::array<double, 3> centre{camera.screenWidth / 2.0, camera.screenHeight / 2.0, 0.0};

    std::array<double, 16> m{};
    for (int row = 0; row < 3; ++row) {
        const point3d& axis = axes[row];
        m[row * 4 + 0] = axis.x * perInternalUnit;
        m[row * 4 + 1] = axis.y * perInternalUnit;
        m[row * 4 + 2] = axis.z * perInternalUnit;
        m[row * 4 + 3] = centre[row] - scale * Dot(axis, camera.target);
    }
    m[15] = 1.0;
    return MMTransformMatrix(m);
}

}  // namespace velpick
