// The velpick Python module: the picking library over numpy arrays, with the velpick program's
// validation, pickers and mesh building.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "array_mesh.h"
#include "keyword_settings.h"
#include "numpy_mesh.h"
#include "pick_settings_validator.h"
#include "picker.h"

namespace velpick::python {
namespace {

namespace py = pybind11;

/// A call's meshes as arrays, with the placement of each (identity when None).
struct ArrayMeshes {
    std::vector<NumpyMesh> arrays;
    std::vector<MMTransformMatrix> placements;
};

/// A pick's results with, for each mesh, the input vertex of each mesh vertex.
struct BuiltPick {
    PickResult result;
    std::vector<std::vector<std::uint32_t>> inputVertexOf;
};

// Builds the meshes and picks; makes no Python call, so it runs without the GIL. Nothing here
// is shared with another call: the scale travels in the settings.
BuiltPick BuildAndPick(const ArrayMeshes& meshes, const View& view, const PickSettings& settings,
                       Picker& picker) {
    std::vector<std::unique_ptr<MStlBase>> built;
    BuiltPick pick;
    PickRequest request{{}, view, settings};
    for (std::size_t i = 0; i < meshes.arrays.size(); ++i) {
        ArrayMesh mesh = meshes.arrays[i].Build(settings.unitsPerModelUnit);
        PickMesh entry{mesh.mesh.get(), meshes.placements[i], !meshes.arrays[i].HasMarkable(), {}};
        if (meshes.arrays[i].HasMarkable())
            entry.markableSurfaces.push_back(&*mesh.mesh->Surfaces().begin());  // markable faces
        request.meshes.push_back(entry);
        built.push_back(std::move(mesh.mesh));
        pick.inputVertexOf.push_back(std::move(mesh.inputVertexOf));
    }
    pick.result = picker.Pick(request);
    return pick;
}

BuiltPick RunPick(const ArrayMeshes& meshes, const py::object& region, const py::kwargs& keywords,
                  PickFunction function) {
    const KeywordSettings source(region, keywords, function);
    const PickSettings settings = ValidatePickSettings(source);
    const View view = ValidateView(source, settings.unitsPerModelUnit);
    const bool edges = function == PickFunction::kPickEdges;
    if (!edges && settings.picker == "graph")
        throw py::value_error("picker: the graph picker marks edges, not faces; use pick_edges");
    const std::unique_ptr<Picker> picker = MakePicker(settings.picker);
    try {
        const py::gil_scoped_release release;
        return BuildAndPick(meshes, view, settings, *picker);
    } catch (const ArrayMeshError& error) {
        throw py::value_error(error.what());
    } catch (const PickError& error) {
        throw py::value_error(error.Field() + ": " + error.what());
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

ArrayMeshes OneMesh(const py::object& vertices, const py::object& faces,
                    const py::object& markable) {
    ArrayMeshes meshes;
    meshes.arrays.emplace_back(vertices, faces, markable, "");
    meshes.placements.emplace_back();
    return meshes;
}

py::array_t<bool> Pick(py::object vertices, py::object faces, py::object region,
                       py::object markable, const py::kwargs& keywords) {
    const ArrayMeshes meshes = OneMesh(vertices, faces, markable);
    const BuiltPick pick = RunPick(meshes, region, keywords, PickFunction::kPick);
    return FaceMask(meshes.arrays[0].FaceCount(), pick.result.meshes[0].triangles);
}

// (vertices, faces[, placement[, markable]]) of mesh i.
void AddMeshEntry(const py::handle& entry, std::size_t i, ArrayMeshes& meshes) {
    const std::string label = "meshes[" + std::to_string(i) + "]";
    const bool isTuple = py::isinstance<py::tuple>(entry) || py::isinstance<py::list>(entry);
    const std::size_t size = isTuple ? py::len(entry) : 0;
    if (size < 2 || size > 4)
        throw py::value_error(label +
                              ": expected a tuple (vertices, faces[, placement[, markable]])");
    const py::sequence parts = py::reinterpret_borrow<py::sequence>(entry);
    const py::object placement = size > 2 ? py::object(parts[2]) : py::none();
    meshes.arrays.emplace_back(parts[0], parts[1], size > 3 ? py::object(parts[3]) : py::none(),
                               label + ".");
    meshes.placements.push_back(placement.is_none() ? MMTransformMatrix()
                                                    : settings_detail::Matrix(MatrixField(
                                                          placement, label + ".placement")));
}

py::list PickMeshes(py::object meshEntries, py::object region, const py::kwargs& keywords) {
    PyField list(meshEntries, "meshes");
    if (!list.IsArray() || py::isinstance<py::array>(meshEntries))
        throw py::value_error("meshes: expected a list of (vertices, faces[, placement]) tuples");
    list.ArraySize(1, "mesh");
    ArrayMeshes meshes;
    std::size_t i = 0;
    for (const py::handle entry : meshEntries)
        AddMeshEntry(entry, i++, meshes);
    const BuiltPick pick = RunPick(meshes, region, keywords, PickFunction::kPickMeshes);
    py::list masks;
    for (std::size_t m = 0; m < meshes.arrays.size(); ++m)
        masks.append(FaceMask(meshes.arrays[m].FaceCount(), pick.result.meshes[m].triangles));
    return masks;
}

// The marked edges of a graph pick as rows of input vertex indices, in the picker's order.
py::array_t<std::int64_t> EdgeRows(const EdgePick& edges,
                                   const std::vector<std::uint32_t>& inputVertexOf) {
    py::array_t<std::int64_t> rows(
        std::vector<py::ssize_t>{static_cast<py::ssize_t>(edges.markedVertices.size()), 2});
    auto cells = rows.mutable_unchecked<2>();
    for (std::size_t e = 0; e < edges.markedVertices.size(); ++e)
        for (std::size_t end = 0; end < 2; ++end)
            cells(static_cast<py::ssize_t>(e), static_cast<py::ssize_t>(end)) =
                inputVertexOf[edges.markedVertices[e][end]];
    return rows;
}

py::array_t<std::int64_t> PickEdges(py::object vertices, py::object faces, py::object region,
                                    const py::kwargs& keywords) {
    const ArrayMeshes meshes = OneMesh(vertices, faces, py::none());
    const BuiltPick pick = RunPick(meshes, region, keywords, PickFunction::kPickEdges);
    const std::optional<EdgePick>& edges = pick.result.meshes[0].edges;
    if (!edges)
        return py::array_t<std::int64_t>(std::vector<py::ssize_t>{0, 2});
    return EdgeRows(*edges, pick.inputVertexOf[0]);
}

// Builds the mesh pick() would build, for measuring the binding's own cost.
std::size_t BuildOnly(py::object vertices, py::object faces, py::object unitsPerModelUnit) {
    const NumpyMesh mesh(vertices, faces, py::none(), "");
    const double units = PyField(unitsPerModelUnit, "units_per_model_unit").PositiveNumber();
    try {
        const py::gil_scoped_release release;
        return mesh.Build(units).mesh->GetNumberOfTriangles();
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
               py::kw_only(), py::arg("markable") = py::none());
    module.def("pick_meshes", &PickMeshes, kPickMeshesDoc, py::arg("meshes"), py::arg("region"));
    module.def("pick_edges", &PickEdges, kPickEdgesDoc, py::arg("vertices"), py::arg("faces"),
               py::arg("region"));
    module.def("pickers", &velpick::PickerNames, "The names pick() accepts as picker.");
    module.def("_build_mesh", &BuildOnly,
               "Converts and builds the host mesh pick() would build and returns its triangle "
               "count; for measuring the binding's overhead.",
               py::arg("vertices"), py::arg("faces"),
               py::arg("units_per_model_unit") = velpick::PickSettings().unitsPerModelUnit);
}
