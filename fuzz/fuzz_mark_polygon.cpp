// MStlBaseOperatorMarkPolygon on small random meshes, views, regions, planes and switches,
// NaN, infinities and 32-bit extremes included, checking what a user relies on:
// - a run that returns false changes no mark;
// - marking never unmarks, unmarking never marks;
// - invisible triangles, triangles of hidden surfaces (when skipped), triangles that are not
//   markable and triangles of meshes with a sink keep their own flags;
// - once the operator is destroyed the meshes have the vertices, triangles and masks of before.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include <velpick/camera_view.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/mark_polygon.h>
#include "fuzz/fuzz_values.h"
#include "selection_region.h"

namespace {

using fuzz::Coordinate;
using fuzz::Number;
using fuzz::Require;
using fuzz::Transform;
using VelSDK::Math::point2d;

// Rasters above this many cells are skipped only to keep each run fast and small.
constexpr std::int64_t kMaxFuzzCells = 1 << 18;

struct FuzzMesh {
    std::unique_ptr<MStlBase> mesh = std::make_unique<MStlBase>();
    std::vector<MStlSurface*> surfaces;
    std::unique_ptr<MStlMarkTrianglesByMasks> sink;
    bool markWholeMesh = true;
    std::set<MStlSurface*> markable;
};

FuzzMesh MakeMesh(FuzzedDataProvider& input) {
    FuzzMesh made;
    const int surfaceCount = input.ConsumeIntegralInRange(1, 3);
    for (int s = 0; s < surfaceCount; ++s) {
        MStlSurface* parent = s > 0 && input.ConsumeBool() ? made.surfaces.back() : nullptr;
        MStlSurface* surface = made.mesh->AddSurface(parent);
        surface->SetVisible(input.ConsumeIntegralInRange(0, 4) != 0);
        made.surfaces.push_back(surface);
        const int triangles = input.ConsumeIntegralInRange(0, 8);
        for (int t = 0; t < triangles; ++t) {
            std::array<int, 9> c;
            for (int& value : c)
                value = Coordinate(input);
            MStlTriangle* triangle =
                surface->AddTriangle(c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7], c[8]);
            if (input.ConsumeBool())
                triangle->Mark();
            triangle->SetVisible(input.ConsumeIntegralInRange(0, 5) != 0);
        }
    }
    made.markWholeMesh = input.ConsumeBool();
    for (MStlSurface* surface : made.surfaces)
        if (input.ConsumeBool())
            made.markable.insert(surface);
    if (input.ConsumeIntegralInRange(0, 3) == 0)
        made.sink = std::make_unique<MStlMarkTrianglesByMasks>(*made.mesh);
    return made;
}

// The region keeps its radius as a double; a drawn radius near SIZE_MAX rounds up to 2^64 there,
// which does not convert back, so the largest double below 2^64 stands in for it.
std::size_t WholeRadius(double radius) {
    return static_cast<std::size_t>(std::min(radius, 18446744073709549568.0));
}

velpick::SelectionRegion Region(FuzzedDataProvider& input) {
    velpick::SelectionRegion region;
    if (input.ConsumeBool()) {
        region.shape = velpick::SelectionRegion::Shape::kBrush;
        region.brushRadius = input.ConsumeIntegralInRange(0, 7) == 0
                                 ? input.ConsumeIntegral<std::size_t>()
                                 : input.ConsumeIntegralInRange<std::size_t>(0, 6);
    }
    region.points.resize(input.ConsumeIntegralInRange<std::size_t>(0, 8));
    for (point2d& p : region.points)
        p = {Number(input, 6.0), Number(input, 6.0)};
    return region;
}

// The operator's pixel box of the region, as it computes it: bounds truncated to 32 bits
// (INT32_MIN when out of range), a brush's widened by its radius and wrapped to 32 bits.
std::int64_t Truncated(double value) {
    return value >= -2147483648.0 && value < 2147483648.0 ? static_cast<std::int64_t>(value)
                                                          : INT32_MIN;
}

std::int64_t RasterCells(const velpick::SelectionRegion& region, double p) {
    if (region.points.empty())
        return 0;
    std::int64_t low[2], high[2];
    if (region.shape == velpick::SelectionRegion::Shape::kPolygon) {
        const auto box =
            AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention(region.points, p);
        low[0] = Truncated(box.min.x), low[1] = Truncated(box.min.y);
        high[0] = Truncated(box.max.x), high[1] = Truncated(box.max.y);
    } else {
        const std::int64_t r = Truncated(static_cast<double>(region.brushRadius) * p);
        for (int axis = 0; axis < 2; ++axis) {
            double lo = axis ? region.points[0].y : region.points[0].x, hi = lo;
            for (const point2d& q : region.points) {
                lo = std::min(lo, axis ? q.y : q.x);
                hi = std::max(hi, axis ? q.y : q.x);
            }
            low[axis] = static_cast<std::int32_t>(Truncated(std::floor(p * lo)) - r);
            high[axis] = static_cast<std::int32_t>(Truncated(std::ceil(p * hi)) + r);
        }
    }
    const std::int64_t width = high[0] - low[0] + 1, height = high[1] - low[1] + 1;
    if (width < 1 || height < 1 || width > INT32_MAX || height > INT32_MAX)
        return 0;  // refused unbuilt
    return width * height;
}

struct Snapshot {
    std::vector<std::vector<bool>> marked, sinkMarked;
    std::vector<std::array<std::size_t, 3>> counts;  // points, triangles, masks
};

Snapshot Take(const std::vector<FuzzMesh>& meshes) {
    Snapshot snapshot;
    for (const FuzzMesh& m : meshes) {
        std::vector<bool> marked, sinkMarked;
        for (MStlTriangle& t : m.mesh->Triangles()) {
            marked.push_back(t.IsMarked());
            sinkMarked.push_back(m.sink && m.sink->IsMarked(t));
        }
        snapshot.marked.push_back(marked);
        snapshot.sinkMarked.push_back(sinkMarked);
        snapshot.counts.push_back({m.mesh->GetNumberOfPoints(), m.mesh->GetNumberOfTriangles(),
                                   m.mesh->GetMasks().GetNumberOfMasks()});
    }
    return snapshot;
}

// Whether the run may change the flag of triangle `t` of mesh `m`.
bool MayChangeFlag(const FuzzMesh& m, const MStlTriangle& t, bool skipHidden) {
    if (m.sink || !t.IsVisible() || (skipHidden && !t.GetSurface()->GetVisible()))
        return false;
    return m.markWholeMesh || m.markable.count(t.GetSurface()) > 0;
}

void CheckRun(const std::vector<FuzzMesh>& meshes, const Snapshot& before, const Snapshot& after,
              bool ran, bool mark, bool skipHidden) {
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        for (std::size_t k = 0; k < before.marked[i].size(); ++k) {
            const bool was = before.marked[i][k], is = after.marked[i][k];
            const bool sinkWas = before.sinkMarked[i][k], sinkIs = after.sinkMarked[i][k];
            Require(ran || (was == is && sinkWas == sinkIs));
            Require(was == is ||
                    MayChangeFlag(meshes[i], meshes[i].mesh->GetTriangle(k), skipHidden));
            // Marking only adds marks, unmarking only removes them, on triangles and in sinks.
            Require(mark ? (!was || is) && (!sinkWas || sinkIs)
                         : (was || !is) && (sinkWas || !sinkIs));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    std::vector<FuzzMesh> meshes(input.ConsumeIntegralInRange(1, 3));
    for (FuzzMesh& m : meshes)
        m = MakeMesh(input);
    const double pixelProportion =
        input.ConsumeBool() ? input.ConsumeIntegralInRange(1, 8) : Number(input, 10.0);
    const double tolerance = Number(input, 1.0);
    const bool skipHidden = input.ConsumeBool();
    const velpick::SelectionRegion region = Region(input);
    const std::int64_t cells = RasterCells(region, pixelProportion);
    if (cells > kMaxFuzzCells && cells <= INT32_MAX)
        return 0;

    const Snapshot before = Take(meshes);
    bool ran = false, mark = true;
    {
        MStlBaseOperatorMarkPolygon picker(pixelProportion, tolerance, skipHidden);
        for (FuzzMesh& m : meshes) {
            const MMTransformMatrix view = Transform(input, 0.001, 20);
            const MMTransformMatrix placement = Transform(input, 1.0, 20);
            picker.AddStl(m.mesh.get(), &view, &placement, m.markWholeMesh, m.sink.get());
            for (MStlSurface* surface : m.markable)
                picker.SetMarkableSurface(surface);
        }
        const int planes = input.ConsumeIntegralInRange(0, 3);
        for (int p = 0; p < planes; ++p)
            picker.AddClippingPlane({Number(input, 1.0), Number(input, 1.0), Number(input, 1.0),
                                     Number(input, 3000.0)});
        if (region.shape == velpick::SelectionRegion::Shape::kBrush)
            picker.SetBrushPath(region.points, WholeRadius(region.brushRadius));
        else
            picker.SetPolygon(region.points);
        picker.SetBackFaceCulling(input.ConsumeBool());
        picker.SetMarkThrough(input.ConsumeBool());
        mark = input.ConsumeBool();
        picker.SetUnmark(!mark);
        ran = picker.operate();
    }
    const Snapshot after = Take(meshes);
    CheckRun(meshes, before, after, ran, mark, skipHidden);
    Require(before.counts == after.counts);
    return 0;
}
