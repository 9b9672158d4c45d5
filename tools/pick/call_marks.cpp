#include "call_marks.h"

namespace velpick {

CallMarks::CallMarks(MStlBase& mesh) : m_mesh(mesh), m_sink(mesh) {
    for (std::size_t i = 0; i < mesh.GetNumberOfTriangles(); ++i) {
        MStlTriangle& triangle = mesh._Triangle(i);
        if (triangle.IsMarked())
            m_sink.Mark(triangle);
    }
}

std::vector<std::size_t> CallMarks::Marked() const {
    std::vector<std::size_t> marked;
    for (std::size_t i = 0; i < m_mesh.GetNumberOfTriangles(); ++i) {
        if (m_sink.IsMarked(m_mesh.GetTriangle(i)))
            marked.push_back(i);
    }
    return marked;
}

}  // namespace velpick
