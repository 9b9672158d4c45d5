// The scan-line visibility detector on a one-million-triangle noisy torus under a disc lasso
// that covers half of a 1000 × 1000 pixel view, at 5 sample lines per pixel, on 1 and 2
// threads, by the ordered rule and by the nearest-surface rule, and through a pinhole camera of
// the same scale; the z-buffer picker on the same
// scene for comparison (each with the most heap one pick holds, per mesh triangle); and the
// agreement (Jaccard index of the marked sets) of the two pickers on the torus and on an imported
// mesh.

#include <benchmark/benchmark.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/mark_polygon.h>
#include <velpick/pinhole_projection.h>
#include <velpick/visibility_detector.h>
#include "heap_counter.h"
#include "mesh_import.h"
#include "tests/support/noisy_torus.h"
#include "visibility/sample_lines.h"

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

constexpr int kRings = 1000, kSegments = 500;           // 2 · 1000 · 500 = 1 000 000 triangles
constexpr double kMajor = 300000.0, kMinor = 120000.0;  // internal units
constexpr double kViewSize = 1000.0;                    // pixels
constexpr double kDiscRadius = 398.94228;               // π r² = half of 1000 × 1000
constexpr double kLinesPerPixel = 5.0;

MStlBase& Torus() {
    static const std::unique_ptr<MStlBase> mesh =
        scene::ToHostMesh(scene::NoisyTorus(kRings, kSegments, kMajor, kMinor, 0.05));
    return *mesh;
}

/// Model → pixels: tilted about x so that the far side of the ring hides behind the near one,
/// scaled so that the torus fills the view, y down, depth growing towards the viewer.
MMTransformMatrix View(double radius) {
    MMTransformMatrix view, tilt, scale, shift;
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.64, 0.77}, {0, 0, 0});
    const double s = 0.46 * kViewSize / radius;
    scale.MakeScale3D(s, -s, s);
    shift.MakeTranslation({kViewSize / 2, kViewSize / 2, 0});
    return view.PreMultiply(tilt).PreMultiply(scale).PreMultiply(shift);
}

std::vector<point2d> Disc() {
    std::vector<point2d> disc;
    const double pi = std::acos(-1.0);
    for (int i = 0; i < 360; ++i)
        disc.push_back({kViewSize / 2 + kDiscRadius * std::cos(2 * pi * i / 360),
                        kViewSize / 2 + kDiscRadius * std::sin(2 * pi * i / 360)});
    return disc;
}

/// The same view through a pinhole: the tilted torus kEyeDistance in front of the eye (eye
/// space in internal units), with the focal length that gives the plane through the torus's
/// centre the orthographic view's scale, y down as there.
constexpr double kEyeDistance = 3.5 * (kMajor + kMinor);
MMTransformMatrix EyeView() {
    MMTransformMatrix tilt, away;
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.64, 0.77}, {0, 0, 0});
    away.MakeTranslation({0, 0, -kEyeDistance});
    return away.PostMultiply(tilt);
}

AU_MarkOperations::PolygonMarking::PerspectiveProjection Pinhole() {
    const double focal = 0.46 * kViewSize / (kMajor + kMinor) * kEyeDistance;
    return {focal, -focal, kViewSize / 2, kViewSize / 2, 1e-4 * kEyeDistance};
}

using Rule = MStlBaseOperatorVisibilityDetector::VisibilityRule;

/// The z-buffer's depth tolerance, one internal unit, in the torus view's screen depth.
double DepthTolerance() {
    return 0.46 * kViewSize / (kMajor + kMinor);
}

void RunDetector(MStlBase& mesh, const MMTransformMatrix& view, MStlMarkTrianglesByMasks* sink,
                 bool markFlipped = false, Rule rule = Rule::Ordered, bool perspective = false) {
    MStlBaseOperatorVisibilityDetector detector;
    if (perspective)
        detector.SetPerspective(Pinhole());
    detector.SetMarkFlippedTriangles(markFlipped);
    detector.SetRule(rule);
    detector.SetDepthTolerance(DepthTolerance());
    detector.AddStlAndTransformation(&mesh, view, MMTransformMatrix(), true, sink);
    detector.SetPixelProportion(kLinesPerPixel);
    detector.SetPath(Disc());
    detector.Operate();
}

void RunZBuffer(MStlBase& mesh, const MMTransformMatrix& view, MStlMarkTrianglesByMasks* sink) {
    const MMTransformMatrix placement;
    // One pixel per screen unit; a depth tolerance of one internal unit, which this view maps
    // to about one pixel of depth.
    MStlBaseOperatorMarkPolygon picker(1.0, 0.001, false);
    picker.AddStl(&mesh, &view, &placement, true, sink);
    picker.SetPolygon(Disc());
    benchmark::DoNotOptimize(picker.operate());
}

/// The pieces inside the region box and the sample lines of the torus scene, counted with the
/// detector's own line selection (the scene has no edge-on triangle, so no rotation).
struct Workload {
    double pieces = 0, lines = 0;
};

Workload CountWork() {
    MStlBase& mesh = Torus();
    const MMTransformMatrix view = View(kMajor + kMinor);
    const double lo = kViewSize / 2 - kDiscRadius, hi = kViewSize / 2 + kDiscRadius;
    std::vector<visibility::PieceRef> refs;
    for (MStlTriangle& t : mesh.Triangles()) {
        point3d p[3];
        for (int i = 0; i < 3; ++i)
            view.Transform(p[i], t.GetVertex(i), false);
        const auto [minX, maxX] = std::minmax({p[0].x, p[1].x, p[2].x});
        const auto [minY, maxY] = std::minmax({p[0].y, p[1].y, p[2].y});
        if (maxX >= lo && minX <= hi && maxY >= lo && minY <= hi)
            refs.push_back({maxY, minY});
    }
    std::vector<visibility::Point> events;
    visibility::AppendPieceEvents(refs, events);
    visibility::SortValues(events, visibility::PointRangeComparator());
    std::vector<double> lines = visibility::StabbingLines(events, refs.size());
    visibility::CompleteSampleLines(lines, lo, hi, 1.0 / kLinesPerPixel);
    return {double(refs.size()), double(lines.size())};
}

void DetectorTorus(benchmark::State& state, Rule rule) {
    MStlBase& mesh = Torus();
    const MMTransformMatrix view = View(kMajor + kMinor);
    static const Workload work = CountWork();
    tbb::task_arena arena(static_cast<int>(state.range(0)));
    for (auto _ : state)
        arena.execute([&] { RunDetector(mesh, view, nullptr, false, rule); });
    // One more run, untimed, for the most heap it holds at once beyond the mesh's.
    bench::ResetHeapPeak();
    const std::size_t before = bench::HeapBytesInUse();
    arena.execute([&] { RunDetector(mesh, view, nullptr, false, rule); });
    state.counters["peak_heap_bytes_per_triangle"] =
        static_cast<double>(bench::HeapPeak() - before) / double(mesh.GetNumberOfTriangles());
    state.counters["lines"] = work.lines;
    state.counters["pieces"] = work.pieces;
    state.counters["lines_per_second"] =
        benchmark::Counter(work.lines, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["pieces_per_second"] =
        benchmark::Counter(work.pieces, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_VisibilityDetectorTorus(benchmark::State& state) {
    DetectorTorus(state, Rule::Ordered);
}

void BM_VisibilityDetectorTorusNearest(benchmark::State& state) {
    DetectorTorus(state, Rule::Nearest);
}

// The ordered rule through the pinhole; the ratio to BM_VisibilityDetectorTorus is the
// divide's cost (target at most 1.1).
void BM_VisibilityDetectorTorusPerspective(benchmark::State& state) {
    MStlBase& mesh = Torus();
    const MMTransformMatrix view = EyeView();
    tbb::task_arena arena(static_cast<int>(state.range(0)));
    for (auto _ : state)
        arena.execute([&] { RunDetector(mesh, view, nullptr, false, Rule::Ordered, true); });
}

void BM_ZBufferPickerTorus(benchmark::State& state) {
    MStlBase& mesh = Torus();
    const MMTransformMatrix view = View(kMajor + kMinor);
    for (auto _ : state)
        RunZBuffer(mesh, view, nullptr);
    bench::ResetHeapPeak();
    const std::size_t before = bench::HeapBytesInUse();
    RunZBuffer(mesh, view, nullptr);
    state.counters["peak_heap_bytes_per_triangle"] =
        static_cast<double>(bench::HeapPeak() - before) / double(mesh.GetNumberOfTriangles());
}

double Jaccard(MStlBase& mesh, const MStlMarkTrianglesByMasks& a,
               const MStlMarkTrianglesByMasks& b) {
    double both = 0, either = 0;
    for (MStlTriangle& t : mesh.Triangles()) {
        both += a.IsMarked(t) && b.IsMarked(t);
        either += a.IsMarked(t) || b.IsMarked(t);
    }
    return either > 0 ? both / either : 1.0;
}

/// Both pickers decide by visibility alone: the detector also takes triangles whose screen
/// winding is flipped (an imported mesh's winding is not known), the z-buffer culls nothing.
double Agreement(MStlBase& mesh, const MMTransformMatrix& view) {
    MStlMarkTrianglesByMasks scanLine(mesh), zBuffer(mesh);
    RunDetector(mesh, view, &scanLine, true);
    RunZBuffer(mesh, view, &zBuffer);
    return Jaccard(mesh, scanLine, zBuffer);
}

/// The radius of the mesh's vertices about its box centre, and that centre.
double Radius(MStlBase& mesh, point3d& centre) {
    point3d lo{1e300, 1e300, 1e300}, hi{-1e300, -1e300, -1e300};
    for (MStlPoint& p : mesh.Vertices())
        for (int i = 0; i < 3; ++i) {
            (&lo.x)[i] = std::min((&lo.x)[i], double(p[i]));
            (&hi.x)[i] = std::max((&hi.x)[i], double(p[i]));
        }
    centre = {(lo.x + hi.x) / 2, (lo.y + hi.y) / 2, (lo.z + hi.z) / 2};
    return std::hypot(hi.x - lo.x, hi.y - lo.y, hi.z - lo.z) / 2;
}

void BM_AgreementWithZBuffer(benchmark::State& state) {
    double torus = 0, imported = 0;
    for (auto _ : state) {
        torus = Agreement(Torus(), View(kMajor + kMinor));
        const std::filesystem::path file = "/usr/share/assimp/models/OFF/Wuson.off";
        if (std::filesystem::exists(file)) {
            const auto mesh = velpick::ImportMesh(file, 1000.0);
            point3d centre;
            const double radius = Radius(*mesh, centre);
            MMTransformMatrix view, toOrigin;
            toOrigin.MakeTranslation({-centre.x, -centre.y, -centre.z});
            view = View(radius).PostMultiply(toOrigin);
            imported = Agreement(*mesh, view);
        }
    }
    state.counters["jaccard_torus"] = torus;
    state.counters["jaccard_imported_mesh"] = imported;
}

BENCHMARK(BM_VisibilityDetectorTorus)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_VisibilityDetectorTorusNearest)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_VisibilityDetectorTorusPerspective)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ZBufferPickerTorus)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AgreementWithZBuffer)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
