#include "keyword_settings.h"

#include <algorithm>

#include <pybind11/numpy.h>

namespace velpick::python {

namespace py = pybind11;

namespace {

constexpr unsigned kFaces =
    static_cast<unsigned>(PickFunction::kPick) | static_cast<unsigned>(PickFunction::kPickMeshes);
constexpr unsigned kEdges = static_cast<unsigned>(PickFunction::kPickEdges);
constexpr unsigned kAll = kFaces | kEdges;

// Every keyword of the pick functions: the setting it gives and the functions that take it.
struct KeywordEntry {
    const char* name;
    Setting setting;
    unsigned functions;
};
constexpr KeywordEntry kKeywords[] = {
    {"view", Setting::kView, kAll},
    {"camera", Setting::kCamera, kAll},
    {"pixel_proportion", Setting::kPixelProportion, kAll},
    {"units_per_model_unit", Setting::kUnitsPerModelUnit, kAll},
    {"mark_through", Setting::kMarkThrough, kAll},
    {"back_face_culling", Setting::kBackFaceCulling, kAll},
    {"clipping_planes", Setting::kClippingPlanes, kAll},
    {"lines_per_pixel", Setting::kLinesPerPixel, kAll},
    {"threads", Setting::kThreads, kAll},
    {"depth_tolerance", Setting::kDepthTolerance, kFaces},
    {"picker", Setting::kPicker, kFaces},
    {"scanline_rule", Setting::kScanLineRule, kFaces},
    {"brush_radius", Setting::kBrushRadius, kFaces},
    {"sharp_angle_deg", Setting::kSharpAngle, kEdges},
    {"thickness", Setting::kThickness, kEdges},
    {"mark_whole_candidates", Setting::kMarkWholeCandidates, kEdges},
};

// The picker that marks edges; pick_edges runs it and takes no picker keyword.
constexpr const char* kEdgePicker = "graph";

const KeywordEntry* EntryOf(Setting setting) {
    for (const KeywordEntry& entry : kKeywords)
        if (entry.setting == setting)
            return &entry;
    return nullptr;
}

bool IsNumpy(const py::handle& value, const char* type) {
    return py::isinstance(value, py::module_::import("numpy").attr(type));
}

}  // namespace

PyField::PyField(py::handle value, std::string path)
    : m_value(py::reinterpret_borrow<py::object>(value)), m_path(std::move(path)) {}

void PyField::Fail(const std::string& reason) const {
    throw py::value_error(m_path.empty() ? reason : m_path + ": " + reason);
}

void PyField::ExpectObject(std::initializer_list<const char*> known) const {
    if (!py::isinstance<py::dict>(m_value))
        FailType("an object");
    for (const auto item : py::reinterpret_borrow<py::dict>(m_value)) {
        const std::string key = py::str(item.first).cast<std::string>();
        if (std::none_of(known.begin(), known.end(), [&](const char* name) { return key == name; }))
            PyField(item.second, m_path + "." + key).Fail("unknown field");
    }
}

bool PyField::Has(const char* name) const {
    return py::isinstance<py::dict>(m_value) && m_value.contains(name);
}

PyField PyField::Member(const char* name) const {
    const std::string path = m_path + "." + name;
    if (!Has(name))
        PyField(m_value, path).Fail("missing");
    return PyField(m_value[name], path);
}

bool PyField::IsString() const {
    return py::isinstance<py::str>(m_value);
}

std::optional<double> PyField::AsNumber() const {
    const bool number = (py::isinstance<py::int_>(m_value) || py::isinstance<py::float_>(m_value) ||
                         IsNumpy(m_value, "number")) &&
                        !py::isinstance<py::bool_>(m_value);
    if (!number)
        return std::nullopt;
    try {
        return py::float_(m_value).cast<double>();
    } catch (const py::error_already_set&) {
        return std::nullopt;  // an integer beyond the double range
    }
}

std::optional<bool> PyField::AsBoolean() const {
    if (!py::isinstance<py::bool_>(m_value) && !IsNumpy(m_value, "bool_"))
        return std::nullopt;
    return m_value.cast<bool>();
}

std::optional<std::string> PyField::AsString() const {
    if (!IsString())
        return std::nullopt;
    return m_value.cast<std::string>();
}

bool PyField::IsArray() const {
    if (py::isinstance<py::array>(m_value))
        return py::reinterpret_borrow<py::array>(m_value).ndim() > 0;
    return py::isinstance<py::list>(m_value) || py::isinstance<py::tuple>(m_value);
}

std::size_t PyField::Size() const {
    return py::len(m_value);
}

PyField PyField::Item(std::size_t index) const {
    return PyField(m_value[py::int_(index)], m_path + "[" + std::to_string(index) + "]");
}

std::string PyField::Describe() const {
    if (AsNumber() || AsBoolean())
        return py::repr(m_value).cast<std::string>();
    if (IsString())
        return "the string " + py::repr(m_value).cast<std::string>();
    return "a " + py::str(m_value.get_type().attr("__name__")).cast<std::string>();
}

PyField MatrixField(py::handle matrix, const std::string& name) {
    py::array_t<double> values;
    try {
        values = py::array_t<double, py::array::forcecast>::ensure(matrix);
    } catch (const py::error_already_set&) {
    }
    if (!values || values.ndim() != 2 || values.shape(0) != 4 || values.shape(1) != 4)
        PyField(matrix, name).FailType("a 4x4 array");
    return PyField(values.attr("ravel")(), name);
}

KeywordSettings::KeywordSettings(py::handle region, const py::kwargs& keywords,
                                 PickFunction function)
    : m_region(py::reinterpret_borrow<py::object>(region)), m_function(function) {
    for (const auto item : keywords) {
        const std::string name = py::str(item.first).cast<std::string>();
        const auto entry = std::find_if(std::begin(kKeywords), std::end(kKeywords),
                                        [&](const KeywordEntry& e) { return name == e.name; });
        if (entry == std::end(kKeywords) || !(entry->functions & static_cast<unsigned>(function)))
            throw py::type_error("got an unexpected keyword argument '" + name + "'");
        if (!item.second.is_none())
            m_keywords[py::str(name)] = item.second;
    }
}

std::optional<PyField> KeywordSettings::Keyword(Setting setting) const {
    const KeywordEntry* entry = EntryOf(setting);
    if (!entry || !m_keywords.contains(entry->name))
        return std::nullopt;
    const py::object value = m_keywords[entry->name];
    if (setting == Setting::kView)
        return MatrixField(value, entry->name);
    return PyField(value, entry->name);
}

std::optional<PyField> KeywordSettings::Find(Setting setting) const {
    const bool brush = m_keywords.contains("brush_radius");
    switch (setting) {
        case Setting::kPolygon:
            return brush ? std::nullopt : std::optional<PyField>(PyField(m_region, "region"));
        case Setting::kBrushPath:
            return brush ? std::optional<PyField>(PyField(m_region, "region")) : std::nullopt;
        case Setting::kPicker:
            if (m_function == PickFunction::kPickEdges)
                return PyField(py::str(kEdgePicker), "picker");
            return Keyword(setting);
        default:
            return Keyword(setting);
    }
}

void KeywordSettings::Fail(Setting setting, const std::string& reason) const {
    const KeywordEntry* entry = EntryOf(setting);
    if (setting == Setting::kRegion)
        throw py::value_error("region: " + reason);
    throw py::value_error(entry ? std::string(entry->name) + ": " + reason : reason);
}

}  // namespace velpick::python
