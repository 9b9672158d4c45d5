#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "stl_element_key.h"
#include "stl_feature_item.h"
#include "stl_iterators.h"

class MStlTriangle;

/// A surface of a mesh: a list of triangles and a list of sub-surfaces.
class MStlSurface : public MStlFeatureItem {
public:
    MStlSurface(MStlElementKey, MStlBase* stl, MStlSurface* parent)
        : MStlFeatureItem(stl), m_parent(parent) {}

    /// Appends a triangle given its vertices' coordinates in internal units, in the order
    /// x1, y1, z1, x2, y2, z2, x3, y3, z3. Vertices with equal coordinates are shared within
    /// the mesh. The triangle is also appended to the mesh's triangle list.
    MStlTriangle* AddTriangle(int x1, int y1, int z1, int x2, int y2, int z2, int x3, int y3,
                              int z3);

    MStlRange<MStlIteratorSurfaceTriangle> Triangles() {
        return {MStlIteratorSurfaceTriangle::Begin(this)};
    }
    MStlRange<MStlIteratorSurfaceTriangleConst> Triangles() const {
        return {MStlIteratorSurfaceTriangleConst::Begin(this)};
    }
    std::size_t GetNumberOfTriangles() const { return m_triangles.size(); }

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
    std::size_t m_siblingIndex = 0;
    std::vector<MStlTriangle*> m_triangles;
    std::vector<std::unique_ptr<MStlSurface>> m_subSurfaces;
};
