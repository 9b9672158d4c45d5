#include "visibility/line_decision.h"

#include <algorithm>
#include <cmath>

#include "visibility/sweep_constants.h"

using VelSDK::Math::point3d;

namespace visibility {
namespace {

bool LexLess(const point3d& a, const point3d& b) {
    if (a.x != b.x)
        return a.x < b.x;
    if (a.y != b.y)
        return a.y < b.y;
    return a.z < b.z;
}

// Whether the edge a–b meets the line, its corners being da and db away from it (within
// DBL_EPSILON counts as on it).
bool Crosses(double da, double db) {
    const bool bothAbove = da > kOnPlaneTolerance && db > kOnPlaneTolerance;
    const bool bothBelow = da < -kOnPlaneTolerance && db < -kOnPlaneTolerance;
    return !bothAbove && !bothBelow;
}

// Interpolated from the lexicographically smaller corner a, so that the two pieces sharing an
// edge cut it at exactly the same point.
void CrossingPoint(const point3d& a, const point3d& b, double da, double db, double& x, double& z) {
    if (da == db) {
        x = a.x;
        z = a.z;
        return;
    }
    const double t = da / (da - db);
    x = a.x + t * (b.x - a.x);
    z = a.z + t * (b.z - a.z);
}

}  // namespace

bool LineDecision::Cut(const Triangle& piece, double y, Segment& segment) {
    point3d c[3] = {piece.p0, piece.p1, piece.p2};
    std::sort(c, c + 3, LexLess);
    const double d[3] = {c[0].y - y, c[1].y - y, c[2].y - y};
    static constexpr int kEdges[3][2] = {{0, 1}, {1, 2}, {0, 2}};
    bool any = false;
    for (const auto& edge : kEdges) {
        const int a = edge[0], b = edge[1];
        if (!Crosses(d[a], d[b]))
            continue;
        double x, z;
        CrossingPoint(c[a], c[b], d[a], d[b], x, z);
        if (!any) {
            segment.x0 = segment.x1 = x;
            segment.z0 = segment.z1 = z;
            any = true;
        } else if (x < segment.x0) {
            segment.x0 = x;
            segment.z0 = z;
        } else if (x >= segment.x1) {
            segment.x1 = x;
            segment.z1 = z;
        }
    }
    return any && !std::isnan(segment.x0) && !std::isnan(segment.x1);
}

double LineDecision::DepthAt(const Segment& s, double x) {
    if (s.x1 == s.x0)
        return (s.z0 + s.z1) / 2.0;
    return s.z0 + (s.z1 - s.z0) * ((x - s.x0) / (s.x1 - s.x0));
}

bool LineDecision::Nearer(const Segment& entering, const Segment& ahead) {
    const double lo = std::max(entering.x0, ahead.x0);
    const double hi = std::min(entering.x1, ahead.x1);
    const double middle = (lo + hi) / 2.0;
    return DepthAt(entering, middle) > DepthAt(ahead, middle);
}

void LineDecision::Decide(double y, const std::vector<std::uint64_t>& active, const Interval* first,
                          const Interval* last, std::vector<Triangle*>& found) {
    if (first == last || active.empty())
        return;  // nothing can be seen on this line
    BuildEvents(y, active, first, last);
    Sweep(found);
}

void LineDecision::BuildEvents(double y, const std::vector<std::uint64_t>& active,
                               const Interval* first, const Interval* last) {
    m_segments.clear();
    m_events.clear();
    m_regionCount = static_cast<std::size_t>(last - first);
    // Segments starting right of the region's last interval never meet the region.
    const double regionEnd = (last - 1)->end;
    Segment segment;
    for (std::uint64_t index : active) {
        if (!Cut(*m_refs[index].piece, y, segment) || segment.x0 > regionEnd)
            continue;
        segment.piece = index;
        const auto slot = static_cast<std::uint32_t>(m_segments.size());
        m_segments.push_back(segment);
        m_events.push_back({segment.x0, kSegmentStart, index, slot});
        m_events.push_back({segment.x1, kSegmentEnd, index, slot});
    }
    for (const Interval* interval = first; interval != last; ++interval) {
        const auto order = static_cast<std::uint64_t>(interval - first);
        m_events.push_back({interval->start, kRegionStart, order, 0});
        m_events.push_back({interval->end, kRegionEnd, order, 0});
    }
    std::sort(m_events.begin(), m_events.end(), [](const XEvent& a, const XEvent& b) {
        if (a.x != b.x)
            return a.x < b.x;
        if (a.kind != b.kind)
            return a.kind < b.kind;
        return a.order < b.order;
    });
}

void LineDecision::Sweep(std::vector<Triangle*>& found) {
    m_depthOrder.clear();
    bool inside = false;
    std::size_t regionsLeft = m_regionCount;
    std::size_t i = 0;
    // After the last region interval closes nothing more can be seen.
    while (i < m_events.size() && regionsLeft > 0) {
        const double x = m_events[i].x;
        const std::uint8_t kind = m_events[i].kind;
        for (; i < m_events.size() && m_events[i].x == x && m_events[i].kind == kind; ++i) {
            const XEvent& event = m_events[i];
            switch (kind) {
                case kSegmentStart: {
                    m_depthOrder.push_back(event.slot);
                    if (m_markThrough) {
                        if (inside)
                            Offer(event.slot, found);
                        break;
                    }
                    for (std::size_t p = m_depthOrder.size() - 1;
                         p > 0 &&
                         Nearer(m_segments[m_depthOrder[p]], m_segments[m_depthOrder[p - 1]]);
                         --p)
                        std::swap(m_depthOrder[p], m_depthOrder[p - 1]);
                    break;
                }
                case kSegmentEnd:
                    m_depthOrder.erase(
                        std::find(m_depthOrder.begin(), m_depthOrder.end(), event.slot));
                    break;
                case kRegionStart:
                    inside = true;
                    if (m_markThrough) {
                        for (std::uint32_t slot : m_depthOrder)
                            Offer(slot, found);
                    } else if (!m_depthOrder.empty()) {
                        Offer(m_depthOrder.front(), found);
                    }
                    break;
                case kRegionEnd:
                    inside = false;
                    --regionsLeft;
                    break;
            }
        }
        if (!m_markThrough && inside && !m_depthOrder.empty())
            Offer(m_depthOrder.front(), found);
    }
}

void LineDecision::Offer(std::uint32_t slot, std::vector<Triangle*>& found) {
    Triangle* piece = m_refs[m_segments[slot].piece].piece;
    if (!piece->markable || piece == m_lastOffered)
        return;
    m_lastOffered = piece;
    found.push_back(piece);
}

}  // namespace visibility
