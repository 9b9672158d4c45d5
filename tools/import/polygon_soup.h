#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <velpick/host/stl_base.h>
#include "import_failure.h"

namespace velpick::detail {

/// Polygons exactly as a file lists them, before any conversion: flat arrays, so a large
/// file costs a few allocations rather than one per vertex or face.
struct PolygonSoup {
    std::vector<double> coordinates;           // x, y, z of vertex i at 3i, 3i+1, 3i+2
    std::vector<std::uint32_t> faceStarts{0};  // face i lists corners [faceStarts[i], [i+1])
    std::vector<std::uint32_t> corners;        // vertex indices, as the file gives them
    std::vector<std::uint32_t> faceSurfaces;   // surface of each face; empty means all surface 0
    std::size_t surfaceCount = 1;

    std::size_t VertexCount() const { return coordinates.size() / 3; }
    std::size_t FaceCount() const { return faceStarts.size() - 1; }
    void AddVertex(double x, double y, double z) {
        coordinates.push_back(x);
        coordinates.push_back(y);
        coordinates.push_back(z);
    }
    void CloseFace() {
        if (corners.size() > UINT32_MAX)
            throw ImportFailure("more than 2^32 face corners");
        faceStarts.push_back(static_cast<std::uint32_t>(corners.size()));
    }
};

/// Builds a mesh from the soup: every face must have at least three corners that name existing
/// vertices, and every coordinate, scaled by `unitsPerModelUnit` and rounded to the nearest
/// integer, must fit in 32 bits. Face i becomes triangles in place, fanned from its first
/// corner. Throws ImportFailure naming the first offending face or vertex.
std::unique_ptr<MStlBase> BuildMesh(const PolygonSoup& soup, double unitsPerModelUnit);

}  // namespace velpick::detail
