// MStlBaseOperatorVisibilityDetector on small random meshes, views, paths, brushes, planes and
// switches (either visibility rule, any depth tolerance), NaN, infinities and 32-bit extremes
// included, checking what a user relies on:
// - a path with a non-finite coordinate, or a brush with a non-finite radius, changes no mark;
// - marking never unmarks and unmarking never marks, on triangles and in sinks;
// - invisible triangles, triangles of surfaces switched invisible (when checked), triangles of
//   surfaces that are not markable, and the own flags of triangles of meshes with a sink keep
//   what they had;
// - the meshes keep their vertices, triangles, visibility and masks;
// - a second run over its own result changes nothing;
// - the same scene with every initial mark inverted, unmarking instead of marking, on two
//   threads instead of one, ends with exactly the inverse marks: marking and unmarking take
//   the same triangles, whatever the number of threads.

#include <fuzzer/FuzzedDataProvider.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <set>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_surface.h>
#include <velpick/host/stl_triangle.h>
#include <velpick/visibility_detector.h>
#include "fuzz/fuzz_values.h"

namespace {

using Detector = MStlBaseOperatorVisibilityDetector;
using fuzz::Number;
using fuzz::Require;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

// Above this many fill lines the run keeps only the lines the pieces and the box need (a pixel
// proportion of 0): the span of a sweep at the 32-bit limits would take hours, not milliseconds.
constexpr double kMaxFillLines = 2000.0;

struct FuzzMesh {
    std::unique_ptr<MStlBase> mesh = std::make_unique<MStlBase>();
    std::unique_ptr<MStlMarkTrianglesByMasks> sink;  // declared after the mesh: destroyed first
    bool allSurfacesMarkable = true;
    std::set<const MStlSurface*> markable;
    std::vector<MMTransformMatrix> views, placements;  // one registration each
};

// Everything one run is given. Built twice from the same bytes; `invert` flips every initial
// mark and the marking mode, and nothing else.
struct Scene {
    std::vector<FuzzMesh> meshes;
    std::vector<MMPlaneEq<double>> planes;
    std::vector<point2d> path;
    Detector::Mode mode = Detector::Polygon;
    double brushRadius = 0.0;
    bool setPixelProportion = false;
    double pixelProportion = 5.0;
    bool mark = true, markThrough = false, markFlipped = false, checkSurfaceVisibility = true;
    Detector::VisibilityRule rule = Detector::VisibilityRule::Ordered;
    double depthTolerance = 0.0;
};

FuzzMesh MakeMesh(FuzzedDataProvider& input, bool invert) {
    FuzzMesh made;
    std::vector<MStlSurface*> surfaces;
    const int surfaceCount = input.ConsumeIntegralInRange(1, 3);
    for (int s = 0; s < surfaceCount; ++s) {
        MStlSurface* parent = s > 0 && input.ConsumeBool() ? surfaces.back() : nullptr;
        MStlSurface* surface = made.mesh->AddSurface(parent);
        surface->SetVisible(input.ConsumeIntegralInRange(0, 4) != 0);
        surfaces.push_back(surface);
        const int triangles = input.ConsumeIntegralInRange(0, 8);
        for (int t = 0; t < triangles; ++t) {
            const auto c = fuzz::Coordinates<9>(input);
            MStlTriangle* triangle =
                surface->AddTriangle(c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7], c[8]);
            if (input.ConsumeBool() != invert)
                triangle->Mark();
            triangle->SetVisible(input.ConsumeIntegralInRange(0, 5) != 0);
        }
    }
    if (input.ConsumeIntegralInRange(0, 3) == 0) {
        made.sink = std::make_unique<MStlMarkTrianglesByMasks>(*made.mesh);
        for (MStlTriangle& t : made.mesh->Triangles())
            if (input.ConsumeBool() != invert)
                made.sink->Mark(t);
    }
    made.allSurfacesMarkable = input.ConsumeBool();
    for (MStlSurface* surface : surfaces)
        if (input.ConsumeBool())
            made.markable.insert(surface);
    const int registrations = input.ConsumeIntegralInRange(0, 7) == 0 ? 2 : 1;
    for (int r = 0; r < registrations; ++r) {
        made.views.push_back(fuzz::Transform(input, 0.01, 60));
        made.placements.push_back(fuzz::Transform(input, 1.0, 20));
    }
    return made;
}

// The region and switches come first: once the input runs out every further value is its
// minimum, which then only shortens the meshes.
Scene MakeScene(const std::uint8_t* data, std::size_t size, bool invert) {
    FuzzedDataProvider input(data, size);
    Scene scene;
    scene.path = fuzz::Path(input, input.ConsumeIntegralInRange(0, 7) == 0 ? 0 : 1, 8, 100.0);
    if (input.ConsumeBool()) {
        scene.mode = Detector::Brush;
        scene.brushRadius =
            input.ConsumeBool() ? input.ConsumeIntegralInRange(1, 20) : Number(input, 20.0);
    }
    switch (input.ConsumeIntegralInRange(0, 3)) {
        case 0:
            break;  // the default
        case 1:
            scene.setPixelProportion = true;
            scene.pixelProportion = input.ConsumeIntegralInRange(1, 8);
            break;
        default:
            scene.setPixelProportion = true;
            scene.pixelProportion = Number(input, 10.0);
    }
    scene.mark = input.ConsumeBool() != invert;
    scene.markThrough = input.ConsumeBool();
    scene.markFlipped = input.ConsumeBool();
    if (input.ConsumeBool()) {
        scene.rule = Detector::VisibilityRule::Nearest;
        scene.depthTolerance = Number(input, 50.0);
    }
    scene.checkSurfaceVisibility = input.ConsumeIntegralInRange(0, 3) != 0;
    const int planes = input.ConsumeIntegralInRange(-3, 3);  // none in four scenes of seven
    scene.planes.resize(planes > 0 ? planes : 0);
    for (MMPlaneEq<double>& plane : scene.planes)
        plane = {Number(input, 1.0), Number(input, 1.0), Number(input, 1.0), Number(input, 3000.0)};
    scene.meshes.resize(input.ConsumeIntegralInRange(1, 3));
    for (FuzzMesh& m : scene.meshes)
        m = MakeMesh(input, invert);
    return scene;
}

// The sample lines lie within the distance from the screen origin of the farthest piece
// corner or path point (widened by the brush): the in-plane rotation keeps distances.
double SweepReach(const Scene& scene) {
    double reach = 0.0;
    const auto widen = [&reach](double distance) {
        reach = std::isfinite(distance) ? std::max(reach, distance)
                                        : std::numeric_limits<double>::infinity();
    };
    for (const FuzzMesh& m : scene.meshes)
        for (const MMTransformMatrix& view : m.views)
            for (const MStlTriangle& t : m.mesh->Triangles())
                for (int corner = 0; corner < 3; ++corner) {
                    point3d screen;
                    view.Transform(screen, t.GetVertex(corner), false);
                    widen(std::hypot(screen.x, screen.y));
                }
    const double radius = scene.mode == Detector::Brush ? std::fabs(scene.brushRadius) : 0.0;
    for (const point2d& p : scene.path)
        widen(std::hypot(p.x, p.y) + radius);
    return reach;
}

void Configure(Detector& detector, const Scene& scene) {
    for (const FuzzMesh& m : scene.meshes) {
        for (std::size_t r = 0; r < m.views.size(); ++r)
            detector.AddStlAndTransformation(m.mesh.get(), m.views[r], m.placements[r],
                                             m.allSurfacesMarkable, m.sink.get());
        for (const MStlSurface* surface : m.markable)
            detector.SetMarkableSurface(*surface);
    }
    for (const MMPlaneEq<double>& plane : scene.planes)
        detector.AddClippingPlane(plane);
    detector.SetPath(scene.path);
    detector.SetMode(scene.mode);
    detector.SetBrushRadius(scene.brushRadius);
    const double proportion = scene.setPixelProportion ? scene.pixelProportion : 5.0;
    if (proportion > 0.0 && 2.0 * SweepReach(scene) * proportion > kMaxFillLines)
        detector.SetPixelProportion(0.0);
    else if (scene.setPixelProportion)
        detector.SetPixelProportion(scene.pixelProportion);
    detector.SetMark(scene.mark);
    detector.SetMarkThrough(scene.markThrough);
    detector.SetMarkFlippedTriangles(scene.markFlipped);
    detector.SetRule(scene.rule);
    detector.SetDepthTolerance(scene.depthTolerance);
    detector.SetCheckSurfaceVisibility(scene.checkSurfaceVisibility);
}

// Marks, flags and geometry of every mesh, in triangle order.
struct Snapshot {
    std::vector<bool> marked, sinkMarked, hasSink;
    std::vector<std::int64_t> geometry;  // counts, coordinates and visibility

    bool SameGeometry(const Snapshot& other) const { return geometry == other.geometry; }
};

Snapshot Take(const Scene& scene) {
    Snapshot s;
    for (const FuzzMesh& m : scene.meshes) {
        MStlBase& mesh = *m.mesh;
        s.geometry.push_back(static_cast<std::int64_t>(mesh.GetNumberOfPoints()));
        s.geometry.push_back(static_cast<std::int64_t>(mesh.GetNumberOfTriangles()));
        s.geometry.push_back(static_cast<std::int64_t>(mesh.GetMasks().GetNumberOfMasks()));
        for (const MStlTriangle& t : mesh.Triangles()) {
            s.marked.push_back(t.IsMarked());
            s.sinkMarked.push_back(m.sink && m.sink->IsMarked(t));
            s.hasSink.push_back(m.sink != nullptr);
            s.geometry.push_back(t.IsVisible() + 2 * t.GetSurface()->GetVisible());
            for (int corner = 0; corner < 3; ++corner)
                for (int axis = 0; axis < 3; ++axis)
                    s.geometry.push_back((*t.GetPoint(corner))[axis]);
        }
    }
    return s;
}

// Whether a run may change the mark of triangle `t` of mesh `m` (its own flag, or its mark in
// the mesh's sink).
bool MayChange(const Scene& scene, const FuzzMesh& m, const MStlTriangle& t) {
    const MStlSurface* surface = t.GetSurface();
    if (!t.IsVisible() || (scene.checkSurfaceVisibility && !surface->GetVisible()))
        return false;
    return m.allSurfacesMarkable || m.markable.count(surface) > 0;
}

bool RegionIsFinite(const Scene& scene) {
    for (const point2d& p : scene.path)
        if (!std::isfinite(p.x) || !std::isfinite(p.y))
            return false;
    return scene.mode != Detector::Brush || std::isfinite(scene.brushRadius);
}

void CheckRun(const Scene& scene, const Snapshot& before, const Snapshot& after) {
    Require(before.SameGeometry(after));
    if (!RegionIsFinite(scene))
        Require(before.marked == after.marked && before.sinkMarked == after.sinkMarked);
    std::size_t k = 0;
    for (const FuzzMesh& m : scene.meshes)
        for (const MStlTriangle& t : m.mesh->Triangles()) {
            const bool was = before.marked[k], is = after.marked[k];
            const bool sinkWas = before.sinkMarked[k], sinkIs = after.sinkMarked[k];
            ++k;
            const bool changed = was != is || sinkWas != sinkIs;
            Require(!changed || MayChange(scene, m, t));
            Require(!m.sink || was == is);  // a sink takes the marks instead of the flag
            Require(scene.mark ? (!was || is) && (!sinkWas || sinkIs)
                               : (was || !is) && (sinkWas || !sinkIs));
        }
}

void Operate(Detector& detector, int threads) {
    tbb::task_arena arena(threads);
    arena.execute([&detector] { detector.Operate(); });
}

// Every flag inverted, and every mark in a sink (triangles of meshes without one have none).
Snapshot InverseMarks(Snapshot s) {
    s.marked.flip();
    for (std::size_t k = 0; k < s.sinkMarked.size(); ++k)
        s.sinkMarked[k] = s.hasSink[k] && !s.sinkMarked[k];
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Scene scene = MakeScene(data, size, false);
    const Snapshot before = Take(scene);
    Detector detector;
    Configure(detector, scene);
    Operate(detector, 1);
    const Snapshot once = Take(scene);
    CheckRun(scene, before, once);
    Operate(detector, 1);
    const Snapshot twice = Take(scene);
    Require(twice.marked == once.marked && twice.sinkMarked == once.sinkMarked);
    Require(twice.SameGeometry(once));

    const Scene inverted = MakeScene(data, size, true);
    const Snapshot invertedBefore = Take(inverted);
    Detector inverse;
    Configure(inverse, inverted);
    Operate(inverse, 2);
    const Snapshot invertedAfter = Take(inverted);
    CheckRun(inverted, invertedBefore, invertedAfter);
    const Snapshot expected = InverseMarks(once);
    Require(invertedAfter.marked == expected.marked);
    Require(invertedAfter.sinkMarked == expected.sinkMarked);
    return 0;
}
