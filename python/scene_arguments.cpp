#include "scene_arguments.h"

#include <cmath>
#include <cstdint>
#include <utility>

#include <pybind11/numpy.h>
#include <nlohmann/json.hpp>

namespace velpick::python {

namespace py = pybind11;
using nlohmann::json;

namespace {

// The scene parser prefixes every message with a source name; this one is stripped again.
constexpr const char* kSource = "arguments";

// Where a scene field comes from among the Python arguments, longest prefix first.
const std::pair<const char*, const char*> kFieldToArgument[] = {
    {"region.brush.radius", "brush_radius"},
    {"region.brush.path", "region"},
    {"region.polygon", "region"},
    {"region.brush", "region"},
    {"graph.", ""},
};

json ToJson(const py::handle& value, const std::string& name);

bool IsNumpyScalar(const py::handle& value) {
    return py::isinstance(value, py::module_::import("numpy").attr("generic"));
}

json SequenceToJson(const py::handle& value, const std::string& name) {
    json items = json::array();
    for (const py::handle item : value)
        items.push_back(ToJson(item, name));
    return items;
}

// Python values as the JSON a scene file would hold, so that the scene's checks apply
// unchanged: a wrong type reaches them as a wrong JSON type and is named there.
json ToJson(const py::handle& value, const std::string& name) {
    if (value.is_none())
        return nullptr;
    if (py::isinstance<py::bool_>(value))
        return value.cast<bool>();
    if (py::isinstance<py::int_>(value)) {
        const py::int_ number = py::reinterpret_borrow<py::int_>(value);
        if (number < py::int_(INT64_MIN) || number > py::int_(INT64_MAX))
            throw py::value_error(name + ": " + py::repr(value).cast<std::string>() +
                                  " is out of range");
        return number.cast<std::int64_t>();
    }
    if (py::isinstance<py::float_>(value)) {
        // The scene text cannot carry NaN or infinity; say so here rather than as null.
        const double number = value.cast<double>();
        if (!std::isfinite(number))
            throw py::value_error(name + ": expected finite numbers, got " +
                                  py::repr(value).cast<std::string>());
        return number;
    }
    if (py::isinstance<py::str>(value))
        return value.cast<std::string>();
    if (py::isinstance<py::dict>(value)) {
        json object = json::object();
        for (const auto [key, item] : py::reinterpret_borrow<py::dict>(value))
            object[py::str(key).cast<std::string>()] = ToJson(item, name);
        return object;
    }
    if (py::isinstance<py::array>(value) || IsNumpyScalar(value))
        return ToJson(value.attr("tolist")(), name);
    if (py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value))
        return SequenceToJson(value, name);
    throw py::value_error(name + ": unsupported value of type " +
                          py::str(value.get_type().attr("__name__")).cast<std::string>());
}

// A (rows, columns) array of numbers as nested JSON arrays; `what` describes
// the expected shape in the message.
json MatrixToJson(const py::handle& value, const std::string& name, py::ssize_t columns,
                  const char* what) {
    py::array_t<double> matrix;
    try {
        matrix = py::array_t<double, py::array::forcecast>::ensure(value);
    } catch (const py::error_already_set&) {
    }
    if (!matrix)
        throw py::value_error(name + ": expected " + what + " of numbers");
    if (matrix.ndim() != 2 || matrix.shape(1) != columns) {
        std::string shape;
        for (py::ssize_t d = 0; d < matrix.ndim(); ++d)
            shape += (d ? ", " : "") + std::to_string(matrix.shape(d));
        throw py::value_error(name + ": expected " + what + ", got shape (" + shape +
                              (matrix.ndim() == 1 ? ",)" : ")"));
    }
    return ToJson(matrix, name);
}

// A 4x4 matrix as the scene's 16 numbers, row by row.
json MatrixToNumbers(const py::handle& matrix, const std::string& name) {
    const json rows = MatrixToJson(matrix, name, 4, "a 4x4 array");
    if (rows.size() != 4)
        throw py::value_error(name + ": expected a 4x4 array, got shape (" +
                              std::to_string(rows.size()) + ", 4)");
    json numbers = json::array();
    for (const json& row : rows)
        for (const json& number : row)
            numbers.push_back(number);
    return numbers;
}

json RegionToJson(const PickArguments& arguments) {
    const json points = MatrixToJson(arguments.region, "region", 2, "a (K, 2) array");
    if (arguments.brushRadius.is_none())
        return {{"polygon", points}};
    return {
        {"brush", {{"path", points}, {"radius", ToJson(arguments.brushRadius, "brush_radius")}}}};
}

json SceneDocument(const PickArguments& arguments, const std::vector<py::object>& placements) {
    json scene = json::object();
    const auto optional = [&](const char* name, const py::object& value) {
        if (!value.is_none())
            scene[name] = ToJson(value, name);
    };
    optional("units_per_model_unit", arguments.unitsPerModelUnit);
    json& meshes = scene["meshes"] = json::array();
    for (std::size_t i = 0; i < placements.size(); ++i) {
        json mesh = {{"file", "array"}};
        if (!placements[i].is_none())
            mesh["placement"] = MatrixToNumbers(placements[i], MeshLabel(i) + "placement");
        meshes.push_back(std::move(mesh));
    }
    if (!arguments.view.is_none())
        scene["view"] = MatrixToNumbers(arguments.view, "view");
    optional("camera", arguments.camera);
    optional("pixel_proportion", arguments.pixelProportion);
    optional("depth_tolerance", arguments.depthTolerance);
    optional("picker", arguments.picker);
    optional("mark_through", arguments.markThrough);
    optional("back_face_culling", arguments.backFaceCulling);
    optional("lines_per_pixel", arguments.linesPerPixel);
    optional("threads", arguments.threads);
    optional("graph", arguments.graph);
    optional("clipping_planes", arguments.clippingPlanes);
    scene["region"] = RegionToJson(arguments);
    return scene;
}

// "arguments: region.polygon[3]: reason" becomes "region[3]: reason".
std::string ArgumentMessage(std::string message) {
    const std::string prefix = std::string(kSource) + ": ";
    if (message.compare(0, prefix.size(), prefix) == 0)
        message.erase(0, prefix.size());
    return ArgumentName(message);
}

}  // namespace

std::string ArgumentName(const std::string& field) {
    for (const auto& [path, argument] : kFieldToArgument) {
        const std::string from = path;
        if (field.compare(0, from.size(), from) == 0)
            return argument + field.substr(from.size());
    }
    return field;
}

std::string MeshLabel(std::size_t index) {
    return "meshes[" + std::to_string(index) + "].";
}

Scene ValidateScene(const PickArguments& arguments, const std::vector<py::object>& placements) {
    const json document = SceneDocument(arguments, placements);
    try {
        return ParseScene(document, kSource, {});
    } catch (const SceneError& error) {
        throw py::value_error(ArgumentMessage(error.what()));
    }
}

}  // namespace velpick::python
