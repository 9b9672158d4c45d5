#pragma once

class MStlBase;
class MStlGraph;

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
