#include "array_mesh.h"

#include <string>
#include <utility>
#include <vector>

#include "mesh_builder.h"

namespace velpick::python {
namespace {

// The faces as the mesh builder reads them, with the surface each goes to.
template <class Coordinate, class Index>
struct ArrayTriangles {
    const MeshArrays<Coordinate, Index>& arrays;
    std::size_t Count() const { return arrays.faces.rows; }
    std::uint32_t Corner(std::size_t t, int k) const {
        return static_cast<std::uint32_t>(arrays.faces.At(t, static_cast<std::size_t>(k)));
    }
    std::uint32_t Surface(std::size_t t) const {
        return arrays.markable && arrays.markable->At(t) == 0 ? 1 : 0;
    }
};

}  // namespace

template <class Coordinate, class Index>
ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>& arrays, double unitsPerModelUnit) {
    std::vector<std::int32_t> units;
    try {
        units = detail::VerticesInUnits(
            arrays.vertices.rows,
            [&](std::size_t v, int axis) {
                return arrays.vertices.At(v, static_cast<std::size_t>(axis));
            },
            unitsPerModelUnit);
    } catch (const detail::ImportFailure& failure) {
        throw ArrayMeshError(std::string("vertices: ") + failure.what());
    }
    try {
        for (std::size_t f = 0; f < arrays.faces.rows; ++f)
            for (std::size_t corner = 0; corner < 3; ++corner)
                detail::CheckCorner(f, arrays.faces.At(f, corner), arrays.vertices.rows);
    } catch (const detail::ImportFailure& failure) {
        throw ArrayMeshError(std::string("faces: ") + failure.what());
    }
    ArrayMesh built;
    built.mesh = detail::BuildMeshInFirstUseOrder(
        units.data(), arrays.vertices.rows, arrays.markable ? 2 : 1,
        ArrayTriangles<Coordinate, Index>{arrays}, &built.inputVertexOf);
    return built;
}

#define VELPICK_BUILD_ARRAY_MESH(Coordinate, Index) \
    template ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>&, double);
#define VELPICK_BUILD_ARRAY_MESH_FOR_INDICES(Coordinate) \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int8_t)    \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int16_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int32_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int64_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint8_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint16_t)  \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint32_t)  \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint64_t)
VELPICK_BUILD_ARRAY_MESH_FOR_INDICES(float)
VELPICK_BUILD_ARRAY_MESH_FOR_INDICES(double)

}  // namespace velpick::python
