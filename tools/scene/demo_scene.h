#pragma once

#include <memory>
#include <vector>

#include <velpick/host/stl_base.h>
#include "scene.h"

namespace velpick {

/// The built-in scene: a sphere partly behind a plate with a square hole, seen at a slant, and
/// a lasso over both. Only what the viewer sees of the sphere (through the hole and past the
/// plate's edge) lies under the lasso and is visible; the rest is hidden by the plate.
struct DemoScene {
    Scene scene;
    std::vector<std::unique_ptr<MStlBase>> meshes;  // one per scene mesh
};

/// Builds the demo scene at its own internal units, kept in its settings.
DemoScene MakeDemoScene();

}  // namespace velpick
