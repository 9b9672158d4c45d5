#pragma once

#include <array>
#include <optional>

#include <velpick/host/transform_matrix.h>
#include "pick_settings.h"

namespace velpick {

/// Why a camera gives no view matrix.
enum class CameraFault {
    kNone,
    kEyeOnTarget,        // eye and target coincide
    kDistanceOverflows,  // eye − target is beyond the double range
    kUpAlongView,        // up is zero or parallel to the viewing direction
    kViewOutOfRange,     // the matrix or the projection would hold an infinity, or be singular
    kNearOutOfRange,     // the near distance in internal units leaves the double range
};

/// The view matrix of `camera`: scene internal units (`unitsPerModelUnit` per model unit) to
/// screen units. The target lands on the screen centre; all three axes are scaled by
/// screenHeight / height, so depth keeps its proportion; z grows towards the eye. An eye far
/// from the target (1e308 model units, say) is fine: the camera is orthographic. Nothing, with
/// the reason in `fault` when given, when the matrix cannot be made.
std::optional<MMTransformMatrix> CameraView(const OrthoCamera& camera, double unitsPerModelUnit,
                                            CameraFault* fault = nullptr);

/// The view of a perspective camera: its matrix maps scene internal units into eye space (a
/// rigid map: the eye at the origin, right, up and back along the axes), its projection maps
/// the plane through the target as the OrthoCamera of height 2·d·tan(fov/2) maps it, with
/// fx = fy = screenHeight / (2·tan(fov/2)) and (cx, cy) the screen's centre. Nothing, with the
/// reason in `fault` when given, when it cannot be made.
std::optional<View> PerspectiveView(const PerspectiveCamera& camera, double unitsPerModelUnit,
                                    CameraFault* fault = nullptr);

/// The view of a pinhole camera, R and K already checked: eye space is (x, −y, −z) of the
/// camera's coordinates R·X + t in internal units, and the projection (fx, fy, cx + 0.5,
/// h − 0.5 − cy) puts image point (u, v) at screen point (u + 0.5, h − (v + 0.5)).
std::optional<View> PinholeView(const PinholeCamera& camera, double unitsPerModelUnit,
                                CameraFault* fault = nullptr);

/// The camera's screen size in screen units, width then height; a pinhole camera's is its image.
std::array<double, 2> ScreenSize(const Camera& camera);

/// The region that covers the camera's whole screen, in the coordinates its regions are given
/// in: (0, 0) to (w, h), or for a pinhole camera its image's outer pixel edges, (−0.5, −0.5)
/// to (w − 0.5, h − 0.5) in image coordinates.
SelectionRegion WholeScreenRegion(const Camera& camera);

}  // namespace velpick
