#pragma once

#include <cstddef>
#include <cstdint>

#include <velpick/host/data_mask.h>
#include <velpick/host/stl_element_key.h>

/// Vertex coordinates: 32-bit signed integers in internal units (see MInternalUnits).
class MStlPointBase {
  public:
    MStlPointBase(std::int32_t x, std::int32_t y, std::int32_t z) : m_coordinates{x, y, z} {}

    /// 0 = x, 1 = y, 2 = z.
    int operator[](std::size_t axis) const { return m_coordinates[axis]; }
    int GetX() const { return m_coordinates[0]; }
    int GetY() const { return m_coordinates[1]; }
    int GetZ() const { return m_coordinates[2]; }

  private:
    std::int32_t m_coordinates[3];
};

/// A mesh vertex, shared by the triangles that meet there.
class MStlPoint : public MStlPointBase, public MDataMaskIndex {
  public:
    MStlPoint(MStlElementKey, std::size_t maskIndex, std::int32_t x, std::int32_t y, std::int32_t z)
        : MStlPointBase(x, y, z), MDataMaskIndex(maskIndex) {}
};
