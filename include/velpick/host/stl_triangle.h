#pragma once

#include <cstddef>
#include <cstdint>

#include <velpick/host/data_mask.h>
#include <velpick/host/point.h>
#include <velpick/host/stl_element_key.h>

class MStlBase;
class MStlPoint;
class MStlSurface;

/// A mesh triangle: three shared vertices in counter-clockwise order about its normal, a mark
/// flag and a visibility flag.
///
/// The vertices are kept as their indices in the mesh (their mask indices), so a triangle
/// takes 32 bytes; GetPoint and GetVertex resolve them through the mesh, inline. The inline
/// members are defined in stl_base.h, beside the mesh class they read, so that this header
/// does not include the mesh's: include stl_base.h to call them.
class MStlTriangle : public MDataMaskIndex {
  public:
    MStlTriangle(MStlElementKey, std::size_t maskIndex, MStlBase* stl, std::uint32_t a,
                 std::uint32_t b, std::uint32_t c, std::uint32_t surface)
        : MDataMaskIndex(maskIndex), m_points{a, b, c}, m_stl(stl), m_surface(surface) {}

    /// Vertex 0, 1 or 2.
    inline MStlPoint* GetPoint(std::size_t i) const;
    /// The mesh index (mask index) of vertex 0, 1 or 2.
    std::uint32_t GetPointIndex(std::size_t i) const { return m_points[i]; }
    /// Model coordinates (internal units) of vertex 0, 1 or 2.
    inline VelSDK::Math::point3d GetVertex(const std::size_t& i) const;
    /// Unit normal by the right-hand rule over vertices 0, 1, 2; (0, 0, 0) when degenerate.
    inline VelSDK::Math::point3d GetNormal() const;
    inline MStlSurface* GetSurface() const;
    MStlBase* GetStl() const { return m_stl; }

    bool IsVisible() const { return !(m_flags & kHidden); }
    bool IsInvisible() const { return (m_flags & kHidden) != 0; }
    void SetVisible(bool visible) { visible ? m_flags &= ~kHidden : m_flags |= kHidden; }

    bool IsMarked() const { return (m_flags & kMarked) != 0; }
    void Mark() { m_flags |= kMarked; }
    void Unmark() { m_flags &= ~kMarked; }

  private:
    static constexpr std::uint8_t kMarked = 1;
    static constexpr std::uint8_t kHidden = 2;

    std::uint32_t m_points[3];
    MStlBase* m_stl;
    std::uint32_t m_surface;  // the surface's number in its mesh
    std::uint8_t m_flags = 0;
};
