#pragma once

#include <vector>

#include "visibility/sweep_events.h"

namespace visibility {

/// Start and end events of every piece keyed by its shrunk range, in global order: a piece
/// spans [yMin, yMax]; its shrunk range drops 1 % of its height at each end, so that sample
/// lines stay off shared vertices and horizontal edges. Pieces with a NaN y get no events.
void AppendPieceEvents(const std::vector<PieceRef>& refs, std::vector<Point>& events);
/// The events of the piece of global index `index` alone; an index from Point::kMaxPieces on
/// raises std::length_error.
void AppendPieceEvents(std::uint64_t index, const PieceRef& ref, std::vector<Point>& events);

/// Greedy stabbing lines over events sorted by PointRangeComparator: every piece's shrunk range
/// holds at least one of the returned values (unsorted, in the order found).
std::vector<double> StabbingLines(const std::vector<Point>& events, std::size_t pieceCount);

/// Adds the region box's bounds to `lines`, fills every gap wider than `step` with lines `step`
/// apart, and leaves them sorted and distinct. A step that is not positive adds no fill lines.
void CompleteSampleLines(std::vector<double>& lines, double boxMinY, double boxMaxY, double step);

}  // namespace visibility
