// The velpick Python module: the picking library over numpy arrays, with the velpick program's
// validation, pickers and mesh building.

#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <velpick/host/internal_units.h>
#include "array_mesh.h"
#include "numpy_mesh.h"
#include "picker.h"
#include "scene_arguments.h"
#include "scene_loader.h"

namespace velpick::python {
namespace {

namespace py = pybind11;

// The internal-unit scale is process-wide host state that mesh building and the pick both
// read; picks from several Python threads therefore run one after another.
std::mutex g_pickMutex;

// The picker that marks edges; pick_edges runs it, the face picks refuse it.
constexpr const char* kEdgePicker = "graph";

std::unique_ptr<Picker> PickerFor(const Scene& scene, bool edges) {
    if (scene.picker == kEdgePicker && !edges)
        throw py::value_error("picker: the graph picker marks edges, not faces; use pick_edges");
    // The scene's picker is one of the registered ones.
    return MakePicker(scene.picker);
}

void MarkableToScene(const std::vector<NumpyMesh>& meshes, Scene& scene) {
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        if (meshes[i].HasMarkable()) {
            scene.meshes[i].markWholeMesh = false;
            scene.meshes[i].markableSurfaces = {0};  // BuildArrayMesh puts markable faces there
        }
    }
}

/// A pick's results with the input vertices of each mesh, to name merged vertices.
struct BuiltPick {
    PickResult result;
    std::vector<std::vector<std::int32_t>> units;
};

// Builds the meshes and picks; makes no Python call, so it runs without the GIL.
BuiltPick BuildAndPick(const std::vector<NumpyMesh>& arrays, const Scene& scene, Picker& picker) {
    const std::lock_guard<std::mutex> lock(g_pickMutex);
    VelSDK::Common::MInternalUnits::Set(scene.unitsPerModelUnit);
    std::vector<std::unique_ptr<MStlBase>> meshes;
    BuiltPick pick;
    for (const NumpyMesh& mesh : arrays) {
        ArrayMesh built = mesh.Build();
        meshes.push_back(std::move(built.mesh));
        pick.units.push_back(std::move(built.units));
    }
    pick.result = picker.Pick(MakePickRequest(scene, meshes));
    return pick;
}

BuiltPick RunPick(const std::vector<NumpyMesh>& meshes, const std::vector<py::object>& placements,
                  const PickArguments& arguments, bool edges = false) {
    Scene scene = ValidateScene(arguments, placements);
    const std::unique_ptr<Picker> picker = PickerFor(scene, edges);
    MarkableToScene(meshes, scene);
    try {
        const py::gil_scoped_release release;
        return BuildAndPick(meshes, scene, *picker);
    } catch (const ArrayMeshError& error) {
        throw py::value_error(error.what());
    } catch (const PickError& error) {
        throw py::value_error(ArgumentName(error.Field()) + ": " + error.what());
    }
}

py::array_t<bool> FaceMask(std::size_t faceCount, const std::vector<std::size_t>& marked) {
    py::array_t<bool> mask(static_cast<py::ssize_t>(faceCount));
    bool* cells = mask.mutable_data();
    std::fill(cells, cells + faceCount, false);
    for (std::size_t triangle : marked)
        cells[triangle] = true;
    return mask;
}

// The settings every pick function takes, in the order of their keyword arguments.
PickArguments CommonArguments(py::object region, py::object view, py::object camera,
                              py::object pixelProportion, py::object unitsPerModelUnit,
                              py::object markThrough, py::object backFaceCulling,
                              py::object clippingPlanes) {
    PickArguments arguments;
    arguments.region = std::move(region);
    arguments.view = std::move(view);
    arguments.camera = std::move(camera);
    arguments.pixelProportion = std::move(pixelProportion);
    arguments.unitsPerModelUnit = std::move(unitsPerModelUnit);
    arguments.markThrough = std::move(markThrough);
    arguments.backFaceCulling = std::move(backFaceCulling);
    arguments.clippingPlanes = std::move(clippingPlanes);
    return arguments;
}

py::array_t<bool> Pick(py::object vertices, py::object faces, py::object region, py::object view,
                       py::object camera, py::object pixelProportion, py::object depthTolerance,
                       py::object unitsPerModelUnit, py::object picker, py::object markThrough,
                       py::object backFaceCulling, py::object clippingPlanes, py::object markable,
                       py::object brushRadius, py::object linesPerPixel, py::object threads) {
    std::vector<NumpyMesh> meshes;
    meshes.emplace_back(vertices, faces, markable, "");
    PickArguments arguments =
        CommonArguments(region, view, camera, pixelProportion, unitsPerModelUnit, markThrough,
                        backFaceCulling, clippingPlanes);
    arguments.depthTolerance = depthTolerance;
    arguments.picker = picker;
    arguments.brushRadius = brushRadius;
    arguments.linesPerPixel = linesPerPixel;
    arguments.threads = threads;
    const BuiltPick pick = RunPick(meshes, {py::none()}, arguments);
    return FaceMask(meshes[0].FaceCount(), pick.result.meshes[0].triangles);
}

// (vertices, faces[, placement[, markable]]) of mesh i.
NumpyMesh MeshEntry(const py::handle& entry, std::size_t i, std::vector<py::object>& placements) {
    const std::string label = MeshLabel(i);
    const bool isTuple = py::isinstance<py::tuple>(entry) || py::isinstance<py::list>(entry);
    const std::size_t size = isTuple ? py::len(entry) : 0;
    if (size < 2 || size > 4)
        throw py::value_error(label.substr(0, label.size() - 1) +
                              ": expected a tuple (vertices, faces[, placement[, markable]])");
    const py::sequence parts = py::reinterpret_borrow<py::sequence>(entry);
    placements.push_back(size > 2 ? py::object(parts[2]) : py::none());
    return NumpyMesh(parts[0], parts[1], size > 3 ? py::object(parts[3]) : py::none(), label);
}

py::list PickMeshes(py::object meshEntries, py::object region, py::object view, py::object camera,
                    py::object pixelProportion, py::object depthTolerance,
                    py::object unitsPerModelUnit, py::object picker, py::object markThrough,
                    py::object backFaceCulling, py::object clippingPlanes, py::object brushRadius,
                    py::object linesPerPixel, py::object threads) {
    if (!py::isinstance<py::list>(meshEntries) && !py::isinstance<py::tuple>(meshEntries))
        throw py::value_error("meshes: expected a list of (vertices, faces[, placement]) tuples");
    std::vector<NumpyMesh> meshes;
    std::vector<py::object> placements;
    std::size_t i = 0;
    for (const py::handle entry : meshEntries)
        meshes.push_back(MeshEntry(entry, i++, placements));
    PickArguments arguments =
        CommonArguments(region, view, camera, pixelProportion, unitsPerModelUnit, markThrough,
                        backFaceCulling, clippingPlanes);
    arguments.depthTolerance = depthTolerance;
    arguments.picker = picker;
    arguments.brushRadius = brushRadius;
    arguments.linesPerPixel = linesPerPixel;
    arguments.threads = threads;
    const BuiltPick pick = RunPick(meshes, placements, arguments);
    py::list masks;
    for (std::size_t m = 0; m < meshes.size(); ++m)
        masks.append(FaceMask(meshes[m].FaceCount(), pick.result.meshes[m].triangles));
    return masks;
}

// The marked edges of a graph pick as rows of input vertex indices, in the picker's order.
py::array_t<std::int64_t> EdgeRows(const EdgePick& edges, const std::vector<std::int32_t>& units) {
    const FirstVertexIndex vertexAt(units);
    py::array_t<std::int64_t> rows(
        std::vector<py::ssize_t>{static_cast<py::ssize_t>(edges.marked.size()), 2});
    auto cells = rows.mutable_unchecked<2>();
    for (std::size_t e = 0; e < edges.marked.size(); ++e) {
        for (std::size_t end = 0; end < 2; ++end) {
            // Every graph vertex is a mesh vertex, and every mesh vertex an input vertex.
            const std::optional<std::size_t> vertex = vertexAt.Find(edges.marked[e][end]);
            if (!vertex)
                throw std::logic_error("a marked edge ends at no input vertex");
            cells(static_cast<py::ssize_t>(e), static_cast<py::ssize_t>(end)) =
                static_cast<std::int64_t>(*vertex);
        }
    }
    return rows;
}

py::array_t<std::int64_t> PickEdges(py::object vertices, py::object faces, py::object region,
                                    py::object view, py::object camera, py::object pixelProportion,
                                    py::object unitsPerModelUnit, py::object markThrough,
                                    py::object backFaceCulling, py::object clippingPlanes,
                                    py::object sharpAngle, py::object thickness,
                                    py::object markWholeCandidates, py::object linesPerPixel,
                                    py::object threads) {
    std::vector<NumpyMesh> meshes;
    meshes.emplace_back(vertices, faces, py::none(), "");
    PickArguments arguments =
        CommonArguments(region, view, camera, pixelProportion, unitsPerModelUnit, markThrough,
                        backFaceCulling, clippingPlanes);
    arguments.picker = py::str(kEdgePicker);
    arguments.linesPerPixel = linesPerPixel;
    arguments.threads = threads;
    py::dict graph;
    graph["sharp_angle_deg"] = sharpAngle;
    graph["thickness"] = thickness;
    graph["mark_whole_candidates"] = markWholeCandidates;
    arguments.graph = graph;
    const BuiltPick pick = RunPick(meshes, {py::none()}, arguments, true);
    const std::optional<EdgePick>& edges = pick.result.meshes[0].edges;
    if (!edges)
        return py::array_t<std::int64_t>(std::vector<py::ssize_t>{0, 2});
    return EdgeRows(*edges, pick.units[0]);
}

// Builds the mesh pick() would build, for measuring the binding's own cost.
std::size_t BuildOnly(py::object vertices, py::object faces, py::object unitsPerModelUnit) {
    const NumpyMesh mesh(vertices, faces, py::none(), "");
    const double units = unitsPerModelUnit.cast<double>();
    if (!(std::isfinite(units) && units > 0.0))
        throw py::value_error("units_per_model_unit: expected a number > 0");
    try {
        const py::gil_scoped_release release;
        const std::lock_guard<std::mutex> lock(g_pickMutex);
        VelSDK::Common::MInternalUnits::Set(units);
        return mesh.Build().mesh->GetNumberOfTriangles();
    } catch (const ArrayMeshError& error) {
        throw py::value_error(error.what());
    }
}

constexpr const char* kPickEdgesDoc = R"(pick_edges(vertices, faces, region, *, view=None, ...)

Runs the graph picker: builds the mesh's feature graph (edges whose faces meet at more than
sharp_angle_deg degrees) and returns the graph edges under the polygon region as an int64 array
(E, 2) of indices into vertices. Where several input vertices share a position (after rounding
to internal units) an edge names the lowest of them. thickness (model units) widens edges into
bars; mark_whole_candidates marks every edge that meets the region's pixel box. The other
arguments mean what they mean for pick(); a brush is not accepted.)";

constexpr const char* kModuleDoc = R"(Headless picking of mesh faces under a screen region.

A lasso polygon or a brush stroke drawn on the screen selects the faces under it, only the
visible ones unless mark_through is set, exactly as the velpick program does for a scene file.
Meshes are numpy arrays in model units; they are converted to integer internal units
(units_per_model_unit per model unit, rounded to the nearest unit) and identical vertices are
merged, as velpick's importer does.)";

constexpr const char* kPickDoc = R"(pick(vertices, faces, region, *, view=None, camera=None, ...)

Marks the faces of one mesh that lie under a screen region and returns a bool array with one
entry per face.

vertices: float32 or float64 array (N, 3), model units. faces: integer array (M, 3) of indices
into vertices. Arrays are read in place whatever their memory order; only the conversion to
internal units copies them.
region: (K, 2) array in screen units: a polygon (K >= 3, closed implicitly), or with
brush_radius (screen units; a whole number for "zbuffer") the path of a brush stroke (K >= 1).
view: 4x4 affine matrix from scene internal units to screen units (x, y on the screen, z depth,
larger nearer), or camera: a dict {"eye", "target", "up": [x, y, z] in model units, "height":
model units across the screen's height, "screen": [width, height] in screen units}; exactly one.
pixel_proportion: pixels per screen unit. depth_tolerance: model units; a face within it of the
front surface counts as visible. units_per_model_unit: internal units per model unit.
picker: "zbuffer" (a depth buffer over the region's pixels) or "scanline" (a parallel
scan-line sweep); pickers() lists them. mark_through: mark hidden faces too.
back_face_culling: never mark faces turned away. clipping_planes: (P, 4) planes (a, b, c, d) in
scene internal units; the kept side is a x + b y + c z + d >= 0.
markable: None, or a bool array (M,): only those faces may be marked; the others still hide
what is behind them. lines_per_pixel (sample lines per pixel) and threads (None: all cores):
settings of the scan-line picker.

Raises ValueError naming the argument for any bad input, with velpick's scene-file messages.
The GIL is released while the mesh is built and picked.)";

constexpr const char* kPickMeshesDoc = R"(pick_meshes(meshes, region, *, view=None, ...)

Like pick() for several meshes that hide each other. meshes is a list of tuples
(vertices, faces), (vertices, faces, placement) or (vertices, faces, placement, markable):
placement is None or a 4x4 affine matrix from the mesh's internal units to scene internal units.
Returns a list of bool arrays, one per mesh with one entry per face.)";

}  // namespace
}  // namespace velpick::python

PYBIND11_MODULE(velpick, module) {
    namespace py = pybind11;
    using namespace velpick::python;
    module.doc() = kModuleDoc;
    module.def("pick", &Pick, kPickDoc, py::arg("vertices"), py::arg("faces"), py::arg("region"),
               py::kw_only(), py::arg("view") = py::none(), py::arg("camera") = py::none(),
               py::arg("pixel_proportion") = velpick::kDefaultPixelProportion,
               py::arg("depth_tolerance") = velpick::kDefaultDepthTolerance,
               py::arg("units_per_model_unit") = velpick::kDefaultUnitsPerModelUnit,
               py::arg("picker") = velpick::kDefaultPicker, py::arg("mark_through") = false,
               py::arg("back_face_culling") = false, py::arg("clipping_planes") = py::none(),
               py::arg("markable") = py::none(), py::arg("brush_radius") = py::none(),
               py::arg("lines_per_pixel") = velpick::kDefaultLinesPerPixel,
               py::arg("threads") = py::none());
    module.def("pick_meshes", &PickMeshes, kPickMeshesDoc, py::arg("meshes"), py::arg("region"),
               py::kw_only(), py::arg("view") = py::none(), py::arg("camera") = py::none(),
               py::arg("pixel_proportion") = velpick::kDefaultPixelProportion,
               py::arg("depth_tolerance") = velpick::kDefaultDepthTolerance,
               py::arg("units_per_model_unit") = velpick::kDefaultUnitsPerModelUnit,
               py::arg("picker") = velpick::kDefaultPicker, py::arg("mark_through") = false,
               py::arg("back_face_culling") = false, py::arg("clipping_planes") = py::none(),
               py::arg("brush_radius") = py::none(),
               py::arg("lines_per_pixel") = velpick::kDefaultLinesPerPixel,
               py::arg("threads") = py::none());
    module.def("pick_edges", &PickEdges, kPickEdgesDoc, py::arg("vertices"), py::arg("faces"),
               py::arg("region"), py::kw_only(), py::arg("view") = py::none(),
               py::arg("camera") = py::none(),
               py::arg("pixel_proportion") = velpick::kDefaultPixelProportion,
               py::arg("units_per_model_unit") = velpick::kDefaultUnitsPerModelUnit,
               py::arg("mark_through") = false, py::arg("back_face_culling") = false,
               py::arg("clipping_planes") = py::none(),
               py::arg("sharp_angle_deg") = velpick::kDefaultSharpAngleDegrees,
               py::arg("thickness") = 0.0, py::arg("mark_whole_candidates") = false,
               py::arg("lines_per_pixel") = velpick::kDefaultLinesPerPixel,
               py::arg("threads") = py::none());
    module.def("pickers", &velpick::PickerNames, "The names pick() accepts as picker.");
    module.def("_build_mesh", &BuildOnly,
               "Converts and builds the host mesh pick() would build and returns its triangle "
               "count; for measuring the binding's overhead.",
               py::arg("vertices"), py::arg("faces"),
               py::arg("units_per_model_unit") = velpick::kDefaultUnitsPerModelUnit);
}
