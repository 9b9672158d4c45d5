#pragma once

#include <string>
#include <vector>

#include <pybind11/pybind11.h>

#include "scene.h"

namespace velpick::python {

/// The keyword arguments a pick takes besides the meshes, as Python passed them; None leaves a
/// setting at the scene file's default.
struct PickArguments {
    pybind11::object region = pybind11::none(), view = pybind11::none(), camera = pybind11::none(),
                     pixelProportion = pybind11::none(), depthTolerance = pybind11::none(),
                     unitsPerModelUnit = pybind11::none(), picker = pybind11::none(),
                     markThrough = pybind11::none(), backFaceCulling = pybind11::none(),
                     clippingPlanes = pybind11::none(), brushRadius = pybind11::none(),
                     linesPerPixel = pybind11::none(), threads = pybind11::none();
    pybind11::object graph = pybind11::none();  // None, or a dict of the scene's graph settings
};

/// The Python argument that a scene field path stands for: "region.brush.radius" is
/// "brush_radius", "graph.thickness" is "thickness"; other paths name themselves.
std::string ArgumentName(const std::string& field);

/// How messages name the parts of mesh i of pick_meshes: "meshes[i].".
std::string MeshLabel(std::size_t index);

/// Checks the arguments with the scene file's rules and messages and returns the scene they
/// describe, one mesh per placement (None: identity; mesh i's is named "meshes[i].placement").
/// Throws pybind11::value_error naming the argument ("region[3]: ...", "brush_radius: ...",
/// "camera.eye: ..."), never another exception for bad input.
Scene ValidateScene(const PickArguments& arguments,
                    const std::vector<pybind11::object>& placements);

}  // namespace velpick::python
