#pragma once

#include <cstdint>
#include <vector>

#include "visibility/line_segment.h"
#include "visibility/region_intervals.h"

namespace visibility {

/// How far behind the nearest depth a segment may lie and still be seen.
///
/// With an affine view the segments' depths are screen depths and a segment counts at x where
/// its depth is at least the nearest depth less `tolerance`. Under a perspective projection the
/// depths are reciprocal depths q = k/depth (k = `reciprocalScale` > 0; larger is nearer, and q
/// is affine across the screen, so the linear interpolation of DepthAt is perspective-correct),
/// while `tolerance` stays a depth along the viewing axis: a segment counts where
/// depth ≤ nearestDepth + tolerance, that is q ≥ Threshold(qNearest) = k/(k/qNearest + tolerance),
/// computed in double. A tolerance of 0 takes the threshold as qNearest itself, as the affine
/// rule does; +∞ makes it 0, which every depth in front of the eye reaches.
struct DepthTolerance {
    /// An affine tolerance (implicit, so that a plain screen-depth tolerance reads as one).
    DepthTolerance(double tolerance, double reciprocalScale = 0.0)
        : tolerance(tolerance), reciprocalScale(reciprocalScale) {}

    bool Reciprocal() const { return reciprocalScale > 0.0; }
    /// The least reciprocal depth seen against the nearest one `nearest`; monotone in it, so a
    /// bound on the nearest depth bounds the threshold. Values that are not positive (only the
    /// rounding slack of a bound can give them) are their own threshold.
    double Threshold(double nearest) const {
        if (tolerance == 0.0 || !(nearest > 0.0))
            return nearest;
        return reciprocalScale / (reciprocalScale / nearest + tolerance);
    }

    double tolerance;        // ≥ 0, +∞ allowed
    double reciprocalScale;  // 0: affine depths
};

/// The nearest-surface decision of one sample line. The nearest depth at x is the greatest
/// depth DepthAt gives at x among the segments whose x-range holds x. A segment is seen on the
/// x where its own depth is within the tolerance of the nearest depth (see DepthTolerance),
/// inside the region's intervals; its piece is seen on the line when that holds on an interval of
/// positive length. The result depends only on the segments and the region, not on the order they
/// are given in.
///
/// The nearest depth is built as an upper envelope: a list of disjoint x-intervals in x order,
/// each owned by the segment nearest on it. Two segments are compared at the ends of their
/// common interval and split where their depths cross (ties keep the segment already there).
/// A segment is then seen on an interval of the envelope it owns, or, on an interval owned by
/// another, when its depth is within the tolerance at either end or at both ends exactly. With
/// affine depths the difference to the owner is linear on the span. With reciprocal depths the
/// difference of the depths themselves, (depth_s − depth_owner)(x), is a linear function over a
/// positive quadratic: on a span where it stays ≥ 0 it is monotone or has a single maximum,
/// never an inner minimum, so where it is within the tolerance again reaches an end of the span.
class NearestLine {
  public:
    /// One segment of the line: its piece's global index (orders segments at equal x0, and is
    /// what is reported), and whether it is to be reported when seen (it occludes either way).
    struct Entry {
        Segment segment;
        std::uint64_t index;
        bool markable;
    };

    /// Only segments of positive length that reach into the region's span can be seen or hide
    /// anything seen. [first, last) is not empty.
    static bool Matters(const Segment& s, const Interval* first, const Interval* last) {
        return s.valid && s.x0 < s.x1 && s.x1 > first->start && s.x0 < (last - 1)->end;
    }

    /// Appends to `seen` the global index of every markable entry seen inside the intervals
    /// [first, last) (not empty) with the tolerance `depthTolerance`. Every entry must satisfy
    /// Matters.
    void Decide(std::vector<Entry>& entries, const Interval* first, const Interval* last,
                const DepthTolerance& depthTolerance, std::vector<std::uint64_t>& seen);

  private:
    /// An interval of the envelope and the entry nearest on it.
    struct Span {
        double xa, xb;
        std::uint32_t owner;
    };

    /// Below this many entries a line's entries are sorted by comparison, not by buckets.
    static constexpr std::uint32_t kBucketSortThreshold = 64;

    void SortByStart(const std::vector<Entry>& entries);
    void Insert(std::uint32_t entry);
    bool Hidden(const Segment& s, std::size_t i, std::size_t j) const;
    void Emit(double xa, double xb, std::uint32_t owner);
    void SplitSpan(const Span& span, double a, double b, std::uint32_t entry);
    /// `span`: the first envelope span ending after the entry's start.
    bool Seen(std::uint32_t entry, std::vector<Span>::const_iterator span, const Interval* first,
              const Interval* last, const DepthTolerance& depthTolerance) const;

    const std::vector<Entry>* m_entries = nullptr;
    std::vector<Span> m_envelope, m_patch;
    std::vector<std::uint32_t> m_order;  // entries by (x0, global index)
    std::vector<std::uint32_t> m_bucketOf, m_bucketStart;
};

}  // namespace visibility
