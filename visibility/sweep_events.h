#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "visibility/screen_piece.h"

namespace visibility {

/// One piece taking part in a run, by global index (meshes in order, pieces in order), with
/// its unshrunk y bounds.
struct PieceRef {
    Triangle* piece;
    std::size_t mesh;
    double yMax, yMin;
};

/// Event kinds; at equal keys ends come first, then sample lines, then starts.
enum EventKind : std::uint8_t { kPieceEnd = 0, kSampleLine = 1, kPieceStart = 2 };

/// One sweep event: a piece starting or ending, or a sample line, at `key`. The sweep sorts
/// millions of these, so what an event concerns is packed into one word beside its key: the
/// index (global piece index, or line index) times 4 plus the kind.
///
/// The choice of stabbing lines keys piece events by their shrunk y bounds (the range); the
/// sweep over the lines keys them by their y bounds.
struct Point {
    double key;
    std::uint64_t code;

    static Point Make(double key, std::uint64_t index, EventKind kind) {
        return {key, index << 2 | kind};
    }
    EventKind Kind() const { return static_cast<EventKind>(code & 3); }
    std::uint64_t Index() const { return code >> 2; }
};

/// a before b when its key is smaller, or, with equal keys, its kind is: ends, then lines,
/// then starts. Used both by range (PointRangeComparator) and by y (PointYComparator).
struct PointKeyComparator {
    bool operator()(const Point& a, const Point& b) const {
        return a.key < b.key || (a.key == b.key && (a.code & 3) < (b.code & 3));
    }
};
using PointRangeComparator = PointKeyComparator;
using PointYComparator = PointKeyComparator;

/// Sorts with `less`, on the oneTBB scheduler from kParallelThreshold items on.
template <class T, class Less>
void SortValues(std::vector<T>& values, Less less);

}  // namespace visibility
