#include <velpick/host/stl_surface.h>

#include <velpick/host/stl_base.h>

#include <algorithm>
#include <stdexcept>

MStlTriangle* MStlSurface::AddTriangle(int x1, int y1, int z1, int x2, int y2, int z2, int x3,
                                       int y3, int z3) {
    MStlBase& stl = *GetStl();
    // One statement each, so that new vertices are numbered in corner order.
    const MStlPoint& a = *stl.FindOrAddPoint(x1, y1, z1);
    const MStlPoint& b = *stl.FindOrAddPoint(x2, y2, z2);
    const MStlPoint& c = *stl.FindOrAddPoint(x3, y3, z3);
    return AddTriangle(a, b, c);
}

MStlTriangle* MStlSurface::AddTriangle(const MStlPoint& a, const MStlPoint& b, const MStlPoint& c) {
    MStlBase& stl = *GetStl();
    const auto index = static_cast<std::uint32_t>(stl.GetNumberOfTriangles());
    if (m_runs.empty() || m_runs.back().end != index)
        m_runs.push_back({index, index});
    MStlTriangle* triangle = stl._AddTriangle(m_number, a, b, c);
    ++m_runs.back().end;
    ++m_triangleCount;
    return triangle;
}

void MStlSurface::AddTriangles(const std::uint32_t* corners, std::size_t count) {
    MStlBase& stl = *GetStl();
    const std::size_t points = stl.GetNumberOfPoints();
    if (std::any_of(corners, corners + 3 * count, [&](std::uint32_t v) { return v >= points; }))
        throw std::out_of_range("a triangle corner names no vertex of the mesh");
    if (count == 0)
        return;
    const auto first = static_cast<std::uint32_t>(stl.GetNumberOfTriangles());
    if (m_runs.empty() || m_runs.back().end != first)
        m_runs.push_back({first, first});
    // Also after an allocation failure: the triangles made so far stay, as single additions
    // would have left them.
    const auto recordAdded = [&] {
        const auto end = static_cast<std::uint32_t>(stl.GetNumberOfTriangles());
        m_triangleCount += end - m_runs.back().end;
        m_runs.back().end = end;
    };
    try {
        stl._AddTriangles(m_number, corners, count);
    } catch (...) {
        recordAdded();
        throw;
    }
    recordAdded();
}

MStlIteratorSurfaceTriangle MStlIteratorSurfaceTriangle::Begin(const MStlSurface* surface) {
    return MStlIteratorSurfaceTriangle(surface->GetStl(), surface->m_runs);
}

MStlIteratorSurfaceTriangleConst MStlIteratorSurfaceTriangleConst::Begin(
    const MStlSurface* surface) {
    return MStlIteratorSurfaceTriangleConst(surface->GetStl(), surface->m_runs);
}

MStlIteratorFeatureSurface MStlIteratorFeatureSurface::Begin(const MStlBase* stl) {
    const auto& top = stl->GetTopSurfaces();
    return MStlIteratorFeatureSurface(top.empty() ? nullptr : top.front().get());
}

MStlIteratorFeatureSurface MStlIteratorFeatureSurface::End(const MStlBase*) {
    return MStlIteratorFeatureSurface(nullptr);
}

namespace {

// The surface after `surface` among its siblings, or null.
MStlSurface* nextSibling(const MStlSurface* surface) {
    const auto& siblings = surface->GetParent() ? surface->GetParent()->GetSubSurfaces()
                                                : surface->GetStl()->GetTopSurfaces();
    // Surfaces are never removed, so the index stays right; no search through long lists.
    const std::size_t next = surface->_GetSiblingIndex() + 1;
    return next < siblings.size() ? siblings[next].get() : nullptr;
}

}  // namespace

void MStlIteratorFeatureSurface::_GoToNextSubFeature() {
    if (!m_current)
        return;
    if (!m_current->GetSubSurfaces().empty()) {
        m_current = m_current->GetSubSurfaces().front().get();
        return;
    }
    // Climb until some ancestor (or the surface itself) has a next sibling.
    for (const MStlSurface* s = m_current; s; s = s->GetParent()) {
        if (MStlSurface* sibling = nextSibling(s)) {
            m_current = sibling;
            return;
        }
    }
    m_current = nullptr;
}
