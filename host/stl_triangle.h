#pragma once

#include <cstddef>
#include <cstdint>

#include "data_mask.h"
#include "point.h"
#include "stl_element_key.h"

class MStlPoint;
class MStlSurface;

/// A mesh triangle: three shared vertices in counter-clockwise order about its normal, a mark
/// flag and a visibility flag.
class MStlTriangle : public MDataMaskIndex {
public:
    MStlTriangle(MStlElementKey, std::size_t maskIndex, MStlPoint* a, MStlPoint* b, MStlPoint* c,
                 MStlSurface* surface)
        : MDataMaskIndex(maskIndex), m_points{a, b, c}, m_surface(surface) {}

    /// Vertex 0, 1 or 2.
    MStlPoint* GetPoint(std::size_t i) const { return m_points[i]; }
    /// Model coordinates (internal units) of vertex 0, 1 or 2.
    VelSDK::Math::point3d GetVertex(const std::size_t& i) const;
    /// Unit normal by the right-hand rule over vertices 0, 1, 2; (0, 0, 0) when degenerate.
    VelSDK::Math::point3d GetNormal() const;
    MStlSurface* GetSurface() const { return m_surface; }

    bool IsVisible() const { return !(m_flags & kHidden); }
    bool IsInvisible() const { return (m_flags & kHidden) != 0; }
    void SetVisible(bool visible) { visible ? m_flags &= ~kHidden : m_flags |= kHidden; }

    bool IsMarked() const { return (m_flags & kMarked) != 0; }
    void Mark() { m_flags |= kMarked; }
    void Unmark() { m_flags &= ~kMarked; }

private:
    static constexpr std::uint8_t kMarked = 1;
    static constexpr std::uint8_t kHidden = 2;

    MStlPoint* m_points[3];
    MStlSurface* m_surface;
    std::uint8_t m_flags = 0;
};
