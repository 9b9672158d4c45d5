// The visibility detector's building blocks against independent oracles, its set-up edge
// cases, and the independence of its marks from the number of threads.

#include <gtest/gtest.h>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/visibility_detector.h>
#include "support/noisy_torus.h"
#include "support/ray_cast_oracle.h"
#include "support/scene_builders.h"
#include "support/screen_frame.h"
#include "visibility/nearest_line.h"
#include "visibility/piece_clipper.h"
#include "visibility/region_intervals.h"
#include "visibility/sample_lines.h"
#include "visibility/sweep_events.h"

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using Detector = MStlBaseOperatorVisibilityDetector;
using scene::Lasso;
using scene::ScreenFrame;
using visibility::Piece;

namespace {

double SignedArea(const Piece& p) {
    return (p.p[1].x - p.p[0].x) * (p.p[2].y - p.p[0].y) -
           (p.p[1].y - p.p[0].y) * (p.p[2].x - p.p[0].x);
}

TEST(PieceClipper, CutsAtTheOddCornerKeepingWindingAndArea) {
    const Piece triangle{{{0, 0, 0}, {8, 0, 0}, {0, 8, 0}}};
    struct Case {
        MMPlaneEq<double> plane;
        std::size_t pieces;
        double keptArea;  // twice the area
    };
    const Case cases[] = {
        {{1, 0, 0, -2}, 1, 36},   // x ≥ 2: corner 1 alone kept
        {{-1, 0, 0, 2}, 2, 28},   // x ≤ 2: corner 1 alone dropped
        {{0, 1, 0, -6}, 1, 4},    // y ≥ 6: corner 2 alone kept
        {{1, 1, 0, -100}, 0, 0},  // all dropped
        {{1, 1, 0, 0}, 1, 64},    // corner 0 on the plane counts as kept
    };
    for (const Case& c : cases) {
        std::vector<Piece> pieces{triangle}, scratch;
        visibility::ClipPieces(pieces, c.plane, scratch);
        ASSERT_EQ(pieces.size(), c.pieces);
        double area = 0;
        for (const Piece& p : pieces) {
            EXPECT_GE(SignedArea(p), 0.0);  // counter-clockwise, like the input
            for (const point3d& corner : p.p)
                EXPECT_GE(c.plane.SignedValue(corner), -1e-12);
            area += SignedArea(p);
        }
        EXPECT_NEAR(area, c.keptArea, 1e-9);
    }
}

TEST(PieceClipper, CutParallelToThePlaneLandsOnTheOrigin) {
    // n = (1, 1, 1) and p0 − p1 = (0, −1, 1): n·dir is exactly 0, yet rounding in the plane
    // values puts p0 (value −2) and p1 (value 0) on different sides. p0 is the only dropped
    // corner; its cut towards p1 has no crossing and gives the origin.
    const Piece triangle{{{1e16, 1, 1}, {1e16, 2, 0}, {1e16 + 8, 0, 0}}};
    std::vector<Piece> pieces{triangle}, scratch;
    visibility::ClipPieces(pieces, {1, 1, 1, -(1e16 + 2)}, scratch);
    ASSERT_EQ(pieces.size(), 2u);
    const point3d origin{0, 0, 0};
    EXPECT_EQ(pieces[0].p[0], origin);
    EXPECT_EQ(pieces[0].p[1], triangle.p[1]);
    EXPECT_EQ(pieces[0].p[2], triangle.p[2]);
    EXPECT_EQ(pieces[1].p[0], origin);
    EXPECT_EQ(pieces[1].p[1], triangle.p[2]);
    EXPECT_NE(pieces[1].p[2], origin);  // towards p2 the cut is a real crossing
}

// The intervals of every line are sorted and disjoint, and cover exactly the sample points
// that `inside` puts in the region (points within 1e-9 of its boundary are not judged).
void ExpectIntervalsMatch(const visibility::RegionIntervals& regions,
                          const std::vector<double>& lines, const oracle::RegionMargin& inside,
                          double xFrom, double xTo, double xStep) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
        for (const visibility::Interval* it = regions.begin(i); it != regions.end(i); ++it) {
            EXPECT_LE(it->start, it->end);
            EXPECT_TRUE(it + 1 == regions.end(i) || it->end < (it + 1)->start);
        }
        for (double x = xFrom; x < xTo; x += xStep) {
            const double margin = inside(x, lines[i]);
            if (std::fabs(margin) < 1e-9)
                continue;
            bool covered = false;
            for (const visibility::Interval* it = regions.begin(i); it != regions.end(i); ++it)
                covered = covered || (it->start <= x && x <= it->end);
            EXPECT_EQ(covered, margin > 0) << "x " << x << " y " << lines[i];
        }
    }
}

TEST(RegionIntervals, PolygonIntervalsMatchAnEvenOddTestOfPoints) {
    const std::vector<point2d> polygon{{0, 0}, {10, 0}, {10, 10}, {5, 3}, {0, 10}, {2, 5}, {7, 5}};
    std::vector<double> lines;
    for (double y = -0.5; y <= 10.5; y += 0.37)
        lines.push_back(y);
    lines.push_back(5.0);  // through a horizontal edge
    lines.push_back(3.0);  // through a reflex vertex
    ExpectIntervalsMatch(visibility::PolygonIntervals(polygon, lines), lines,
                         oracle::PolygonRegion(polygon), -1.01, 11, 0.043);
}

TEST(RegionIntervals, BrushIntervalsCoverExactlyThePointsNearThePath) {
    const std::vector<std::vector<point2d>> paths{
        {{0, 0}, {6, 4}, {6, 4}, {12, 4}, {3, -5}},  // with a repeated point and a horizontal
        {{4, 1}},                                    // a disc
    };
    for (const auto& path : paths) {
        std::vector<double> lines;
        for (double y = -9; y <= 9; y += 0.29)
            lines.push_back(y);
        const double radius = 2.5;
        ExpectIntervalsMatch(visibility::BrushIntervals(path, radius, lines), lines,
                             oracle::BrushRegion(path, radius), -4, 17, 0.051);
    }
}

TEST(SampleLines, EveryShrunkRangeHoldsALineAndGapsStayBelowTheStep) {
    std::vector<visibility::PieceRef> refs;
    std::vector<double> lows, highs;
    for (int i = 0; i < 300; ++i) {
        const double lo = std::fmod(i * 7.31, 50.0), hi = lo + 0.05 + std::fmod(i * 1.7, 3.0);
        refs.push_back({nullptr, hi, lo});
    }
    std::vector<visibility::Point> events;
    visibility::AppendPieceEvents(refs, events);
    visibility::SortValues(events, visibility::PointRangeComparator());
    std::vector<double> lines = visibility::StabbingLines(events, refs.size());
    visibility::CompleteSampleLines(lines, 10.0, 40.0, 0.2);
    for (const visibility::PieceRef& r : refs) {
        const double h = (r.yMax - r.yMin) * 0.01;
        const auto hit = std::lower_bound(lines.begin(), lines.end(), r.yMin + h);
        ASSERT_TRUE(hit != lines.end() && *hit <= r.yMax - h);
    }
    for (std::size_t i = 0; i + 1 < lines.size(); ++i)
        EXPECT_LT(lines[i], lines[i + 1]);
    EXPECT_TRUE(std::binary_search(lines.begin(), lines.end(), 10.0));
    for (std::size_t i = 0; i + 1 < lines.size(); ++i)
        if (lines[i] >= 10.0 && lines[i] < 40.0) {
            EXPECT_LE(lines[i + 1] - lines[i], 0.2 + 1e-12);
        }
    // A step that is not positive adds only the box bounds.
    std::vector<double> few{3.0};
    visibility::CompleteSampleLines(few, 0.0, 9.0, -0.2);
    EXPECT_EQ(few, (std::vector<double>{0.0, 3.0, 9.0}));
}

// The segments seen by the nearest rule, by brute force: between consecutive breakpoints (ends,
// region bounds, and every x where two segments' depths differ by 0 or by the tolerance) the
// order of all depths is fixed, so its middle decides the whole open interval.
std::set<std::size_t> SeenByBruteForce(const std::vector<visibility::Segment>& segments,
                                       const std::vector<visibility::Interval>& region,
                                       double tolerance) {
    // Crossings of these integer scenes are rationals of small denominators: distinct ones lie
    // farther apart than kShortest and differ in depth at their middles by more than kRounding.
    constexpr double kShortest = 1e-9, kRounding = 1e-12;
    const auto depth = [](const visibility::Segment& s, double x) {
        return s.z0 + (s.z1 - s.z0) * (x - s.x0) / (s.x1 - s.x0);
    };
    std::vector<double> breaks;
    for (const auto& r : region)
        breaks.insert(breaks.end(), {r.start, r.end});
    for (const auto& s : segments) {
        breaks.insert(breaks.end(), {s.x0, s.x1});
        for (const auto& t : segments)
            for (double gap : {0.0, tolerance}) {
                // s − t + gap is linear in x: zero where its values at 0 and 1 say.
                if (s.x0 == s.x1 || t.x0 == t.x1)
                    continue;
                const double f0 = depth(s, 0) - depth(t, 0) + gap;
                const double f1 = depth(s, 1) - depth(t, 1) + gap;
                if (f0 != f1)
                    breaks.push_back(f0 / (f0 - f1));
            }
    }
    std::sort(breaks.begin(), breaks.end());
    std::set<std::size_t> seen;
    for (std::size_t b = 0; b + 1 < breaks.size(); ++b) {
        const double m = (breaks[b] + breaks[b + 1]) / 2;
        if (!(breaks[b + 1] - breaks[b] > kShortest) ||
            std::none_of(region.begin(), region.end(),
                         [&](const auto& r) { return r.start < m && m < r.end; }))
            continue;
        double nearest = -HUGE_VAL;
        for (const auto& s : segments)
            if (s.x0 < m && m < s.x1)
                nearest = std::max(nearest, depth(s, m));
        for (std::size_t i = 0; i < segments.size(); ++i)
            if (segments[i].x0 < m && m < segments[i].x1 &&
                depth(segments[i], m) >= nearest - tolerance - kRounding)
                seen.insert(i);
    }
    return seen;
}

TEST(NearestLine, SeesWhatTheExactEnvelopeOfTheSegmentsShows) {
    std::mt19937 random(7);
    const auto pick = [&](int lo, int hi) {
        return std::uniform_int_distribution<int>(lo, hi)(random);
    };
    visibility::NearestLine line;
    for (int trial = 0; trial < 3000; ++trial) {
        const std::vector<visibility::Interval> region =
            trial % 3 ? std::vector<visibility::Interval>{{1, 6}, {9, 15}}
                      : std::vector<visibility::Interval>{{-1, 20}};
        const double tolerance = std::array<double, 3>{0, 1, 2.5}[trial % 4 % 3];
        std::vector<visibility::Segment> segments(pick(1, 7));
        std::vector<visibility::NearestLine::Entry> entries;
        std::set<std::size_t> markable;
        for (std::size_t i = 0; i < segments.size(); ++i) {
            const double x0 = pick(0, 15);
            segments[i] = {x0, double(pick(0, 8)), x0 + pick(0, 8), double(pick(0, 8)), 0, 0, true};
            visibility::BoundDepth(segments[i]);
            const bool canMark = pick(0, 4) > 0;  // the others hide without being seen
            if (canMark)
                markable.insert(i);
            if (visibility::NearestLine::Matters(segments[i], &region.front(), &region.back() + 1))
                entries.push_back({segments[i], i, canMark});
        }
        std::vector<std::uint64_t> found;
        line.Decide(entries, region.data(), region.data() + region.size(), tolerance, found);
        const std::set<std::size_t> seen(found.begin(), found.end());
        std::set<std::size_t> expected;
        for (std::size_t i : SeenByBruteForce(segments, region, tolerance))
            if (markable.count(i))
                expected.insert(i);
        ASSERT_EQ(seen, expected) << "trial " << trial;
        ASSERT_EQ(found.size(), seen.size());
    }
}

std::vector<bool> Marks(MStlBase& mesh, const MStlMarkTrianglesByMasks& sink) {
    std::vector<bool> marks;
    for (MStlTriangle& t : mesh.Triangles())
        marks.push_back(sink.IsMarked(t));
    return marks;
}

std::size_t MarkedCount(const MStlBase& mesh) {
    std::size_t n = 0;
    for (const MStlTriangle& t : mesh.Triangles())
        n += t.IsMarked();
    return n;
}

// Runs `configure`d detectors over `mesh` in an arena of `threads` threads.
std::vector<bool> RunIn(int threads, MStlBase& mesh,
                        const std::function<void(Detector&)>& configure,
                        const MMTransformMatrix& frame = ScreenFrame()) {
    MStlMarkTrianglesByMasks sink(mesh);
    tbb::task_arena arena(threads);
    arena.execute([&] {
        Detector detector;
        detector.AddStlAndTransformation(&mesh, frame, MMTransformMatrix(), true, &sink);
        configure(detector);
        detector.Operate();
    });
    return Marks(mesh, sink);
}

TEST(VisibilityThreads, OneAndFourThreadsGiveTheSameMarks) {
    tbb::global_control allowFour(tbb::global_control::max_allowed_parallelism, 4);
    const auto torus = scene::ToHostMesh(scene::NoisyTorus(60, 90, 2500, 1000, 0.2));
    MMTransformMatrix tilt;
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.6, 0.8}, {0, 0, 0});
    const MMTransformMatrix tilted = ScreenFrame(tilt);
    const std::vector<std::function<void(Detector&)>> configurations{
        [](Detector& d) { d.SetPath(Lasso()); },
        [](Detector& d) {
            d.SetPath(Lasso());
            d.SetPixelProportion(23);  // hundreds of lines per chunk
            d.AddClippingPlane({0.3, 1, 0.2, 150});
            d.SetMarkFlippedTriangles(true);
        },
        [](Detector& d) {
            d.SetMode(Detector::Brush);
            d.SetBrushRadius(4);
            d.SetPath({{25, 30}, {50, 70}, {75, 40}});
            d.SetMarkThrough(true);
        },
        [](Detector& d) {
            d.SetPath(Lasso());
            d.SetPixelProportion(23);
            d.SetRule(Detector::VisibilityRule::Nearest);
            d.SetDepthTolerance(0.5);
        },
    };
    for (std::size_t c = 0; c < configurations.size(); ++c)
        for (const MMTransformMatrix& frame : {ScreenFrame(), tilted}) {
            const std::vector<bool> one = RunIn(1, *torus, configurations[c], frame);
            const std::vector<bool> four = RunIn(4, *torus, configurations[c], frame);
            EXPECT_EQ(one, four) << "configuration " << c;
            EXPECT_NE(std::count(one.begin(), one.end(), true), 0) << "configuration " << c;
        }
}

// One triangle's cut on the line at y by its plane: the x-range where the line crosses it and
// the plane's depth, computed apart from the detector's interpolation along the cut.
struct PlaneCut {
    double xa = HUGE_VAL, xb = -HUGE_VAL;
    double a, b, c;  // depth = a·x + b·y + c
    bool flipped;
    double Depth(double x, double y) const { return a * x + b * y + c; }
};

PlaneCut CutByPlane(const point3d (&p)[3], double y) {
    PlaneCut cut;
    const point3d u{p[1].x - p[0].x, p[1].y - p[0].y, p[1].z - p[0].z};
    const point3d v{p[2].x - p[0].x, p[2].y - p[0].y, p[2].z - p[0].z};
    const double nx = u.y * v.z - u.z * v.y, ny = u.z * v.x - u.x * v.z, nz = u.x * v.y - u.y * v.x;
    cut.flipped = nz > 0;
    cut.a = -nx / nz;
    cut.b = -ny / nz;
    cut.c = p[0].z - cut.a * p[0].x - cut.b * p[0].y;
    for (int i = 0; i < 3; ++i) {
        const point3d &s = p[i], &t = p[(i + 1) % 3];
        if ((s.y - y) * (t.y - y) > 0 || s.y == t.y)
            continue;
        const double x = s.x + (t.x - s.x) * (y - s.y) / (t.y - s.y);
        cut.xa = std::min(cut.xa, x);
        cut.xb = std::max(cut.xb, x);
    }
    return cut;
}

TEST(NearestRule, MarksMatchDenseCastsAlongTheDetectorsSampleLines) {
    const auto torus = scene::ToHostMesh(scene::NoisyTorus(40, 60, 2500, 1000, 0.2));
    MMTransformMatrix tilt;
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.6, 0.8}, {0, 0, 0});
    const MMTransformMatrix frame = ScreenFrame(tilt);
    const double tolerance = 0.4;  // screen depth; the torus is 10 deep
    const std::vector<bool> marks = RunIn(
        1, *torus,
        [&](Detector& d) {
            d.SetPath(Lasso());
            d.SetRule(Detector::VisibilityRule::Nearest);
            d.SetDepthTolerance(tolerance);
        },
        frame);

    // The detector's lines: stabbing lines of the pieces touching the region's box, the box's
    // bounds and fill lines 1/5 pixel apart (no piece is edge-on, so the screen is not turned).
    double lo[2] = {HUGE_VAL, HUGE_VAL}, hi[2] = {-HUGE_VAL, -HUGE_VAL};
    for (const point2d& p : Lasso())
        for (int k = 0; k < 2; ++k) {
            lo[k] = std::min(lo[k], k ? p.y : p.x);
            hi[k] = std::max(hi[k], k ? p.y : p.x);
        }
    std::vector<std::array<point3d, 3>> corners;
    std::vector<visibility::PieceRef> refs;
    std::vector<std::size_t> triangleOf;
    for (std::size_t i = 0; i < torus->GetNumberOfTriangles(); ++i) {
        std::array<point3d, 3> p;
        for (int k = 0; k < 3; ++k)
            frame.Transform(p[k], torus->GetTriangle(i).GetVertex(k), false);
        const auto [minX, maxX] = std::minmax({p[0].x, p[1].x, p[2].x});
        const auto [minY, maxY] = std::minmax({p[0].y, p[1].y, p[2].y});
        if (maxX < lo[0] || minX > hi[0] || maxY < lo[1] || minY > hi[1])
            continue;
        corners.push_back(p);
        triangleOf.push_back(i);
        refs.push_back({nullptr, maxY, minY});
    }
    std::vector<visibility::Point> events;
    visibility::AppendPieceEvents(refs, events);
    visibility::SortValues(events, visibility::PointRangeComparator());
    std::vector<double> lines = visibility::StabbingLines(events, refs.size());
    visibility::CompleteSampleLines(lines, lo[1], hi[1], 0.2);

    // Certain: seen at a cast clear of every end, the region's boundary and the tolerance.
    // Possible: within the tolerance at a cast near the piece and the region, allowing for
    // what the depths can change between casts.
    constexpr double kStep = 0.01, kNear = 0.02, kGap = 1e-9;
    const oracle::RegionMargin region = oracle::PolygonRegion(Lasso());
    std::vector<bool> certain(marks.size()), possible(marks.size());
    std::vector<PlaneCut> cuts;
    std::vector<std::size_t> cutTriangle;
    for (double y : lines) {
        cuts.clear();
        cutTriangle.clear();
        for (std::size_t i = 0; i < corners.size(); ++i) {
            const point3d p[3] = {corners[i][0], corners[i][1], corners[i][2]};
            const PlaneCut cut = CutByPlane(p, y);
            if (!(cut.xa < cut.xb))
                continue;  // a cut of no length is never seen and hides nothing seen
            cuts.push_back(cut);
            cutTriangle.push_back(triangleOf[i]);
        }
        for (double x = lo[0]; x <= hi[0]; x += kStep) {
            const double margin = region(x, y);
            if (margin < -kNear)
                continue;
            double nearestWide = -HUGE_VAL, nearestNarrow = -HUGE_VAL, steepest = 0;
            for (const PlaneCut& cut : cuts) {
                if (cut.xa - kNear <= x && x <= cut.xb + kNear)
                    nearestWide = std::max(nearestWide, cut.Depth(x, y));
                if (cut.xa + kNear <= x && x <= cut.xb - kNear) {
                    nearestNarrow = std::max(nearestNarrow, cut.Depth(x, y));
                    steepest = std::max(steepest, std::fabs(cut.a));
                }
            }
            for (std::size_t i = 0; i < cuts.size(); ++i) {
                const PlaneCut& cut = cuts[i];
                if (cut.flipped)
                    continue;
                const double z = cut.Depth(x, y);
                if (margin >= kNear && cut.xa + kNear <= x && x <= cut.xb - kNear &&
                    z >= nearestWide - tolerance + kGap)
                    certain[cutTriangle[i]] = true;
                if (cut.xa - kNear <= x && x <= cut.xb + kNear &&
                    z >= nearestNarrow - tolerance - kGap - (std::fabs(cut.a) + steepest) * kNear)
                    possible[cutTriangle[i]] = true;
            }
        }
    }
    for (std::size_t t = 0; t < marks.size(); ++t) {
        EXPECT_TRUE(marks[t] || !certain[t]) << "missed " << t;
        EXPECT_TRUE(possible[t] || !marks[t]) << "marked " << t;
    }
    EXPECT_GT(std::count(certain.begin(), certain.end(), true), 100);
}

TEST(VisibilityThreads, PiecesOfZeroHeightGiveTheSameMarksInEveryChunking) {
    // A needle seen end-on has zero height: it starts on the line at its own y and only a line
    // within DBL_EPSILON of that y cuts it. Two needles a few ulps apart give two lines that
    // close; the lower needle is seen on the upper line, whichever chunk that line begins.
    const auto needle = [] {
        return scene::oneSurface([](MStlSurface& s) {
            scene::addTriangle(s, {0, 0, 0}, {0, 0, 10}, {0, 0, 20});
        });
    };
    const std::unique_ptr<MStlBase> meshes[] = {scene::plate(100, -1000, 2), needle(), needle()};
    std::vector<std::vector<bool>> runs;
    for (int threads : {1, 2, 3, 4}) {
        MStlMarkTrianglesByMasks sinks[] = {MStlMarkTrianglesByMasks(*meshes[0]),
                                            MStlMarkTrianglesByMasks(*meshes[1]),
                                            MStlMarkTrianglesByMasks(*meshes[2])};
        tbb::task_arena(threads).execute([&] {
            Detector d;
            for (int m = 0; m < 3; ++m) {
                MMTransformMatrix frame, shift;
                frame.MakeScale3D(0.01, 0.01, 0.01);
                shift.MakeTranslation({0.3, m == 2 ? 0.3 + 1e-16 : 0.3, 0});
                d.AddStlAndTransformation(meshes[m].get(), frame.PreMultiply(shift), {}, true,
                                          &sinks[m]);
            }
            d.SetPixelProportion(9);
            d.SetPath({{-0.5, -0.4}, {1.1, -0.5}, {1.2, 1.0}, {-0.4, 1.1}});
            d.Operate();
        });
        runs.push_back(Marks(*meshes[0], sinks[0]));
        for (int m : {1, 2})
            runs.back().push_back(sinks[m].IsMarked(meshes[m]->GetTriangle(0)));
    }
    EXPECT_TRUE(runs[0].end()[-2]);  // the single chunk sees the lower needle
    EXPECT_FALSE(runs[0].back());    // and no line at or above the upper one cuts it
    for (const std::vector<bool>& run : runs)
        EXPECT_EQ(run, runs[0]);
}

TEST(VisibilitySetUp, DegenerateInputMarksNothingAndReturns) {
    const auto plate = scene::plate(3000, 100, 6);
    const auto marked = [&](const std::function<void(Detector&)>& configure) {
        const std::vector<bool> marks = RunIn(2, *plate, configure);
        return std::count(marks.begin(), marks.end(), true);
    };
    EXPECT_GT(marked([](Detector& d) { d.SetPath(Lasso()); }), 0);
    EXPECT_EQ(marked([](Detector&) {}), 0);  // empty path
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(marked([&](Detector& d) { d.SetPath({{40, 40}, {nan, 60}, {60, 40}}); }), 0);
    EXPECT_EQ(marked([&](Detector& d) { d.SetPath({{40, 40}, {inf, 60}, {60, 40}}); }), 0);
    EXPECT_EQ(marked([&](Detector& d) {
                  d.SetMode(Detector::Brush);
                  d.SetBrushRadius(inf);
                  d.SetPath({{40, 40}});
              }),
              0);
    // Pixel proportions that give no usable step: only the stabbing lines and box bounds.
    for (double proportion : {0.0, -5.0, inf, nan})
        EXPECT_GT(marked([&](Detector& d) {
                      d.SetPath(Lasso());
                      d.SetPixelProportion(proportion);
                  }),
                  0);
    // No mesh at all.
    Detector empty;
    empty.SetPath(Lasso());
    empty.Operate();
}

TEST(VisibilitySetUp, RegionsSpanningMoreLinesThanAVectorHoldsFailBeforeAnyMark) {
    const auto plate = scene::plate(3000, 100, 6);
    const double huge = 1e308;  // finite, but the box's height overflows
    const std::vector<std::function<void(Detector&)>> endless{
        [&](Detector& d) {
            d.SetMode(Detector::Brush);
            d.SetBrushRadius(huge);
            d.SetPath({{50, 50}});
        },
        [&](Detector& d) {
            d.SetPath({{-huge, -huge}, {huge, -huge}, {0, huge}});
        },
    };
    for (const auto& configure : endless) {
        Detector detector;
        detector.AddStlAndTransformation(plate.get(), ScreenFrame(), MMTransformMatrix(), true,
                                         nullptr);
        configure(detector);
        EXPECT_THROW(detector.Operate(), std::length_error);
        for (const MStlTriangle& t : plate->Triangles())
            ASSERT_FALSE(t.IsMarked());
        // The failed run leaves nothing behind: the same detector picks normally afterwards.
        detector.SetMode(Detector::Polygon);
        detector.SetPath(Lasso());
        detector.Operate();
        EXPECT_GT(MarkedCount(*plate), 0u);
        for (MStlTriangle& t : plate->Triangles())
            t.Unmark();
    }
}

TEST(VisibilitySetUp, BrushReachingPastTheDoubleRangeCoversEverythingWithoutFillLines) {
    // Without fill lines the sweep runs on the pieces' own lines; a brush whose squared radius
    // overflows reaches from −inf to +inf on each of them, and every triangle of a flat plate
    // is seen.
    const auto plate = scene::plate(3000, 100, 6);
    for (bool through : {false, true}) {
        const std::vector<bool> marks = RunIn(2, *plate, [&](Detector& d) {
            d.SetMode(Detector::Brush);
            d.SetBrushRadius(1e200);
            d.SetPath({{50, 50}});
            d.SetPixelProportion(0.0);
            d.SetMarkThrough(through);
        });
        EXPECT_EQ(std::count(marks.begin(), marks.end(), true), plate->GetNumberOfTriangles());
    }
}

}  // namespace
