#pragma once

// A brute-force visibility oracle for screen-space pickers that sample exact positions rather
// than pixel cells: every triangle is projected into the screen frame, and a dense grid of
// sample points is tested against all of them. Its two answers bracket any correct picker:
// `Certain` holds the triangles visible at a sample with a clear margin to every boundary
// (region, triangle edges, clipping line, depth ties); `Possible` holds every triangle that is
// visible within the tolerance of some sample near the region.

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include <velpick/host/point.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_triangle.h>
#include <velpick/host/transform_matrix.h>
#include "support/ray_cast_oracle.h"

namespace oracle {

/// Signed distance of a screen point (x, y, depth) from a clipping boundary: ≥ 0 on the kept
/// side.
using KeptMargin = std::function<double(const point3d&)>;

class VisibilityOracle {
  public:
    /// Projects the visible triangles of `mesh`; those `markable` rejects still hide others.
    void AddMesh(MStlBase& mesh, const MMTransformMatrix& modelToScreen,
                 std::function<bool(const MStlTriangle&)> markable = {}, KeptMargin kept = {}) {
        for (MStlTriangle& triangle : mesh.Triangles()) {
            if (!triangle.IsVisible())
                continue;
            Entry e{{&triangle, {}, 0, 0, 0, 0, nullptr, std::nullopt},
                    !markable || markable(triangle),
                    kept,
                    0.0};
            for (int i = 0; i < 3; ++i)
                modelToScreen.Transform(e.t.p[i], triangle.GetVertex(i), false);
            std::tie(e.t.minX, e.t.maxX) = std::minmax({e.t.p[0].x, e.t.p[1].x, e.t.p[2].x});
            std::tie(e.t.minY, e.t.maxY) = std::minmax({e.t.p[0].y, e.t.p[1].y, e.t.p[2].y});
            e.slope = DepthSlope(e.t);
            m_entries.push_back(e);
        }
    }

    /// Judges by the nearest rule: a triangle is seen where it lies within `depthTolerance` of
    /// the nearest depth.
    void SetNearestRule(double depthTolerance) { m_nearestRule = depthTolerance; }

    /// Samples every `step` pixels over the region's box widened by `tolerance`.
    /// `throughAll` ignores occlusion (mark-through).
    void Run(const RegionMargin& region, double xmin, double ymin, double xmax, double ymax,
             double step, double tolerance, bool throughAll) {
        for (double y = ymin - tolerance; y <= ymax + tolerance; y += step)
            for (double x = xmin - tolerance; x <= xmax + tolerance; x += step) {
                const double margin = region(x, y);
                if (margin >= -tolerance)
                    Sample(x, y, margin >= tolerance, tolerance, throughAll);
            }
    }

    const std::set<const MStlTriangle*>& Certain() const { return m_certain; }
    const std::set<const MStlTriangle*>& Possible() const { return m_possible; }

  private:
    struct Entry {
        Projected t;
        bool markable;
        KeptMargin kept;
        double slope;
    };

    // Distance of (x, y) inside the triangle to its nearest edge, negative outside.
    static double InteriorMargin(const Projected& t, double x, double y) {
        const double edge =
            std::min({SegmentDistance(x, y, t.p[0], t.p[1]), SegmentDistance(x, y, t.p[1], t.p[2]),
                      SegmentDistance(x, y, t.p[2], t.p[0])});
        return DepthInside(t, x, y) ? edge : -edge;
    }

    // The part of a triangle at (x, y): its interior margin, reduced by the clipping margin.
    static double Margin(const Entry& e, double x, double y, double z) {
        double margin = InteriorMargin(e.t, x, y);
        if (e.kept)
            margin = std::min(margin, e.kept({x, y, z}));
        return margin;
    }

    void Sample(double x, double y, bool clearlyInside, double tolerance, bool throughAll) {
        constexpr double kDepthGap = 1e-6;
        constexpr double kNone = -std::numeric_limits<double>::infinity();
        m_depths.clear();
        m_margins.clear();
        // The two nearest hits, and the two nearest hits that cover a tolerance disc.
        const Entry* nearest = nullptr;
        const Entry* cover = nullptr;
        double nearestZ = kNone, secondZ = kNone, coverZ = kNone, secondCoverZ = kNone;
        for (const Entry& e : m_entries) {
            const bool far = x < e.t.minX - tolerance || x > e.t.maxX + tolerance ||
                             y < e.t.minY - tolerance || y > e.t.maxY + tolerance;
            const double z = far ? kNone : PlaneDepth(e.t, x, y);
            const double margin = far ? kNone : std::isfinite(z) ? Margin(e, x, y, z) : -1.0;
            m_depths.push_back(z);
            m_margins.push_back(margin);
            if (margin < 0)
                continue;
            if (z > nearestZ) {
                secondZ = nearestZ;
                nearestZ = z;
                nearest = &e;
            } else if (z > secondZ) {
                secondZ = z;
            }
            if (margin < tolerance)
                continue;
            if (z > coverZ) {
                secondCoverZ = coverZ;
                coverZ = z;
                cover = &e;
            } else if (z > secondCoverZ) {
                secondCoverZ = z;
            }
        }
        if (m_nearestRule)
            return SampleNearest(clearlyInside, tolerance, *m_nearestRule);
        for (std::size_t i = 0; i < m_entries.size(); ++i) {
            const Entry& e = m_entries[i];
            const double z = m_depths[i];
            const double margin = std::isfinite(z) || m_margins[i] == kNone
                                      ? m_margins[i]
                                      : InteriorMargin(e.t, x, y);
            if (!e.markable || margin < -tolerance)
                continue;
            const double front = &e == cover ? secondCoverZ : coverZ;
            if (!throughAll && std::isfinite(z) && front > z + kDepthGap)
                continue;  // clearly behind a hit that covers a tolerance disc
            m_possible.insert(e.t.triangle);
        }
        if (!clearlyInside)
            return;
        if (throughAll) {
            for (std::size_t i = 0; i < m_entries.size(); ++i)
                if (m_entries[i].markable && m_margins[i] >= tolerance)
                    m_certain.insert(m_entries[i].t.triangle);
        } else if (nearest && nearest->markable && nearest == cover &&
                   nearestZ > secondZ + kDepthGap) {
            m_certain.insert(nearest->t.triangle);
        }
    }

    // Within `tolerance` of the sample an entry's depth differs from its depth at the sample by
    // at most its slope times the tolerance: seen somewhere there when its highest depth
    // reaches the lowest of every other entry covering the whole disc, less the depth
    // tolerance; seen on all of it when its lowest reaches the highest of every other entry.
    void SampleNearest(bool clearlyInside, double tolerance, double depthTolerance) {
        constexpr double kDepthGap = 1e-6;
        double low[2] = {-HUGE_VAL, -HUGE_VAL}, high[2] = {-HUGE_VAL, -HUGE_VAL};
        const auto top = [](double(&two)[2], double v) {
            two[1] = std::max(two[1], std::min(two[0], v));
            two[0] = std::max(two[0], v);
        };
        for (std::size_t i = 0; i < m_entries.size(); ++i) {
            const double reach = m_entries[i].slope * tolerance;
            if (m_margins[i] >= -tolerance)
                top(high, m_depths[i] + reach);
            if (m_margins[i] >= tolerance)
                top(low, m_depths[i] - reach);
        }
        for (std::size_t i = 0; i < m_entries.size(); ++i) {
            const double z = m_depths[i], reach = m_entries[i].slope * tolerance;
            if (!m_entries[i].markable || m_margins[i] < -tolerance)
                continue;
            const double otherLow =
                m_margins[i] >= tolerance && z - reach == low[0] ? low[1] : low[0];
            const double otherHigh = z + reach == high[0] ? high[1] : high[0];
            if (z + reach >= otherLow - depthTolerance - kDepthGap)
                m_possible.insert(m_entries[i].t.triangle);
            if (clearlyInside && m_margins[i] >= tolerance &&
                z - reach >= otherHigh - depthTolerance + kDepthGap)
                m_certain.insert(m_entries[i].t.triangle);
        }
    }

    std::optional<double> m_nearestRule;
    std::vector<Entry> m_entries;
    std::set<const MStlTriangle*> m_certain, m_possible;
    std::vector<double> m_depths, m_margins;
};

}  // namespace oracle
