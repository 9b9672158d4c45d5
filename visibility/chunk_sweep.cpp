#include "visibility/chunk_sweep.h"

#include <algorithm>
#include <limits>

#include "visibility/sweep_constants.h"

namespace visibility {
namespace {

// x order of the sweep: by key, equal keys by global piece index.
struct ByKeyThenPiece {
    template <class Ordered>
    bool operator()(const Ordered& a, const Ordered& b) const {
        return a.x < b.x || (a.x == b.x && a.piece < b.piece);
    }
};

}  // namespace

void ChunkSweep::Begin(const std::vector<std::uint64_t>& initial) {
    if (m_position.size() != m_pieces->size()) {
        m_position.assign(m_pieces->size(), kAbsent);
        m_found.assign(m_pieces->size(), 0);
    }
    for (std::uint32_t piece : m_active)
        if (piece != kFreeSlot)
            m_position[piece] = kAbsent;
    m_active.clear();
    m_freeSlots.clear();
    m_fresh.clear();
    m_byStart.clear();
    m_byEnd.clear();
    for (std::uint64_t piece : initial)
        Insert(piece);
}

void ChunkSweep::Insert(std::uint64_t piece) {
    if (m_position[piece] != kAbsent)
        return;
    const auto index = static_cast<std::uint32_t>(piece);
    std::uint32_t slot;
    if (m_freeSlots.empty()) {
        slot = static_cast<std::uint32_t>(m_active.size());
        m_active.push_back(index);
    } else {
        slot = m_freeSlots.back();
        m_freeSlots.pop_back();
        m_active[slot] = index;
    }
    m_position[piece] = slot;
    // The sweep reads a piece on every line it crosses: a copy by slot keeps those reads
    // together instead of scattered over all pieces in mesh order.
    if (m_slotPieces.size() <= slot)
        m_slotPieces.resize(slot + 1);
    const Triangle& t = (*m_pieces)[piece];
    const std::vector<VelSDK::Math::point3d>& v = *m_vertices;
    m_slotPieces[slot] = {{v[t.corners[0]], v[t.corners[1]], v[t.corners[2]]}, t.markable};
    m_fresh.push_back({0.0, index, slot});
}

void ChunkSweep::Erase(std::uint64_t piece) {
    const std::uint32_t slot = m_position[piece];
    if (slot == kAbsent)
        return;
    m_active[slot] = kFreeSlot;
    m_freeSlots.push_back(slot);
    m_position[piece] = kAbsent;
}

void ChunkSweep::Decide(double y, const Interval* first, const Interval* last,
                        std::vector<std::uint32_t>& found) {
    if (first == last || m_active.size() == m_freeSlots.size())
        return;  // nothing can be seen on this line
    if (m_rule.nearest && !m_rule.markThrough) {
        m_fresh.clear();
        DecideNearest(y, first, last, found);
        return;
    }
    CutActivePieces(y);
    Reorder(m_byStart, true);
    Reorder(m_byEnd, false);
    m_fresh.clear();
    Sweep(first, last, found);
}

inline bool ChunkSweep::Nearer(const Segment& entering, const Segment& ahead) {
    const double lo = std::max(entering.x0, ahead.x0);
    const double hi = std::min(entering.x1, ahead.x1);
    // With a common x-range the middle lies inside both segments, where their depth bounds
    // hold: most comparisons are decided without the two divisions.
    if (lo <= hi) {
        if (entering.zLo > ahead.zHi)
            return true;
        if (entering.zHi <= ahead.zLo)
            return false;
    }
    const double middle = (lo + hi) / 2.0;
    return DepthAt(entering, middle) > DepthAt(ahead, middle);
}

void ChunkSweep::CutActivePieces(double y) {
    m_segments.resize(m_active.size());
    for (std::size_t slot = 0; slot < m_active.size(); ++slot)
        if (m_active[slot] != kFreeSlot)
            CutPiece(m_slotPieces[slot].corners, y, m_segments[slot]);
}

// Pieces wholly left or right of the region's span on this line can neither be seen nor hide
// anything seen there: they are not cut.
void ChunkSweep::DecideNearest(double y, const Interval* first, const Interval* last,
                               std::vector<std::uint32_t>& found) {
    const double lo = first->start, hi = (last - 1)->end;
    m_nearestEntries.clear();
    for (std::size_t slot = 0; slot < m_active.size(); ++slot) {
        if (m_active[slot] == kFreeSlot)
            continue;
        const SweepPiece& piece = m_slotPieces[slot];
        if (piece.corners[2].x <= lo || piece.corners[0].x >= hi)
            continue;
        NearestLine::Entry& entry = m_nearestEntries.emplace_back();
        CutPiece(piece.corners, y, entry.segment);
        if (!NearestLine::Matters(entry.segment, first, last)) {
            m_nearestEntries.pop_back();
            continue;
        }
        entry.index = m_active[slot];
        // A piece this object has found already need not be looked at again.
        entry.markable = piece.markable && !m_found[entry.index];
    }
    m_seen.clear();
    m_nearestLine.Decide(m_nearestEntries, first, last, m_rule.depthTolerance, m_seen);
    for (std::uint64_t index : m_seen) {
        m_found[index] = 1;
        found.push_back(static_cast<std::uint32_t>(index));
    }
}

void ChunkSweep::Reorder(std::vector<Ordered>& order, bool byStart) {
    const auto key = [&](std::uint32_t slot) {
        const Segment& s = m_segments[slot];
        return s.valid ? (byStart ? s.x0 : s.x1) : std::numeric_limits<double>::infinity();
    };
    // Refresh the keys of the pieces still active, in last line's order, and restore the
    // order by insertion: segments move little from one line to the next.
    std::size_t kept = 0;
    for (const Ordered& entry : order)
        if (m_active[entry.slot] == entry.piece)
            order[kept++] = {key(entry.slot), entry.piece, entry.slot};
    order.resize(kept);
    const ByKeyThenPiece less;
    for (std::size_t i = 1; i < order.size(); ++i) {
        const Ordered entry = order[i];
        std::size_t j = i;
        for (; j > 0 && less(entry, order[j - 1]); --j)
            order[j] = order[j - 1];
        order[j] = entry;
    }
    // Newly active pieces are sorted apart and merged in.
    m_freshOrder.clear();
    for (const Ordered& entry : m_fresh)
        if (m_active[entry.slot] == entry.piece)
            m_freshOrder.push_back({key(entry.slot), entry.piece, entry.slot});
    if (m_freshOrder.empty())
        return;
    std::sort(m_freshOrder.begin(), m_freshOrder.end(), less);
    m_merged.resize(order.size() + m_freshOrder.size());
    std::merge(order.begin(), order.end(), m_freshOrder.begin(), m_freshOrder.end(),
               m_merged.begin(), less);
    order.swap(m_merged);
}

// The x sweep merges three streams, each already in x order: segment starts, segment ends and
// the region's interval bounds. At equal x they are handled in the order starts, ends,
// interval starts, interval ends; each run of equal x and kind forms one group.
void ChunkSweep::Sweep(const Interval* first, const Interval* last,
                       std::vector<std::uint32_t>& found) {
    enum Kind { kSegmentStart, kSegmentEnd, kRegionStart, kRegionEnd };
    const double regionEnd = (last - 1)->end;
    const std::size_t regionEvents = 2 * static_cast<std::size_t>(last - first);
    m_depthOrder.clear();
    bool inside = false;
    std::size_t s = 0, e = 0, r = 0;
    // After the last interval closes nothing more can be seen; segments starting beyond it
    // never matter. A stream that has run out takes no part, even against a region bound at
    // +inf (a brush or polygon beyond the double range), so every step consumes an event.
    while (r < regionEvents) {
        const bool startAhead = s < m_byStart.size() && m_byStart[s].x <= regionEnd;
        const bool endAhead = e < m_byEnd.size();
        Kind kind = r % 2 == 0 ? kRegionStart : kRegionEnd;
        double x = r % 2 == 0 ? first[r / 2].start : first[r / 2].end;
        if (endAhead && (m_byEnd[e].x < x || (m_byEnd[e].x == x && kSegmentEnd < kind))) {
            kind = kSegmentEnd;
            x = m_byEnd[e].x;
        }
        if (startAhead && (m_byStart[s].x < x || (m_byStart[s].x == x && kSegmentStart < kind))) {
            kind = kSegmentStart;
            x = m_byStart[s].x;
        }
        switch (kind) {
            case kSegmentStart:
                // Pieces the line does not cut (kept last, at +inf) never enter.
                for (; s < m_byStart.size() && m_byStart[s].x == x; ++s)
                    if (m_segments[m_byStart[s].slot].valid)
                        EnterSegment(m_byStart[s].slot, inside, found);
                break;
            case kSegmentEnd:
                for (; e < m_byEnd.size() && m_byEnd[e].x == x; ++e) {
                    const auto entered =
                        std::find(m_depthOrder.begin(), m_depthOrder.end(), m_byEnd[e].slot);
                    if (entered != m_depthOrder.end())
                        m_depthOrder.erase(entered);
                }
                break;
            case kRegionStart:
                inside = true;
                ++r;
                if (m_rule.markThrough) {
                    for (std::uint32_t slot : m_depthOrder)
                        Offer(slot, found);
                } else if (!m_depthOrder.empty()) {
                    Offer(m_depthOrder.front(), found);
                }
                break;
            case kRegionEnd:
                inside = false;
                ++r;
                break;
        }
        if (!m_rule.markThrough && inside && !m_depthOrder.empty())
            Offer(m_depthOrder.front(), found);
    }
}

// A new segment joins the depth order at the back and moves ahead past every segment it is
// nearer than, comparing each at the middle of their common x-range.
void ChunkSweep::EnterSegment(std::uint32_t slot, bool inside, std::vector<std::uint32_t>& found) {
    m_depthOrder.push_back(slot);
    if (m_rule.markThrough) {
        if (inside)
            Offer(slot, found);
        return;
    }
    for (std::size_t p = m_depthOrder.size() - 1;
         p > 0 && Nearer(m_segments[slot], m_segments[m_depthOrder[p - 1]]); --p)
        std::swap(m_depthOrder[p], m_depthOrder[p - 1]);
}

void ChunkSweep::Offer(std::uint32_t slot, std::vector<std::uint32_t>& found) {
    const SweepPiece& piece = m_slotPieces[slot];
    if (!piece.markable || m_found[m_active[slot]])
        return;
    m_found[m_active[slot]] = 1;
    found.push_back(m_active[slot]);
}

}  // namespace visibility
