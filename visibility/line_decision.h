#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "visibility/region_intervals.h"
#include "visibility/sweep_events.h"

namespace visibility {

/// The visible pieces one chunk of sample lines has found, each once (the first time it is
/// seen), plus working storage reused from line to line.
class LineDecision {
  public:
    using Triangle = MStlBaseOperatorVisibilityDetector::Triangle;

    LineDecision(const std::vector<PieceRef>& refs, bool markThrough)
        : m_refs(refs), m_markThrough(markThrough) {}

    /// Decides one line at y: cuts every active piece (given by global index) into an x
    /// segment and appends to `found` the markable pieces seen inside the region's intervals
    /// [first, last): the nearest one (greatest z) everywhere, or with mark-through every one.
    void Decide(double y, const std::vector<std::uint64_t>& active, const Interval* first,
                const Interval* last, std::vector<Triangle*>& found);

  private:
    /// A piece's cut on the line, x0 ≤ x1.
    struct Segment {
        double x0, z0, x1, z1;
        std::uint64_t piece;
    };
    /// Kinds of the x sweep, in the order they are handled at equal x.
    enum XKind : std::uint8_t { kSegmentStart, kSegmentEnd, kRegionStart, kRegionEnd };
    struct XEvent {
        double x;
        std::uint8_t kind;
        std::uint64_t order;  // piece index for segments (ties at equal x), interval for regions
        std::uint32_t slot;   // the segment's slot
    };

    static bool Cut(const Triangle& piece, double y, Segment& segment);
    static double DepthAt(const Segment& segment, double x);
    /// Whether `entering` is nearer than `ahead` at the middle of their common x-range.
    static bool Nearer(const Segment& entering, const Segment& ahead);

    void BuildEvents(double y, const std::vector<std::uint64_t>& active, const Interval* first,
                     const Interval* last);
    void Sweep(std::vector<Triangle*>& found);
    void Offer(std::uint32_t slot, std::vector<Triangle*>& found);

    const std::vector<PieceRef>& m_refs;
    bool m_markThrough;
    std::vector<Segment> m_segments;
    std::vector<XEvent> m_events;
    std::vector<std::uint32_t> m_depthOrder;  // front (greatest z) first
    std::size_t m_regionCount = 0;
    Triangle* m_lastOffered = nullptr;
};

}  // namespace visibility
