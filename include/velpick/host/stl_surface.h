#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <velpick/host/stl_element_key.h>
#include <velpick/host/stl_feature_item.h>
#include <velpick/host/stl_iterators.h>

class MStlPoint;
class MStlTriangle;

/// A surface of a mesh: a list of triangles and a list of sub-surfaces. Walking its triangles
/// needs stl_base.h, which defines the walk's inline members beside the mesh class.
///
/// The list is kept as runs of consecutive mesh triangles, so a surface whose triangles were
/// added one after another (as an importer adds them) costs a few bytes, not one pointer each.
class MStlSurface : public MStlFeatureItem {
  public:
    MStlSurface(MStlElementKey, MStlBase* stl, MStlSurface* parent, std::uint32_t number)
        : MStlFeatureItem(stl), m_parent(parent), m_number(number) {}

    /// Appends a triangle given its vertices' coordinates in internal units, in the order
    /// x1, y1, z1, x2, y2, z2, x3, y3, z3. Vertices with equal coordinates are shared within
    /// the mesh; new vertices are created in corner order 1, 2, 3. The triangle is also
    /// appended to the mesh's triangle list.
    MStlTriangle* AddTriangle(int x1, int y1, int z1, int x2, int y2, int z2, int x3, int y3,
                              int z3);
    /// Appends the triangle a, b, c of existing vertices of this surface's mesh.
    MStlTriangle* AddTriangle(const MStlPoint& a, const MStlPoint& b, const MStlPoint& c);
    /// Appends `count` triangles of existing vertices, triangle k made of the vertices numbered
    /// corners[3k], corners[3k + 1], corners[3k + 2] (their mask indices): the same mesh as
    /// that many AddTriangle calls, for importers that add millions. Throws std::out_of_range,
    /// adding nothing, when a number names no vertex of the mesh.
    void AddTriangles(const std::uint32_t* corners, std::size_t count);

    MStlRange<MStlIteratorSurfaceTriangle> Triangles() {
        return {MStlIteratorSurfaceTriangle::Begin(this)};
    }
    MStlRange<MStlIteratorSurfaceTriangleConst> Triangles() const {
        return {MStlIteratorSurfaceTriangleConst::Begin(this)};
    }
    std::size_t GetNumberOfTriangles() const { return m_triangleCount; }

    MStlSurface* GetParent() const { return m_parent; }
    /// Position among the parent's sub-surfaces (or the mesh's top surfaces).
    std::size_t _GetSiblingIndex() const { return m_siblingIndex; }
    const std::vector<std::unique_ptr<MStlSurface>>& GetSubSurfaces() const {
        return m_subSurfaces;
    }

  private:
    friend class MStlBase;
    friend class MStlIteratorSurfaceTriangle;
    friend class MStlIteratorSurfaceTriangleConst;

    MStlSurface* m_parent;
    std::uint32_t m_number;  // in the mesh, in order of creation
    std::size_t m_siblingIndex = 0;
    std::vector<MStlTriangleRun> m_runs;
    std::size_t m_triangleCount = 0;
    std::vector<std::unique_ptr<MStlSurface>> m_subSurfaces;
};
