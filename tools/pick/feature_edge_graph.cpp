#include "feature_edge_graph.h"

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include <velpick/host/feature_graphs.h>
#include <velpick/host/stl_base.h>

namespace velpick {

namespace {

bool IsFeatureEdge(const MStlMeshEdge& edge, double sharpAngleDegrees) {
    // A degenerate triangle's angle is NaN, which compares false: not sharp.
    return edge.useCount != 2 || DihedralDegrees(*edge.first, *edge.second) > sharpAngleDegrees;
}

}  // namespace

MStlGraph* AddFeatureEdgeGraph(MStlBase& mesh, double sharpAngleDegrees) {
    // Vertices are met in order of first appearance along the edges in theirs: a vertex first
    // appears in a triangle whose edges around it are all new, taken corner by corner.
    std::unordered_map<const MStlPoint*, std::size_t> number;
    number.reserve(mesh.GetNumberOfPoints());
    const auto numberOf = [&](const MStlPoint* vertex) {
        return number.try_emplace(vertex, number.size()).first->second;
    };
    MStlGraph* graph = mesh.AddGraph();
    for (const MStlMeshEdge& edge : CollectMeshEdges(mesh)) {
        const std::size_t from = numberOf(edge.from), to = numberOf(edge.to);
        if (IsFeatureEdge(edge, sharpAngleDegrees))
            from < to ? graph->AddEdge(edge.from, edge.to) : graph->AddEdge(edge.to, edge.from);
    }
    return graph;
}

}  // namespace velpick
