#include "camera_view.h"

#include <algorithm>
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
// The plain length, unless its squares overflow or underflow; then the length scaled by the
// largest component, which stays finite for every finite vector.
double Length(const point3d& a) {
    const double plain = std::sqrt(Dot(a, a));
    if (std::isfinite(plain) && (plain > 0.0 || (a.x == 0.0 && a.y == 0.0 && a.z == 0.0)))
        return plain;
    const double m = std::max({std::abs(a.x), std::abs(a.y), std::abs(a.z)});
    if (!std::isfinite(m))
        return m;
    const double x = a.x / m, y = a.y / m, z = a.z / m;
    return m * std::sqrt(x * x + y * y + z * z);
}
bool IsFinite(const point3d& a) {
    return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z);
}
std::optional<MMTransformMatrix> Failed(CameraFault reason, CameraFault* fault) {
    if (fault)
        *fault = reason;
    return std::nullopt;
}
point3d Scaled(const point3d& a, double s) {
    return {a.x * s, a.y * s, a.z * s};
}

}  // namespace

std::optional<MMTransformMatrix> CameraView(const OrthoCamera& camera, double unitsPerModelUnit,
                                            CameraFault* fault) {
    const point3d forward = Minus(camera.target, camera.eye);
    if (!IsFinite(forward))
        return Failed(CameraFault::kDistanceOverflows, fault);
    const double distance = Length(forward);
    if (!(distance > 0.0))
        return Failed(CameraFault::kEyeOnTarget, fault);
    const point3d ahead = Scaled(forward, 1.0 / distance);
    // An up so long that its squares overflow is measured as a unit vector.
    const double upLength = Length(camera.up);
    const point3d up =
        std::isinf(Dot(camera.up, camera.up)) ? Scaled(camera.up, 1.0 / upLength) : camera.up;
    const point3d side = Cross(ahead, up);
    if (!(upLength > 0.0) || !(Length(side) > kMinUpSine * Length(up)))
        return Failed(CameraFault::kUpAlongView, fault);

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
    MMTransformMatrix view(m);
    MMTransformMatrix inverse(view);
    if (!std::all_of(m.begin(), m.end(), [](double v) { return std::isfinite(v); }) ||
        !inverse.Invert())
        return Failed(CameraFault::kViewOutOfRange, fault);
    if (fault)
        *fault = CameraFault::kNone;
    return view;
}

}  // namespace velpick
