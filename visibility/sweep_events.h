#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "visibility_detector.h"

namespace visibility {

/// One piece taking part in a run, by global index (meshes in order, pieces in order), with
/// its unshrunk y bounds.
struct PieceRef {
    MStlBaseOperatorVisibilityDetector::Triangle* piece;
    std::size_t mesh;
    double yMax, yMin;
};

/// Event kinds; at equal keys ends come first, then sample lines, then starts.
enum EventKind : std::uint8_t { kPieceEnd = 0, kSampleLine = 1, kPieceStart = 2 };

constexpr std::uint64_t kNoIndex = ~std::uint64_t(0);

/// One sweep event in y.
struct Point {
    double y;             // where the event happens
    double range;         // the shrunk y bound of the piece; 0 for a sample line
    std::uint64_t index;  // global piece index; kNoIndex for a sample line
    std::uint64_t mesh;   // mesh index; kNoIndex for a sample line
    std::uint8_t kind;    // EventKind
};

/// Orders by shrunk bound: the order in which stabbing lines are chosen.
struct PointRangeComparator {
    bool operator()(const Point& a, const Point& b) const {
        return a.range < b.range || (a.range == b.range && a.kind < b.kind);
    }
};

/// Orders by y: the order of the sweep over the sample lines.
struct PointYComparator {
    bool operator()(const Point& a, const Point& b) const {
        return a.y < b.y || (a.y == b.y && a.kind < b.kind);
    }
};

/// Sorts with `less`, on the oneTBB scheduler from kParallelThreshold items on.
template <class T, class Less>
void SortValues(std::vector<T>& values, Less less);

}  // namespace visibility
