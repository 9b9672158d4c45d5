#include <velpick/host/named_mask.h>

#include <memory>

#include <velpick/host/stl_base.h>

MStlScalarMaskGraphEdges::MStlScalarMaskGraphEdges(MStlBase& stl, float defaultValue)
    : MDataMask<MStlGraphEdge, float>(stl.GetMasks(), defaultValue), m_stl(&stl) {}

template <class E, class T, class M>
M* MNamedStlMaskBase<E, T, M>::Create(MStlBase* stl, const std::wstring& name) {
    if (!stl || stl->_NamedMasks().count(name))
        return nullptr;
    auto mask = std::make_unique<M>(*stl);
    mask->_SetName(name);
    stl->_NamedMasks().emplace(name, mask.get());
    return mask.release();
}

template <class M>
void VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<M>::operator()(
    M* mask) const {
    if (!mask)
        return;
    // A mask whose mesh died first was detached by it; there is no name left to free.
    if (mask->GetOwner())
        mask->GetStl()->_NamedMasks().erase(mask->GetName());
    delete mask;
}

template class MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>;
template struct VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<
    MStlScalarMaskGraphEdges>;
