#pragma once

#include <memory>
#include <vector>

#include <velpick/host/named_mask.h>
#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pinhole_projection.h>

class MStlGraph;

/// Marks the edges of a mesh's feature graph that lie under a screen polygon, writing 1.0 for
/// each into a scalar edge mask.
///
/// Edges that no clipping plane cuts are decided in 2D: projected into the polygon's pixel
/// frame (as segments, or with thickness as the outlines of MarkGraphPolygonUtils), culled
/// against the polygon's pixel box and then tested against the pixels the polygon fills.
/// Edges that a plane cuts (see MStlGraphOperatorFilterByClippingPlanes) become small prisms
/// that a scan-line visibility detector clips by the planes and tests under the polygon, so
/// only a visible kept part counts; prisms hide each other but nothing else does. Edges that
/// a plane cuts away are never marked.
///
/// Use: SetGraph and SetPolygon, optionally the pixel proportion, planes and thickness switch;
/// then Operate. Operate rewrites the polygon into pixels and the transform into the pixel
/// frame, so every run needs SetGraph and SetPolygon again; planes, pixel proportion and the
/// thickness switch persist. The graph (and its mesh) must outlive Operate.
class MStlGraphOperatorMarkPolygon {
  public:
    enum EReturnCode {
        Success = 0,
        /// No graph was set.
        NoGraph = 1,
        /// The polygon has fewer than 3 points.
        PolygonTooSmall = 2,
        /// Thickness is on, a plane cuts some edge, and the graph's mesh has no element info.
        MissingEdgeThickness = 3,
        /// The plane pre-filter failed: the mesh already holds a mask named
        /// "filtered_by_planes".
        PlaneFilterFailed = 4
    };

    /// No graph, no polygon, no planes, 5 pixels per polygon unit, thickness on.
    MStlGraphOperatorMarkPolygon();

    /// The graph to mark and its model-to-view transform (x, y on screen in polygon units).
    void SetGraph(MStlGraph& graph, const MMTransformMatrix& transform);
    /// The closed screen polygon (the last point joins the first), in screen units.
    void SetPolygon(const std::vector<VelSDK::Math::point2d>& polygon);
    /// Pixels per polygon unit. It is also the tolerance, in pixels, with which projected edges
    /// are culled against the polygon's pixel box.
    void SetPixelProportion(double pixelProportion);
    /// Keeps a·x + b·y + c·z + d ≥ 0 in the graph's model coordinates (internal units, not
    /// normalised). Planes cannot be removed.
    void AddClippingPlane(MMPlaneEq<double> plane);
    /// With thickness, edges are bars of their element-info thickness (2D outlines count a
    /// thickness ≤ 0 as 5000 units; prisms of cut edges count a (0, 0) pair as 20 units and
    /// require the element info); without, 2D edges are segments and prisms have radius 10.
    /// On a mesh without element info, thickness on gives 2D edges the zero-area outline
    /// A, B, A, which covers no pixel: such edges are then marked only by markWholeCandidates,
    /// so switch thickness off for meshes without thickness.
    void SetWorkWithGraphThickness(bool work);
    /// Sees the graph through `projection` after the SetGraph transform, which then maps model
    /// coordinates into eye space (see PerspectiveProjection); the polygon stays in screen
    /// units. Without this call the transform is affine and every mark stays as it was. Under
    /// a projection:
    /// - an edge decided in 2D is first cut by the near plane (depth ≥ nearDistance) in eye
    ///   space: an edge wholly nearer is never marked, one across it keeps its far part (a cut
    ///   before the 2D test, not a clipping plane: the edge does not become a prism). Its ends
    ///   are then projected with the divide;
    /// - with thickness, its outline is that of GetOutlineOfPerspectiveEdgeWithThickness: each
    ///   end's half-width is the bar's radius (half its thickness) projected at that end's
    ///   depth, r·f/depth;
    /// - prisms of edges a clipping plane cuts go to the visibility detector with the same
    ///   projection, so its near plane cuts them too;
    /// - Operate keeps the transform as given (it still rewrites the polygon).
    void SetPerspective(const AU_MarkOperations::PolygonMarking::PerspectiveProjection& projection);

    /// Writes 1.0 into `output` for every marked edge; other edges keep their values.
    /// `markWholeCandidates` marks every uncut edge whose projection reaches the polygon's
    /// pixel box (within the pixel-proportion tolerance) without the pixel test.
    ///
    /// Returns NoGraph or PolygonTooSmall without changing anything; PlaneFilterFailed before
    /// converting anything; MissingEdgeThickness after the polygon and transform have been
    /// converted but with `output` untouched. A temporary mask "filtered_by_planes" lives on
    /// the graph's mesh during a run with planes and is always released. A polygon whose pixel
    /// box exceeds 2 147 483 647 pixels raises std::length_error, and so does a sweep over the
    /// prisms of cut edges that needs more sample lines than a vector holds (std::bad_alloc
    /// when more than memory holds); `output` is then untouched.
    EReturnCode Operate(MStlScalarMaskGraphEdges& output, bool markWholeCandidates);

    /// The polygon's pixel box, from (0, 0) to (width, height) in pixels.
    struct PixelFrame {
        double width, height;
    };

  private:
    struct EdgeRoutes;
    using NamedEdgeMask = std::unique_ptr<
        MStlScalarMaskGraphEdges,
        VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<MStlScalarMaskGraphEdges>>;

    // The steps of Operate.
    bool FilterByPlanes(NamedEdgeMask& planeClasses) const;
    PixelFrame ConvertToPixelFrame();
    bool RouteEdges(const MStlScalarMaskGraphEdges* planeClasses, const PixelFrame& frame,
                    EdgeRoutes& routes) const;

    MStlGraph* m_graph = nullptr;
    MMTransformMatrix m_modelTransform;
    std::vector<VelSDK::Math::point2d> m_polygon;
    std::vector<MMPlaneEq<double>> m_clippingPlanes;
    double m_pixelProportion;
    bool m_workWithGraphThickness = true;
    bool m_perspective = false;
    AU_MarkOperations::PolygonMarking::PerspectiveProjection m_projection{};
    /// Under a projection, the projection onto the polygon's pixel frame; set by every run.
    AU_MarkOperations::PolygonMarking::PerspectiveProjection m_pixelCamera{};
};
