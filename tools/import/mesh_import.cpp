#include "mesh_import.h"

#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <cctype>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include <velpick/host/huge_pages.h>

#include "off_reader.h"
#include "ply_reader.h"
#include "ply_triangle_mesh.h"
#include "polygon_soup.h"

namespace velpick {
namespace {

using detail::ImportFailure;
using detail::PolygonSoup;

constexpr std::size_t kBinaryStlHeaderBytes = 84;  // 80-byte comment and a 32-bit facet count
constexpr std::size_t kBinaryStlFacetBytes = 50;   // normal, three vertices, attribute word

std::ifstream openForReading(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        throw ImportFailure("no such file");
    if (std::filesystem::is_directory(file, error))
        throw ImportFailure("is a directory");
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ImportFailure("cannot open the file for reading");
    return in;
}

// A whole file in memory. The buffer is not cleared first: a large scan would otherwise pay
// for writing every byte twice.
class FileBytes {
  public:
    explicit FileBytes(const std::filesystem::path& file) {
        std::ifstream in = openForReading(file);
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

// The STL reader falls back to other formats' readers when a file is not STL; checking the
// layout first keeps a misnamed file from being read as something else.
void checkLooksLikeStl(const std::filesystem::path& file) {
    std::ifstream in = openForReading(file);
    char head[kBinaryStlHeaderBytes] = {};
    in.read(head, sizeof head);
    const std::size_t size = std::filesystem::file_size(file);
    const std::string_view text(head, static_cast<std::size_t>(in.gcount()));
    const std::size_t start = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    if (text.substr(start, 5) == "solid")
        return;
    if (size >= kBinaryStlHeaderBytes) {
        const auto* countBytes = reinterpret_cast<const unsigned char*>(head + 80);
        const std::uint64_t facets = countBytes[0] | countBytes[1] << 8 | countBytes[2] << 16 |
                                     std::uint64_t{countBytes[3]} << 24;
        if (size == kBinaryStlHeaderBytes + kBinaryStlFacetBytes * facets)
            return;
        throw ImportFailure("binary STL of " + std::to_string(facets) + " facets should take " +
                            std::to_string(kBinaryStlHeaderBytes + kBinaryStlFacetBytes * facets) +
                            " bytes but the file has " + std::to_string(size));
    }
    throw ImportFailure("not an STL file");
}

// Surface numbers in order of first appearance of each group name.
class GroupSurfaces {
  public:
    explicit GroupSurfaces(bool byGroup) : m_byGroup(byGroup) {}
    std::uint32_t SurfaceOf(const aiString& group) {
        if (!m_byGroup)
            return 0;
        const auto [it, inserted] =
            m_numbers.try_emplace(group.C_Str(), static_cast<std::uint32_t>(m_numbers.size()));
        return it->second;
    }
    std::size_t Count() const { return m_byGroup ? m_numbers.size() : 1; }

  private:
    bool m_byGroup;
    std::unordered_map<std::string, std::uint32_t> m_numbers;
};

void appendMesh(const aiMesh& mesh, std::uint32_t surface, PolygonSoup& soup) {
    const std::size_t firstVertex = soup.VertexCount();
    for (unsigned v = 0; v < mesh.mNumVertices; ++v)
        soup.AddVertex(mesh.mVertices[v].x, mesh.mVertices[v].y, mesh.mVertices[v].z);
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace& face = mesh.mFaces[f];
        for (unsigned k = 0; k < face.mNumIndices; ++k) {
            if (face.mIndices[k] >= mesh.mNumVertices)
                throw ImportFailure("face " + std::to_string(soup.FaceCount()) +
                                    ": vertex index out of range");
            soup.corners.push_back(static_cast<std::uint32_t>(firstVertex + face.mIndices[k]));
        }
        soup.CloseFace();
        soup.faceSurfaces.push_back(surface);
    }
}

// The reader puts faces into meshes in file order and meshes into nodes in file order (an
// OBJ group, or a run of one material inside it, per mesh), so walking the nodes depth first
// gives the faces back in file order.
void appendNode(const aiScene& scene, const aiNode& node, GroupSurfaces& groups,
                PolygonSoup& soup) {
    for (unsigned i = 0; i < node.mNumMeshes; ++i) {
        const aiMesh& mesh = *scene.mMeshes[node.mMeshes[i]];
        if (mesh.mNumFaces > 0)
            appendMesh(mesh, groups.SurfaceOf(node.mName), soup);
    }
    for (unsigned i = 0; i < node.mNumChildren; ++i)
        appendNode(scene, *node.mChildren[i], groups, soup);
}

// No post-processing at all: nothing may be triangulated, merged, sorted or removed, or face
// indices would no longer match the file.
PolygonSoup readWithAssimp(const std::filesystem::path& file, bool surfacesFromGroups) {
    openForReading(file);
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(file.string(), 0);
    if (!scene)
        throw ImportFailure(importer.GetErrorString());
    PolygonSoup soup;
    GroupSurfaces groups(surfacesFromGroups);
    if (scene->mRootNode)
        appendNode(*scene, *scene->mRootNode, groups, soup);
    soup.surfaceCount = groups.Count();
    return soup;
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
        return readWithAssimp(file, true);
    if (extension == ".stl") {
        checkLooksLikeStl(file);
        return readWithAssimp(file, false);
    }
    throw ImportFailure("unsupported file type '" + extension +
                        "' (expected .stl, .obj, .ply or .off)");
}

}  // namespace

std::unique_ptr<MStlBase> ImportMesh(const std::filesystem::path& file, double unitsPerModelUnit) {
    try {
        const std::string extension = lowerCaseExtension(file);
        if (extension == ".ply")
            return importPly(file, unitsPerModelUnit);
        return detail::BuildMesh(readPolygons(file, extension), unitsPerModelUnit);
    } catch (const ImportFailure& failure) {
        throw MeshImportError(file.string() + ": " + failure.what());
    }
}

}  // namespace velpick
