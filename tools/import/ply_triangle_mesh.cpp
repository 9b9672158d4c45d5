#include "ply_triangle_mesh.h"

#include <cstdint>
#include <optional>

#include "mesh_builder.h"
#include "ply_binary_layout.h"

namespace velpick::detail {
namespace {

constexpr std::size_t kCornersPerFace = 3;

// Where the vertex records and the faces lie in the file, and how each is decoded.
struct TriangleLayout {
    PlyVertexRecord vertex;
    PlyFaceRecord face;
    const char* vertices = nullptr;
    std::size_t vertexCount = 0;
    const char* faces = nullptr;
    std::size_t faceCount = 0;

    std::size_t FaceBytes() const {
        return face.countBytes + kCornersPerFace * PlyFaceRecord::kIndexBytes;
    }
    const char* Face(std::size_t f) const { return faces + f * FaceBytes(); }
};

// The layout of a file this path reads, when the body holds exactly the declared vertices and
// triangles. Counts are bounded by the body's size before any product is formed.
std::optional<TriangleLayout> triangleLayout(const PlyHeader& header, std::string_view bytes) {
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
    const std::size_t bodyBytes = bytes.size() - header.bodyOffset;
    if (vertices.count > kMaxInputVertices || vertices.count > bodyBytes / vertex->stride ||
        faces.count == 0 || faces.count > bodyBytes / layout.FaceBytes())
        return std::nullopt;
    layout.vertexCount = static_cast<std::size_t>(vertices.count);
    layout.faceCount = static_cast<std::size_t>(faces.count);
    if (layout.vertexCount * vertex->stride + layout.faceCount * layout.FaceBytes() != bodyBytes)
        return std::nullopt;
    layout.vertices = bytes.data() + header.bodyOffset;
    layout.faces = layout.vertices + layout.vertexCount * vertex->stride;
    return layout;
}

// True when every face is a triangle of existing vertices.
bool facesAreTriangles(const TriangleLayout& layout) {
    for (std::size_t f = 0; f < layout.faceCount; ++f) {
        const char* face = layout.Face(f);
        if (layout.face.CornerCount(face) != kCornersPerFace)
            return false;
        for (std::size_t k = 0; k < kCornersPerFace; ++k) {
            const std::optional<std::uint32_t> index = layout.face.Index(face, k);
            if (!index || *index >= layout.vertexCount)
                return false;
        }
    }
    return true;
}

// The faces as the builder reads them, in place.
struct InPlaceTriangles {
    const TriangleLayout& layout;
    std::size_t Count() const { return layout.faceCount; }
    std::uint32_t Corner(std::size_t t, int k) const {
        return *layout.face.Index(layout.Face(t), static_cast<std::size_t>(k));
    }
    std::uint32_t Surface(std::size_t) const { return 0; }
};

}  // namespace

std::unique_ptr<MStlBase> BuildPlyTriangleMesh(const PlyHeader& header, std::string_view bytes,
                                               double unitsPerModelUnit) {
    const std::optional<TriangleLayout> layout = triangleLayout(header, bytes);
    if (!layout || !facesAreTriangles(*layout))
        return nullptr;
    std::vector<std::int32_t> units;
    try {
        units = VerticesInUnits(
            layout->vertexCount,
            [&](std::size_t v, int axis) {
                return layout->vertex.Coordinate(layout->vertices + v * layout->vertex.stride,
                                                 axis);
            },
            unitsPerModelUnit);
    } catch (const ImportFailure&) {
        return nullptr;  // the general reader names the coordinate
    }
    return BuildMeshInFirstUseOrder(units.data(), layout->vertexCount, 1,
                                    InPlaceTriangles{*layout});
}

}  // namespace velpick::detail
