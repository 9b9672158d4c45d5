#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <velpick/host/stl_base.h>
#include <velpick/host/stl_surface.h>
#include "import_failure.h"

namespace velpick::detail {

/// A coordinate in model units as internal units: scaled, rounded half away from zero; nothing
/// when the result leaves the 32-bit range or is not a number.
inline std::optional<std::int32_t> ToInternalUnits(double coordinate, double unitsPerModelUnit) {
    const double scaled = coordinate * unitsPerModelUnit;
    // The rounded value fits exactly when the scaled one lies strictly between -2^31 - 1/2 and
    // 2^31 - 1/2 (both exact in double). NaN fails too.
    if (!(scaled > -2147483648.5 && scaled < 2147483647.5))
        return std::nullopt;
    // Rounding without a library call: the part after the point, scaled minus its truncation,
    // is exact, so comparing it with one half decides as std::round does.
    const auto truncated = static_cast<std::int64_t>(scaled);
    const double fraction = scaled - static_cast<double>(truncated);
    return static_cast<std::int32_t>(truncated + (fraction >= 0.5) - (fraction <= -0.5));
}

/// ToInternalUnits of `count` values at once, written to units[i]: true when every value fits,
/// false (the units then unspecified) when ToInternalUnits refuses any.
bool AllToInternalUnits(const float* values, std::size_t count, double unitsPerModelUnit,
                        std::int32_t* units);

/// Throws ImportFailure naming coordinate `axis` (0, 1, 2 for x, y, z) of input vertex
/// `vertex`, whose `value` ToInternalUnits refuses.
[[noreturn]] void ThrowCoordinateOutOfRange(std::size_t vertex, int axis, double value);

/// The most input vertices a mesh is built from: FirstUseNumbering keeps a mark in the top bit.
constexpr std::size_t kMaxInputVertices = 2147483647;

/// The coordinates of `count` vertices, coordinate(v, axis) in model units, as internal units:
/// x, y, z of vertex v at 3v, 3v + 1, 3v + 2. Throws ImportFailure naming the first coordinate
/// that ToInternalUnits refuses.
template <class Coordinate>
std::vector<std::int32_t> VerticesInUnits(std::size_t count, Coordinate&& coordinate,
                                          double unitsPerModelUnit) {
    if (count > kMaxInputVertices)
        throw ImportFailure("more than " + std::to_string(kMaxInputVertices) + " vertices");
    std::vector<std::int32_t> units(3 * count);
    for (std::size_t v = 0; v < count; ++v) {
        for (int axis = 0; axis < 3; ++axis) {
            const double value = static_cast<double>(coordinate(v, axis));
            const std::optional<std::int32_t> unit = ToInternalUnits(value, unitsPerModelUnit);
            if (!unit)
                ThrowCoordinateOutOfRange(v, axis, value);
            units[3 * v + axis] = *unit;
        }
    }
    return units;
}

/// Throws ImportFailure unless `index`, a corner of face `face`, names one of `vertexCount`
/// vertices.
template <class Index>
void CheckCorner(std::size_t face, Index index, std::size_t vertexCount) {
    bool negative = false;
    if constexpr (std::is_signed_v<Index>)
        negative = index < Index{0};
    if (!negative && static_cast<std::uint64_t>(index) < vertexCount)
        return;
    const std::string text = negative ? std::to_string(static_cast<long long>(index))
                                      : std::to_string(static_cast<unsigned long long>(index));
    throw ImportFailure("face " + std::to_string(face) + " uses vertex " + text +
                        " but there are " + std::to_string(vertexCount) + " vertices");
}

/// Mesh numbers of input vertices, given in order of first use: input vertices at equal
/// positions share one number.
class FirstUseNumbering {
  public:
    /// `units`: x, y, z of input vertex v at 3v, 3v + 1, 3v + 2; read, not kept. At most
    /// 2^31 - 1 vertices.
    FirstUseNumbering(const std::int32_t* units, std::size_t count);

    /// The number of input vertex v, given now when none is.
    std::uint32_t Number(std::uint32_t v) {
        const std::uint32_t entry = m_entries[v];
        if (!(entry & kUnnumbered))
            return entry;
        return NumberFirstUse(v, entry & ~kUnnumbered);
    }
    /// The number of an input vertex already numbered.
    std::uint32_t NumberOfUsed(std::uint32_t v) const { return m_entries[v]; }
    std::size_t NumberedCount() const { return m_numbered; }
    /// The number of distinct positions: at most this many numbers are given.
    std::size_t PositionCount() const { return m_positionCount; }
    /// The lowest input vertex at the position of the vertex numbered `number`.
    std::uint32_t InputVertexOf(std::size_t number) const { return m_firstUses[number]; }
    /// Adds the vertices numbered from `first` on to `mesh`, in number order, from `units`.
    void AddVertices(const std::int32_t* units, MStlBase& mesh, std::size_t first = 0) const;

  private:
    // Input vertex numbers are below 2^31, so the top bit is free for the mark. Until an input
    // vertex has its number, its entry holds the mark and the first input vertex at its
    // position, whose entry receives the number all input vertices there share.
    static constexpr std::uint32_t kUnnumbered = 0x80000000u;

    std::uint32_t NumberFirstUse(std::uint32_t v, std::uint32_t first);

    std::unique_ptr<std::uint32_t[]> m_entries;
    std::unique_ptr<std::uint32_t[]> m_firstUses;  // the first input vertex of each number
    std::size_t m_numbered = 0;
    std::size_t m_positionCount = 0;
};

/// Vertices and triangles go to the mesh in batches this long: the batch stays in the cache.
constexpr std::size_t kBuildBatch = 4096;

/// The one way every reader builds its mesh. `units` holds `vertexCount` input vertices in
/// internal units (see VerticesInUnits); `triangles` gives Count(), Corner(t, k), the input
/// vertex of corner k of triangle t, every one checked to exist, and Surface(t), below
/// `surfaceCount`. Mesh vertices are numbered in order of first use, triangles in order,
/// corners 0, 1, 2; triangle t of the mesh is triangle t of the list, in surface Surface(t).
/// `inputVertexOf`, when given, receives for each mesh vertex the lowest input vertex at its
/// position.
template <class Triangles>
std::unique_ptr<MStlBase> BuildMeshInFirstUseOrder(
    const std::int32_t* units, std::size_t vertexCount, std::size_t surfaceCount,
    const Triangles& triangles, std::vector<std::uint32_t>* inputVertexOf = nullptr) {
    const std::size_t count = triangles.Count();
    FirstUseNumbering numbers(units, vertexCount);
    for (std::size_t t = 0; t < count; ++t)
        for (int k = 0; k < 3; ++k)
            numbers.Number(triangles.Corner(t, k));

    auto mesh = std::make_unique<MStlBase>();
    mesh->Reserve(numbers.NumberedCount(), count);
    std::vector<MStlSurface*> surfaces;
    for (std::size_t s = 0; s < surfaceCount; ++s)
        surfaces.push_back(mesh->AddSurface(nullptr));
    numbers.AddVertices(units, *mesh);
    if (inputVertexOf) {
        inputVertexOf->resize(numbers.NumberedCount());
        for (std::size_t n = 0; n < numbers.NumberedCount(); ++n)
            (*inputVertexOf)[n] = numbers.InputVertexOf(n);
    }

    // Consecutive triangles of one surface go in as one batch.
    std::uint32_t corners[3 * kBuildBatch];
    std::size_t batched = 0, batchSurface = 0;
    for (std::size_t t = 0; t < count; ++t) {
        const std::size_t surface = triangles.Surface(t);
        if (batched == kBuildBatch || (batched > 0 && surface != batchSurface)) {
            surfaces[batchSurface]->AddTriangles(corners, batched);
            batched = 0;
        }
        batchSurface = surface;
        for (int k = 0; k < 3; ++k)
            corners[3 * batched + k] = numbers.NumberOfUsed(triangles.Corner(t, k));
        ++batched;
    }
    if (batched > 0)
        surfaces[batchSurface]->AddTriangles(corners, batched);
    return mesh;
}

}  // namespace velpick::detail
