#pragma once

#include <cstddef>

namespace visibility {

/// Below this many items a sort (or other step) runs serially on the calling thread: task
/// overhead would exceed the gain.
constexpr std::size_t kParallelThreshold = 500;

/// A piece whose normal has |z| below this is seen edge-on; a triangle corner closer than this
/// to a sample line counts as lying on it (DBL_EPSILON).
constexpr double kOnPlaneTolerance = 2.220446049250313e-16;

}  // namespace visibility
