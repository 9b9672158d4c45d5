#pragma once

#include <cstdio>
#include <vector>

#include "placed_mesh.h"

namespace velpick {

/// Writes the meshes, placed, into one binary little-endian PLY: vertex coordinates as floats
/// in model units (internal units divided by `unitsPerModelUnit`), every triangle as a face
/// with red, green and blue, marked ones in the highlight colour. Face i of mesh k follows
/// the faces of meshes 0 … k−1 in triangle order. Throws std::runtime_error on a write error.
void WritePly(std::FILE* stream, const std::vector<PlacedMesh>& meshes, double unitsPerModelUnit);

}  // namespace velpick
