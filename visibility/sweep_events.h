#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace visibility {

/// The unshrunk y bounds of one piece taking part in a run, kept by global index (meshes in
/// order, pieces in order).
struct PieceRef {
    double yMax, yMin;
};

/// Event kinds; at equal keys ends come first.
enum EventKind : std::uint8_t { kPieceEnd = 0, kPieceStart = 1 };

/// One event of the choice of stabbing lines: a piece's shrunk range starting or ending at
/// `key`. Millions of these are sorted, so the piece is packed into one word beside the key:
/// its global index times 4 plus the kind.
struct Point {
    double key;
    std::uint64_t code;

    static Point Make(double key, std::uint64_t index, EventKind kind) {
        return {key, index << 2 | kind};
    }
    EventKind Kind() const { return static_cast<EventKind>(code & 3); }
    std::uint64_t Index() const { return code >> 2; }
};

/// a before b when its key is smaller, or, with equal keys, its kind is: ends, then starts.
struct PointKeyComparator {
    bool operator()(const Point& a, const Point& b) const {
        return a.key < b.key || (a.key == b.key && (a.code & 3) < (b.code & 3));
    }
};
using PointRangeComparator = PointKeyComparator;

/// Sorts with `less`, on the oneTBB scheduler from kParallelThreshold items on.
template <class T, class Less>
void SortValues(std::vector<T>& values, Less less);

}  // namespace visibility
