#pragma once

#include <cstddef>
#include <vector>

class MStlBase;
class MStlGraph;
class MStlPoint;
class MStlTriangle;

/// One edge of a mesh: a vertex pair shared by triangles, oriented as it is first met, with
/// the first two triangles that use it and how many use it in all.
struct MStlMeshEdge {
    MStlPoint* from;
    MStlPoint* to;
    const MStlTriangle* first;
    const MStlTriangle* second = nullptr;  // null while only one triangle uses the edge
    std::size_t useCount = 1;
};

/// Every mesh edge once, in order of first appearance when the triangles are walked in
/// creation order, each through its edges 0–1, 1–2, 2–0.
std::vector<MStlMeshEdge> CollectMeshEdges(const MStlBase& stl);

/// The angle in degrees between the unit normals of two triangles, computed as atan2 of the
/// cross and dot products (accurate for nearly coplanar triangles); NaN when either triangle is
/// degenerate (zero normal).
double DihedralDegrees(const MStlTriangle& a, const MStlTriangle& b);

/// Builds a new feature graph on `stl` from its sharp edges and returns it (owned by the mesh).
///
/// A mesh edge is a vertex pair shared by triangles. An edge used by two triangles is sharp
/// when the angle between the triangles' unit normals is strictly above `minDihedralDegrees`;
/// an edge used by more than two triangles (non-manifold) is always sharp. With
/// `includeSurfaceBorders`, every edge on the border of a surface is added too: an edge used by
/// one triangle only, or by two triangles of different surfaces. An edge beside a degenerate
/// (zero-area) triangle has no dihedral angle and is added only as a border or non-manifold edge.
///
/// Each edge is added once, oriented as it is first met, in order of first appearance when the
/// triangles are walked in creation order, each through its edges 0–1, 1–2, 2–0. A mesh with no
/// such edge gets an empty graph. Throws std::invalid_argument when the threshold is NaN.
MStlGraph* AddSharpEdgeGraph(MStlBase& stl, double minDihedralDegrees, bool includeSurfaceBorders);
