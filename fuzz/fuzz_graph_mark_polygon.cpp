// MStlGraphOperatorMarkPolygon on small random feature graphs, views, polygons, planes,
// thicknesses and switches, NaN, infinities and 32-bit extremes included, checking what a user
// relies on:
// - the return code is the documented one: NoGraph without a graph, PolygonTooSmall below three
//   points, PlaneFilterFailed when the mesh already holds the filter's mask, and
//   MissingEdgeThickness only with thickness and planes on a mesh without element info;
// - every run but a successful one leaves the output mask as it was, and so does a
//   std::length_error (a pixel box beyond the 32-bit raster);
// - a successful run writes only 1.0, never to an edge the planes cut away;
// - marking whole candidates marks at least what the pixel test marks;
// - the mesh keeps its vertices, edges and named masks.

#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <velpick/camera_view.h>
#include <velpick/graph_filter_by_clipping_planes.h>
#include <velpick/graph_mark_polygon.h>
#include <velpick/host/element_info.h>
#include <velpick/host/named_mask.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_graph.h>
#include "fuzz/fuzz_values.h"
#include "polygon_marking/int32_truncation.h"

namespace {

using Code = MStlGraphOperatorMarkPolygon::EReturnCode;
using fuzz::Number;
using fuzz::Require;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using NamedMask = std::unique_ptr<
    MStlScalarMaskGraphEdges,
    VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>>;

// Runs whose polygon raster has more cells than this, yet few enough to be built, are skipped
// only to keep each run fast; larger boxes are run, as the operator must refuse them.
constexpr double kMaxFuzzCells = 1 << 18;
// Cut edges go through a scan-line sweep at 5 lines per pixel over their prisms; planes are
// dropped when that sweep would need more lines than this, to keep each run fast.
constexpr double kMaxSweepLines = 20000.0;
constexpr double kSweepLinesPerPixel = 5.0;
const std::wstring kFilterMaskName = L"filtered_by_planes";

struct Request {
    std::unique_ptr<MStlBase> mesh = std::make_unique<MStlBase>();
    MStlGraph* graph = mesh->AddGraph();
    MStlBaseElementInfoStlDependency* info = nullptr;
    std::vector<float> initial;  // the output mask's values before the run, per edge
    bool setGraph = true;
    MMTransformMatrix view;
    std::vector<point2d> polygon;
    std::optional<double> pixelProportion;
    std::vector<MMPlaneEq<double>> planes;
    bool thickness = true, filterMaskTaken = false;
};

float InitialValue(FuzzedDataProvider& input) {
    static const float kValues[] = {0.5f, 0.0f, -1.0f, 1.0f,
                                    std::numeric_limits<float>::quiet_NaN()};
    return kValues[input.ConsumeIntegralInRange(0, 4)];
}

std::int32_t Thickness(FuzzedDataProvider& input) {
    switch (input.ConsumeIntegralInRange(0, 3)) {
        case 0:
            return 0;
        case 1:
            return input.ConsumeIntegral<std::int32_t>();
        default:
            return input.ConsumeIntegralInRange(-50, 400);
    }
}

// The polygon, planes and switches come first: once the input runs out every further value
// is its minimum, which then only shortens the graph.
Request MakeRequest(FuzzedDataProvider& input) {
    Request r;
    r.setGraph = input.ConsumeIntegralInRange(0, 15) != 0;
    r.polygon = fuzz::Path(input, input.ConsumeIntegralInRange(0, 7) == 0 ? 0 : 3, 7, 100.0);
    switch (input.ConsumeIntegralInRange(0, 3)) {
        case 0:
            break;  // the default
        case 1:
            r.pixelProportion = input.ConsumeIntegralInRange(1, 8);
            break;
        default:
            r.pixelProportion = Number(input, 10.0);
    }
    r.planes.resize(input.ConsumeIntegralInRange(0, 3));
    for (MMPlaneEq<double>& plane : r.planes)
        plane = {Number(input, 1.0), Number(input, 1.0), Number(input, 1.0), Number(input, 3000.0)};
    r.thickness = input.ConsumeBool();
    r.filterMaskTaken = input.ConsumeIntegralInRange(0, 7) == 0;
    r.view = fuzz::Transform(input, 0.01, 60);

    std::vector<MStlPoint*> points;
    const int pointCount = input.ConsumeIntegralInRange(1, 8);
    for (int i = 0; i < pointCount; ++i) {
        const auto c = fuzz::Coordinates<3>(input);
        points.push_back(r.mesh->FindOrAddPoint(c[0], c[1], c[2]));
    }
    const int edgeCount = input.ConsumeIntegralInRange(0, 12);
    for (int e = 0; e < edgeCount; ++e)
        r.graph->AddEdge(points[input.ConsumeIntegralInRange(0, pointCount - 1)],
                         points[input.ConsumeIntegralInRange(0, pointCount - 1)]);
    if (input.ConsumeBool()) {
        r.info = MStlBaseElementInfoStlDependency::GetDependency(r.mesh.get(), true);
        for (const MStlGraphEdge& edge : r.graph->GraphEdges())
            r.info->SetEdgeThickness(edge, {Thickness(input), Thickness(input)});
    }
    for (int e = 0; e < edgeCount; ++e)
        r.initial.push_back(InitialValue(input));
    return r;
}

double PixelProportion(const Request& r) {
    return r.pixelProportion.value_or(5.0);
}

// The raster's side as the operator sizes it: the box extent truncated to 32 bits, plus one,
// wrapping as 32-bit arithmetic does.
std::int64_t RasterSide(double extent) {
    const auto truncated =
        static_cast<std::uint32_t>(AU_MarkOperations::PolygonMarking::TruncateToInt32(extent));
    return static_cast<std::int32_t>(truncated + 1u);
}

struct PixelBox {
    VelSDK::Math::boundingbox<double, 2> box;
    std::int64_t width, height;
};

PixelBox PolygonPixels(const Request& r) {
    PixelBox p;
    p.box = AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention(r.polygon,
                                                                                PixelProportion(r));
    p.width = RasterSide(p.box.max.x - p.box.min.x);
    p.height = RasterSide(p.box.max.y - p.box.min.y);
    return p;
}

bool TooSlowToRaster(const PixelBox& pixels) {
    if (pixels.width < 1 || pixels.height < 1)
        return false;  // refused before any work
    const double cells = static_cast<double>(pixels.width) * static_cast<double>(pixels.height);
    return cells > kMaxFuzzCells && cells <= INT32_MAX;
}

// How far from the pixel origin the sweep over the prisms of cut edges can reach: the polygon's
// pixel box, and the edge vertices in the pixel frame widened by the largest prism radius
// stretched by the map.
double SweepReach(const Request& r, const PixelBox& pixels) {
    using AU_MarkOperations::PolygonMarking::TruncateToInt32;
    const MMTransformMatrix toPixels =
        AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation(
            r.view, PixelProportion(r),
            {TruncateToInt32(pixels.box.min.x), TruncateToInt32(pixels.box.min.y)});
    double stretch = 0.0;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            stretch += std::fabs(toPixels.Get(row, column));
    double radius = 10.0;
    if (r.info)
        for (const MStlGraphEdge& edge : r.graph->GraphEdges()) {
            const MStlGraphEdgeThickness& t = r.info->GetEdgeThickness(edge);
            radius = std::fmax(radius, std::fabs(0.5 * t.first));
            radius = std::fmax(radius, std::fabs(0.5 * t.second));
        }
    double reach =
        std::hypot(static_cast<double>(pixels.width), static_cast<double>(pixels.height));
    for (const MStlPoint& v : r.mesh->Vertices()) {
        const point3d p = toPixels(point3d{double(v[0]), double(v[1]), double(v[2])}, false);
        const double distance = std::hypot(p.x, p.y) + stretch * radius;
        if (!std::isfinite(distance))
            return std::numeric_limits<double>::infinity();
        reach = std::fmax(reach, distance);
    }
    return reach;
}

// The output's values, NaN and all, bit for bit.
std::vector<std::uint32_t> Bits(const Request& r, const MStlScalarMaskGraphEdges& output) {
    std::vector<std::uint32_t> bits;
    for (const MStlGraphEdge& edge : r.graph->GraphEdges()) {
        const float value = static_cast<float>(output.GetScalar(edge));
        std::uint32_t word;
        std::memcpy(&word, &value, sizeof word);
        bits.push_back(word);
    }
    return bits;
}

std::unique_ptr<MStlScalarMaskGraphEdges> MakeOutput(const Request& r) {
    auto output = std::make_unique<MStlScalarMaskGraphEdges>(*r.mesh, 0.5f);
    std::size_t k = 0;
    for (const MStlGraphEdge& edge : r.graph->GraphEdges())
        output->SetScalar(edge, r.initial[k++]);
    return output;
}

// The planes' verdict on every edge, from the filter on its own: true for an edge cut away.
std::vector<bool> CutAway(const Request& r) {
    std::vector<bool> cutAway(r.graph->GetNumberOfEdges(), false);
    if (r.planes.empty())
        return cutAway;
    MStlScalarMaskGraphEdges classes(*r.mesh, 0.0f);
    MStlGraphOperatorFilterByClippingPlanes filter;
    filter.SetGraph(r.graph);
    filter.SetGraphMask(&classes);
    filter.SetWorkWithGraphThickness(r.thickness);
    for (const MMPlaneEq<double>& plane : r.planes)
        filter.AddPlane(plane);
    Require(filter.Operate());
    std::size_t k = 0;
    for (const MStlGraphEdge& edge : r.graph->GraphEdges())
        cutAway[k++] = classes.GetScalar(edge) == -1.0;
    return cutAway;
}

struct Outcome {
    std::optional<Code> code;  // none: std::length_error
    std::vector<std::uint32_t> bits;
};

Outcome Run(const Request& r, bool markWholeCandidates) {
    const auto output = MakeOutput(r);
    MStlGraphOperatorMarkPolygon op;
    if (r.setGraph)
        op.SetGraph(*r.graph, r.view);
    op.SetPolygon(r.polygon);
    if (r.pixelProportion)
        op.SetPixelProportion(*r.pixelProportion);
    for (const MMPlaneEq<double>& plane : r.planes)
        op.AddClippingPlane(plane);
    op.SetWorkWithGraphThickness(r.thickness);
    Outcome outcome;
    try {
        outcome.code = op.Operate(*output, markWholeCandidates);
    } catch (const std::length_error&) {
    }
    outcome.bits = Bits(r, *output);
    return outcome;
}

void CheckCode(const Request& r, const Outcome& outcome) {
    const bool noInfo = r.info == nullptr;
    if (!outcome.code)
        return;
    switch (*outcome.code) {
        case Code::NoGraph:
            Require(!r.setGraph);
            break;
        case Code::PolygonTooSmall:
            Require(r.setGraph && r.polygon.size() < 3);
            break;
        case Code::PlaneFilterFailed:
            Require(r.setGraph && r.polygon.size() >= 3 && !r.planes.empty() && r.filterMaskTaken);
            break;
        case Code::MissingEdgeThickness:
            Require(r.setGraph && r.polygon.size() >= 3 && !r.planes.empty() &&
                    !r.filterMaskTaken && r.thickness && noInfo);
            break;
        case Code::Success:
            Require(r.setGraph && r.polygon.size() >= 3 &&
                    (r.planes.empty() || !r.filterMaskTaken));
            break;
        default:
            Require(false);
    }
    if (!r.setGraph)
        Require(*outcome.code == Code::NoGraph);
    else if (r.polygon.size() < 3)
        Require(*outcome.code == Code::PolygonTooSmall);
    else if (!r.planes.empty() && r.filterMaskTaken)
        Require(*outcome.code == Code::PlaneFilterFailed);
}

std::uint32_t BitsOfOne() {
    const float one = 1.0f;
    std::uint32_t word;
    std::memcpy(&word, &one, sizeof word);
    return word;
}

void CheckMask(const std::vector<std::uint32_t>& before, const Outcome& outcome,
               const std::vector<bool>& cutAway) {
    if (outcome.code != Code::Success) {
        Require(outcome.bits == before);
        return;
    }
    for (std::size_t k = 0; k < before.size(); ++k)
        if (outcome.bits[k] != before[k])
            Require(outcome.bits[k] == BitsOfOne() && !cutAway[k]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    Request r = MakeRequest(input);
    const PixelBox pixels = PolygonPixels(r);
    if (TooSlowToRaster(pixels))
        return 0;
    if (!r.planes.empty() && 2.0 * SweepReach(r, pixels) * kSweepLinesPerPixel > kMaxSweepLines)
        r.planes.clear();

    const std::size_t points = r.mesh->GetNumberOfPoints(), edges = r.graph->GetNumberOfEdges();
    NamedMask taken;
    if (r.filterMaskTaken)
        taken.reset(MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>::Create(
            r.mesh.get(), kFilterMaskName));
    const std::size_t namedMasks = r.mesh->_NamedMasks().masks.size();
    const std::vector<bool> cutAway = CutAway(r);
    const std::vector<std::uint32_t> before = Bits(r, *MakeOutput(r));

    const Outcome pixelTest = Run(r, false);
    CheckCode(r, pixelTest);
    CheckMask(before, pixelTest, cutAway);
    const Outcome whole = Run(r, true);
    CheckCode(r, whole);
    CheckMask(before, whole, cutAway);
    Require(pixelTest.code == whole.code);
    if (whole.code == Code::Success)
        for (std::size_t k = 0; k < before.size(); ++k)
            Require(pixelTest.bits[k] == before[k] || whole.bits[k] == pixelTest.bits[k]);

    Require(r.mesh->GetNumberOfPoints() == points && r.graph->GetNumberOfEdges() == edges);
    Require(r.mesh->_NamedMasks().masks.size() == namedMasks);
    return 0;
}
