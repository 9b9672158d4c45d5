#pragma once

#include <algorithm>
#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <velpick/host/point.h>
#include "visibility/screen_piece.h"

namespace visibility {

/// The unshrunk y bounds of one piece taking part in a run, kept by global index (meshes in
/// order, pieces in order).
struct PieceRef {
    double yMax, yMin;
};

/// The y bounds of the run's pieces by global index, worked out from their corners each time
/// they are asked for instead of kept beside the pieces (each finite or ±DBL_MAX, or NaN).
class PieceBounds {
  public:
    PieceBounds(const std::vector<Triangle>& pieces,
                const std::vector<VelSDK::Math::point3d>& vertices)
        : m_pieces(pieces), m_vertices(vertices) {}

    std::size_t size() const { return m_pieces.size(); }
    PieceRef operator[](std::size_t index) const {
        const std::uint32_t* corners = m_pieces[index].corners;
        const auto [lo, hi] = std::minmax(
            {m_vertices[corners[0]].y, m_vertices[corners[1]].y, m_vertices[corners[2]].y});
        return {std::clamp(hi, -DBL_MAX, DBL_MAX), std::clamp(lo, -DBL_MAX, DBL_MAX)};
    }

  private:
    const std::vector<Triangle>& m_pieces;
    const std::vector<VelSDK::Math::point3d>& m_vertices;
};

/// Event kinds; at equal keys ends come first.
enum EventKind : std::uint8_t { kPieceEnd = 0, kPieceStart = 1 };

/// One event of the choice of stabbing lines: a piece's shrunk range starting or ending at
/// `key`. Millions of these are sorted and held at once, so the piece is packed into 32 bits
/// beside the key, its global index times 2 plus the kind, and the event into 12 bytes.
#pragma pack(push, 4)
struct Point {
    /// The most pieces the events number.
    static constexpr std::uint64_t kMaxPieces = std::uint64_t(1) << 31;

    double key;
    std::uint32_t code;

    static Point Make(double key, std::uint64_t index, EventKind kind) {
        return {key, static_cast<std::uint32_t>(index << 1 | kind)};
    }
    EventKind Kind() const { return static_cast<EventKind>(code & 1); }
    std::uint64_t Index() const { return code >> 1; }
};
#pragma pack(pop)
static_assert(sizeof(Point) == 12, "stabbing events are packed");

/// a before b when its key is smaller, or, with equal keys, its kind is: ends, then starts.
struct PointKeyComparator {
    bool operator()(const Point& a, const Point& b) const {
        return a.key < b.key || (a.key == b.key && (a.code & 1) < (b.code & 1));
    }
};
using PointRangeComparator = PointKeyComparator;

/// Sorts with `less`, on the oneTBB scheduler from kParallelThreshold items on.
template <class T, class Less>
void SortValues(std::vector<T>& values, Less less);

}  // namespace visibility
