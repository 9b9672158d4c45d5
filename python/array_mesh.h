#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include <velpick/host/stl_base.h>

namespace velpick::python {

/// A bad vertex or face array; what() names the argument ("vertices: ...", "faces: ...").
class ArrayMeshError : public std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

/// A borrowed, read-only 2D array with byte strides, as numpy lays one out (C order, Fortran
/// order or a slice). A 1D array is one column. Elements are read with memcpy, so the data
/// need not be aligned.
template <class T>
struct StridedArray {
    const char* data = nullptr;
    std::size_t rows = 0, columns = 0;
    std::ptrdiff_t rowStride = 0, columnStride = 0;

    T At(std::size_t row, std::size_t column = 0) const {
        T value;
        std::memcpy(&value,
                    data + static_cast<std::ptrdiff_t>(row) * rowStride +
                        static_cast<std::ptrdiff_t>(column) * columnStride,
                    sizeof(T));
        return value;
    }
};

/// The arrays of one mesh: vertices (N, 3) in model units, faces (M, 3) of vertex indices and,
/// optionally, markable (M,): the faces a pick may mark.
template <class Coordinate, class Index>
struct MeshArrays {
    StridedArray<Coordinate> vertices;
    StridedArray<Index> faces;
    std::optional<StridedArray<std::uint8_t>>
        markable;  // none: every face may be marked; else nonzero marks
};

/// A host mesh built from arrays, and for each of its vertices the lowest input vertex at its
/// position.
struct ArrayMesh {
    std::unique_ptr<MStlBase> mesh;
    std::vector<std::uint32_t> inputVertexOf;
};

/// Builds a host mesh the way the file importer does, with the importer's own builder: every
/// coordinate multiplied by `unitsPerModelUnit` and rounded half away from zero into 32 bits,
/// identical vertices merged, triangle i made of face i. Without `markable` the mesh has one
/// surface; with it, surface 0 holds the markable faces and surface 1 the others. Throws
/// ArrayMeshError naming the first vertex out of the 32-bit range (or not finite) or the first
/// face using a missing vertex; nothing is built then. Reads the arrays once; keeps no
/// reference to them.
template <class Coordinate, class Index>
ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>& arrays, double unitsPerModelUnit);

}  // namespace velpick::python
