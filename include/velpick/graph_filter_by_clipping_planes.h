#pragma once

#include <vector>

#include <velpick/host/plane_eq.h>

class MStlGraph;
class MStlScalarMaskGraphEdges;

/// Classifies every edge of a feature graph against clipping planes and writes one value per
/// edge into a scalar edge mask: the visible value for an edge on the kept side of every plane,
/// the intersecting value for an edge cut by some plane, the invisible value for an edge cut
/// away by some plane.
///
/// Planes keep the side where a·x + b·y + c·z + d ≥ 0. They are used as given (never
/// normalised) against the vertices' integer coordinates, so coefficients and edge thicknesses
/// are in internal units. With thickness on, an edge is a bar of radius thickness/2 at each
/// vertex (from the mesh's element information; a mesh without it gives radius 0).
///
/// Per plane, with signed values d0, d1 of vertices 0 and 1 and radii r0, r1:
/// - d0 ≤ −r0 and d1 ≤ 0: cut away. This is final; later planes are not examined. The test
///   widens only vertex 0 by its radius, so the class of a thick edge depends on its direction.
/// - otherwise r0 > d0 or r1 > d1: cut (later planes may still cut it away);
/// - otherwise the plane does not affect the edge.
/// An edge lying in a plane is cut away. NaN values make no comparison true.
///
/// The operator borrows the graph and the mask; they must outlive Operate().
class MStlGraphOperatorFilterByClippingPlanes {
  public:
    void SetGraph(const MStlGraph* graph) { m_graph = graph; }
    void SetGraphMask(MStlScalarMaskGraphEdges* mask) { m_graphMask = mask; }
    /// Appends a plane; planes cannot be removed.
    void AddPlane(MMPlaneEq<double> plane) { m_planes.push_back(plane); }
    void SetVisibleValue(float value) { m_visibleValue = value; }
    void SetInvisibleValue(float value) { m_invisibleValue = value; }
    void SetIntersectingValue(float value) { m_intersectingValue = value; }
    void SetWorkWithGraphThickness(bool work) { m_workWithGraphThickness = work; }

    /// Writes every edge's value (one write per edge, in the graph's order). Returns false,
    /// writing nothing, when the graph or the mask is missing. Without planes it returns true
    /// and leaves the mask untouched (edges are not set to the visible value).
    bool Operate();

  private:
    bool m_workWithGraphThickness = false;
    const MStlGraph* m_graph = nullptr;
    MStlScalarMaskGraphEdges* m_graphMask = nullptr;
    float m_visibleValue = 1.0f;
    float m_intersectingValue = 0.0f;
    float m_invisibleValue = -1.0f;
    std::vector<MMPlaneEq<double>> m_planes;
};
