#pragma once

#include <cstddef>
#include <vector>

#include <velpick/host/point.h>

namespace visibility {

/// A closed x-interval of a sample line lying inside the region.
struct Interval {
    double start, end;
};

/// The region's intervals on every sample line: for line i, the sorted, disjoint intervals
/// intervals[offsets[i]] … intervals[offsets[i + 1] − 1].
struct RegionIntervals {
    std::vector<Interval> intervals;
    std::vector<std::size_t> offsets;

    const Interval* begin(std::size_t line) const { return intervals.data() + offsets[line]; }
    const Interval* end(std::size_t line) const { return intervals.data() + offsets[line + 1]; }
};

/// The even-odd interior of the closed polygon on each line. An edge counts on a line at y when
/// min(y_a, y_b) ≤ y < max(y_a, y_b); horizontal edges never count.
RegionIntervals PolygonIntervals(const std::vector<VelSDK::Math::point2d>& polygon,
                                 const std::vector<double>& lines);

/// The points within `radius` of the open path on each line: a disc around every point and a
/// rectangular band (between the segment's two edge lines, closed by the caps through its end
/// points) around every segment of non-zero length.
RegionIntervals BrushIntervals(const std::vector<VelSDK::Math::point2d>& path, double radius,
                               const std::vector<double>& lines);

}  // namespace visibility
