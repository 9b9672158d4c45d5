#include <velpick/host/stl_base_masks.h>

#include <algorithm>

template <class E>
std::size_t MStlBaseMasks::add(Kind<E>& kind, MDataMaskBase<E>* mask) {
    kind.masks.push_back(mask);
    return kind.count;
}

template <class E>
void MStlBaseMasks::remove(Kind<E>& kind, MDataMaskBase<E>* mask) {
    kind.masks.erase(std::remove(kind.masks.begin(), kind.masks.end(), mask), kind.masks.end());
}

template <class E>
void MStlBaseMasks::grow(Kind<E>& kind, std::size_t count) {
    kind.count = count;
    for (MDataMaskBase<E>* mask : kind.masks)
        mask->_SetSize(count);
}

MStlBaseMasks::~MStlBaseMasks() {
    for (auto* mask : m_pointMasks.masks)
        mask->_Detach();
    for (auto* mask : m_triangleMasks.masks)
        mask->_Detach();
    for (auto* mask : m_edgeMasks.masks)
        mask->_Detach();
}

std::size_t MStlBaseMasks::Register(MDataMaskBase<MStlPoint>* mask) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return add(m_pointMasks, mask);
}
std::size_t MStlBaseMasks::Register(MDataMaskBase<MStlTriangle>* mask) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return add(m_triangleMasks, mask);
}
std::size_t MStlBaseMasks::Register(MDataMaskBase<MStlGraphEdge>* mask) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return add(m_edgeMasks, mask);
}
void MStlBaseMasks::Unregister(MDataMaskBase<MStlPoint>* mask) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    remove(m_pointMasks, mask);
}
void MStlBaseMasks::Unregister(MDataMaskBase<MStlTriangle>* mask) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    remove(m_triangleMasks, mask);
}
void MStlBaseMasks::Unregister(MDataMaskBase<MStlGraphEdge>* mask) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    remove(m_edgeMasks, mask);
}

// Out of line so that the member template grow is instantiated here, where it is defined.
void MStlBaseMasks::_ElementsAdded(const MStlPoint*, std::size_t count) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    grow(m_pointMasks, count);
}
void MStlBaseMasks::_ElementsAdded(const MStlTriangle*, std::size_t count) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    grow(m_triangleMasks, count);
}
void MStlBaseMasks::_ElementsAdded(const MStlGraphEdge*, std::size_t count) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    grow(m_edgeMasks, count);
}
