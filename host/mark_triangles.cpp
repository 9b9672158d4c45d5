#include <velpick/host/mark_triangles.h>

#include <velpick/host/stl_base.h>

MStlMarkTrianglesByMasks::MStlMarkTrianglesByMasks(MStlBase& stl) : m_marks(stl.GetMasks(), 0) {}

bool MStlMarkTrianglesByMasks::IsMarked(const MStlTriangle& triangle) const {
    return m_marks.GetInfo(triangle) != 0;
}

void MStlMarkTrianglesByMasks::Mark(MStlTriangle& triangle) {
    m_marks.SetInfo(triangle, 1);
}

void MStlMarkTrianglesByMasks::Unmark(MStlTriangle& triangle) {
    m_marks.SetInfo(triangle, 0);
}

std::size_t MStlMarkTrianglesByMasks::GetNumberOfMarked() const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < m_marks.Size(); ++i)
        count += m_marks[i] != 0;
    return count;
}
