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

// Key of an unordered vertex pair: both mask indices, smaller first.
std::uint64_t edgeKey(const MStlPoint* a, const MStlPoint* b) {
    std::uint64_t i = a->GetMaskIndex(), j = b->GetMaskIndex();
    if (i > j)
        std::swap(i, j);
    return (i << 32) | j;
}

bool isFeatureEdge(const MStlMeshEdge& edge, double minDihedralDegrees,
                   bool includeSurfaceBorders) {
    if (edge.useCount > 2)
        return true;
    if (edge.useCount == 1)
        return includeSurfaceBorders;
    if (includeSurfaceBorders && edge.first->GetSurface() != edge.second->GetSurface())
        return true;
    // A NaN angle (degenerate triangle) compares false: not sharp.
    return DihedralDegrees(*edge.first, *edge.second) > minDihedralDegrees;
}

}  // namespace

std::vector<MStlMeshEdge> CollectMeshEdges(const MStlBase& stl) {
    std::vector<MStlMeshEdge> edges;
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
            MStlMeshEdge& edge = edges[it->second];
            if (++edge.useCount == 2)
                edge.second = &triangle;
        }
    }
    return edges;
}

double DihedralDegrees(const MStlTriangle& a, const MStlTriangle& b) {
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

MStlGraph* AddSharpEdgeGraph(MStlBase& stl, double minDihedralDegrees, bool includeSurfaceBorders) {
    if (std::isnan(minDihedralDegrees))
        throw std::invalid_argument("AddSharpEdgeGraph: minDihedralDegrees is NaN");
    const std::vector<MStlMeshEdge> edges = CollectMeshEdges(stl);
    MStlGraph* graph = stl.AddGraph();
    for (const MStlMeshEdge& edge : edges)
        if (isFeatureEdge(edge, minDihedralDegrees, includeSurfaceBorders))
            graph->AddEdge(edge.from, edge.to);
    return graph;
}
