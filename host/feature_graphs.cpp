#include <velpick/host/feature_graphs.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <unordered_map>
#include <utility>
#include <vector>

#include <velpick/host/stl_base.h>

namespace {

using VelSDK::Math::point3d;

constexpr double kDegreesPerRadian = 180.0 / 3.14159265358979323846;

// One mesh edge with the first two triangles that use it and how many use it in all.
struct MeshEdge {
    MStlPoint* from;
    MStlPoint* to;
    const MStlTriangle* first;
    const MStlTriangle* second = nullptr;
    std::size_t useCount = 1;
};

// Key of an unordered vertex pair: both mask indices, smaller first.
std::uint64_t edgeKey(const MStlPoint* a, const MStlPoint* b) {
    std::uint64_t i = a->GetMaskIndex(), j = b->GetMaskIndex();
    if (i > j)
        std::swap(i, j);
    return (i << 32) | j;
}

// Every mesh edge once, in order of first appearance.
std::vector<MeshEdge> collectMeshEdges(MStlBase& stl) {
    std::vector<MeshEdge> edges;
    std::unordered_map<std::uint64_t, std::size_t> edgeIndex;
    edges.reserve(stl.GetNumberOfTriangles() * 3 / 2 + 1);
    edgeIndex.reserve(stl.GetNumberOfTriangles() * 3 / 2 + 1);
    for (const MStlTriangle& triangle : stl.Triangles()) {
        for (std::size_t corner = 0; corner < 3; ++corner) {
            MStlPoint* from = triangle.GetPoint(corner);
            MStlPoint* to = triangle.GetPoint((corner + 1) % 3);
            const auto [it, inserted] = edgeIndex.try_emplace(edgeKey(from, to), edges.size());
            if (inserted) {
                edges.push_back({from, to, &triangle});
                continue;
            }
            MeshEdge& edge = edges[it->second];
            if (++edge.useCount == 2)
                edge.second = &triangle;
        }
    }
    return edges;
}

// Angle in degrees between the unit normals of two triangles; NaN when one is degenerate.
// atan2 of the cross and dot products stays accurate for nearly coplanar triangles.
double dihedralDegrees(const MStlTriangle& a, const MStlTriangle& b) {
    const point3d n = a.GetNormal(), m = b.GetNormal();
    const point3d cross{n.y * m.z - n.z * m.y, n.z * m.x - n.x * m.z, n.x * m.y - n.y * m.x};
    const double dot = n.x * m.x + n.y * m.y + n.z * m.z;
    // Both are unit vectors, so the plain length cannot overflow; the scaled Length would
    // turn a zero cross product into the smallest positive double.
    const double sine = std::sqrt(cross.x * cross.x + cross.y * cross.y + cross.z * cross.z);
    if (dot == 0.0 && sine == 0.0)
        return NAN;
    return std::atan2(sine, dot) * kDegreesPerRadian;
}

bool isFeatureEdge(const MeshEdge& edge, double minDihedralDegrees, bool includeSurfaceBorders) {
    if (edge.useCount > 2)
        return true;
    if (edge.useCount == 1)
        return includeSurfaceBorders;
    if (includeSurfaceBorders && edge.first->GetSurface() != edge.second->GetSurface())
        return true;
    // A NaN angle (degenerate triangle) compares false: not sharp.
    return dihedralDegrees(*edge.first, *edge.second) > minDihedralDegrees;
}

}  // namespace

MStlGraph* AddSharpEdgeGraph(MStlBase& stl, double minDihedralDegrees, bool includeSurfaceBorders) {
    if (std::isnan(minDihedralDegrees))
        throw std::invalid_argument("AddSharpEdgeGraph: minDihedralDegrees is NaN");
    const std::vector<MeshEdge> edges = collectMeshEdges(stl);
    MStlGraph* graph = stl.AddGraph();
    for (const MeshEdge& edge : edges)
        if (isFeatureEdge(edge, minDihedralDegrees, includeSurfaceBorders))
            graph->AddEdge(edge.from, edge.to);
    return graph;
}
