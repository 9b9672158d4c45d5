#include "visibility/nearest_line.h"

#include <algorithm>
#include <cmath>

namespace visibility {
namespace {

// Whether a segment lies within the tolerance of the nearest one somewhere on (a, b), its
// depth being da and db below the nearest at a and b (differences above 0 are rounding: the
// envelope holds the nearest there).
bool WithinTolerance(double da, double db, double depthTolerance) {
    da = std::min(da, 0.0);
    db = std::min(db, 0.0);
    return da > -depthTolerance || db > -depthTolerance ||
           (da >= -depthTolerance && db >= -depthTolerance);
}

// The same for reciprocal depths: `ma` and `mb` are the segment's reciprocal depth above the
// threshold of the nearest at a and b, the segment's taken no nearer than the nearest's.
bool AboveThreshold(double ma, double mb) {
    return ma > 0.0 || mb > 0.0 || (ma >= 0.0 && mb >= 0.0);
}

double MarginAt(const Segment& s, const Segment& nearest, double x,
                const DepthTolerance& depthTolerance) {
    const double q = DepthAt(nearest, x);
    return std::min(DepthAt(s, x), q) - depthTolerance.Threshold(q);
}

}  // namespace

void NearestLine::Decide(std::vector<Entry>& entries, const Interval* first, const Interval* last,
                         const DepthTolerance& depthTolerance, std::vector<std::uint64_t>& seen) {
    if (first == last)
        return;
    SortByStart(entries);
    m_entries = &entries;
    m_envelope.clear();
    for (std::uint32_t e : m_order)
        Insert(e);
    // Envelope spans ending at or before a segment's start stay behind it, and starts rise.
    auto span = m_envelope.cbegin();
    for (std::uint32_t e : m_order) {
        if (!entries[e].markable)
            continue;
        while (span != m_envelope.cend() && span->xb <= entries[e].segment.x0)
            ++span;
        if (Seen(e, span, first, last, depthTolerance))
            seen.push_back(entries[e].index);
    }
}

// Fills m_order with the entries by (x0, global index): a counting sort into as many buckets
// of equal width as entries, then an insertion sort of each bucket's few entries.
void NearestLine::SortByStart(const std::vector<Entry>& entries) {
    const auto before = [&](std::uint32_t a, std::uint32_t b) {
        const Entry &ea = entries[a], &eb = entries[b];
        return ea.segment.x0 < eb.segment.x0 ||
               (ea.segment.x0 == eb.segment.x0 && ea.index < eb.index);
    };
    const auto n = static_cast<std::uint32_t>(entries.size());
    m_order.resize(n);
    double minX = HUGE_VAL, maxX = -HUGE_VAL;
    for (const Entry& e : entries) {
        minX = std::min(minX, e.segment.x0);
        maxX = std::max(maxX, e.segment.x0);
    }
    const double scale = n / (maxX - minX);
    if (n < kBucketSortThreshold || !std::isfinite(scale)) {
        for (std::uint32_t e = 0; e < n; ++e)
            m_order[e] = e;
        std::sort(m_order.begin(), m_order.end(), before);
        return;
    }
    m_bucketOf.resize(n);
    m_bucketStart.assign(n + 1, 0);
    for (std::uint32_t e = 0; e < n; ++e) {
        const auto bucket =
            std::min(n - 1, static_cast<std::uint32_t>((entries[e].segment.x0 - minX) * scale));
        m_bucketOf[e] = bucket;
        ++m_bucketStart[bucket + 1];
    }
    for (std::uint32_t b = 0; b < n; ++b)
        m_bucketStart[b + 1] += m_bucketStart[b];
    for (std::uint32_t e = 0; e < n; ++e)
        m_order[m_bucketStart[m_bucketOf[e]]++] = e;
    // Each bucket now ends where the next begins; the whole is in bucket order.
    for (std::uint32_t i = 1; i < n; ++i) {
        const std::uint32_t e = m_order[i];
        std::uint32_t j = i;
        for (; j > 0 && before(e, m_order[j - 1]); --j)
            m_order[j] = m_order[j - 1];
        m_order[j] = e;
    }
}

// Replaces the spans the entry's x-range meets by their parts outside it and, inside it, by
// the nearer of the span's owner and the entry (the entry alone where no span lies).
void NearestLine::Insert(std::uint32_t entry) {
    const Segment& s = (*m_entries)[entry].segment;
    std::size_t i = m_envelope.size();
    while (i > 0 && m_envelope[i - 1].xb > s.x0)
        --i;
    std::size_t j = i;
    while (j < m_envelope.size() && m_envelope[j].xa < s.x1)
        ++j;
    if (Hidden(s, i, j))
        return;
    m_patch.clear();
    double covered = s.x0;
    for (std::size_t k = i; k < j; ++k) {
        const Span span = m_envelope[k];
        Emit(span.xa, s.x0, span.owner);
        Emit(covered, span.xa, entry);
        const double a = std::max(span.xa, s.x0), b = std::min(span.xb, s.x1);
        SplitSpan(span, a, b, entry);
        covered = b;
        Emit(s.x1, span.xb, span.owner);
    }
    Emit(covered, s.x1, entry);
    const auto at = m_envelope.begin() + static_cast<std::ptrdiff_t>(i);
    if (m_patch.size() >= j - i) {
        std::copy(m_patch.begin(), m_patch.begin() + static_cast<std::ptrdiff_t>(j - i), at);
        m_envelope.insert(at + static_cast<std::ptrdiff_t>(j - i),
                          m_patch.begin() + static_cast<std::ptrdiff_t>(j - i), m_patch.end());
    } else {
        std::copy(m_patch.begin(), m_patch.end(), at);
        m_envelope.erase(at + static_cast<std::ptrdiff_t>(m_patch.size()),
                         at + static_cast<std::ptrdiff_t>(j - i));
    }
}

// Whether the spans [i, j) cover the segment's x-range without a gap and are each nearer than
// it everywhere, as the depth bounds prove: the segment then changes nothing.
bool NearestLine::Hidden(const Segment& s, std::size_t i, std::size_t j) const {
    if (i == j || m_envelope[i].xa > s.x0 || m_envelope[j - 1].xb < s.x1)
        return false;
    for (std::size_t k = i; k < j; ++k) {
        if (k > i && m_envelope[k - 1].xb != m_envelope[k].xa)
            return false;
        if (!(s.zHi < (*m_entries)[m_envelope[k].owner].segment.zLo))
            return false;
    }
    return true;
}

// Appends [xa, xb] to the patch unless it is empty, joining it to the last span of its owner.
void NearestLine::Emit(double xa, double xb, std::uint32_t owner) {
    if (!(xa < xb))
        return;
    if (!m_patch.empty() && m_patch.back().owner == owner && m_patch.back().xb == xa)
        m_patch.back().xb = xb;
    else
        m_patch.push_back({xa, xb, owner});
}

// On [a, b] inside the span, the entry takes over where it is nearer than the owner.
void NearestLine::SplitSpan(const Span& span, double a, double b, std::uint32_t entry) {
    const Segment& s = (*m_entries)[entry].segment;
    const Segment& owner = (*m_entries)[span.owner].segment;
    // Depth bounds decide most pairs without interpolating.
    if (s.zHi < owner.zLo) {
        Emit(a, b, span.owner);
        return;
    }
    if (s.zLo > owner.zHi) {
        Emit(a, b, entry);
        return;
    }
    const double da = DepthAt(s, a) - DepthAt(owner, a);
    const double db = DepthAt(s, b) - DepthAt(owner, b);
    const bool nearerSomewhere = da > 0 || db > 0;
    const bool fartherSomewhere = da < 0 || db < 0;
    if (!nearerSomewhere) {
        Emit(a, b, span.owner);
    } else if (!fartherSomewhere) {
        Emit(a, b, entry);
    } else {
        const double crossing = std::clamp(a + (b - a) * (da / (da - db)), a, b);
        Emit(a, crossing, da > 0 ? entry : span.owner);
        Emit(crossing, b, da > 0 ? span.owner : entry);
    }
}

bool NearestLine::Seen(std::uint32_t entry, std::vector<Span>::const_iterator span,
                       const Interval* first, const Interval* last,
                       const DepthTolerance& depthTolerance) const {
    const Segment& s = (*m_entries)[entry].segment;
    const Interval* region =
        std::partition_point(first, last, [&](const Interval& r) { return r.end <= s.x0; });
    for (; span != m_envelope.end() && span->xa < s.x1; ++span) {
        const double a = std::max(span->xa, s.x0), b = std::min(span->xb, s.x1);
        while (region != last && region->end <= a)
            ++region;
        for (const Interval* r = region; r != last && r->start < b; ++r) {
            const double ra = std::max(a, r->start), rb = std::min(b, r->end);
            if (!(ra < rb))
                continue;
            if (span->owner == entry)
                return true;
            const Segment& nearest = (*m_entries)[span->owner].segment;
            if (depthTolerance.Reciprocal()) {
                // The threshold is monotone in the nearest depth: that of its lower bound
                // bounds every threshold on the span.
                if (s.zHi < depthTolerance.Threshold(nearest.zLo))
                    continue;
                if (AboveThreshold(MarginAt(s, nearest, ra, depthTolerance),
                                   MarginAt(s, nearest, rb, depthTolerance)))
                    return true;
                continue;
            }
            // Rounding is monotone: the bounds' difference bounds every computed difference.
            if (s.zHi - nearest.zLo < -depthTolerance.tolerance)
                continue;
            if (WithinTolerance(DepthAt(s, ra) - DepthAt(nearest, ra),
                                DepthAt(s, rb) - DepthAt(nearest, rb), depthTolerance.tolerance))
                return true;
        }
    }
    return false;
}

}  // namespace visibility
