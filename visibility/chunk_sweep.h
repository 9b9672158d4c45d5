#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <velpick/host/point.h>
#include "visibility/region_intervals.h"
#include "visibility/screen_piece.h"

namespace visibility {

/// What the sweep needs of one piece, by global index: its corners in lexicographic (x, y, z)
/// order, so that two pieces sharing an edge cut it at exactly the same point, and where its
/// mark goes.
struct SweepPiece {
    VelSDK::Math::point3d corners[3];
    Triangle* piece;
    bool markable;
};

/// The sweep over one chunk of sample lines: the pieces active between lines, and the
/// decision on each line of which markable pieces are seen inside the region.
///
/// Cutting a piece on a line: its corners in lexicographic (x, y, z) order c0, c1, c2, its edges
/// in the order c0c1, c1c2, c0c2; an edge is cut from its smaller corner a towards b at
/// t = d_a/(d_a − d_b) (an edge lying on the line gives corner a). The segment starts at the
/// leftmost cut (the first found, at equal x) and ends at the rightmost (the last found).
///
/// The x sweep of a line handles events at equal x in the order segment starts, segment ends,
/// region-interval starts, region-interval ends, and within one kind by ascending piece index.
/// Two segments are compared at m = (lo + hi)/2 of their common x-range, a segment's depth
/// there being z0 + (z1 − z0)·((m − x0)/(x1 − x0)), or (z0 + z1)/2 when x0 = x1.
///
/// One object serves many chunks in turn (Begin starts one); its working storage is reused
/// from line to line and from chunk to chunk, and the marks found depend only on the lines and
/// the active pieces, never on what the object did before.
class ChunkSweep {
  public:
    ChunkSweep(const std::vector<SweepPiece>& pieces, bool markThrough)
        : m_pieces(&pieces), m_markThrough(markThrough) {}

    /// Starts a chunk whose first line crosses the pieces `initial` (global indices).
    void Begin(const std::vector<std::uint64_t>& initial);
    /// A piece starts: it becomes active unless it already is.
    void Insert(std::uint64_t piece);
    /// A piece ends: it stops being active.
    void Erase(std::uint64_t piece);

    /// Decides the line at y: cuts every active piece into an x segment and appends to `found`
    /// the markable pieces seen inside the region's intervals [first, last): the nearest one
    /// (greatest z) everywhere, or with mark-through every one. A piece may be appended more
    /// than once.
    void Decide(double y, const Interval* first, const Interval* last,
                std::vector<Triangle*>& found);

  private:
    static constexpr std::uint32_t kAbsent = ~std::uint32_t(0);
    static constexpr std::uint64_t kFreeSlot = ~std::uint64_t(0);

    /// A piece's cut on the line, x0 ≤ x1; invalid when the cut has no x. [zLo, zHi] holds
    /// every depth the segment is given inside its x-range (NaN: no bound known).
    struct Segment {
        double x0, z0, x1, z1;
        double zLo, zHi;
        bool valid;
    };
    /// An active piece in x order: the sort key (x0 or x1; +∞ for an invalid cut), the global
    /// index, which orders equal keys, and the piece's slot. An entry whose slot no longer
    /// holds its piece is stale.
    struct Ordered {
        double x;
        std::uint64_t piece;
        std::uint32_t slot;
    };

    static void Cut(const SweepPiece& piece, double y, Segment& segment);
    static void BoundDepth(Segment& segment);
    static double DepthAt(const Segment& segment, double x);
    static bool Nearer(const Segment& entering, const Segment& ahead);

    void CutActivePieces(double y);
    void Reorder(std::vector<Ordered>& order, bool byStart);
    void Sweep(const Interval* first, const Interval* last, std::vector<Triangle*>& found);
    void EnterSegment(std::uint32_t slot, bool inside, std::vector<Triangle*>& found);
    void Offer(std::uint32_t slot, std::vector<Triangle*>& found);

    const std::vector<SweepPiece>* m_pieces;
    bool m_markThrough;
    // Active pieces (global indices) in slots that keep their place while the piece is active
    // (kFreeSlot when empty), the free slots, and each piece's slot.
    std::vector<std::uint64_t> m_active;
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
    Triangle* m_lastOffered = nullptr;
};

}  // namespace visibility
