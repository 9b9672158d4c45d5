// The velpick Python module: the picking library over numpy arrays, with the velpick program's
// validation, pickers and mesh building.

#include <dlfcn.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "array_mesh.h"
#include "held_mesh.h"
#include "keyword_settings.h"
#include "mesh_import.h"
#include "numpy_mesh.h"
#include "pick_settings_validator.h"
#include "pick_views.h"
#include "picker.h"
#include "session_binding.h"

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

// A pick of a held mesh: its scale is the mesh's, and it is only read.
PickResult PickHeld(HeldMesh& mesh, const py::object& region, const py::kwargs& keywords,
                    PickFunction function) {
    if (keywords.contains("units_per_model_unit"))
        throw py::value_error(
            "units_per_model_unit: a Mesh carries its own scale; give it to Mesh() or "
            "load_mesh()");
    py::kwargs scaled(keywords);
    scaled["units_per_model_unit"] = py::float_(mesh.unitsPerModelUnit);
    const KeywordSettings source(region, scaled, function);
    const PickSettings settings = ValidatePickSettings(source);
    const View view = ValidateView(source, settings.unitsPerModelUnit);
    if (function != PickFunction::kPickEdges && settings.picker == "graph")
        throw py::value_error("picker: the graph picker marks edges, not faces; use pick_edges");
    const std::unique_ptr<Picker> picker = MakePicker(settings.picker);
    try {
        const py::gil_scoped_release release;
        return picker->Pick({{mesh.ToPickMesh()}, view, settings});
    } catch (const PickError& error) {
        throw py::value_error(error.Field() + ": " + error.what());
    }
}

// Builds a held mesh from arrays, without the GIL while it builds.
std::unique_ptr<HeldMesh> HoldArrays(const py::object& vertices, const py::object& faces,
                                     double unitsPerModelUnit) {
    const NumpyMesh arrays(vertices, faces, py::none(), "");
    auto held = std::make_unique<HeldMesh>();
    held->unitsPerModelUnit = unitsPerModelUnit;
    try {
        const py::gil_scoped_release release;
        ArrayMesh built = arrays.Build(unitsPerModelUnit);
        held->mesh = std::move(built.mesh);
        held->inputVertexOf = std::move(built.inputVertexOf);
    } catch (const ArrayMeshError& error) {
        throw py::value_error(error.what());
    }
    return held;
}

double Scale(const py::object& unitsPerModelUnit) {
    return PyField(unitsPerModelUnit, "units_per_model_unit").PositiveNumber();
}

std::unique_ptr<HeldMesh> MakeMesh(const py::object& vertices, const py::object& faces,
                                   const py::object& unitsPerModelUnit) {
    return HoldArrays(vertices, faces, Scale(unitsPerModelUnit));
}

std::unique_ptr<HeldMesh> LoadMesh(const py::object& path, const py::object& unitsPerModelUnit) {
    const std::string file = py::str(py::module_::import("os").attr("fspath")(path));
    auto held = std::make_unique<HeldMesh>();
    held->unitsPerModelUnit = Scale(unitsPerModelUnit);
    try {
        const py::gil_scoped_release release;
        held->mesh = ImportMesh(std::filesystem::u8path(file), held->unitsPerModelUnit);
    } catch (const MeshImportError& error) {
        throw py::value_error(error.what());
    }
    return held;
}

// The mesh's vertices in model units and its faces, as numpy arrays.
py::array_t<double> MeshVertices(const HeldMesh& held) {
    const MStlBase& mesh = *held.mesh;
    py::array_t<double> vertices(
        std::vector<py::ssize_t>{static_cast<py::ssize_t>(mesh.GetNumberOfPoints()), 3});
    auto cells = vertices.mutable_unchecked<2>();
    for (std::size_t i = 0; i < mesh.GetNumberOfPoints(); ++i)
        for (std::size_t axis = 0; axis < 3; ++axis)
            cells(static_cast<py::ssize_t>(i), static_cast<py::ssize_t>(axis)) =
                mesh.GetPoint(i)[axis] / held.unitsPerModelUnit;
    return vertices;
}

py::array_t<std::int64_t> MeshFaces(const HeldMesh& held) {
    const MStlBase& mesh = *held.mesh;
    py::array_t<std::int64_t> faces(
        std::vector<py::ssize_t>{static_cast<py::ssize_t>(mesh.GetNumberOfTriangles()), 3});
    auto cells = faces.mutable_unchecked<2>();
    for (std::size_t t = 0; t < mesh.GetNumberOfTriangles(); ++t)
        for (std::size_t corner = 0; corner < 3; ++corner)
            cells(static_cast<py::ssize_t>(t), static_cast<py::ssize_t>(corner)) =
                mesh.GetTriangle(t).GetPointIndex(corner);
    return faces;
}

bool IsHeld(const py::handle& value) {
    return py::isinstance<HeldMesh>(value);
}

// With a Mesh first, the region comes second (or as region=).
py::object HeldRegion(const py::object& second, const py::object& region) {
    if (!second.is_none() && !region.is_none())
        throw py::type_error("with a Mesh, give the region once: pick(mesh, region, ...)");
    return second.is_none() ? region : second;
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
    if (IsHeld(vertices)) {
        if (!markable.is_none())
            throw py::value_error("markable: not taken with a Mesh");
        HeldMesh& mesh = vertices.cast<HeldMesh&>();
        const PickResult result =
            PickHeld(mesh, HeldRegion(faces, region), keywords, PickFunction::kPick);
        return FaceMask(mesh.mesh->GetNumberOfTriangles(), result.meshes[0].triangles);
    }
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
template <class InputVertex>
py::array_t<std::int64_t> EdgeRows(const EdgePick& edges, InputVertex inputVertex) {
    py::array_t<std::int64_t> rows(
        std::vector<py::ssize_t>{static_cast<py::ssize_t>(edges.markedVertices.size()), 2});
    auto cells = rows.mutable_unchecked<2>();
    for (std::size_t e = 0; e < edges.markedVertices.size(); ++e)
        for (std::size_t end = 0; end < 2; ++end)
            cells(static_cast<py::ssize_t>(e), static_cast<py::ssize_t>(end)) =
                inputVertex(edges.markedVertices[e][end]);
    return rows;
}

py::array_t<std::int64_t> PickEdges(py::object vertices, py::object faces, py::object region,
                                    const py::kwargs& keywords) {
    if (IsHeld(vertices)) {
        const HeldMesh& mesh = vertices.cast<HeldMesh&>();
        const PickResult result = PickHeld(vertices.cast<HeldMesh&>(), HeldRegion(faces, region),
                                           keywords, PickFunction::kPickEdges);
        return EdgeRows(*result.meshes[0].edges,
                        [&](std::uint32_t vertex) { return mesh.InputVertex(vertex); });
    }
    const ArrayMeshes meshes = OneMesh(vertices, faces, py::none());
    const BuiltPick pick = RunPick(meshes, region, keywords, PickFunction::kPickEdges);
    const std::vector<std::uint32_t>& inputVertexOf = pick.inputVertexOf[0];
    return EdgeRows(*pick.result.meshes[0].edges,
                    [&](std::uint32_t vertex) { return inputVertexOf[vertex]; });
}

// pick_views(mesh, cameras, ...): mesh a Mesh or a (vertices, faces) pair.
py::object PickViewsCall(py::object mesh, py::sequence cameras, py::object region,
                         py::object reduce, py::object progress, const py::kwargs& keywords) {
    try {
        if (IsHeld(mesh))
            return PickViews(mesh.cast<HeldMesh&>(), cameras, region, reduce, progress, keywords);
        const bool pair = (py::isinstance<py::tuple>(mesh) || py::isinstance<py::list>(mesh)) &&
                          py::len(mesh) == 2;
        if (!pair)
            throw py::value_error("mesh: expected a velpick.Mesh or a (vertices, faces) pair");
        py::kwargs rest(keywords);
        const py::object units = rest.contains("units_per_model_unit")
                                     ? py::object(rest.attr("pop")("units_per_model_unit"))
                                     : py::float_(PickSettings().unitsPerModelUnit);
        const py::sequence arrays = py::reinterpret_borrow<py::sequence>(mesh);
        const std::unique_ptr<HeldMesh> held = MakeMesh(arrays[0], arrays[1], units);
        return PickViews(*held, cameras, region, reduce, progress, rest);
    } catch (const PickError& error) {
        throw py::value_error(error.Field() + ": " + error.what());
    }
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
larger nearer), or camera: a dict, exactly one of the two. Cameras: orthographic {"eye",
"target", "up": [x, y, z] in model units, "height": model units across the screen's height,
"screen": [width, height] in screen units}; perspective, "fov_deg" (vertical field of view,
0 < fov < 180) in place of "height"; or pinhole {"pinhole": {"K": 3x3, "R": 3x3, "t": (3,),
"image": [w, h]}}, X_cam = R X + t, (u, v) = (fx x/z + cx, fy y/z + cy), the region then in
image coordinates (u right, v down, pixel centres whole); K, R and t may be numpy arrays.
Perspective and pinhole cameras take "near" (model units; default 1e-4 of the distance from the
eye to the farthest corner of the mesh's bounding box): nearer parts are cut away. Every
picker takes them.
pixel_proportion: pixels per screen unit. depth_tolerance: model units; a face within it of the
front surface counts as visible ("zbuffer", and "scanline" with scanline_rule="nearest").
units_per_model_unit: internal units per model unit.
picker: "zbuffer" (a depth buffer over the region's pixels) or "scanline" (a parallel
scan-line sweep); pickers() lists them. mark_through: mark hidden faces too.
back_face_culling: never mark faces turned away. clipping_planes: (P, 4) planes (a, b, c, d) in
scene internal units; the kept side is a x + b y + c z + d >= 0.
markable: None, or a bool array (M,): only those faces may be marked; the others still hide
what is behind them. lines_per_pixel (sample lines per pixel), threads (None: all cores) and
scanline_rule: settings of the scan-line picker. scanline_rule "ordered" (default) keeps the
front of a depth order that pieces enter from left to right on each sample line; "nearest"
marks a face where it lies within depth_tolerance of the nearest surface on some line, so a
face rising through another is marked where it is in front.

Raises ValueError naming the argument for any bad input, with velpick's scene-file messages.
The GIL is released while the mesh is built and picked.)";

constexpr const char* kPickMeshesDoc = R"(pick_meshes(meshes, region, *, view=None, ...)

Like pick() for several meshes that hide each other. meshes is a list of tuples
(vertices, faces), (vertices, faces, placement) or (vertices, faces, placement, markable):
placement is None or a 4x4 affine matrix from the mesh's internal units to scene internal units.
Returns a list of bool arrays, one per mesh with one entry per face.)";

// The folder velpick_py beside the file this module was loaded from.
std::string SubmoduleFolder() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&SubmoduleFolder), &info) == 0 || !info.dli_fname)
        return "velpick_py";
    return (std::filesystem::path(info.dli_fname).parent_path() / "velpick_py").string();
}

// The signatures of Mesh() and load_mesh(), with their defaults, are pybind11's own.
constexpr const char* kMeshDoc =
    R"(A mesh built once for many picks: vertices (N, 3) in model units and faces (M, 3) as
pick() takes them, converted at units_per_model_unit. pick(mesh, region, ...),
pick_edges(mesh, region, ...) and pick_views(mesh, cameras, ...) take it in place of vertices,
faces; it is never changed by a pick, so threads may pick it at once. It carries its scale:
passing units_per_model_unit with it is an error. Feature graphs are built once per sharp
angle.)";

constexpr const char* kLoadMeshDoc =
    R"(Reads an STL, OBJ, PLY or OFF file into a Mesh with velpick's own readers (face i of the
file is face i of the mesh). Raises ValueError naming the file when it cannot be read.)";

constexpr const char* kPickViewsDoc =
    R"(pick_views(mesh, cameras, *, region=None, picker="zbuffer", reduce=None, threads=None, progress=None, ...)

Picks one mesh (a Mesh, or a (vertices, faces) pair) from every camera of the list cameras
(camera dicts as pick() takes them). Row i of the result is exactly pick(mesh, region,
camera=cameras[i], ...). region None is each camera's whole screen, the polygon (0, 0), (w, 0),
(w, h), (0, h), or for a pinhole camera its whole image, (-0.5, -0.5) to (w - 0.5, h - 0.5).
picker: "zbuffer" or "scanline". threads: the most threads the call uses in all (None: all
cores); views run in parallel without the GIL, a view's pick gets the threads left over when
there are fewer views than threads.
reduce None returns a bool array (views, faces); "any" a bool array (faces,): seen by some
view; "count" a uint32 array (faces,): the number of views marking each face. Reductions hold
no per-view array.
progress: a callable progress(done, total) or True for a tqdm bar (where tqdm is installed),
called from the calling thread while views run. Ctrl-C stops the call between views and raises
KeyboardInterrupt. The other keywords are pick()'s.)";

}  // namespace
}  // namespace velpick::python

PYBIND11_MODULE(velpick, module) {
    namespace py = pybind11;
    using namespace velpick::python;
    module.doc() = kModuleDoc;
    // velpick.dask and other pure-Python submodules live in velpick_py beside this library.
    py::list path;
    path.append(SubmoduleFolder());
    module.attr("__path__") = path;

    py::class_<HeldMesh>(module, "Mesh", kMeshDoc)
        .def(py::init(&MakeMesh), py::arg("vertices"), py::arg("faces"), py::kw_only(),
             py::arg("units_per_model_unit") = velpick::PickSettings().unitsPerModelUnit)
        .def_property_readonly("vertices", &MeshVertices,
                               "The mesh's vertices (merged), model units, float64 (N, 3).")
        .def_property_readonly("faces", &MeshFaces,
                               "Face i's vertices (indices into vertices), int64 (M, 3).")
        .def_property_readonly("units_per_model_unit",
                               [](const HeldMesh& mesh) { return mesh.unitsPerModelUnit; })
        .def("__len__", [](const HeldMesh& mesh) { return mesh.mesh->GetNumberOfTriangles(); });
    module.def("load_mesh", &LoadMesh, kLoadMeshDoc, py::arg("path"), py::kw_only(),
               py::arg("units_per_model_unit") = velpick::PickSettings().unitsPerModelUnit);
    module.def("pick", &Pick, kPickDoc, py::arg("vertices"), py::arg("faces"),
               py::arg("region") = py::none(), py::kw_only(), py::arg("markable") = py::none());
    module.def("pick_views", &PickViewsCall, kPickViewsDoc, py::arg("mesh"), py::arg("cameras"),
               py::kw_only(), py::arg("region") = py::none(), py::arg("reduce") = py::none(),
               py::arg("progress") = py::none());
    module.def("pick_meshes", &PickMeshes, kPickMeshesDoc, py::arg("meshes"), py::arg("region"));
    module.def("pick_edges", &PickEdges, kPickEdgesDoc, py::arg("vertices"), py::arg("faces"),
               py::arg("region") = py::none());
    RegisterSession(module);
    module.def("pickers", &velpick::PickerNames, "The names pick() accepts as picker.");
    module.def("_build_mesh", &BuildOnly,
               "Converts and builds the host mesh pick() would build and returns its triangle "
               "count; for measuring the binding's overhead.",
               py::arg("vertices"), py::arg("faces"),
               py::arg("units_per_model_unit") = velpick::PickSettings().unitsPerModelUnit);
}
