#include "mark_polygon.h"
#include "tools/picker.h"

namespace velpick {

namespace {

/// The z-buffer picker: every triangle drawn into a depth buffer over the region's pixels,
/// candidates marked where they are within the depth tolerance of the front-most surface.
class ZBufferPicker : public Picker {
  public:
    std::optional<PickResult> Pick(const PickRequest& request) override {
        MStlBaseOperatorMarkPolygon op(request.pixelProportion, request.depthTolerance,
                                       request.skipHiddenSurfaces);
        for (const PickMesh& mesh : request.meshes) {
            op.AddStl(mesh.mesh, &request.view, &mesh.placement, mesh.markWholeMesh, nullptr);
            for (MStlSurface* surface : mesh.markableSurfaces)
                op.SetMarkableSurface(surface);
        }
        for (const MMPlaneEq<double>& plane : request.clippingPlanes)
            op.AddClippingPlane(plane);
        SetRegion(op, request.region);
        op.SetBackFaceCulling(request.backFaceCulling);
        op.SetMarkThrough(request.markThrough);
        op.SetUnmark(request.unmark);
        if (!op.operate())
            return std::nullopt;
        return Collect(request);
    }

  private:
    static void SetRegion(MStlBaseOperatorMarkPolygon& op, const SelectionRegion& region) {
        if (region.shape == SelectionRegion::Shape::kPolygon)
            op.SetPolygon(region.points);
        else
            op.SetBrushPath(region.points, region.brushRadius);
    }

    static PickResult Collect(const PickRequest& request) {
        PickResult result;
        for (const PickMesh& mesh : request.meshes)
            result.marked.push_back(MarkedTriangles(*mesh.mesh));
        result.region = ComputeRegionPixelBox(request.region, request.pixelProportion);
        return result;
    }
};

}  // namespace

std::unique_ptr<Picker> MakeZBufferPicker() {
    return std::make_unique<ZBufferPicker>();
}

}  // namespace velpick
