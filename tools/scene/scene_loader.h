#pragma once

#include <memory>
#include <string>
#include <vector>

#include <velpick/host/stl_base.h>
#include "picker.h"
#include "scene.h"

namespace velpick {

/// Imports every mesh of `scene` in order, at the scene's internal units,
/// switches off the visibility switch of its hidden surfaces and, with start_marked, marks all its
/// triangles. Throws SceneError naming `sourceName` and the mesh's field when a file cannot be
/// imported or a surface index does not exist.
std::vector<std::unique_ptr<MStlBase>> LoadSceneMeshes(const Scene& scene,
                                                       const std::string& sourceName);

/// Every surface of `mesh`, sub-surfaces included, in the importer's order: the index a scene
/// uses for a surface is its position here.
std::vector<MStlSurface*> SurfacesInOrder(const MStlBase& mesh);

/// The pick the scene asks for, on meshes loaded for it (one per scene mesh, same order).
PickRequest MakePickRequest(const Scene& scene,
                            const std::vector<std::unique_ptr<MStlBase>>& meshes);

}  // namespace velpick
