// Baselines for the pick on the torus scene: the streaming floor (every vertex transformed and
// every triangle's three vertices read once, as any pick must at least do) and, when Embree is
// available, what a user would do instead: build a BVH and cast one ray per region pixel.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <velpick/camera_view.h>
#include <velpick/pixel_grid.h>
#include "torus_scene.h"

#ifdef VELPICK_BENCH_EMBREE
#include <embree3/rtcore.h>
#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#endif

namespace {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

/// The pick's raster frame: the disc's pixel box and the model-to-pixel transform.
struct Frame {
    std::int32_t width, height;
    MMTransformMatrix modelToPixel;
    std::vector<point2d> polygon;  // the disc in pixels relative to the box
};

Frame DiscFrame(double radiusPixels = bench::kDiscRadiusPixels) {
    const std::vector<point2d> disc = bench::Disc(radiusPixels);
    const auto box = AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention(
        disc, bench::kPixelsPerUnit);
    Frame frame{static_cast<std::int32_t>(box.max.x - box.min.x) + 1,
                static_cast<std::int32_t>(box.max.y - box.min.y) + 1,
                AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation(
                    bench::View(), bench::kPixelsPerUnit,
                    {static_cast<std::int32_t>(box.min.x), static_cast<std::int32_t>(box.min.y)}),
                {}};
    for (const point2d& p : disc)
        frame.polygon.push_back({std::floor(bench::kPixelsPerUnit * p.x) - box.min.x,
                                 std::floor(p.y * bench::kPixelsPerUnit) - box.min.y});
    return frame;
}

void BM_StreamingFloor(benchmark::State& state) {
    const MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    const Frame frame = DiscFrame();
    std::vector<VelSDK::Math::point3f> screen(mesh.GetNumberOfPoints());
    for (auto _ : state) {
        const auto& points = mesh._Points();
        for (std::size_t chunk = 0, first = 0; chunk < points.ChunkCount(); ++chunk) {
            const MStlPoint* p = points.Chunk(chunk);
            const std::size_t length = points.ChunkLength(chunk);
            for (std::size_t i = 0; i < length; ++i) {
                const point3d q = frame.modelToPixel.TransformPoint(
                    {float(p[i][0]), float(p[i][1]), float(p[i][2])});
                screen[first + i] = {float(q.x), float(q.y), float(q.z)};
            }
            first += length;
        }
        float nearest = -1e30f;
        const auto& triangles = mesh._Triangles();
        for (std::size_t chunk = 0; chunk < triangles.ChunkCount(); ++chunk) {
            const MStlTriangle* t = triangles.Chunk(chunk);
            const std::size_t length = triangles.ChunkLength(chunk);
            for (std::size_t i = 0; i < length; ++i)
                nearest =
                    std::max({nearest, screen[t[i].GetPointIndex(0)].z,
                              screen[t[i].GetPointIndex(1)].z, screen[t[i].GetPointIndex(2)].z});
        }
        benchmark::DoNotOptimize(nearest);
    }
    state.counters["triangles"] = static_cast<double>(mesh.GetNumberOfTriangles());
}
BENCHMARK(BM_StreamingFloor)
    ->Name("Floor/stream")
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

#ifdef VELPICK_BENCH_EMBREE

/// An Embree scene of the mesh in model coordinates.
class EmbreeScene {
  public:
    explicit EmbreeScene(const MStlBase& mesh) : m_device(rtcNewDevice(nullptr)) {
        m_scene = rtcNewScene(m_device);
        RTCGeometry geometry = rtcNewGeometry(m_device, RTC_GEOMETRY_TYPE_TRIANGLE);
        auto* vertices = static_cast<float*>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                    3 * sizeof(float), mesh.GetNumberOfPoints()));
        for (std::size_t i = 0; i < mesh.GetNumberOfPoints(); ++i)
            for (int k = 0; k < 3; ++k)
                vertices[3 * i + k] = static_cast<float>(mesh.GetPoint(i)[k]);
        auto* indices = static_cast<unsigned*>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                    3 * sizeof(unsigned), mesh.GetNumberOfTriangles()));
        for (std::size_t t = 0; t < mesh.GetNumberOfTriangles(); ++t)
            for (int k = 0; k < 3; ++k)
                indices[3 * t + k] = mesh.GetTriangle(t).GetPointIndex(k);
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(m_scene, geometry);
        rtcReleaseGeometry(geometry);
        rtcCommitScene(m_scene);
    }
    ~EmbreeScene() {
        rtcReleaseScene(m_scene);
        rtcReleaseDevice(m_device);
    }
    EmbreeScene(const EmbreeScene&) = delete;
    EmbreeScene& operator=(const EmbreeScene&) = delete;

    /// Whether the ray from `origin` along `direction` hits a triangle.
    bool Hits(const point3d& origin, const point3d& direction) const {
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        RTCRayHit hit{};
        hit.ray = {float(origin.x),
                   float(origin.y),
                   float(origin.z),
                   0.0f,
                   float(direction.x),
                   float(direction.y),
                   float(direction.z),
                   0.0f,
                   1e30f,
                   0xFFFFFFFFu,
                   0,
                   0};
        hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
        rtcIntersect1(m_scene, &context, &hit);
        return hit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
    }

  private:
    RTCDevice m_device;
    RTCScene m_scene;
};

/// Casts a ray through the centre of every region pixel, from in front of the mesh along the
/// viewing direction, rows split over the threads allowed; returns the hits.
std::size_t CastRegion(const EmbreeScene& scene, const Frame& frame) {
    AU_MarkOperations::PolygonMarking::PixelGrid region(frame.polygon, frame.width, frame.height,
                                                        1.0, false);
    MMTransformMatrix pixelToModel = frame.modelToPixel;
    pixelToModel.Invert();
    point3d direction;
    pixelToModel.Transform(direction, {0, 0, -1}, true);
    return tbb::parallel_reduce(
        tbb::blocked_range<std::int32_t>(0, frame.height), std::size_t{0},
        [&](const tbb::blocked_range<std::int32_t>& rows, std::size_t hits) {
            for (std::int32_t row = rows.begin(); row != rows.end(); ++row)
                for (std::int32_t column = 0; column < frame.width; ++column) {
                    if (!region.At(row, column))
                        continue;
                    point3d origin;
                    pixelToModel.Transform(origin, {column + 0.5, row + 0.5, 1e6}, false);
                    hits += scene.Hits(origin, direction);
                }
            return hits;
        },
        std::plus<>());
}

void BM_EmbreeBuild(benchmark::State& state) {
    const MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        EmbreeScene scene(mesh);
        benchmark::DoNotOptimize(&scene);
    }
    state.counters["triangles"] = static_cast<double>(mesh.GetNumberOfTriangles());
}

void BM_EmbreeCast(benchmark::State& state) {
    const MStlBase& mesh = bench::TorusMesh(static_cast<std::size_t>(state.range(0)));
    const EmbreeScene scene(mesh);
    const Frame frame = DiscFrame();
    const tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                      static_cast<std::size_t>(state.range(1)));
    std::size_t hits = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(hits = CastRegion(scene, frame));
    state.counters["hits"] = static_cast<double>(hits);
}

// Build uses all threads (Embree's default); wall time is what a user waits for.
BENCHMARK(BM_EmbreeBuild)
    ->Name("Embree/build")
    ->Arg(100000)
    ->Arg(1000000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EmbreeCast)
    ->Name("Embree/cast")
    ->Args({1000000, 1})
    ->Args({1000000, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

#endif

}  // namespace
