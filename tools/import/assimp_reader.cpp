#include "assimp_reader.h"

#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "input_file.h"

namespace velpick::detail {
namespace {

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
}  // namespace

PolygonSoup ReadWithAssimp(const std::filesystem::path& file, bool surfacesFromGroups) {
    OpenForReading(file);
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

}  // namespace velpick::detail
