#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "visibility/sweep_events.h"

namespace visibility {

/// When each piece joins and leaves the sweep, by sample line. A piece spanning [yMin, yMax]
/// with yMin < yMax is active on the lines strictly inside that range: it enters before the
/// first line above yMin and leaves before the first line at or above yMax. A piece of zero
/// height enters before the first line above its y and stays to the end of its chunk (only
/// lines within DBL_EPSILON of it cut it). A piece with a NaN y takes part in no line.
///
/// Equivalent to walking start, end and line events sorted by y (ends, then lines, then starts
/// at equal y), without sorting them.
struct LineSchedule {
    /// Before line i the pieces entering[enteringAt[i] … enteringAt[i + 1]) join, in ascending
    /// global index, after the pieces leaving[leavingAt[i] … leavingAt[i + 1]) have left.
    std::vector<std::uint32_t> entering, leaving;
    std::vector<std::size_t> enteringAt, leavingAt;
    /// Per line, the count the event walk gives: pieces active on it, less the pieces of zero
    /// height lying exactly on it.
    std::vector<std::int32_t> activeCounts;
};

/// `lines` sorted ascending and distinct. Pieces and lines are numbered in 32 bits: more than
/// 4 294 967 294 of either raise std::length_error.
LineSchedule ScheduleLines(const PieceBounds& refs, const std::vector<double>& lines);

}  // namespace visibility
