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

// Triangle files in the common binary layout are built where they lie; everything else, and
// every faulty file, goes through the general reader.
std::unique_ptr<MStlBase> importPly(const std::filesystem::path& file, double unitsPerModelUnit) {
    const FileBytes bytes(file);
    const detail::PlyHeader header = detail::ReadPlyHeader(bytes.View());
    if (auto mesh = detail::BuildPlyTriangleMesh(header, bytes.View(), unitsPerModelUnit))
        return mesh;
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
