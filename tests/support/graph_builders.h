#pragma once

// Feature graphs built edge by edge, in internal units.

#include <array>
#include <cstdint>

#include <velpick/host/element_info.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_graph.h>

namespace graphs {

using Corner = std::array<std::int32_t, 3>;

/// A mesh holding one feature graph whose edges are added with edge().
struct GraphMesh {
    MStlBase stl;
    MStlGraph& graph = *stl.AddGraph();

    MStlGraphEdge& edge(Corner from, Corner to) {
        return *graph.AddEdge(stl.FindOrAddPoint(from[0], from[1], from[2]),
                              stl.FindOrAddPoint(to[0], to[1], to[2]));
    }
    /// Gives the mesh element information (if it has none) and sets the edge's thickness.
    void setThickness(const MStlGraphEdge& edge, std::int32_t first, std::int32_t second) {
        MStlBaseElementInfoStlDependency::GetDependency(&stl, true)
            ->SetEdgeThickness(edge, {first, second});
    }
};

}  // namespace graphs
