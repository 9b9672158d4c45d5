#include "ply_triangle_mesh.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include <velpick/host/stl_surface.h>

#include "mesh_builder.h"
#include "ply_binary_layout.h"

namespace velpick::detail {
namespace {

constexpr std::size_t kCornersPerFace = 3;

// How the vertex records and the faces of the body are decoded, and how many there are.
struct TriangleLayout {
    PlyVertexRecord vertex;
    PlyFaceRecord face;
    std::size_t vertexCount = 0;
    std::size_t faceCount = 0;

    std::size_t FaceBytes() const {
        return face.countBytes + kCornersPerFace * PlyFaceRecord::kIndexBytes;
    }
};

// The layout of a file this path reads, when the body holds exactly the declared vertices and
// triangles. Counts are bounded by the body's size before any product is formed.
std::optional<TriangleLayout> triangleLayout(const PlyHeader& header, std::uint64_t bodyBytes) {
    if (!InHostByteOrder(header.format) || header.elements.size() != 2 ||
        header.elements[0].name != "vertex" || header.elements[1].name != "face")
        return std::nullopt;
    const PlyElement& vertices = header.elements[0];
    const PlyElement& faces = header.elements[1];
    const std::optional<PlyVertexRecord> vertex = InPlaceVertexRecord(vertices);
    const std::optional<PlyFaceRecord> face = InPlaceFaceRecord(faces);
    if (!vertex || !face)
        return std::nullopt;
    TriangleLayout layout{*vertex, *face};
    if (vertices.count > kMaxInputVertices || vertices.count > bodyBytes / vertex->stride ||
        faces.count == 0 || faces.count > bodyBytes / layout.FaceBytes())
        return std::nullopt;
    layout.vertexCount = static_cast<std::size_t>(vertices.count);
    layout.faceCount = static_cast<std::size_t>(faces.count);
    if (layout.vertexCount * vertex->stride + layout.faceCount * layout.FaceBytes() != bodyBytes)
        return std::nullopt;
    return layout;
}

// Reads `count` records of `size` bytes each into `records`; false on a short read.
bool readRecords(std::istream& body, std::vector<char>& records, std::size_t count,
                 std::size_t size) {
    records.resize(std::max(records.size(), count * size));
    return static_cast<bool>(body.read(records.data(), static_cast<std::streamsize>(count * size)));
}

// The vertex records in internal units, read in batches; null on a short read or a coordinate
// out of range. Every unit is written, so the array is not cleared first.
std::unique_ptr<std::int32_t[]> verticesInUnits(const TriangleLayout& layout, std::istream& body,
                                                double unitsPerModelUnit) {
    std::unique_ptr<std::int32_t[]> units(new std::int32_t[3 * layout.vertexCount]);
    std::vector<char> records;
    for (std::size_t first = 0; first < layout.vertexCount; first += kBuildBatch) {
        const std::size_t count = std::min(kBuildBatch, layout.vertexCount - first);
        if (!readRecords(body, records, count, layout.vertex.stride))
            return nullptr;
        for (std::size_t v = 0; v < count; ++v)
            for (int axis = 0; axis < 3; ++axis) {
                const std::optional<std::int32_t> unit = ToInternalUnits(
                    layout.vertex.Coordinate(&records[v * layout.vertex.stride], axis),
                    unitsPerModelUnit);
                if (!unit)
                    return nullptr;
                units[3 * (first + v) + axis] = *unit;
            }
    }
    return units;
}

// The input vertices of the triangles at `faces`; false when one is not a triangle of existing
// vertices.
bool triangleCorners(const TriangleLayout& layout, const char* faces, std::size_t count,
                     std::uint32_t* corners) {
    for (std::size_t f = 0; f < count; ++f) {
        const char* face = faces + f * layout.FaceBytes();
        if (layout.face.CornerCount(face) != kCornersPerFace)
            return false;
        for (std::size_t k = 0; k < kCornersPerFace; ++k) {
            const std::optional<std::uint32_t> index = layout.face.Index(face, k);
            if (!index || *index >= layout.vertexCount)
                return false;
            corners[kCornersPerFace * f + k] = *index;
        }
    }
    return true;
}

}  // namespace

// Faces go to the mesh as they are read: each batch's corners are numbered in order of first
// use, the vertices they number first are added, then the batch's triangles.
std::unique_ptr<MStlBase> BuildPlyTriangleMesh(const PlyHeader& header, std::istream& body,
                                               std::uint64_t bodyBytes, double unitsPerModelUnit) {
    const std::optional<TriangleLayout> layout = triangleLayout(header, bodyBytes);
    if (!layout)
        return nullptr;
    const std::unique_ptr<std::int32_t[]> units = verticesInUnits(*layout, body, unitsPerModelUnit);
    if (!units)
        return nullptr;
    FirstUseNumbering numbers(units.get(), layout->vertexCount);
    auto mesh = std::make_unique<MStlBase>();
    mesh->Reserve(numbers.PositionCount(), layout->faceCount);
    MStlSurface& surface = *mesh->AddSurface(nullptr);
    std::vector<char> faces;
    std::uint32_t corners[kCornersPerFace * kBuildBatch];
    for (std::size_t first = 0; first < layout->faceCount; first += kBuildBatch) {
        const std::size_t count = std::min(kBuildBatch, layout->faceCount - first);
        if (!readRecords(body, faces, count, layout->FaceBytes()) ||
            !triangleCorners(*layout, faces.data(), count, corners))
            return nullptr;
        const std::size_t numbered = numbers.NumberedCount();
        for (std::size_t c = 0; c < kCornersPerFace * count; ++c)
            corners[c] = numbers.Number(corners[c]);
        numbers.AddVertices(units.get(), *mesh, numbered);
        surface.AddTriangles(corners, count);
    }
    return mesh;
}

}  // namespace velpick::detail
