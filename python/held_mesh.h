#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <velpick/host/stl_base.h>
#include "feature_edge_graph.h"
#include "picker.h"

namespace velpick::python {

/// The host mesh behind a velpick.Mesh: built once at its scale, then only read by every pick
/// that names it, on any thread. Its feature graphs are built once per sharp angle, under the
/// guard.
struct HeldMesh {
    std::unique_ptr<MStlBase> mesh;
    /// For each mesh vertex the lowest input vertex at its position (arrays); empty for a
    /// file, whose vertices are the mesh's own.
    std::vector<std::uint32_t> inputVertexOf;
    double unitsPerModelUnit = 1.0;
    FeatureGraphGuard graphGuard;
    PlacedBoundsCache bounds;

    PickMesh ToPickMesh() { return {mesh.get(), {}, true, {}, &graphGuard, &bounds}; }
    std::uint32_t InputVertex(std::uint32_t vertex) const {
        return inputVertexOf.empty() ? vertex : inputVertexOf[vertex];
    }
};

}  // namespace velpick::python
