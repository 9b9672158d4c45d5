#include <cmath>

#include <tbb/task_arena.h>

#include <velpick/pinhole_projection.h>
#include <velpick/visibility_detector.h>
#include "picker.h"
#include "pinhole_view.h"

namespace velpick {

namespace {

using VelSDK::Math::point2d;

// Screen units to the detector's pixels (the uniform scale), then y mirrored so that it grows
// downwards. A perspective view gets both in its projection instead.
MMTransformMatrix ScreenToDownwardPixels(const View& view, double pixelProportion) {
    MMTransformMatrix scale;
    if (view.projection)
        return scale;
    scale.MakeScale1D(pixelProportion);
    MMTransformMatrix mirror;
    mirror.MakeScale3D(1.0, -1.0, 1.0);
    return scale.PreMultiply(mirror);
}

/// The scan-line picker: visibility decided on lines_per_pixel sample lines per pixel row,
/// swept in parallel. The detector works in pixels with y growing downwards.
class ScanLinePicker : public Picker {
  public:
    PickResult Pick(const PickRequest& request) override {
        MStlBaseOperatorVisibilityDetector detector;
        const MMTransformMatrix toPixels =
            ScreenToDownwardPixels(request.view, request.settings.pixelProportion);
        const CallMarksList marks = StartCallMarks(request);
        for (std::size_t i = 0; i < request.meshes.size(); ++i) {
            const PickMesh& mesh = request.meshes[i];
            detector.AddStlAndTransformation(mesh.mesh, ModelToPixels(request, mesh, toPixels),
                                             mesh.placement, mesh.markWholeMesh, marks[i]->Sink());
            for (const MStlSurface* surface : mesh.markableSurfaces)
                detector.SetMarkableSurface(*surface);
        }
        for (const MMPlaneEq<double>& plane : request.settings.clippingPlanes)
            detector.AddClippingPlane(plane);
        if (request.view.projection)
            detector.SetPerspective(DownwardPixelProjection(request));
        SetRegion(detector, RegionOnScreen(request.settings.region, request.view),
                  request.settings.pixelProportion);
        detector.SetPixelProportion(request.settings.linesPerPixel);
        detector.SetMarkThrough(request.settings.markThrough);
        detector.SetMark(!request.settings.unmark);
        detector.SetMarkFlippedTriangles(!request.settings.backFaceCulling);
        detector.SetCheckSurfaceVisibility(request.settings.skipHiddenSurfaces);
        detector.SetRule(DetectorRule(request.settings));
        detector.SetDepthTolerance(ScanLineDepthTolerance(request.settings, request.view));

        tbb::task_arena arena(request.settings.threads ? *request.settings.threads
                                                       : tbb::task_arena::automatic);
        arena.execute([&] { detector.Operate(); });
        return CollectMarkedTriangles(request, marks);
    }

  private:
    // A perspective view maps into eye space; its projection then lands in screen units, so
    // the pixel scale and the downward mirror go into the projection instead of the matrix.
    static AU_MarkOperations::PolygonMarking::PerspectiveProjection DownwardPixelProjection(
        const PickRequest& request) {
        const ViewProjection projection = ResolvedProjection(request.view, request.meshes);
        const double p = request.settings.pixelProportion;
        return {p * projection.fx, -(p * projection.fy), p * projection.cx, -(p * projection.cy),
                projection.nearDistance};
    }

    // mirror · scale · view · placement, multiplied from the placement outwards, so that the
    // view · placement product is the one the z-buffer picker forms.
    static MMTransformMatrix ModelToPixels(const PickRequest& request, const PickMesh& mesh,
                                           const MMTransformMatrix& toPixels) {
        MMTransformMatrix transform = mesh.placement;
        transform.PreMultiply(request.view.matrix);
        return transform.PreMultiply(toPixels);
    }

    // The region in downward pixels: scaled, y negated, nothing rounded.
    static void SetRegion(MStlBaseOperatorVisibilityDetector& detector,
                          const SelectionRegion& region, double pixelProportion) {
        std::vector<point2d> path;
        path.reserve(region.points.size());
        for (const point2d& p : region.points)
            path.push_back({p.x * pixelProportion, -(p.y * pixelProportion)});
        detector.SetPath(std::move(path));
        if (region.shape == SelectionRegion::Shape::kBrush) {
            detector.SetMode(MStlBaseOperatorVisibilityDetector::Mode::Brush);
            detector.SetBrushRadius(region.brushRadius * pixelProportion);
        } else {
            detector.SetMode(MStlBaseOperatorVisibilityDetector::Mode::Polygon);
        }
    }
};

}  // namespace

MStlBaseOperatorVisibilityDetector::VisibilityRule DetectorRule(const PickSettings& settings) {
    using Rule = MStlBaseOperatorVisibilityDetector::VisibilityRule;
    return settings.scanlineRule == ScanLineRule::kNearest ? Rule::Nearest : Rule::Ordered;
}

// Model length → internal units → depth along the view, as the z row of the map into the
// detector's space scales it (pixels for an affine view; eye space, unscaled, under a
// projection).
double ScanLineDepthTolerance(const PickSettings& settings, const View& view) {
    MMTransformMatrix sceneToPixels = view.matrix;
    sceneToPixels.PreMultiply(ScreenToDownwardPixels(view, settings.pixelProportion));
    const double depthScale =
        std::hypot(sceneToPixels.Get(2, 0), sceneToPixels.Get(2, 1), sceneToPixels.Get(2, 2));
    return settings.depthTolerance * settings.unitsPerModelUnit * depthScale;
}

std::unique_ptr<Picker> MakeScanLinePicker() {
    return std::make_unique<ScanLinePicker>();
}

}  // namespace velpick
