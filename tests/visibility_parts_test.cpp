// The visibility detector's building blocks against independent oracles, its set-up edge
// cases, and the independence of its marks from the number of threads.

#include <gtest/gtest.h>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/visibility_detector.h>
#include "support/noisy_torus.h"
#include "support/ray_cast_oracle.h"
#include "support/scene_builders.h"
#include "support/screen_frame.h"
#include "visibility/nearest_line.h"
#include "visibility/piece_clipper.h"
#include "visibility/sample_lines.h"

using VelSDK::Math::point2d;
using Detector = MStlBaseOperatorVisibilityDetector;
using Configure = std::function<void(Detector&)>;
using scene::Lasso;
using namespace visibility;

namespace {

double TwiceArea(const Piece& p) {
    return (p.p[1].x - p.p[0].x) * (p.p[2].y - p.p[0].y) -
           (p.p[1].y - p.p[0].y) * (p.p[2].x - p.p[0].x);
}

std::vector<Piece> Clip(const Piece& triangle, const MMPlaneEq<double>& plane) {
    std::vector<Piece> pieces{triangle}, scratch;
    ClipPieces(pieces, plane, scratch);
    return pieces;
}

// Cuts keeping corner 1 alone, dropping corner 1 alone, keeping corner 2 alone, dropping all,
// and with corner 0 on the plane, which counts as kept.
TEST(PieceClipper, KeepsTheWindingAndTheAreaOnTheKeptSide) {
    const Piece triangle{{{0, 0, 0}, {8, 0, 0}, {0, 8, 0}}};
    const std::tuple<MMPlaneEq<double>, std::size_t, double> cases[] = {{{1, 0, 0, -2}, 1, 36},
                                                                        {{-1, 0, 0, 2}, 2, 28},
                                                                        {{0, 1, 0, -6}, 1, 4},
                                                                        {{1, 1, 0, -100}, 0, 0},
                                                                        {{1, 1, 0, 0}, 1, 64}};
    for (const auto& [plane, count, twiceKeptArea] : cases) {
        const std::vector<Piece> pieces = Clip(triangle, plane);
        ASSERT_EQ(pieces.size(), count);
        double area = 0;
        for (const Piece& p : pieces) {
            EXPECT_GE(TwiceArea(p), 0.0);  // counter-clockwise, like the input
            for (const auto& corner : p.p)
                EXPECT_GE(plane.SignedValue(corner), -1e-12);
            area += TwiceArea(p);
        }
        EXPECT_NEAR(area, twiceKeptArea, 1e-9);
    }
}

// Every line's intervals are sorted and disjoint, and cover exactly the sample points that an
// even-odd test or the distance to the brush path puts in the region (points within 1e-9 of
// its boundary are not judged).
TEST(RegionIntervals, MatchAnEvenOddTestOfPolygonsAndTheDistanceToBrushPaths) {
    std::vector<double> lines{5.0, 3.0};  // through a horizontal edge and a reflex vertex
    for (double y = -9; y <= 10.5; y += 0.29)
        lines.push_back(y);
    // A polygon (radius 0), a path with a repeated point and a horizontal segment, and a disc.
    const std::pair<std::vector<point2d>, double> regions[] = {
        {{{0, 0}, {10, 0}, {10, 10}, {5, 3}, {0, 10}, {2, 5}, {7, 5}}, 0},
        {{{0, 0}, {6, 4}, {6, 4}, {12, 4}, {3, -5}}, 2.5},
        {{{4, 1}}, 2.5}};
    for (const auto& [path, radius] : regions) {
        const RegionIntervals intervals =
            radius ? BrushIntervals(path, radius, lines) : PolygonIntervals(path, lines);
        const oracle::RegionMargin inside =
            radius ? oracle::BrushRegion(path, radius) : oracle::PolygonRegion(path);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const Interval *first = intervals.begin(i), *last = intervals.end(i);
            for (const Interval* it = first; it != last; ++it)
                EXPECT_TRUE(it->start <= it->end && (it + 1 == last || it->end < it[1].start));
            for (double x = -4; x < 17; x += 0.047) {
                const double margin = inside(x, lines[i]);
                const bool covered =
                    std::any_of(first, last, [x](auto& r) { return r.start <= x && x <= r.end; });
                EXPECT_TRUE(std::fabs(margin) < 1e-9 || covered == (margin > 0)) << x << lines[i];
            }
        }
    }
}

// The segments seen by the nearest rule, by brute force: between consecutive breakpoints (ends,
// region bounds, and every x where two segments' depths differ by 0 or by the tolerance) the
// order of all depths is fixed, so its middle decides the whole open interval.
std::set<std::uint64_t> SeenByBruteForce(const std::vector<Segment>& segments,
                                         const std::vector<bool>& canMark,
                                         const std::vector<Interval>& region, double tolerance) {
    // Crossings of these integer scenes are rationals of small denominators: distinct ones lie
    // farther apart than kShortest and differ in depth at their middles by more than kRounding.
    constexpr double kShortest = 1e-9, kRounding = 1e-12;
    const auto depth = [](const Segment& s, double x) {
        return s.z0 + (s.z1 - s.z0) * (x - s.x0) / (s.x1 - s.x0);
    };
    std::vector<double> breaks;
    for (const Interval& r : region)
        breaks.insert(breaks.end(), {r.start, r.end});
    for (const Segment& s : segments)
        for (const Segment& t : segments)
            for (double gap : {0.0, tolerance}) {
                // s − t + gap is linear in x: zero where its values at 0 and 1 say. Segments of
                // no length and parallel pairs give no finite crossing.
                const double f0 = depth(s, 0) - depth(t, 0) + gap,
                             f1 = depth(s, 1) - depth(t, 1) + gap;
                for (double x : {s.x0, s.x1, f0 / (f0 - f1)})
                    if (std::isfinite(x))
                        breaks.push_back(x);
            }
    std::sort(breaks.begin(), breaks.end());
    std::set<std::uint64_t> seen;
    for (std::size_t b = 0; b + 1 < breaks.size(); ++b) {
        const double m = (breaks[b] + breaks[b + 1]) / 2;
        const auto inRegion = [m](const Interval& r) { return r.start < m && m < r.end; };
        if (!(breaks[b + 1] - breaks[b] > kShortest) ||
            std::none_of(region.begin(), region.end(), inRegion))
            continue;
        double nearest = -HUGE_VAL;
        for (const Segment& s : segments)
            if (s.x0 < m && m < s.x1)
                nearest = std::max(nearest, depth(s, m));
        for (std::size_t i = 0; i < segments.size(); ++i)
            if (canMark[i] && segments[i].x0 < m && m < segments[i].x1 &&
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
    NearestLine line;
    for (int trial = 0; trial < 3000; ++trial) {
        const std::vector<Interval> region =
            trial % 3 ? std::vector<Interval>{{1, 6}, {9, 15}} : std::vector<Interval>{{-1, 20}};
        const double tolerances[] = {0, 1, 2.5}, tolerance = tolerances[trial % 4 % 3];
        std::vector<Segment> segments(pick(1, 7));
        std::vector<bool> canMark(segments.size());  // the others hide without being seen
        std::vector<NearestLine::Entry> entries;
        for (std::size_t i = 0; i < segments.size(); ++i) {
            const double x0 = pick(0, 15);
            segments[i] = {x0, double(pick(0, 8)), x0 + pick(0, 8), double(pick(0, 8)), 0, 0, true};
            BoundDepth(segments[i]);
            canMark[i] = pick(0, 4) > 0;
            if (NearestLine::Matters(segments[i], &region.front(), &region.back() + 1))
                entries.push_back({segments[i], i, canMark[i]});
        }
        std::vector<std::uint64_t> found;
        line.Decide(entries, region.data(), region.data() + region.size(), tolerance, found);
        std::sort(found.begin(), found.end());
        const std::set<std::uint64_t> seen = SeenByBruteForce(segments, canMark, region, tolerance);
        ASSERT_EQ(found, std::vector<std::uint64_t>(seen.begin(), seen.end())) << "trial " << trial;
    }
}

// The marks of a detector `configure`d over `mesh` in `frame`, run in an arena of `threads`.
std::vector<bool> RunIn(int threads, MStlBase& mesh, const Configure& configure,
                        const MMTransformMatrix& frame = scene::ScreenFrame()) {
    MStlMarkTrianglesByMasks sink(mesh);
    tbb::task_arena(threads).execute([&] {
        Detector detector;
        detector.AddStlAndTransformation(&mesh, frame, MMTransformMatrix(), true, &sink);
        configure(detector);
        detector.Operate();
    });
    std::vector<bool> marks;
    for (MStlTriangle& t : mesh.Triangles())
        marks.push_back(sink.IsMarked(t));
    return marks;
}

TEST(VisibilityThreads, OneAndFourThreadsGiveTheSameMarks) {
    tbb::global_control allowFour(tbb::global_control::max_allowed_parallelism, 4);
    const auto torus = scene::ToHostMesh(scene::NoisyTorus(60, 90, 2500, 1000, 0.2));
    MMTransformMatrix tilt;
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.6, 0.8}, {0, 0, 0});
    const Configure configurations[] = {
        [](Detector& d) { d.SetPath(Lasso()); },
        [](Detector& d) {
            d.SetMode(Detector::Brush);
            d.SetBrushRadius(4);
            d.SetPath({{25, 30}, {50, 70}, {75, 40}});
            d.SetPixelProportion(23);  // hundreds of lines per chunk
            d.AddClippingPlane({0.3, 1, 0.2, 150});
            d.SetMarkFlippedTriangles(true);
            d.SetMarkThrough(true);
        },
        [](Detector& d) {
            d.SetPath(Lasso());
            d.SetPixelProportion(23);
            d.SetRule(Detector::VisibilityRule::Nearest);
            d.SetDepthTolerance(0.5);
        },
    };
    for (const Configure& configure : configurations)
        for (const MMTransformMatrix& frame : {scene::ScreenFrame(), scene::ScreenFrame(tilt)}) {
            const std::vector<bool> one = RunIn(1, *torus, configure, frame);
            EXPECT_EQ(one, RunIn(4, *torus, configure, frame));
            EXPECT_NE(std::count(one.begin(), one.end(), true), 0);
        }
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
        tbb::task_arena(threads).execute([&] {
            Detector d;
            for (int m = 0; m < 3; ++m) {
                MMTransformMatrix frame, shift;
                frame.MakeScale3D(0.01, 0.01, 0.01);
                shift.MakeTranslation({0.3, m == 2 ? 0.3 + 1e-16 : 0.3, 0});
                d.AddStlAndTransformation(meshes[m].get(), frame.PreMultiply(shift), {}, true,
                                          nullptr);
            }
            d.SetPixelProportion(9);
            d.SetPath({{-0.5, -0.4}, {1.1, -0.5}, {1.2, 1.0}, {-0.4, 1.1}});
            d.Operate();
        });
        runs.emplace_back();
        for (const auto& mesh : meshes)
            for (MStlTriangle& t : mesh->Triangles()) {
                runs.back().push_back(t.IsMarked());
                t.Unmark();
            }
    }
    EXPECT_TRUE(runs[0].end()[-2]);  // the single chunk sees the lower needle
    EXPECT_FALSE(runs[0].back());    // and no line at or above the upper one cuts it
    for (const std::vector<bool>& run : runs)
        EXPECT_EQ(run, runs[0]);
}

void SetRegion(Detector& d, std::vector<point2d> path, double brushRadius, double linesPerPixel) {
    d.SetMode(brushRadius ? Detector::Brush : Detector::Polygon);
    d.SetBrushRadius(brushRadius);
    d.SetPath(std::move(path));
    d.SetPixelProportion(linesPerPixel);
}

TEST(VisibilitySetUp, DegenerateInputMarksNothingOrOnlyOnThePiecesOwnLines) {
    const auto plate = scene::plate(3000, 100, 6);
    const double nan = NAN, inf = INFINITY, huge = 1e308;  // huge: the box's height overflows
    const std::vector<point2d> endless{{-huge, -huge}, {huge, -huge}, {0, huge}};
    // Marks: 0 none, 1 some, 2 all. Without a usable step the sweep runs on the pieces' own
    // lines; a brush whose squared radius overflows reaches from −inf to +inf on each of them.
    // Regions spanning more lines than a vector holds fail before any mark and leave the
    // detector to pick the lasso normally.
    const struct {
        std::vector<point2d> path;
        double brushRadius, linesPerPixel;
        int marks;
    } cases[] = {{{}, 0, 5, 0},
                 {{{40, 40}, {nan, 60}, {60, 40}}, 0, 5, 0},
                 {{{40, 40}, {inf, 60}, {60, 40}}, 0, 5, 0},
                 {{{50, 50}}, inf, 5, 0},
                 {Lasso(), 0, 0, 1},
                 {Lasso(), 0, nan, 1},
                 {{{50, 50}}, 1e200, 0, 2},
                 {endless, 0, 5, -1},
                 {endless, huge, 5, -1}};
    for (const auto& c : cases) {
        const std::vector<bool> marks = RunIn(2, *plate, [&](Detector& d) {
            SetRegion(d, c.path, c.brushRadius, c.linesPerPixel);
            if (c.marks < 0) {
                EXPECT_THROW(d.Operate(), std::length_error);
                SetRegion(d, Lasso(), 0, 5);
            }
        });
        const std::size_t marked = std::count(marks.begin(), marks.end(), true);
        EXPECT_EQ(marked == 0 ? 0 : marked < marks.size() ? 1 : 2, std::abs(c.marks)) << marked;
    }
}

}  // namespace
