#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "stl_base_masks.h"
#include "stl_graph.h"
#include "stl_iterators.h"
#include "stl_point.h"
#include "stl_surface.h"
#include "stl_triangle.h"

class MStlBaseElementInfoStlDependency;

using MStlIteratorStlPoint = MStlSequenceIterator<std::deque<MStlPoint>, MStlPoint>;
using MStlIteratorStlTriangle = MStlSequenceIterator<std::deque<MStlTriangle>, MStlTriangle>;

/// A triangle mesh: vertices shared between triangles, triangles in creation order, a tree of
/// surfaces, feature graphs, and the registry that keeps masks in step with all of them.
///
/// Elements never move once created, so pointers to them stay valid for the mesh's life.
/// Element i of a kind (in creation order) has mask index i.
class MStlBase {
public:
    MStlBase();
    ~MStlBase();
    MStlBase(const MStlBase&) = delete;
    MStlBase& operator=(const MStlBase&) = delete;

    /// A new empty surface: top-level when `parent` is null, else a sub-surface of `parent`
    /// (which must belong to this mesh).
    MStlSurface* AddSurface(const MStlSurface* parent);
    /// A new empty feature graph.
    MStlGraph* AddGraph();

    /// The vertex at these coordinates, created when the mesh has none there yet.
    MStlPoint* FindOrAddPoint(std::int32_t x, std::int32_t y, std::int32_t z);
    /// The vertex at these coordinates, or null.
    MStlPoint* FindPoint(std::int32_t x, std::int32_t y, std::int32_t z) const;

    std::size_t GetNumberOfPoints() const { return m_points.size(); }
    std::size_t GetNumberOfTriangles() const { return m_triangles.size(); }
    std::size_t GetNumberOfGraphEdges() const { return m_graphEdgeCount; }
    /// Triangle i in creation order.
    MStlTriangle& GetTriangle(std::size_t i) { return m_triangles[i]; }
    const MStlTriangle& GetTriangle(std::size_t i) const { return m_triangles[i]; }

    MStlBaseMasks& GetMasks() { return m_masks; }

    MStlIteratorStlPoint BeginPoint() { return {m_points.begin(), m_points.end()}; }
    MStlIteratorStlTriangle BeginTriangle() { return {m_triangles.begin(), m_triangles.end()}; }
    MStlRange<MStlIteratorStlPoint> Vertices() { return {BeginPoint()}; }
    MStlRange<MStlIteratorStlTriangle> Triangles() { return {BeginTriangle()}; }
    /// Every surface, sub-surfaces included, depth first.
    MStlRange<MStlIteratorFeatureSurface> Surfaces() const {
        return {MStlIteratorFeatureSurface::Begin(this)};
    }
    const std::vector<std::unique_ptr<MStlSurface>>& GetTopSurfaces() const { return m_surfaces; }
    const std::vector<std::unique_ptr<MStlGraph>>& GetGraphs() const { return m_graphs; }

    // Called by surfaces and graphs as they grow.
    MStlTriangle* _AddTriangle(MStlSurface* surface, MStlPoint* a, MStlPoint* b, MStlPoint* c);
    std::size_t _NextGraphEdgeIndex() { return m_graphEdgeCount; }
    void _GraphEdgeAdded(const MStlGraphEdge* edge);

    // Element information and named masks hang off the mesh (see element_info.h and
    // named_mask.h).
    std::unique_ptr<MStlBaseElementInfoStlDependency>& _ElementInfo() { return m_elementInfo; }
    std::map<std::wstring, const void*>& _NamedMasks() { return m_namedMasks; }

private:
    struct CoordinateHash {
        std::size_t operator()(const std::array<std::int32_t, 3>& c) const;
    };

    // Declared first so that it is destroyed last: masks owned by the members below
    // unregister from it.
    MStlBaseMasks m_masks;
    std::deque<MStlPoint> m_points;
    std::unordered_map<std::array<std::int32_t, 3>, MStlPoint*, CoordinateHash> m_pointIndex;
    std::deque<MStlTriangle> m_triangles;
    std::vector<std::unique_ptr<MStlSurface>> m_surfaces;
    std::vector<std::unique_ptr<MStlGraph>> m_graphs;
    std::size_t m_graphEdgeCount = 0;
    std::unique_ptr<MStlBaseElementInfoStlDependency> m_elementInfo;
    std::map<std::wstring, const void*> m_namedMasks;
};
