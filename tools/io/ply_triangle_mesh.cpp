#include "ply_triangle_mesh.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>

#include <velpick/host/internal_units.h>
#include "vertex_merge.h"

namespace velpick::detail {
namespace {

constexpr std::size_t kCornersPerFace = 3;
constexpr std::size_t kIndexBytes = 4;
// Vertices and triangles go to the mesh in batches this long: the batch stays in the cache.
constexpr std::size_t kBatch = 4096;

template <class T>
T valueAt(const char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

// Where the vertex records and the faces lie in the file, and what each holds.
struct TriangleLayout {
    const char* vertices = nullptr;
    std::size_t vertexCount = 0;
    std::size_t vertexStride = 0;
    std::size_t axisOffset[3] = {0, 0, 0};
    bool axisIsDouble[3] = {false, false, false};
    const char* faces = nullptr;
    std::size_t faceCount = 0;
    std::size_t countBytes = 0;  // of a face's corner count; its three indices follow

    std::size_t FaceBytes() const { return countBytes + kCornersPerFace * kIndexBytes; }
};

// Fills the record layout from the vertex element; false unless every property is a scalar
// and x, y and z are float or double.
bool readVertexLayout(const PlyElement& element, TriangleLayout& layout) {
    const char* const axisNames[3] = {"x", "y", "z"};
    bool found[3] = {false, false, false};
    for (const PlyProperty& property : element.properties) {
        if (property.isList)
            return false;
        for (int axis = 0; axis < 3; ++axis) {
            if (found[axis] || property.name != axisNames[axis])
                continue;
            if (IsInteger(property.type))
                return false;
            found[axis] = true;
            layout.axisOffset[axis] = layout.vertexStride;
            layout.axisIsDouble[axis] = property.type == PlyType::kFloat64;
        }
        layout.vertexStride += BinarySize(property.type);
    }
    return found[0] && found[1] && found[2];
}

// Fills the face layout; false unless the index list is the face's only property, with a
// uchar, int or uint count and int or uint items.
bool readFaceLayout(const PlyElement& element, TriangleLayout& layout) {
    if (element.properties.size() != 1)
        return false;
    const PlyProperty& list = element.properties.front();
    if (!list.isList || (list.name != "vertex_indices" && list.name != "vertex_index"))
        return false;
    if (list.type != PlyType::kInt32 && list.type != PlyType::kUInt32)
        return false;
    if (list.countType != PlyType::kUInt8 && list.countType != PlyType::kInt32 &&
        list.countType != PlyType::kUInt32)
        return false;
    layout.countBytes = BinarySize(list.countType);
    return true;
}

// The layout of a file this path reads, when the body holds exactly the declared vertices and
// triangles. Counts are bounded by the body's size before any product is formed.
std::optional<TriangleLayout> triangleLayout(const PlyHeader& header, std::string_view bytes) {
    const bool hostOrder = header.format == (kLittleEndianHost ? PlyFormat::kBinaryLittleEndian
                                                               : PlyFormat::kBinaryBigEndian);
    if (!hostOrder || header.elements.size() != 2 || header.elements[0].name != "vertex" ||
        header.elements[1].name != "face")
        return std::nullopt;
    TriangleLayout layout;
    const PlyElement& vertices = header.elements[0];
    const PlyElement& faces = header.elements[1];
    if (!readVertexLayout(vertices, layout) || !readFaceLayout(faces, layout))
        return std::nullopt;
    const std::size_t bodyBytes = bytes.size() - header.bodyOffset;
    if (vertices.count > INT32_MAX || vertices.count > bodyBytes / layout.vertexStride ||
        faces.count == 0 || faces.count > bodyBytes / layout.FaceBytes())
        return std::nullopt;
    layout.vertexCount = static_cast<std::size_t>(vertices.count);
    layout.faceCount = static_cast<std::size_t>(faces.count);
    if (layout.vertexCount * layout.vertexStride + layout.faceCount * layout.FaceBytes() !=
        bodyBytes)
        return std::nullopt;
    layout.vertices = bytes.data() + header.bodyOffset;
    layout.faces = layout.vertices + layout.vertexCount * layout.vertexStride;
    return layout;
}

// Every vertex's coordinates in internal units, or null when one leaves the 32-bit range.
std::unique_ptr<std::int32_t[]> verticesInUnits(const TriangleLayout& layout) {
    const double unitsPerModelUnit = VelSDK::Common::MInternalUnits::Get();
    std::unique_ptr<std::int32_t[]> units(new std::int32_t[3 * layout.vertexCount]);
    const char* record = layout.vertices;
    std::int32_t* out = units.get();
    for (std::size_t v = 0; v < layout.vertexCount; ++v, record += layout.vertexStride) {
        for (int axis = 0; axis < 3; ++axis, ++out) {
            const char* at = record + layout.axisOffset[axis];
            const double coordinate =
                layout.axisIsDouble[axis] ? valueAt<double>(at) : valueAt<float>(at);
            const std::optional<std::int32_t> unit = ToInternalUnits(coordinate, unitsPerModelUnit);
            if (!unit)
                return nullptr;
            *out = *unit;
        }
    }
    return units;
}

// Mesh numbers of the file's vertices, given in order of first use by the faces. Until a vertex
// has its number, its entry holds kUnnumbered and the first file vertex at its position, whose
// entry receives the number that all file vertices there share.
class VertexNumbers {
  public:
    VertexNumbers(const std::int32_t* units, std::size_t count)
        : m_entries(new std::uint32_t[count]), m_firstUses(new std::uint32_t[count]) {
        FindFirstOfEqualVertices(units, count, m_entries.get());
        for (std::size_t v = 0; v < count; ++v)
            m_entries[v] |= kUnnumbered;
    }

    // The number of file vertex v, given now when none is.
    std::uint32_t Number(std::uint32_t v) {
        const std::uint32_t entry = m_entries[v];
        if (!(entry & kUnnumbered))
            return entry;
        const std::uint32_t first = entry & ~kUnnumbered;
        std::uint32_t number = m_entries[first];
        if (number & kUnnumbered) {
            number = static_cast<std::uint32_t>(m_numbered);
            m_firstUses[m_numbered++] = first;
            m_entries[first] = number;
        }
        m_entries[v] = number;
        return number;
    }
    // The number of a vertex already numbered.
    std::uint32_t NumberOfUsed(std::uint32_t v) const { return m_entries[v]; }
    std::size_t NumberedCount() const { return m_numbered; }
    // The file vertex that mesh vertex `number` was made from.
    std::uint32_t FileVertexOf(std::size_t number) const { return m_firstUses[number]; }

  private:
    // File vertex numbers are below 2^31, so the top bit is free for the mark.
    static constexpr std::uint32_t kUnnumbered = 0x80000000u;

    std::unique_ptr<std::uint32_t[]> m_entries;
    std::unique_ptr<std::uint32_t[]> m_firstUses;  // by mesh number
    std::size_t m_numbered = 0;
};

const char* cornerIndices(const TriangleLayout& layout, std::size_t face) {
    return layout.faces + face * layout.FaceBytes() + layout.countBytes;
}

// Numbers the vertices in order of first use, corners 0, 1, 2 of each face in turn. False
// when a face is not a triangle or names a vertex the file does not have.
bool numberVerticesInFaceOrder(const TriangleLayout& layout, VertexNumbers& numbers) {
    const char* face = layout.faces;
    for (std::size_t f = 0; f < layout.faceCount; ++f, face += layout.FaceBytes()) {
        // A count of 3 as uchar, or as int or uint in the host's byte order.
        const std::uint32_t count = layout.countBytes == 1 ? static_cast<std::uint8_t>(*face)
                                                           : valueAt<std::uint32_t>(face);
        if (count != kCornersPerFace)
            return false;
        // An int index below zero reads as 2^31 or more, past every vertex.
        for (std::size_t k = 0; k < kCornersPerFace; ++k) {
            const auto index = valueAt<std::uint32_t>(face + layout.countBytes + kIndexBytes * k);
            if (index >= layout.vertexCount)
                return false;
            numbers.Number(index);
        }
    }
    return true;
}

void addVertices(const std::int32_t* units, const VertexNumbers& numbers, MStlBase& mesh) {
    std::int32_t xyz[3 * kBatch];
    for (std::size_t first = 0; first < numbers.NumberedCount(); first += kBatch) {
        const std::size_t count = std::min(kBatch, numbers.NumberedCount() - first);
        for (std::size_t k = 0; k < count; ++k)
            std::copy_n(units + 3 * std::size_t{numbers.FileVertexOf(first + k)}, 3, xyz + 3 * k);
        mesh.AddDistinctPoints(xyz, count);
    }
}

void addTriangles(const TriangleLayout& layout, const VertexNumbers& numbers,
                  MStlSurface& surface) {
    std::uint32_t corners[kCornersPerFace * kBatch];
    for (std::size_t first = 0; first < layout.faceCount; first += kBatch) {
        const std::size_t count = std::min(kBatch, layout.faceCount - first);
        for (std::size_t f = 0; f < count; ++f) {
            const char* indices = cornerIndices(layout, first + f);
            for (std::size_t k = 0; k < kCornersPerFace; ++k)
                corners[kCornersPerFace * f + k] =
                    numbers.NumberOfUsed(valueAt<std::uint32_t>(indices + kIndexBytes * k));
        }
        surface.AddTriangles(corners, count);
    }
}

}  // namespace

std::unique_ptr<MStlBase> BuildPlyTriangleMesh(const PlyHeader& header, std::string_view bytes) {
    const std::optional<TriangleLayout> layout = triangleLayout(header, bytes);
    if (!layout)
        return nullptr;
    const std::unique_ptr<std::int32_t[]> units = verticesInUnits(*layout);
    if (!units)
        return nullptr;
    VertexNumbers numbers(units.get(), layout->vertexCount);
    if (!numberVerticesInFaceOrder(*layout, numbers))
        return nullptr;

    auto mesh = std::make_unique<MStlBase>();
    mesh->Reserve(numbers.NumberedCount(), layout->faceCount);
    MStlSurface& surface = *mesh->AddSurface(nullptr);
    addVertices(units.get(), numbers, *mesh);
    addTriangles(*layout, numbers, surface);
    return mesh;
}

}  // namespace velpick::detail
