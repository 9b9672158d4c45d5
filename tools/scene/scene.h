#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <velpick/host/plane_eq.h>
#include <velpick/host/transform_matrix.h>
#include "camera.h"
#include "pick_defaults.h"
#include "picker.h"
#include "scene_error.h"
#include "selection_region.h"

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
    double unitsPerModelUnit = kDefaultUnitsPerModelUnit;
    std::vector<SceneMesh> meshes;
    MMTransformMatrix view;                            // scene internal units → screen units
    std::optional<OrthoCamera> camera;                 // set when the view came from a camera
    double pixelProportion = kDefaultPixelProportion;  // pixels per screen unit
    SelectionRegion region;
    std::string picker = kDefaultPicker;
    bool markThrough = false;
    bool backFaceCulling = false;
    bool unmark = false;
    bool startMarked = false;
    bool skipHiddenSurfaces = false;
    double depthTolerance = kDefaultDepthTolerance;  // model length units
    double linesPerPixel = kDefaultLinesPerPixel;
    std::optional<int> threads;  // all cores when empty
    GraphSettings graph;
    std::vector<MMPlaneEq<double>> clippingPlanes;
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
