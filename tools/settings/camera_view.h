#pragma once

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
    kViewOutOfRange,     // the matrix would hold an infinity, or be singular
};

/// The view matrix of `camera`: scene internal units (`unitsPerModelUnit` per model unit) to
/// screen units. The target lands on the screen centre; all three axes are scaled by
/// screenHeight / height, so depth keeps its proportion; z grows towards the eye. An eye far
/// from the target (1e308 model units, say) is fine: the camera is orthographic. Nothing, with
/// the reason in `fault` when given, when the matrix cannot be made.
std::optional<MMTransformMatrix> CameraView(const OrthoCamera& camera, double unitsPerModelUnit,
                                            CameraFault* fault = nullptr);

}  // namespace velpick
