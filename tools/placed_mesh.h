#pragma once

#include <vector>

#include <velpick/host/stl_base.h>
#include <velpick/host/transform_matrix.h>
#include "tools/picker.h"

namespace velpick {

/// A mesh with its placement into the scene (mesh internal units → scene internal units).
struct PlacedMesh {
    MStlBase* mesh;  // read only; the host's vertex iteration is non-const
    MMTransformMatrix placement;
    std::vector<EdgeEnds> markedEdges = {};  // the graph picker's marks, drawn over the mesh
};

}  // namespace velpick
