#include "scene_loader.h"

#include "mesh_import.h"

namespace velpick {

namespace {

std::string MeshField(std::size_t mesh, const char* field) {
    return "meshes[" + std::to_string(mesh) + "]." + field;
}

void CheckSurfaceIndices(const std::vector<std::size_t>& indices, std::size_t surfaceCount,
                         const std::string& sourceName, const std::string& field) {
    for (std::size_t i = 0; i < indices.size(); ++i) {
        if (indices[i] >= surfaceCount) {
            throw SceneError(sourceName + ": " + field + "[" + std::to_string(i) + "]: surface " +
                             std::to_string(indices[i]) + " does not exist; the mesh has " +
                             std::to_string(surfaceCount) +
                             (surfaceCount == 1 ? " surface" : " surfaces"));
        }
    }
}

std::unique_ptr<MStlBase> ImportSceneMesh(const Scene& scene, std::size_t index,
                                          const std::string& sourceName) {
    const SceneMesh& entry = scene.meshes[index];
    std::unique_ptr<MStlBase> mesh;
    try {
        mesh = ImportMesh(entry.path, scene.settings.unitsPerModelUnit);
    } catch (const MeshImportError& error) {
        throw SceneError(sourceName + ": " + MeshField(index, "file") + ": " + error.what());
    }
    const std::size_t surfaceCount = SurfacesInOrder(*mesh).size();
    if (!entry.markWholeMesh) {
        CheckSurfaceIndices(entry.markableSurfaces, surfaceCount, sourceName,
                            MeshField(index, "markable"));
    }
    CheckSurfaceIndices(entry.hiddenSurfaces, surfaceCount, sourceName,
                        MeshField(index, "hidden_surfaces"));
    return mesh;
}

void HideSurfaces(MStlBase& mesh, const std::vector<std::size_t>& hidden) {
    const std::vector<MStlSurface*> surfaces = SurfacesInOrder(mesh);
    for (std::size_t index : hidden)
        surfaces[index]->SetVisible(false);
}

void MarkAll(MStlBase& mesh) {
    for (MStlTriangle& triangle : mesh.Triangles())
        triangle.Mark();
}

}  // namespace

std::vector<MStlSurface*> SurfacesInOrder(const MStlBase& mesh) {
    std::vector<MStlSurface*> surfaces;
    for (MStlSurface& surface : mesh.Surfaces())
        surfaces.push_back(&surface);
    return surfaces;
}

std::vector<std::unique_ptr<MStlBase>> LoadSceneMeshes(const Scene& scene,
                                                       const std::string& sourceName) {
    std::vector<std::unique_ptr<MStlBase>> meshes;
    for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
        meshes.push_back(ImportSceneMesh(scene, i, sourceName));
        HideSurfaces(*meshes.back(), scene.meshes[i].hiddenSurfaces);
        if (scene.startMarked)
            MarkAll(*meshes.back());
    }
    return meshes;
}

PickRequest MakePickRequest(const Scene& scene,
                            const std::vector<std::unique_ptr<MStlBase>>& meshes) {
    PickRequest request;
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        const SceneMesh& entry = scene.meshes[i];
        PickMesh mesh{meshes[i].get(), entry.placement, entry.markWholeMesh, {}};
        const std::vector<MStlSurface*> surfaces = SurfacesInOrder(*meshes[i]);
        for (std::size_t index : entry.markableSurfaces)
            mesh.markableSurfaces.push_back(surfaces[index]);
        request.meshes.push_back(std::move(mesh));
    }
    request.view = scene.view;
    request.settings = scene.settings;
    return request;
}

}  // namespace velpick
