#include "ply_writer.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include "palette.h"

namespace velpick {

using VelSDK::Math::point3d;

namespace {

// Output is gathered in blocks of this size between writes.
constexpr std::size_t kFlushBytes = 1 << 20;

class BinaryWriter {
  public:
    explicit BinaryWriter(std::FILE* stream) : m_stream(stream) {}

    void Text(const std::string& text) { m_buffer += text; }
    void Byte(std::uint8_t value) { m_buffer.push_back(static_cast<char>(value)); }
    void Uint32(std::uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8)
            Byte(static_cast<std::uint8_t>(value >> shift));
    }
    void Float(float value) {
        std::uint32_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        Uint32(bits);
    }
    void FlushIfFull() {
        if (m_buffer.size() >= kFlushBytes)
            Flush();
    }
    void Flush() {
        if (std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_stream) != m_buffer.size())
            throw std::runtime_error("cannot write");
        m_buffer.clear();
    }

  private:
    std::FILE* m_stream;
    std::string m_buffer;
};

std::string Header(const std::vector<PlacedMesh>& meshes) {
    std::size_t vertices = 0, faces = 0;
    for (const PlacedMesh& mesh : meshes) {
        vertices += mesh.mesh->GetNumberOfPoints();
        faces += mesh.mesh->GetNumberOfTriangles();
    }
    if (vertices > UINT32_MAX)
        throw std::runtime_error("more vertices than a PLY uint index can hold");
    return "ply\nformat binary_little_endian 1.0\n"
           "comment velpick: marked faces in the highlight colour\n"
           "element vertex " +
           std::to_string(vertices) +
           "\nproperty float x\nproperty float y\nproperty float z\n"
           "element face " +
           std::to_string(faces) +
           "\nproperty list uchar uint vertex_indices\n"
           "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n";
}

void WriteVertices(BinaryWriter& out, const PlacedMesh& mesh, double unitsPerModelUnit) {
    // A mesh's vertices in creation order, which is their mask index order.
    for (const MStlPoint& point : mesh.mesh->Vertices()) {
        point3d placed;
        mesh.placement.Transform(placed, {double(point[0]), double(point[1]), double(point[2])},
                                 false);
        out.Float(static_cast<float>(placed.x / unitsPerModelUnit));
        out.Float(static_cast<float>(placed.y / unitsPerModelUnit));
        out.Float(static_cast<float>(placed.z / unitsPerModelUnit));
        out.FlushIfFull();
    }
}

void WriteFaces(BinaryWriter& out, const MStlBase& mesh, std::size_t firstVertex) {
    for (std::size_t i = 0; i < mesh.GetNumberOfTriangles(); ++i) {
        const MStlTriangle& triangle = mesh.GetTriangle(i);
        out.Byte(3);
        for (std::size_t k = 0; k < 3; ++k)
            out.Uint32(
                static_cast<std::uint32_t>(firstVertex + triangle.GetPoint(k)->GetMaskIndex()));
        const Rgb colour = triangle.IsMarked() ? kHighlightColour : kSurfaceColour;
        out.Byte(colour.r);
        out.Byte(colour.g);
        out.Byte(colour.b);
        out.FlushIfFull();
    }
}

}  // namespace

void WritePly(std::FILE* stream, const std::vector<PlacedMesh>& meshes, double unitsPerModelUnit) {
    BinaryWriter out(stream);
    out.Text(Header(meshes));
    for (const PlacedMesh& mesh : meshes)
        WriteVertices(out, mesh, unitsPerModelUnit);
    std::size_t firstVertex = 0;
    for (const PlacedMesh& mesh : meshes) {
        WriteFaces(out, *mesh.mesh, firstVertex);
        firstVertex += mesh.mesh->GetNumberOfPoints();
    }
    out.Flush();
}

}  // namespace velpick
