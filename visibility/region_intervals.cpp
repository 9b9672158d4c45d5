#include "visibility/region_intervals.h"

#include <algorithm>
#include <cmath>
#include <limits>

using VelSDK::Math::point2d;

namespace visibility {
namespace {

// Sorts one line's intervals and merges those that touch or overlap into `out`.
void MergeInto(std::vector<Interval>& pieces, std::vector<Interval>& out) {
    std::sort(pieces.begin(), pieces.end(),
              [](const Interval& a, const Interval& b) { return a.start < b.start; });
    const std::size_t first = out.size();
    for (const Interval& piece : pieces) {
        if (out.size() > first && piece.start <= out.back().end)
            out.back().end = std::max(out.back().end, piece.end);
        else
            out.push_back(piece);
    }
}

// The slice at y of the convex quadrilateral q0 q1 q2 q3: the extreme x of its closed edges'
// crossings. False when the line misses it.
bool QuadSlice(const point2d (&q)[4], double y, Interval& slice) {
    double lo = std::numeric_limits<double>::infinity();
    double hi = -std::numeric_limits<double>::infinity();
    for (int e = 0; e < 4; ++e) {
        const point2d& a = q[e];
        const point2d& b = q[(e + 1) % 4];
        if (a.y == b.y) {
            if (y == a.y) {
                lo = std::min({lo, a.x, b.x});
                hi = std::max({hi, a.x, b.x});
            }
            continue;
        }
        if (y < std::min(a.y, b.y) || y > std::max(a.y, b.y))
            continue;
        const double x = a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y);
        lo = std::min(lo, x);
        hi = std::max(hi, x);
    }
    if (!(lo <= hi))
        return false;
    slice = {lo, hi};
    return true;
}

// The band of half-width r around the segment a–b as a rectangle, or false for a segment of
// length 0 (its end discs cover it).
bool BandCorners(const point2d& a, const point2d& b, double r, point2d (&q)[4]) {
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double length = std::sqrt(dx * dx + dy * dy);
    if (length == 0.0)
        return false;
    const double nx = -dy / length * r, ny = dx / length * r;
    q[0] = {a.x + nx, a.y + ny};
    q[1] = {b.x + nx, b.y + ny};
    q[2] = {b.x - nx, b.y - ny};
    q[3] = {a.x - nx, a.y - ny};
    return true;
}

}  // namespace

RegionIntervals PolygonIntervals(const std::vector<point2d>& polygon,
                                 const std::vector<double>& lines) {
    RegionIntervals result;
    result.offsets.reserve(lines.size() + 1);
    result.offsets.push_back(0);
    std::vector<double> crossings;
    std::vector<Interval> pieces;
    const std::size_t n = polygon.size();
    for (double y : lines) {
        crossings.clear();
        for (std::size_t i = 0; i < n; ++i) {
            const point2d& a = polygon[i];
            const point2d& b = polygon[(i + 1) % n];  // the last point joins the first
            if (y < std::min(a.y, b.y) || !(y < std::max(a.y, b.y)))
                continue;
            crossings.push_back(a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y));
        }
        std::sort(crossings.begin(), crossings.end());
        pieces.clear();
        for (std::size_t i = 0; i + 1 < crossings.size(); i += 2)
            pieces.push_back({crossings[i], crossings[i + 1]});
        MergeInto(pieces, result.intervals);
        result.offsets.push_back(result.intervals.size());
    }
    return result;
}

RegionIntervals BrushIntervals(const std::vector<point2d>& path, double radius,
                               const std::vector<double>& lines) {
    RegionIntervals result;
    result.offsets.reserve(lines.size() + 1);
    result.offsets.push_back(0);
    std::vector<Interval> pieces;
    const double rSq = radius * radius;
    for (double y : lines) {
        pieces.clear();
        for (const point2d& p : path) {
            const double dy = y - p.y;
            const double wSq = rSq - dy * dy;
            if (wSq >= 0.0) {
                const double w = std::sqrt(wSq);
                pieces.push_back({p.x - w, p.x + w});
            }
        }
        point2d band[4];
        Interval slice;
        for (std::size_t i = 0; i + 1 < path.size(); ++i)
            if (BandCorners(path[i], path[i + 1], radius, band) && QuadSlice(band, y, slice))
                pieces.push_back(slice);
        MergeInto(pieces, result.intervals);
        result.offsets.push_back(result.intervals.size());
    }
    return result;
}

}  // namespace visibility
