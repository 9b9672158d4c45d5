// Mesh import of one format (VELPICK_FUZZ_EXTENSION: ".ply", ".off", ".stl" or ".obj"): any
// bytes either become a mesh whose triangles use its own vertices, or a MeshImportError.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static InputFile file;
    try {
        const auto mesh = velpick::ImportMesh(file.Write(data, size), 1000.0);
        CheckMesh(*mesh);
    } catch (const velpick::MeshImportError&) {
    }
    return 0;
}
