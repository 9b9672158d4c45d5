#include "feature_edge_graph.h"

#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include <velpick/host/stl_base.h>

namespace velpick {

namespace {

using VelSDK::Math::point3d;

constexpr double kDegreesPerRadian = 180.0 / 3.14159265358979323846;

// A mesh edge, lower-numbered vertex first, with the first two triangles that use it.
struct MeshEdge {
    MStlPoint* low;
    MStlPoint* high;
    const MStlTriangle* first;
    const MStlTriangle* second = nullptr;
    std::size_t useCount = 1;
};

class EdgeCollector {
  public:
    explicit EdgeCollector(std::size_t triangleCount) {
        m_vertexNumbers.reserve(triangleCount);
        m_edgeIndex.reserve(triangleCount * 3 / 2 + 1);
        m_edges.reserve(triangleCount * 3 / 2 + 1);
    }

    void AddTriangle(const MStlTriangle& triangle) {
        const std::uint64_t numbers[3] = {Number(triangle.GetPoint(0)),
                                          Number(triangle.GetPoint(1)),
                                          Number(triangle.GetPoint(2))};
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const std::size_t next = (corner + 1) % 3;
            AddUse(triangle, numbers[corner], triangle.GetPoint(corner), numbers[next],
                   triangle.GetPoint(next));
        }
    }

    const std::vector<MeshEdge>& Edges() const { return m_edges; }

  private:
    std::uint64_t Number(const MStlPoint* vertex) {
        return m_vertexNumbers.try_emplace(vertex, m_vertexNumbers.size()).first->second;
    }

    void AddUse(const MStlTriangle& triangle, std::uint64_t a, MStlPoint* va, std::uint64_t b,
                MStlPoint* vb) {
        if (a > b) {
            std::swap(a, b);
            std::swap(va, vb);
        }
        const auto [it, inserted] = m_edgeIndex.try_emplace((a << 32) | b, m_edges.size());
        if (inserted) {
            m_edges.push_back({va, vb, &triangle});
            return;
        }
        MeshEdge& edge = m_edges[it->second];
        if (++edge.useCount == 2)
            edge.second = &triangle;
    }

    std::unordered_map<const MStlPoint*, std::uint64_t> m_vertexNumbers;
    std::unordered_map<std::uint64_t, std::size_t> m_edgeIndex;
    std::vector<MeshEdge> m_edges;
};

bool IsZero(const point3d& n) {
    return n.x == 0.0 && n.y == 0.0 && n.z == 0.0;
}

// Angle in degrees between two unit normals; atan2 of the cross and dot products stays
// accurate for nearly parallel normals, where acos loses half its digits.
double AngleDegrees(const point3d& n, const point3d& m) {
    const point3d cross{n.y * m.z - n.z * m.y, n.z * m.x - n.x * m.z, n.x * m.y - n.y * m.x};
    const double sine = std::sqrt(cross.x * cross.x + cross.y * cross.y + cross.z * cross.z);
    return std::atan2(sine, n.x * m.x + n.y * m.y + n.z * m.z) * kDegreesPerRadian;
}

bool IsFeatureEdge(const MeshEdge& edge, double sharpAngleDegrees) {
    if (edge.useCount != 2)
        return true;
    const point3d n = edge.first->GetNormal(), m = edge.second->GetNormal();
    return !IsZero(n) && !IsZero(m) && AngleDegrees(n, m) > sharpAngleDegrees;
}

}  // namespace

MStlGraph* AddFeatureEdgeGraph(MStlBase& mesh, double sharpAngleDegrees) {
    EdgeCollector collector(mesh.GetNumberOfTriangles());
    for (const MStlTriangle& triangle : mesh.Triangles())
        collector.AddTriangle(triangle);
    MStlGraph* graph = mesh.AddGraph();
    for (const MeshEdge& edge : collector.Edges()) {
        if (IsFeatureEdge(edge, sharpAngleDegrees))
            graph->AddEdge(edge.low, edge.high);
    }
    return graph;
}

}  // namespace velpick
