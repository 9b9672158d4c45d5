#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <velpick/host/transform_matrix.h>
#include "pick_settings.h"
#include "scene_error.h"

namespace velpick {

/// One mesh of a scene and how the pick treats it.
struct SceneMesh {
    std::string file;             // as the scene names it
    std::filesystem::path path;   // resolved against the scene file's folder
    MMTransformMatrix placement;  // mesh internal units → scene internal units
    bool markWholeMesh = true;
    std::vector<std::size_t> markableSurfaces;  // surface indices, when not the whole mesh
    std::vector<std::size_t> hiddenSurfaces;    // surfaces whose visibility is switched off
};

/// A validated scene: every field present, in range and consistent.
struct Scene {
    std::vector<SceneMesh> meshes;
    View view;                // with a list of cameras, the first camera's view
    std::vector<View> views;  // "camera" given as a list: one view per camera; else empty
    PickSettings settings;
    bool startMarked = false;  // every triangle marked before the pick
};

/// Parses and validates a scene given as JSON text. `sourceName` prefixes every message;
/// mesh files are resolved against `folder`. Throws SceneError naming the first bad field.
Scene ParseScene(const std::string& text, const std::string& sourceName,
                 const std::filesystem::path& folder);
/// The same for a scene already parsed as a JSON document.
Scene ParseScene(const nlohmann::json& document, const std::string& sourceName,
                 const std::filesystem::path& folder);

/// Reads and parses a scene file; its meshes are resolved against the file's folder.
Scene ReadSceneFile(const std::filesystem::path& file);

}  // namespace velpick
