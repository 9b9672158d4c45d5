#include "stl_base.h"

#include "element_info.h"

MStlBase::MStlBase() = default;

MStlBase::~MStlBase() = default;

MStlSurface* MStlBase::AddSurface(const MStlSurface* parent) {
    auto& siblings = parent ? const_cast<MStlSurface*>(parent)->m_subSurfaces : m_surfaces;
    siblings.push_back(
        std::make_unique<MStlSurface>(MStlElementKey(), this, const_cast<MStlSurface*>(parent)));
    siblings.back()->m_siblingIndex = siblings.size() - 1;
    return siblings.back().get();
}

MStlGraph* MStlBase::AddGraph() {
    m_graphs.push_back(std::make_unique<MStlGraph>(MStlElementKey(), this));
    return m_graphs.back().get();
}

std::size_t MStlBase::CoordinateHash::operator()(const std::array<std::int32_t, 3>& c) const {
    // Mixes the three coordinates with large odd multipliers; the map is keyed by exact values.
    const std::uint64_t h = static_cast<std::uint32_t>(c[0]) * 0x9E3779B97F4A7C15ull ^
                            static_cast<std::uint32_t>(c[1]) * 0xC2B2AE3D27D4EB4Full ^
                            static_cast<std::uint32_t>(c[2]) * 0x165667B19E3779F9ull;
    return static_cast<std::size_t>(h ^ (h >> 29));
}

MStlPoint* MStlBase::FindOrAddPoint(std::int32_t x, std::int32_t y, std::int32_t z) {
    auto [it, inserted] = m_pointIndex.try_emplace({x, y, z}, nullptr);
    if (!inserted)
        return it->second;
    try {
        it->second = &m_points.emplace_back(MStlElementKey(), m_points.size(), x, y, z);
    } catch (...) {
        m_pointIndex.erase(it);  // no index entry without its vertex
        throw;
    }
    m_masks._ElementsAdded(it->second, m_points.size());
    return it->second;
}

MStlPoint* MStlBase::FindPoint(std::int32_t x, std::int32_t y, std::int32_t z) const {
    const auto it = m_pointIndex.find({x, y, z});
    return it == m_pointIndex.end() ? nullptr : it->second;
}

MStlTriangle* MStlBase::_AddTriangle(MStlSurface* surface, MStlPoint* a, MStlPoint* b,
                                     MStlPoint* c) {
    MStlTriangle& triangle =
        m_triangles.emplace_back(MStlElementKey(), m_triangles.size(), a, b, c, surface);
    m_masks._ElementsAdded(&triangle, m_triangles.size());
    return &triangle;
}

void MStlBase::_GraphEdgeAdded(const MStlGraphEdge* edge) {
    ++m_graphEdgeCount;
    m_masks._ElementsAdded(edge, m_graphEdgeCount);
}
