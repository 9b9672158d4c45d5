#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <unordered_map>
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

/// A host mesh built from arrays, and its input vertices in internal units (x, y, z of vertex i
/// at 3i, 3i + 1, 3i + 2).
struct ArrayMesh {
    std::unique_ptr<MStlBase> mesh;
    std::vector<std::int32_t> units;
};

/// Builds a host mesh the way the file importer does: every coordinate multiplied by
/// MInternalUnits::Get() and rounded half away from zero into 32 bits, identical vertices merged,
/// triangle i made of face i. Without `markable` the mesh has one surface; with it, surface 0
/// holds the markable faces and surface 1 the others. Throws ArrayMeshError naming the first
/// vertex out of the 32-bit range (or not finite) or the first face using a missing vertex;
/// nothing is built then. Reads the arrays once; keeps no reference to them.
template <class Coordinate, class Index>
ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>& arrays);

/// Names merged mesh vertices by input vertex: the lowest index of an input vertex at each
/// internal-unit position.
class FirstVertexIndex {
  public:
    using Position = std::array<std::int32_t, 3>;
    explicit FirstVertexIndex(const std::vector<std::int32_t>& units);
    /// The lowest input vertex index at `position`, or nothing when no input vertex is there.
    std::optional<std::size_t> Find(const Position& position) const;

  private:
    struct PositionHash {
        std::size_t operator()(const Position& p) const;
    };
    std::unordered_map<Position, std::size_t, PositionHash> m_first;
};

}  // namespace velpick::python
