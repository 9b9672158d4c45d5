// Mesh import of one format (VELPICK_FUZZ_EXTENSION: ".ply", ".off", ".stl" or ".obj"): any
// bytes either become a mesh whose triangles use its own vertices, or a MeshImportError. A
// binary STL file (its size fits its facet count) gives the same mesh, or fails alike, through
// the general reader.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "assimp_reader.h"
#include "mesh_import.h"

namespace {

// The importer reads files: each input goes to one file of this process, removed at exit.
class InputFile {
  public:
    InputFile()
        : m_path(std::filesystem::temp_directory_path() /
                 ("velpick_fuzz_" + std::to_string(::getpid()) + VELPICK_FUZZ_EXTENSION)) {}
    ~InputFile() {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }
    const std::filesystem::path& Write(const std::uint8_t* data, std::size_t size) {
        std::ofstream(m_path, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        return m_path;
    }

  private:
    std::filesystem::path m_path;
};

void CheckMesh(MStlBase& mesh) {
    if (mesh.GetNumberOfTriangles() == 0)
        __builtin_trap();  // the importer promises an error for a file without faces
    for (MStlTriangle& triangle : mesh.Triangles())
        for (std::size_t k = 0; k < 3; ++k)
            if (!triangle.GetPoint(k) || !triangle.GetSurface())
                __builtin_trap();
}

bool isBinaryStl(const std::uint8_t* data, std::size_t size) {
    if (std::string_view(VELPICK_FUZZ_EXTENSION) != ".stl" || size < 84)
        return false;
    const std::uint64_t facets =
        data[80] | data[81] << 8 | data[82] << 16 | std::uint64_t{data[83]} << 24;
    return size == 84 + 50 * facets;
}

// Every vertex's coordinates then every triangle's vertex numbers; empty for no mesh.
std::vector<std::int64_t> contents(const MStlBase* mesh) {
    std::vector<std::int64_t> values;
    for (std::size_t i = 0; mesh && i < mesh->GetNumberOfPoints(); ++i)
        for (int k = 0; k < 3; ++k)
            values.push_back(mesh->GetPoint(i)[k]);
    for (std::size_t t = 0; mesh && t < mesh->GetNumberOfTriangles(); ++t)
        for (std::size_t k = 0; k < 3; ++k)
            values.push_back(mesh->GetTriangle(t).GetPointIndex(k));
    return values;
}

void CompareWithGeneralReader(const std::filesystem::path& file, const MStlBase* own) {
    std::unique_ptr<MStlBase> general;
    try {
        general = velpick::detail::BuildMesh(velpick::detail::ReadWithAssimp(file, false), 1000.0);
    } catch (const velpick::detail::ImportFailure&) {
    }
    if (!own != !general || contents(own) != contents(general.get()))
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static InputFile file;
    const std::filesystem::path& path = file.Write(data, size);
    std::unique_ptr<MStlBase> mesh;
    try {
        mesh = velpick::ImportMesh(path, 1000.0);
        CheckMesh(*mesh);
    } catch (const velpick::MeshImportError&) {
    }
    if (isBinaryStl(data, size))
        CompareWithGeneralReader(path, mesh.get());
    return 0;
}
