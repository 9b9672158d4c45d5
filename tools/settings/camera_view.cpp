#include "camera_view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>
#include <utility>

namespace velpick {

using VelSDK::Math::point3d;

namespace {

// Below this sine of the angle between `up` and the viewing direction the screen's
// orientation is undefined.
constexpr double kMinUpSine = 1e-9;
constexpr double kPi = 3.14159265358979323846;

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
void Report(CameraFault reason, CameraFault* fault) {
    if (fault)
        *fault = reason;
}
point3d Scaled(const point3d& a, double s) {
    return {a.x * s, a.y * s, a.z * s};
}

// The screen axes of a camera at `eye` looking at `target` with `up` up the screen: right, up
// and towards the eye, a right-handed frame, so nothing mirrors.
struct LookFrame {
    std::array<point3d, 3> axes;
};

std::optional<LookFrame> Look(const point3d& eye, const point3d& target, const point3d& up,
                              CameraFault* fault) {
    const point3d forward = Minus(target, eye);
    if (!IsFinite(forward)) {
        Report(CameraFault::kDistanceOverflows, fault);
        return std::nullopt;
    }
    const double distance = Length(forward);
    if (!(distance > 0.0)) {
        Report(CameraFault::kEyeOnTarget, fault);
        return std::nullopt;
    }
    const point3d ahead = Scaled(forward, 1.0 / distance);
    // An up so long that its squares overflow is measured as a unit vector.
    const double upLength = Length(up);
    const point3d upUnit = std::isinf(Dot(up, up)) ? Scaled(up, 1.0 / upLength) : up;
    const point3d side = Cross(ahead, upUnit);
    if (!(upLength > 0.0) || !(Length(side) > kMinUpSine * Length(upUnit))) {
        Report(CameraFault::kUpAlongView, fault);
        return std::nullopt;
    }
    const point3d right = Scaled(side, 1.0 / Length(side));
    return LookFrame{{right, Cross(right, ahead), Scaled(ahead, -1.0)}};
}

// The matrix, when every entry is finite and it is invertible.
std::optional<MMTransformMatrix> Usable(const std::array<double, 16>& m, CameraFault* fault) {
    MMTransformMatrix view(m);
    MMTransformMatrix inverse(view);
    if (!std::all_of(m.begin(), m.end(), [](double v) { return std::isfinite(v); }) ||
        !inverse.Invert()) {
        Report(CameraFault::kViewOutOfRange, fault);
        return std::nullopt;
    }
    Report(CameraFault::kNone, fault);
    return view;
}

// A camera's near distance in internal units; 0 (the default) when it gives none.
std::optional<double> InternalNear(const std::optional<double>& nearDistance,
                                   double unitsPerModelUnit, CameraFault* fault) {
    const double internal = nearDistance ? *nearDistance * unitsPerModelUnit : 0.0;
    if (!std::isfinite(internal) || (nearDistance && !(internal > 0.0))) {
        Report(CameraFault::kNearOutOfRange, fault);
        return std::nullopt;
    }
    return internal;
}

// A perspective camera's map into eye space and its near distance in internal units.
struct EyeSpace {
    MMTransformMatrix toEye;
    double nearDistance;
};

// The eye space of the rigid map whose first three rows `m` holds; nothing, with the reason in
// `fault`, when the map or the near distance cannot be made.
std::optional<EyeSpace> MakeEyeSpace(std::array<double, 16> m,
                                     const std::optional<double>& nearDistance,
                                     double unitsPerModelUnit, CameraFault* fault) {
    m[15] = 1.0;
    const std::optional<MMTransformMatrix> toEye = Usable(m, fault);
    if (!toEye)
        return std::nullopt;
    const std::optional<double> internalNear = InternalNear(nearDistance, unitsPerModelUnit, fault);
    if (!internalNear)
        return std::nullopt;
    return EyeSpace{*toEye, *internalNear};
}

}  // namespace

std::optional<MMTransformMatrix> CameraView(const OrthoCamera& camera, double unitsPerModelUnit,
                                            CameraFault* fault) {
    const std::optional<LookFrame> frame = Look(camera.eye, camera.target, camera.up, fault);
    if (!frame)
        return std::nullopt;
    const double scale = camera.screenHeight / camera.height;
    const double perInternalUnit = scale / unitsPerModelUnit;
    const std::array<double, 3> centre{camera.screenWidth / 2.0, camera.screenHeight / 2.0, 0.0};

    std::array<double, 16> m{};
    for (int row = 0; row < 3; ++row) {
        const point3d& axis = frame->axes[row];
        m[row * 4 + 0] = axis.x * perInternalUnit;
        m[row * 4 + 1] = axis.y * perInternalUnit;
        m[row * 4 + 2] = axis.z * perInternalUnit;
        m[row * 4 + 3] = centre[row] - scale * Dot(axis, camera.target);
    }
    m[15] = 1.0;
    return Usable(m, fault);
}

std::optional<View> PerspectiveView(const PerspectiveCamera& camera, double unitsPerModelUnit,
                                    CameraFault* fault) {
    const std::optional<LookFrame> frame = Look(camera.eye, camera.target, camera.up, fault);
    if (!frame)
        return std::nullopt;
    std::array<double, 16> m{};
    for (int row = 0; row < 3; ++row) {
        const point3d& axis = frame->axes[row];
        m[row * 4 + 0] = axis.x;
        m[row * 4 + 1] = axis.y;
        m[row * 4 + 2] = axis.z;
        m[row * 4 + 3] = -unitsPerModelUnit * Dot(axis, camera.eye);
    }
    const std::optional<EyeSpace> eye =
        MakeEyeSpace(m, camera.nearDistance, unitsPerModelUnit, fault);
    if (!eye)
        return std::nullopt;
    // A point of the target plane at distance d ahead, offset x along the right axis, must
    // land where the orthographic camera of height 2·d·tan(fov/2) puts it: at
    // screenHeight · x / (2·d·tan(fov/2)) from the centre. The divide by d = −z is the
    // projection's, which leaves f = screenHeight / (2·tan(fov/2)) for both axes.
    const double f = camera.screenHeight / (2.0 * std::tan(camera.fovDegrees * kPi / 360.0));
    if (!(std::isfinite(f) && f > 0.0)) {
        Report(CameraFault::kViewOutOfRange, fault);
        return std::nullopt;
    }
    return View{eye->toEye, Camera(camera),
                ViewProjection{f, f, camera.screenWidth / 2.0, camera.screenHeight / 2.0,
                               eye->nearDistance}};
}

std::optional<View> PinholeView(const PinholeCamera& camera, double unitsPerModelUnit,
                                CameraFault* fault) {
    // Eye space is the camera's frame with y and z turned round: (x, −y, −z), so that it
    // looks along −z with y up; t scales to internal units like the points it moves.
    const std::array<double, 3> flip{1.0, -1.0, -1.0};
    const std::array<double, 3> t{camera.translation.x, camera.translation.y, camera.translation.z};
    std::array<double, 16> m{};
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column)
            m[row * 4 + column] = flip[row] * camera.rotation[row * 3 + column];
        m[row * 4 + 3] = flip[row] * t[row] * unitsPerModelUnit;
    }
    const std::optional<EyeSpace> eye =
        MakeEyeSpace(m, camera.nearDistance, unitsPerModelUnit, fault);
    if (!eye)
        return std::nullopt;
    // Screen (u + 0.5, h − (v + 0.5)) of image (u, v): with u = fx·x/z + cx and the eye's
    // y = −y_camera, that is x = cx + 0.5 + fx·x/z and y = h − 0.5 − cy + fy·y_eye/(−z_eye).
    return View{eye->toEye, Camera(camera),
                ViewProjection{camera.fx, camera.fy, camera.cx + 0.5,
                               camera.imageHeight - 0.5 - camera.cy, eye->nearDistance}};
}

std::array<double, 2> ScreenSize(const Camera& camera) {
    return std::visit(
        [](const auto& lens) -> std::array<double, 2> {
            if constexpr (std::is_same_v<std::decay_t<decltype(lens)>, PinholeCamera>)
                return {lens.imageWidth, lens.imageHeight};
            else
                return {lens.screenWidth, lens.screenHeight};
        },
        camera);
}

SelectionRegion WholeScreenRegion(const Camera& camera) {
    const auto [w, h] = ScreenSize(camera);
    // A pinhole camera's region is in image coordinates, whose pixel centres are whole: its
    // outer pixel edges lie half a pixel outside them.
    const double shift = std::holds_alternative<PinholeCamera>(camera) ? -0.5 : 0.0;
    SelectionRegion region;
    region.points = {
        {shift, shift}, {w + shift, shift}, {w + shift, h + shift}, {shift, h + shift}};
    return region;
}

}  // namespace velpick
