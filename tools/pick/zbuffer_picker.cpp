#include <algorithm>
#include <cstdint>

#include <velpick/mark_polygon.h>
#include "picker.h"
#include "pinhole_view.h"

namespace velpick {

namespace {

/// The z-buffer picker: every triangle drawn into a depth buffer over the region's pixels,
/// candidates marked where they are within the depth tolerance of the front-most surface.
class ZBufferPicker : public Picker {
  public:
    PickResult Pick(const PickRequest& request) override {
        MStlBaseOperatorMarkPolygon op = MakeOperator(request.settings);
        const CallMarksList marks = StartCallMarks(request);
        for (std::size_t i = 0; i < request.meshes.size(); ++i) {
            const PickMesh& mesh = request.meshes[i];
            op.AddStl(mesh.mesh, &request.view.matrix, &mesh.placement, mesh.markWholeMesh,
                      marks[i]->Sink());
            for (MStlSurface* surface : mesh.markableSurfaces)
                op.SetMarkableSurface(surface);
        }
        for (const MMPlaneEq<double>& plane : request.settings.clippingPlanes)
            op.AddClippingPlane(plane);
        SetRegion(op, PixelSafeRegionOnScreen(request.settings.region, request.view,
                                              request.settings.pixelProportion));
        if (request.view.projection)
            op.SetPerspective(OperatorProjection(ResolvedProjection(request.view, request.meshes)));
        op.SetBackFaceCulling(request.settings.backFaceCulling);
        op.SetMarkThrough(request.settings.markThrough);
        op.SetUnmark(request.settings.unmark);
        op.SetThreads(request.settings.threads.value_or(0));
        if (!op.operate())
            throw RasterTooLarge(request);
        return CollectMarkedTriangles(request, marks);
    }

    // The operator's own figure for the request's region and mode.
    std::uint64_t RasterBytes(const PickRequest& request) const override {
        MStlBaseOperatorMarkPolygon op = MakeOperator(request.settings);
        SetRegion(op, RegionOnScreen(request.settings.region, request.view));
        op.SetMarkThrough(request.settings.markThrough);
        return op.RasterBytes();
    }

  private:
    // The scale is passed, never read from process-wide state, so picks on several threads at
    // different scales do not meet.
    static MStlBaseOperatorMarkPolygon MakeOperator(const PickSettings& settings) {
        return MStlBaseOperatorMarkPolygon(settings.pixelProportion, settings.depthTolerance,
                                           settings.skipHiddenSurfaces, settings.unitsPerModelUnit);
    }

    static void SetRegion(MStlBaseOperatorMarkPolygon& op, const SelectionRegion& region) {
        if (region.shape == SelectionRegion::Shape::kPolygon) {
            op.SetPolygon(region.points);
            return;
        }
        // Scenes give this picker whole radii; the clamp only keeps the conversion defined.
        const double radius = std::min(region.brushRadius, 1.8e19);
        op.SetBrushPath(region.points, static_cast<std::size_t>(radius));
    }

    static PickError RasterTooLarge(const PickRequest& request) {
        const RegionPixelBox box =
            ComputeRegionPixelBox(RegionOnScreen(request.settings.region, request.view),
                                  request.settings.pixelProportion);
        return PickError("region", "the selection raster of " + std::to_string(box.width) + " x " +
                                       std::to_string(box.height) +
                                       " pixels is over the picker's limit of 2147483647 cells");
    }
};

}  // namespace

std::unique_ptr<Picker> MakeZBufferPicker() {
    return std::make_unique<ZBufferPicker>();
}

}  // namespace velpick
