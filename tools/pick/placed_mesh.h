#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <velpick/host/stl_base.h>
#include <velpick/host/transform_matrix.h>

namespace velpick {

class PlacedBoundsCache;

/// A feature edge by its end points: integer internal-unit coordinates of the mesh before
/// placement, the pair in lexicographic order.
using EdgeEnds = std::array<std::array<std::int32_t, 3>, 2>;

/// A mesh with its placement into the scene (mesh internal units → scene internal units).
struct PlacedMesh {
    MStlBase* mesh;  // read only; the host's vertex iteration is non-const
    MMTransformMatrix placement;
    std::vector<EdgeEnds> markedEdges = {};  // the graph picker's marks, drawn over the mesh
    PlacedBoundsCache* bounds = nullptr;     // found when needed when null
};

}  // namespace velpick
