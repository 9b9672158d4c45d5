#include <algorithm>
#include <chrono>
#include <cmath>

#include <velpick/graph_mark_polygon.h>
#include <velpick/host/element_info.h>
#include <velpick/host/named_mask.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_graph.h>
#include <velpick/host/stl_point.h>
#include <velpick/pinhole_projection.h>
#include "feature_edge_graph.h"
#include "picker.h"
#include "pinhole_view.h"

namespace velpick {

namespace {

/// The graph picker: each mesh's feature edges under the polygon, marked into an edge mask.
/// Meshes do not hide each other; an edge cut by a clipping plane counts where its kept part
/// is visible among the other cut edges.
class GraphPicker : public Picker {
  public:
    PickResult Pick(const PickRequest& request) override {
        if (request.settings.region.shape != SelectionRegion::Shape::kPolygon)
            throw PickError("region", "the graph picker takes a polygon, not a brush");
        PickResult result;
        for (const PickMesh& mesh : request.meshes)
            result.meshes.push_back({{}, PickEdges(request, mesh)});
        result.region = ComputeRegionPixelBox(RegionOnScreen(request.settings.region, request.view),
                                              request.settings.pixelProportion);
        return result;
    }

  private:
    // Thick edges write their thickness into the mesh, so a thick pick of a shared mesh runs
    // alone; the others share it with every pick of a graph already built.
    static EdgePick PickEdges(const PickRequest& request, const PickMesh& mesh) {
        const double angle = request.settings.graph.sharpAngleDegrees;
        const auto start = std::chrono::steady_clock::now();
        FeatureGraphGuard::ReadLock read;
        FeatureGraphGuard::WriteLock write;
        MStlGraph* graph = nullptr;
        if (!mesh.graphGuard)
            graph = AddFeatureEdgeGraph(*mesh.mesh, angle);
        else if (request.settings.graph.thickness > 0.0)
            graph = &mesh.graphGuard->Graph(*mesh.mesh, angle, write);
        else
            graph = &mesh.graphGuard->Graph(*mesh.mesh, angle, read);
        const std::chrono::duration<double, std::milli> graphTime =
            std::chrono::steady_clock::now() - start;
        EdgePick pick = PickGraphEdges(request, mesh, *graph);
        pick.graphMilliseconds = graphTime.count();
        return pick;
    }

    static EdgePick PickGraphEdges(const PickRequest& request, const PickMesh& mesh,
                                   MStlGraph& graph) {
        MStlGraphOperatorMarkPolygon op;
        MMTransformMatrix modelToScreen = mesh.placement;
        op.SetGraph(graph, modelToScreen.PreMultiply(request.view.matrix));
        op.SetPolygon(RegionOnScreen(request.settings.region, request.view).points);
        op.SetPixelProportion(request.settings.pixelProportion);
        if (request.view.projection) {
            const ViewProjection projection = ResolvedProjection(request.view, request.meshes);
            op.SetPerspective({projection.fx, projection.fy, projection.cx, projection.cy,
                               projection.nearDistance});
        }
        for (const MMPlaneEq<double>& plane : request.settings.clippingPlanes)
            op.AddClippingPlane(PlaneInModelSpace(plane, mesh.placement));
        const bool thick = request.settings.graph.thickness > 0.0;
        op.SetWorkWithGraphThickness(thick);
        if (thick)
            SetThickness(*mesh.mesh, graph,
                         request.settings.graph.thickness * request.settings.unitsPerModelUnit);

        MStlScalarMaskGraphEdges mask(*mesh.mesh, 0.0f);
        EdgePick pick;
        pick.edgeCount = graph.GetNumberOfEdges();
        pick.returnCode = op.Operate(mask, request.settings.graph.markWholeCandidates);
        MarkEdges(graph, mask, pick);
        return pick;
    }

    // The plane [a b c d] · P: the same half-space, in the coordinates P maps from.
    static MMPlaneEq<double> PlaneInModelSpace(const MMPlaneEq<double>& plane,
                                               const MMTransformMatrix& placement) {
        const double coefficients[4] = {plane.a, plane.b, plane.c, plane.d};
        double mapped[4];
        for (int column = 0; column < 4; ++column) {
            mapped[column] = 0.0;
            for (int row = 0; row < 4; ++row)
                mapped[column] += coefficients[row] * placement.Get(row, column);
        }
        return {mapped[0], mapped[1], mapped[2], mapped[3]};
    }

    // Every edge gets the thickness (t, t), t the thickness rounded to internal units.
    static void SetThickness(MStlBase& mesh, MStlGraph& graph, double internalUnits) {
        MStlBaseElementInfo& info = *MStlBaseElementInfoStlDependency::GetDependency(&mesh, true);
        const auto t = static_cast<std::int32_t>(std::round(internalUnits));
        for (const MStlGraphEdge& edge : graph.GraphEdges())
            info.SetEdgeThickness(edge, {t, t});
    }

    // An edge's ends by position, in lexicographic order, with their vertex numbers.
    struct MarkedEdge {
        EdgeEnds ends;
        std::array<std::uint32_t, 2> vertices;
        bool operator<(const MarkedEdge& other) const { return ends < other.ends; }
    };

    static MarkedEdge Ends(const MStlGraphEdge& edge) {
        MarkedEdge marked;
        for (int v = 0; v < 2; ++v) {
            const MStlPoint& point = *edge.GetVertex(v);
            marked.ends[v] = {point[0], point[1], point[2]};
            marked.vertices[v] = static_cast<std::uint32_t>(point.GetMaskIndex());
        }
        if (marked.ends[1] < marked.ends[0]) {
            std::swap(marked.ends[0], marked.ends[1]);
            std::swap(marked.vertices[0], marked.vertices[1]);
        }
        return marked;
    }

    static void MarkEdges(const MStlGraph& graph, const MStlScalarMaskGraphEdges& mask,
                          EdgePick& pick) {
        std::vector<MarkedEdge> marked;
        for (const MStlGraphEdge& edge : graph.GraphEdges()) {
            if (mask.GetScalar(edge) == 1.0)
                marked.push_back(Ends(edge));
        }
        std::sort(marked.begin(), marked.end());
        for (const MarkedEdge& edge : marked) {
            pick.marked.push_back(edge.ends);
            pick.markedVertices.push_back(edge.vertices);
        }
    }
};

}  // namespace

std::unique_ptr<Picker> MakeGraphPicker() {
    return std::make_unique<GraphPicker>();
}

}  // namespace velpick
