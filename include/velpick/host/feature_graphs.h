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

/// The feature graph that the graph picker marks, built on the first request for this mesh and
/// sharp angle and kept with the mesh for later requests (see MStlBase::_FeatureGraphs).
///
/// Vertices are numbered in order of first appearance when the triangles are walked in order,
/// each through its corners 0, 1, 2. A mesh edge joins the vertices of consecutive corners
/// (c0c1, c1c2, c2c0); edges are taken in order of first appearance, each from its lower- to
/// its higher-numbered vertex. An edge is kept when it borders one triangle, more than two
/// (non-manifold), or exactly two whose normals are both non-zero and make an angle of more
/// than `sharpAngleDegrees`.
///
/// Safe to call from several threads on the same mesh: a graph is built once, under the
/// cache's lock, and the others wait for it. The graph lives until triangles are added to the
/// mesh (the next request then builds a new one), ReleaseFeatureEdgeGraphs or the mesh's end.
/// Building a graph adds graph edges, which grows every edge mask of the mesh, so it must not
/// overlap another thread's use of an edge mask of the same mesh: ask for the graphs before
/// picking on several threads. Throws std::invalid_argument when the angle is NaN.
MStlGraph& FeatureEdgeGraph(MStlBase& stl, double sharpAngleDegrees);

/// Drops the graphs FeatureEdgeGraph keeps for `stl`; the next request builds them again.
void ReleaseFeatureEdgeGraphs(MStlBase& stl);
