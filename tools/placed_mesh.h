#pragma once

#include "stl_base.h"
#include "transform_matrix.h"

namespace velpick {

/// A mesh with its placement into the scene (mesh internal units → scene internal units).
struct PlacedMesh {
    MStlBase* mesh;  // read only; the host's vertex iteration is non-const
    MMTransformMatrix placement;
};

}  // namespace velpick
