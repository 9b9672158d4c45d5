#include <velpick/host/named_mask.h>

#include <memory>
#include <mutex>
#include <utility>

#include <velpick/host/stl_base.h>

MStlScalarMaskGraphEdges::MStlScalarMaskGraphEdges(MStlBase& stl, float defaultValue)
    : MDataMask<MStlGraphEdge, float>(stl.GetMasks(), defaultValue), m_stl(&stl) {}

template <class E, class T, class M>
M* MNamedStlMaskBase<E, T, M>::Create(MStlBase* stl, const std::wstring& name) {
    if (!stl)
        return nullptr;
    MStlBase::NamedMasks& named = stl->_NamedMasks();
    const std::lock_guard<std::mutex> lock(named.mutex);
    const auto key = std::make_pair(name, std::this_thread::get_id());
    if (named.masks.count(key))
        return nullptr;
    auto mask = std::make_unique<M>(*stl);
    mask->_SetName(name, key.second);
    named.masks.emplace(key, mask.get());
    return mask.release();
}

template <class M>
void VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<M>::operator()(
    M* mask) const {
    if (!mask)
        return;
    // A mask whose mesh died first was detached by it; there is no name left to free.
    if (mask->GetOwner()) {
        MStlBase::NamedMasks& named = mask->GetStl()->_NamedMasks();
        const std::lock_guard<std::mutex> lock(named.mutex);
        named.masks.erase({mask->GetName(), mask->_GetCreator()});
    }
    delete mask;
}

template class MNamedStlMaskBase<MStlGraphEdge, float, MStlScalarMaskGraphEdges>;
template struct VelSDK::Triangles::Data::TemporaryObjects::MStlNamedMask_Deleter<
    MStlScalarMaskGraphEdges>;
