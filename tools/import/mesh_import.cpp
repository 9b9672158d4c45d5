#include "mesh_import.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include <velpick/host/huge_pages.h>

#include "assimp_reader.h"
#include "input_file.h"
#include "off_reader.h"
#include "ply_reader.h"
#include "ply_triangle_mesh.h"
#include "polygon_soup.h"
#include "stl_binary_reader.h"

namespace velpick {
namespace {

using detail::ImportFailure;
using detail::PolygonSoup;

// A whole file in memory. The buffer is not cleared first: a large scan would otherwise pay
// for writing every byte twice.
class FileBytes {
  public:
    explicit FileBytes(const std::filesystem::path& file) {
        std::ifstream in = detail::OpenForReading(file);
        in.seekg(0, std::ios::end);
        const std::streamoff size = in.tellg();
        in.seekg(0, std::ios::beg);
        if (size < 0)
            throw ImportFailure("cannot read the file");
        m_size = static_cast<std::size_t>(size);
        m_bytes.reset(new char[m_size]);
        // A fresh buffer is all page faults as it is first written: fewer with huge pages.
        MStlAdviseHugePages(m_bytes.get(), m_size);
        if (!in.read(m_bytes.get(), size))
            throw ImportFailure("cannot read the file");
    }
    std::string_view View() const { return {m_bytes.get(), m_size}; }

  private:
    std::unique_ptr<char[]> m_bytes;
    std::size_t m_size = 0;
};

std::string lowerCaseExtension(const std::filesystem::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// The bytes read for a PLY header before the file is read whole: headers are far shorter.
constexpr std::size_t kPlyHeaderPrefixBytes = 65536;

// The mesh of a triangle file in the common binary layout, streamed from the file; null when
// the file has another layout or any fault.
std::unique_ptr<MStlBase> importPlyTriangles(const std::filesystem::path& file,
                                             double unitsPerModelUnit) {
    std::ifstream in = detail::OpenForReading(file);
    std::string head(kPlyHeaderPrefixBytes, '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(file, error);
    detail::PlyHeader header;
    try {
        header = detail::ReadPlyHeader(head);
    } catch (const ImportFailure&) {
        return nullptr;  // a header longer than the prefix, or a faulty one: read whole
    }
    if (error)
        return nullptr;
    in.clear();
    in.seekg(static_cast<std::streamoff>(header.bodyOffset));
    return detail::BuildPlyTriangleMesh(header, in, size - header.bodyOffset, unitsPerModelUnit);
}

// Every other file, and every faulty one, is read whole by the general reader.
std::unique_ptr<MStlBase> importPly(const std::filesystem::path& file, double unitsPerModelUnit) {
    if (auto mesh = importPlyTriangles(file, unitsPerModelUnit))
        return mesh;
    const FileBytes bytes(file);
    const detail::PlyHeader header = detail::ReadPlyHeader(bytes.View());
    return detail::BuildMesh(detail::ReadPlyBody(header, bytes.View()), unitsPerModelUnit);
}

PolygonSoup readPolygons(const std::filesystem::path& file, const std::string& extension) {
    if (extension == ".off")
        return detail::ReadOff(FileBytes(file).View());
    if (extension == ".obj")
        return detail::ReadWithAssimp(file, true);
    if (extension == ".stl")
        return detail::ReadWithAssimp(file, false);
    throw ImportFailure("unsupported file type '" + extension +
                        "' (expected .stl, .obj, .ply or .off)");
}

}  // namespace

std::unique_ptr<MStlBase> ImportMesh(const std::filesystem::path& file, double unitsPerModelUnit) {
    try {
        const std::string extension = lowerCaseExtension(file);
        if (extension == ".ply")
            return importPly(file, unitsPerModelUnit);
        if (extension == ".stl")
            if (auto mesh = detail::ReadBinaryStl(file, unitsPerModelUnit))
                return mesh;
        return detail::BuildMesh(readPolygons(file, extension), unitsPerModelUnit);
    } catch (const ImportFailure& failure) {
        throw MeshImportError(file.string() + ": " + failure.what());
    }
}

}  // namespace velpick
