#include "numpy_mesh.h"

#include <cstdint>
#include <utility>

#include "array_mesh.h"

namespace velpick::python {

namespace py = pybind11;

namespace {

std::string ShapeText(const py::array& array) {
    std::string text = "(";
    for (py::ssize_t d = 0; d < array.ndim(); ++d)
        text += (d ? ", " : "") + std::to_string(array.shape(d));
    return text + (array.ndim() == 1 ? ",)" : ")");
}

std::string DtypeText(const py::array& array) {
    return py::str(array.dtype()).cast<std::string>();
}

// The argument as an array: an ndarray as it is, anything else converted with `dtype`.
py::array AsArray(const py::handle& value, const char* dtype, const std::string& name) {
    if (py::isinstance<py::array>(value))
        return py::reinterpret_borrow<py::array>(value);
    try {
        return py::module_::import("numpy").attr("asarray")(value, dtype);
    } catch (const py::error_already_set&) {
        throw py::value_error(name + ": expected an array of numbers");
    }
}

void CheckShape(const py::array& array, py::ssize_t ndim, py::ssize_t columns,
                const std::string& name, const std::string& expected) {
    if (array.ndim() != ndim || (ndim == 2 && array.shape(1) != columns))
        throw py::value_error(name + ": expected shape " + expected + ", got " + ShapeText(array));
}

// Element kind ('f', 'i', 'u', 'b') and size, in the machine's byte order.
bool HasType(const py::array& array, char kind, py::ssize_t itemSize) {
    const py::dtype dtype = array.dtype();
    return dtype.kind() == kind && dtype.itemsize() == itemSize &&
           dtype.attr("isnative").cast<bool>();
}

template <class T>
StridedArray<T> View(const py::array& array) {
    StridedArray<T> view;
    view.data = static_cast<const char*>(array.data());
    view.rows = static_cast<std::size_t>(array.shape(0));
    view.columns = array.ndim() > 1 ? static_cast<std::size_t>(array.shape(1)) : 1;
    view.rowStride = array.strides(0);
    view.columnStride = array.ndim() > 1 ? array.strides(1) : 0;
    return view;
}

template <class Coordinate, class Index>
std::function<ArrayMesh(double)> Builder(const py::array& vertices, const py::array& faces,
                                         const std::optional<py::array>& markable) {
    MeshArrays<Coordinate, Index> arrays{View<Coordinate>(vertices), View<Index>(faces), {}};
    if (markable)
        arrays.markable = View<std::uint8_t>(*markable);  // numpy bools are bytes
    return [arrays](double units) { return BuildArrayMesh(arrays, units); };
}

template <class Coordinate>
std::function<ArrayMesh(double)> Builder(const py::array& vertices, const py::array& faces,
                                         const std::optional<py::array>& markable,
                                         const std::string& facesName) {
    const bool isSigned = faces.dtype().kind() == 'i';
    switch (faces.dtype().itemsize()) {
        case 1:
            return isSigned ? Builder<Coordinate, std::int8_t>(vertices, faces, markable)
                            : Builder<Coordinate, std::uint8_t>(vertices, faces, markable);
        case 2:
            return isSigned ? Builder<Coordinate, std::int16_t>(vertices, faces, markable)
                            : Builder<Coordinate, std::uint16_t>(vertices, faces, markable);
        case 4:
            return isSigned ? Builder<Coordinate, std::int32_t>(vertices, faces, markable)
                            : Builder<Coordinate, std::uint32_t>(vertices, faces, markable);
        case 8:
            return isSigned ? Builder<Coordinate, std::int64_t>(vertices, faces, markable)
                            : Builder<Coordinate, std::uint64_t>(vertices, faces, markable);
    }
    throw py::value_error(facesName + ": expected an integer array, got dtype " + DtypeText(faces));
}

bool IsIntegerArray(const py::array& array) {
    const char kind = array.dtype().kind();
    const py::ssize_t size = array.dtype().itemsize();
    return (kind == 'i' || kind == 'u') && (size == 1 || size == 2 || size == 4 || size == 8) &&
           array.dtype().attr("isnative").cast<bool>();
}

}  // namespace

NumpyMesh::NumpyMesh(const py::handle& vertices, const py::handle& faces,
                     const py::handle& markable, std::string label)
    : m_label(std::move(label)) {
    const std::string verticesName = m_label + "vertices", facesName = m_label + "faces",
                      markableName = m_label + "markable";
    m_vertices = AsArray(vertices, "float64", verticesName);
    m_faces = AsArray(faces, "int64", facesName);
    CheckShape(m_vertices, 2, 3, verticesName, "(N, 3)");
    CheckShape(m_faces, 2, 3, facesName, "(M, 3)");
    m_faceCount = static_cast<std::size_t>(m_faces.shape(0));
    if (!markable.is_none()) {
        const py::array mask = AsArray(markable, "bool", markableName);
        if (mask.ndim() != 1 || mask.shape(0) != m_faces.shape(0))
            throw py::value_error(markableName + ": expected shape (" +
                                  std::to_string(m_faceCount) + ",), one entry per face, got " +
                                  ShapeText(mask));
        if (!HasType(mask, 'b', 1))
            throw py::value_error(markableName + ": expected a bool array, got dtype " +
                                  DtypeText(mask));
        m_markable = mask;
    }
    if (!IsIntegerArray(m_faces))
        throw py::value_error(facesName + ": expected an integer array, got dtype " +
                              DtypeText(m_faces));
    if (HasType(m_vertices, 'f', 4))
        m_build = Builder<float>(m_vertices, m_faces, m_markable, facesName);
    else if (HasType(m_vertices, 'f', 8))
        m_build = Builder<double>(m_vertices, m_faces, m_markable, facesName);
    else
        throw py::value_error(verticesName + ": expected a float32 or float64 array, got dtype " +
                              DtypeText(m_vertices));
}

ArrayMesh NumpyMesh::Build(double unitsPerModelUnit) const {
    try {
        return m_build(unitsPerModelUnit);
    } catch (const ArrayMeshError& error) {
        throw ArrayMeshError(m_label + error.what());
    }
}

}  // namespace velpick::python
