#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <velpick/host/point.h>
#include "visibility/line_segment.h"
#include "visibility/nearest_line.h"
#include "visibility/region_intervals.h"
#include "visibility/screen_piece.h"
#include "visibility/sweep_events.h"

namespace visibility {

/// What the sweep needs of an active piece: its corners in lexicographic (x, y, z) order, so
/// that two pieces sharing an edge cut it at exactly the same point, and whether it may be marked.
struct SweepPiece {
    VelSDK::Math::point3d corners[3];
    bool markable;
};

/// The sweep over one chunk of sample lines: the pieces active between lines, and the
/// decision on each line of which markable pieces are seen inside the region.
///
/// Each active piece is cut on a line with CutPiece. In the ordered rule, the x sweep of a line
/// handles events at equal x in the order segment starts, segment ends, region-interval starts,
/// region-interval ends, and within one kind by ascending piece index. Two segments are compared
/// with DepthAt at m = (lo + hi)/2 of their common x-range. The nearest rule decides each line with
/// NearestLine instead.
///
/// One object serves many chunks in turn (Begin starts one); its working storage is reused
/// from line to line and from chunk to chunk, and the marks found depend only on the lines and
/// the active pieces, never on what the object did before.
class ChunkSweep {
  public:
    /// How a line is decided: mark-through takes every piece; otherwise the ordered rule
    /// (the front of the depth order) or, when `nearest`, the nearest surface within
    /// `depthTolerance` (its reciprocal scale k > 0 when the depths are reciprocal depths).
    struct Rule {
        bool markThrough;
        bool nearest;
        DepthTolerance depthTolerance;
    };

    /// `pieces`: every piece by global index, its corners (indices into `vertices`) in
    /// lexicographic (x, y, z) order.
    ChunkSweep(const std::vector<Triangle>& pieces,
               const std::vector<VelSDK::Math::point3d>& vertices, Rule rule)
        : m_pieces(&pieces), m_vertices(&vertices), m_rule(rule) {}

    /// Starts a chunk whose first line crosses the pieces `initial` (global indices).
    void Begin(const std::vector<std::uint64_t>& initial);
    /// A piece starts: it becomes active unless it already is.
    void Insert(std::uint64_t piece);
    /// A piece ends: it stops being active.
    void Erase(std::uint64_t piece);

    /// Decides the line at y: cuts every active piece into an x segment and appends to `found`
    /// the global indices of the markable pieces seen inside the region's intervals [first, last):
    /// the nearest one (greatest z) everywhere, or every one within the tolerance of the nearest
    /// depth, or with mark-through every one. A piece this object has appended before, in this
    /// chunk or an earlier one, is not appended again.
    void Decide(double y, const Interval* first, const Interval* last,
                std::vector<std::uint32_t>& found);

  private:
    static constexpr std::uint32_t kAbsent = ~std::uint32_t(0);
    // Global indices are below 2^32 − 1 (the line schedule refuses more pieces), so they and
    // the free-slot mark fit 32 bits.
    static constexpr std::uint32_t kFreeSlot = ~std::uint32_t(0);

    /// An active piece in x order: the sort key (x0 or x1; +∞ for an invalid cut), the global
    /// index, which orders equal keys, and the piece's slot. An entry whose slot no longer
    /// holds its piece is stale.
    struct Ordered {
        double x;
        std::uint32_t piece;
        std::uint32_t slot;
    };

    static bool Nearer(const Segment& entering, const Segment& ahead);

    void CutActivePieces(double y);
    void DecideNearest(double y, const Interval* first, const Interval* last,
                       std::vector<std::uint32_t>& found);
    void Reorder(std::vector<Ordered>& order, bool byStart);
    void Sweep(const Interval* first, const Interval* last, std::vector<std::uint32_t>& found);
    void EnterSegment(std::uint32_t slot, bool inside, std::vector<std::uint32_t>& found);
    void Offer(std::uint32_t slot, std::vector<std::uint32_t>& found);

    const std::vector<Triangle>* m_pieces;
    const std::vector<VelSDK::Math::point3d>* m_vertices;
    Rule m_rule;
    // Active pieces (global indices) in slots that keep their place while the piece is active
    // (kFreeSlot when empty), the free slots, and each piece's slot.
    std::vector<std::uint32_t> m_active;
    std::vector<std::uint32_t> m_freeSlots;
    std::vector<std::uint32_t> m_position;
    std::vector<SweepPiece> m_slotPieces;  // by slot, the active piece's corners and mark
    // Pieces activated since the last decided line, not yet in the x orders.
    std::vector<Ordered> m_fresh;
    // The active pieces by segment start and by segment end as of the last decided line: from
    // one line to the next these orders barely change, so re-sorting them is cheap.
    std::vector<Ordered> m_byStart, m_byEnd, m_freshOrder, m_merged;
    std::vector<Segment> m_segments;          // by slot
    std::vector<std::uint32_t> m_depthOrder;  // slots, front (greatest z) first
    // By global index, whether this object has found the piece, in any chunk of the run: each
    // is reported once per object, and the run merges what all objects found.
    std::vector<char> m_found;
    std::vector<NearestLine::Entry> m_nearestEntries;
    std::vector<std::uint64_t> m_seen;
    NearestLine m_nearestLine;
};

}  // namespace visibility
