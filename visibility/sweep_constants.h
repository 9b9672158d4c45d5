#pragma once

#include <cstddef>

namespace visibility {

/// Below this many items a sort (or other step) runs serially on the calling thread: task
/// overhead would exceed the gain.
constexpr std::size_t kParallelThreshold = 500;

/// A piece whose normal has |z| below this is seen edge-on; a triangle corner closer than this
/// to a sample line counts as lying on it (DBL_EPSILON).
constexpr double kOnPlaneTolerance = 2.220446049250313e-16;

/// Relative slack, against the larger |z| of a segment, that covers the rounding of a depth
/// interpolated inside the segment (at most 1.5 DBL_EPSILON), with room to spare.
constexpr double kInterpolationSlack = 4 * 2.220446049250313e-16;
/// Absolute slack for interpolated depths near the underflow range.
constexpr double kUnderflowSlack = 1e-300;
/// Coordinates of at least this magnitude may overflow in the interpolation: their segments
/// are compared by the interpolation alone.
constexpr double kBoundedMagnitude = 1e300;

}  // namespace visibility
