#pragma once

class MStlBase;
class MStlGraph;

namespace velpick {

/// Adds to `mesh` the feature graph the graph picker marks, and returns it (owned by the mesh).
///
/// Vertices are numbered in order of first appearance when the triangles are walked in order,
/// each through its corners 0, 1, 2. A mesh edge joins the vertices of consecutive corners
/// (c0c1, c1c2, c2c0); edges are taken in order of first appearance, each from its lower- to
/// its higher-numbered vertex. An edge is kept when it borders one triangle, more than two
/// (non-manifold), or exactly two whose normals are both non-zero and make an angle of more
/// than `sharpAngleDegrees`.
MStlGraph* AddFeatureEdgeGraph(MStlBase& mesh, double sharpAngleDegrees);

}  // namespace velpick
