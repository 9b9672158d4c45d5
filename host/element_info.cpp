#include <velpick/host/element_info.h>

#include <velpick/host/stl_base.h>

MStlBaseElementInfo::MStlBaseElementInfo(MStlBase& stl)
    : m_edgeThickness(stl.GetMasks(), MStlGraphEdgeThickness{}) {}

const MStlGraphEdgeThickness& MStlBaseElementInfo::GetEdgeThickness(
    const MStlGraphEdge& edge) const {
    return m_edgeThickness.GetInfo(edge);
}

void MStlBaseElementInfo::SetEdgeThickness(const MStlGraphEdge& edge,
                                           const MStlGraphEdgeThickness& thickness) {
    m_edgeThickness.SetInfo(edge, thickness);
}

MStlBaseElementInfoStlDependency* MStlBaseElementInfoStlDependency::GetDependency(
    const MStlBase* stl, bool create) {
    if (!stl)
        return nullptr;
    // The information belongs to the mesh but is not part of its geometry, so a const mesh
    // may still be given one.
    auto& info = const_cast<MStlBase*>(stl)->_ElementInfo();
    if (!info && create)
        info = std::make_unique<MStlBaseElementInfoStlDependency>(*const_cast<MStlBase*>(stl));
    return info.get();
}
