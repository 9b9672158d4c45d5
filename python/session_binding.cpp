// velpick.Session: a mesh and a view indexed once, then picked again and again at the cost of
// what each region covers.

#include "session_binding.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <velpick/pick_session.h>
#include "held_mesh.h"
#include "keyword_settings.h"
#include "numpy_mesh.h"
#include "pick_settings_validator.h"
#include "pinhole_view.h"

namespace velpick::python {
namespace {

namespace py = pybind11;
using namespace AU_MarkOperations::PolygonMarking;

/// A region that passes validation, for checking the settings before any region is given.
py::object PlaceholderRegion() {
    return py::make_tuple(py::make_tuple(0.0, 0.0), py::make_tuple(1.0, 0.0),
                          py::make_tuple(0.0, 1.0));
}

SessionSettings ToSessionSettings(const PickSettings& s, const View& view) {
    SessionSettings out;
    out.picker = s.picker == "scanline" ? SessionPicker::kScanLine : SessionPicker::kZBuffer;
    out.pixelProportion = s.pixelProportion;
    out.depthTolerance = s.depthTolerance;
    out.unitsPerModelUnit = s.unitsPerModelUnit;
    out.linesPerPixel = s.linesPerPixel;
    out.visibilityRule = DetectorRule(s);
    out.visibilityDepthTolerance = ScanLineDepthTolerance(s, view);
    out.threads = s.threads.value_or(0);
    out.skipHiddenSurfaces = s.skipHiddenSurfaces;
    out.backFaceCulling = s.backFaceCulling;
    out.markThrough = s.markThrough;
    out.unmark = s.unmark;
    out.clippingPlanes = s.clippingPlanes;
    return out;
}

/// The Python object: the mesh (held by the caller's Mesh or built here), the keywords every
/// region is validated with, and the session. A lock keeps calls from threads apart.
class PySession {
  public:
    PySession(const py::object& meshOrVertices, const py::object& faces, const py::object& markable,
              const py::kwargs& keywords)
        : m_keywords(keywords) {
        SessionMesh entry;
        HeldMesh* held = nullptr;
        if (py::isinstance<HeldMesh>(meshOrVertices)) {
            if (!faces.is_none() || !markable.is_none())
                throw py::value_error("faces: not taken with a Mesh");
            if (keywords.contains("units_per_model_unit"))
                throw py::value_error("units_per_model_unit: a Mesh carries its own scale");
            m_meshOwner = meshOrVertices;
            held = &meshOrVertices.cast<HeldMesh&>();
            m_keywords["units_per_model_unit"] = py::float_(held->unitsPerModelUnit);
            entry.mesh = held->mesh.get();
        }
        const KeywordSettings source(PlaceholderRegion(), m_keywords, PickFunction::kPick);
        const PickSettings settings = ValidatePickSettings(source);
        const View view = ValidateView(source, settings.unitsPerModelUnit);
        if (settings.picker == "graph")
            throw py::value_error("picker: the graph picker marks edges, not faces");
        SessionSettings sessionSettings = ToSessionSettings(settings, view);
        m_unmark = settings.unmark;
        if (!entry.mesh)
            entry = BuildArrays(meshOrVertices, faces, markable, settings.unitsPerModelUnit);
        entry.view = view.matrix;
        m_view = view;
        m_pixelProportion = settings.pixelProportion;
        PickMesh placed = held ? held->ToPickMesh() : PickMesh();
        placed.mesh = entry.mesh;
        const py::gil_scoped_release release;
        // As the z-buffer picker sees through the camera: eye space, then this projection.
        if (view.projection)
            sessionSettings.perspective =
                OperatorProjection(ResolvedProjection(view, std::vector<PickMesh>{placed}));
        m_session = std::make_unique<PickSession>(std::vector<SessionMesh>{entry},
                                                  std::move(sessionSettings));
        m_faceCount = entry.mesh->GetNumberOfTriangles();
        m_mesh = entry.mesh;
    }

    py::array_t<bool> Pick(const py::object& region, const py::object& brushRadius) {
        const SessionRegion valid = ValidRegion(region, brushRadius);
        SessionMarks marks;
        Run([&] { return m_session->Pick(valid, marks); });
        return FaceMask(marks[0]);
    }

    py::array_t<std::int64_t> AddSegment(const py::object& from, const py::object& to,
                                         const py::object& radius) {
        const SessionRegion valid = ValidRegion(py::make_tuple(from, to), radius);
        SessionMarks fresh;
        Run([&] {
            return m_session->AddStrokeSegment(valid.points[0], valid.points[1], *valid.brushRadius,
                                               fresh);
        });
        py::array_t<std::int64_t> out(static_cast<py::ssize_t>(fresh[0].size()));
        std::copy(fresh[0].begin(), fresh[0].end(), out.mutable_data());
        return out;
    }

    void NewStroke() {
        const py::gil_scoped_release release;
        const std::lock_guard<std::mutex> lock(m_lock);
        m_session->NewStroke();
    }

  private:
    SessionMesh BuildArrays(const py::object& vertices, const py::object& faces,
                            const py::object& markable, double unitsPerModelUnit) {
        const NumpyMesh arrays(vertices, faces, markable, "");
        try {
            const py::gil_scoped_release release;
            m_ownMesh = arrays.Build(unitsPerModelUnit).mesh;
        } catch (const ArrayMeshError& error) {
            throw py::value_error(error.what());
        }
        SessionMesh entry{m_ownMesh.get(), {}, {}, !arrays.HasMarkable(), {}};
        if (arrays.HasMarkable())
            entry.markableSurfaces.push_back(&*m_ownMesh->Surfaces().begin());  // markable faces
        return entry;
    }

    // The region as pick() validates it, with the session's own keywords, on the screen.
    SessionRegion ValidRegion(const py::object& region, const py::object& brushRadius) const {
        py::kwargs keywords;  // a new dict: the session's own keywords stay as they are
        for (const auto& item : m_keywords)
            keywords[item.first] = item.second;
        if (!brushRadius.is_none())
            keywords["brush_radius"] = brushRadius;
        const SelectionRegion given =
            ValidatePickSettings(KeywordSettings(region, keywords, PickFunction::kPick)).region;
        SelectionRegion valid;
        try {
            valid = PixelSafeRegionOnScreen(given, m_view, m_pixelProportion);
        } catch (const PickError& error) {
            throw py::value_error(error.Field() + ": " + error.what());
        }
        SessionRegion out{valid.points, std::nullopt};
        if (valid.shape == SelectionRegion::Shape::kBrush)
            out.brushRadius = valid.brushRadius;
        return out;
    }

    template <class Call>
    void Run(Call call) {
        SessionStatus status;
        {
            const py::gil_scoped_release release;
            const std::lock_guard<std::mutex> lock(m_lock);
            status = call();
        }
        if (status == SessionStatus::kRegionRefused)
            throw py::value_error("region: the picker refuses it (over 2147483647 pixels)");
    }

    // Like pick(): the faces marked after the call, starting from the faces' own marks.
    py::array_t<bool> FaceMask(const std::vector<std::uint32_t>& picked) const {
        py::array_t<bool> mask(static_cast<py::ssize_t>(m_faceCount));
        bool* cells = mask.mutable_data();
        for (std::size_t t = 0; t < m_faceCount; ++t)
            cells[t] = m_mesh->GetTriangle(t).IsMarked();
        for (const std::uint32_t t : picked)
            cells[t] = !m_unmark;
        return mask;
    }

    py::dict m_keywords;
    View m_view;
    double m_pixelProportion = 0.0;
    py::object m_meshOwner;  // a velpick.Mesh, kept alive
    std::unique_ptr<MStlBase> m_ownMesh;
    const MStlBase* m_mesh = nullptr;
    std::size_t m_faceCount = 0;
    bool m_unmark = false;
    std::unique_ptr<PickSession> m_session;
    std::mutex m_lock;
};

constexpr const char* kSessionDoc =
    R"(Session(mesh_or_vertices, faces=None, *, markable=None, view=None, camera=None, ...)

One mesh (a Mesh, or vertices and faces as pick() takes them) seen in one view, indexed once
so that each later pick costs about what its region covers. The keywords are pick()'s and are
fixed for the session's life; a moved camera or a changed mesh needs a new Session. Each
pick(region, brush_radius=None) returns the same face mask as pick() with those keywords.
add_segment(from, to, radius) grows a brush stroke by one segment, picked as a region of its
own, and returns the int64 indices of the faces it marked that the stroke had not marked yet;
new_stroke() starts over. Every camera pick() takes will do; a pinhole camera's regions and
brush points are in its image coordinates. The "zbuffer" picker only, for now. The GIL is
released during indexing and picks; calls from several threads wait for each other.)";

}  // namespace

void RegisterSession(py::module_& module) {
    py::class_<PySession>(module, "Session", kSessionDoc)
        .def(py::init<const py::object&, const py::object&, const py::object&, const py::kwargs&>(),
             py::arg("mesh_or_vertices"), py::arg("faces") = py::none(), py::kw_only(),
             py::arg("markable") = py::none())
        .def("pick", &PySession::Pick, py::arg("region"), py::arg("brush_radius") = py::none(),
             "The face mask pick() returns for this region.")
        .def("add_segment", &PySession::AddSegment, py::arg("start"), py::arg("end"),
             py::arg("radius"), "Indices of the faces the segment newly marks in this stroke.")
        .def("new_stroke", &PySession::NewStroke, "Starts a new stroke.");
}

}  // namespace velpick::python
