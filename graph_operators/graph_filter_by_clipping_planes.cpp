#include <velpick/graph_filter_by_clipping_planes.h>

#include <velpick/host/element_info.h>
#include <velpick/host/named_mask.h>
#include <velpick/host/point.h>
#include <velpick/host/stl_graph.h>
#include <velpick/host/stl_point.h>
#include "graph_operators/edge_bar.h"

using MarkGraphPolygonUtils::detail::ToDouble;
using VelSDK::Math::point3d;

namespace {

enum class PlaneClass { Invisible, Intersecting, Visible };

// The edge's class over all planes. Vertex 0 is widened by its radius in the cut-away test
// while vertex 1 is compared with zero: edges are classified by direction, on purpose.
PlaneClass Classify(const point3d& p0, const point3d& p1, double r0, double r1,
                    const std::vector<MMPlaneEq<double>>& planes) {
    bool cut = false;
    for (const MMPlaneEq<double>& plane : planes) {
        const double d0 = plane.SignedValue(p0), d1 = plane.SignedValue(p1);
        if (d0 <= -r0 && d1 <= 0.0)
            return PlaneClass::Invisible;
        if (r0 > d0 || r1 > d1)
            cut = true;
    }
    return cut ? PlaneClass::Intersecting : PlaneClass::Visible;
}

}  // namespace

bool MStlGraphOperatorFilterByClippingPlanes::Operate() {
    if (!m_graph || !m_graphMask)
        return false;
    if (m_planes.empty())
        return true;
    // Looked up once, also when thickness is off.
    const MStlBaseElementInfo* info =
        MStlBaseElementInfoStlDependency::GetDependency(m_graph->GetStl(), false);
    for (const MStlGraphEdge& edge : m_graph->GraphEdges()) {
        const point3d p0 = ToDouble(*edge.GetVertex(0)), p1 = ToDouble(*edge.GetVertex(1));
        double r0 = 0.0, r1 = 0.0;
        if (m_workWithGraphThickness && info) {
            const MStlGraphEdgeThickness& thickness = info->GetEdgeThickness(edge);
            r0 = static_cast<double>(thickness.first) * 0.5;
            r1 = static_cast<double>(thickness.second) * 0.5;
        }
        switch (Classify(p0, p1, r0, r1, m_planes)) {
            case PlaneClass::Invisible:
                m_graphMask->SetScalar(edge, m_invisibleValue);
                break;
            case PlaneClass::Intersecting:
                m_graphMask->SetScalar(edge, m_intersectingValue);
                break;
            case PlaneClass::Visible:
                m_graphMask->SetScalar(edge, m_visibleValue);
                break;
        }
    }
    return true;
}
