// A pick session on the noisy torus: its build, a growing brush stroke, and a lasso over a tenth
// of the view, each beside the one-shot pick of the same region, for the z-buffer picker and
// for the scan-line detector on two threads.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <vector>

#include <tbb/task_arena.h>

#include <velpick/host/mark_triangles.h>
#include <velpick/pick_session.h>
#include <velpick/visibility_detector.h>
#include "torus_scene.h"

namespace {

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point2d;

// The torus scene's view with one screen unit per pixel, so that brush radii are whole pixels.
constexpr double kStrokeRadiusPixels = 8.0;
constexpr double kStrokeStepPixels = 10.0;
constexpr int kStrokeSegments = 100;
constexpr double kStrokeStartX = -500.0, kStrokeY = -30.0;  // pixels from the view centre
constexpr int kScanLineThreads = 2;
const double kTenthOfViewRadius =
    std::sqrt(0.1 * bench::kViewPixels * bench::kViewPixels / std::acos(-1.0));  // pixels

MMTransformMatrix PixelView() {
    MMTransformMatrix pixels;
    pixels.MakeScale1D(bench::kPixelsPerUnit);
    pixels.PostMultiply(bench::View());
    return pixels;
}

std::vector<SessionMesh> TorusMeshes(std::size_t triangles) {
    return {{&bench::TorusMesh(triangles), PixelView(), {}, true, {}}};
}

SessionSettings OneThread() {
    SessionSettings settings;
    settings.pixelProportion = 1.0;
    settings.threads = 1;
    return settings;
}

SessionSettings ScanLine() {
    SessionSettings settings = OneThread();
    settings.picker = SessionPicker::kScanLine;
    settings.threads = kScanLineThreads;
    return settings;
}

/// A 256-gon of `radius` pixels about the view centre.
std::vector<point2d> DiscPixels(double radius) {
    std::vector<point2d> disc;
    for (int k = 0; k < 256; ++k) {
        const double angle = 2 * std::acos(-1.0) * k / 256;
        disc.push_back({radius * std::cos(angle), radius * std::sin(angle)});
    }
    return disc;
}

/// The build with the given settings.
void BuildSession(benchmark::State& state, const SessionSettings& settings) {
    const auto triangles = static_cast<std::size_t>(state.range(0));
    const std::vector<SessionMesh> meshes = TorusMeshes(triangles);
    double bytes = 0;
    for (auto _ : state) {
        PickSession session(meshes, settings);
        bytes = static_cast<double>(session.MemoryBytes());
    }
    state.counters["bytes_per_triangle"] = bytes / static_cast<double>(triangles);
}

void BM_SessionBuild(benchmark::State& state) {
    BuildSession(state, OneThread());
}

/// The build on the whole arena.
void BM_SessionBuildOnArena(benchmark::State& state) {
    SessionSettings settings = OneThread();
    settings.threads = 0;
    BuildSession(state, settings);
}

void BM_ScanLineSessionBuild(benchmark::State& state) {
    BuildSession(state, ScanLine());
}

/// One stroke of 100 segments per iteration; the counter is the median segment.
void SessionStroke(benchmark::State& state, const SessionSettings& settings) {
    PickSession session(TorusMeshes(static_cast<std::size_t>(state.range(0))), settings);
    std::vector<double> segmentMs;
    SessionMarks fresh;
    for (auto _ : state) {
        session.NewStroke();
        for (int k = 0; k < kStrokeSegments; ++k) {
            const point2d from{kStrokeStartX + k * kStrokeStepPixels, kStrokeY};
            const point2d to{from.x + kStrokeStepPixels, kStrokeY};
            const auto start = std::chrono::steady_clock::now();
            session.AddStrokeSegment(from, to, kStrokeRadiusPixels, fresh);
            segmentMs.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                    .count());
        }
    }
    std::nth_element(segmentMs.begin(), segmentMs.begin() + segmentMs.size() / 2, segmentMs.end());
    state.counters["median_segment_ms"] = segmentMs[segmentMs.size() / 2];
}

void BM_SessionStroke(benchmark::State& state) {
    SessionStroke(state, OneThread());
}

void BM_ScanLineSessionStroke(benchmark::State& state) {
    SessionStroke(state, ScanLine());
}

/// The one-shot pick of one stroke segment, for comparison.
void BM_OneShotSegment(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    const MMTransformMatrix view = PixelView(), placement;
    const point2d from{0.0, kStrokeY}, to{kStrokeStepPixels, kStrokeY};
    for (auto _ : state) {
        MStlBaseOperatorMarkPolygon op(1.0, 0.05, false);
        op.AddStl(&mesh, &view, &placement, true, nullptr);
        op.SetBrushPath({from, to}, static_cast<std::size_t>(kStrokeRadiusPixels));
        op.SetThreads(1);
        benchmark::DoNotOptimize(op.operate());
    }
}

void SessionLasso(benchmark::State& state, const SessionSettings& settings) {
    PickSession session(TorusMeshes(static_cast<std::size_t>(state.range(0))), settings);
    const SessionRegion lasso{DiscPixels(kTenthOfViewRadius), std::nullopt};
    SessionMarks marks;
    for (auto _ : state)
        benchmark::DoNotOptimize(session.Pick(lasso, marks));
}

void BM_SessionLasso(benchmark::State& state) {
    SessionLasso(state, OneThread());
}

void BM_ScanLineSessionLasso(benchmark::State& state) {
    SessionLasso(state, ScanLine());
}

void BM_OneShotLasso(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    const MMTransformMatrix view = PixelView(), placement;
    const std::vector<point2d> lasso = DiscPixels(kTenthOfViewRadius);
    for (auto _ : state) {
        MStlBaseOperatorMarkPolygon op(1.0, 0.05, false);
        op.AddStl(&mesh, &view, &placement, true, nullptr);
        op.SetPolygon(lasso);
        op.SetThreads(1);
        benchmark::DoNotOptimize(op.operate());
    }
}

/// The one-shot detector as the command line runs it: the view scaled to downward pixels, a
/// per-call mask sink, an arena of the picker's threads.
void OneShotScanLine(MStlBase& mesh, const std::vector<point2d>& region,
                     std::optional<double> brushRadius) {
    MMTransformMatrix toScreen = PixelView(), mirror;
    mirror.MakeScale3D(1.0, -1.0, 1.0);
    toScreen.PreMultiply(mirror);
    MStlMarkTrianglesByMasks sink(mesh);
    MStlBaseOperatorVisibilityDetector detector;
    detector.AddStlAndTransformation(&mesh, toScreen, MMTransformMatrix(), true, &sink);
    std::vector<point2d> path;
    for (const point2d& p : region)
        path.push_back({p.x, -p.y});
    detector.SetPath(std::move(path));
    detector.SetMode(brushRadius ? MStlBaseOperatorVisibilityDetector::Brush
                                 : MStlBaseOperatorVisibilityDetector::Polygon);
    detector.SetBrushRadius(brushRadius.value_or(0.0));
    tbb::task_arena arena(kScanLineThreads);
    arena.execute([&] { detector.Operate(); });
    benchmark::DoNotOptimize(sink.GetNumberOfMarked());
}

void BM_ScanLineOneShotSegment(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        OneShotScanLine(mesh, {{0.0, kStrokeY}, {kStrokeStepPixels, kStrokeY}},
                        kStrokeRadiusPixels);
}

void BM_ScanLineOneShotLasso(benchmark::State& state) {
    MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    const std::vector<point2d> lasso = DiscPixels(kTenthOfViewRadius);
    for (auto _ : state)
        OneShotScanLine(mesh, lasso, std::nullopt);
}

}  // namespace

BENCHMARK(BM_SessionBuild)
    ->Name("Session/build")
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SessionBuildOnArena)
    ->Name("Session/build_arena")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_SessionStroke)
    ->Name("Session/stroke")
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_OneShotSegment)
    ->Name("Session/oneshot_segment")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SessionLasso)->Name("Session/lasso10")->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OneShotLasso)
    ->Name("Session/oneshot_lasso10")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanLineSessionBuild)
    ->Name("Session/scanline_build")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ScanLineSessionStroke)
    ->Name("Session/scanline_stroke")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();
BENCHMARK(BM_ScanLineOneShotSegment)
    ->Name("Session/scanline_oneshot_segment")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ScanLineSessionLasso)
    ->Name("Session/scanline_lasso10")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ScanLineOneShotLasso)
    ->Name("Session/scanline_oneshot_lasso10")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
