#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <velpick/host/element_store.h>
#include <velpick/host/stl_base_masks.h>
#include <velpick/host/stl_graph.h>
#include <velpick/host/stl_iterators.h>
#include <velpick/host/stl_point.h>
#include <velpick/host/stl_surface.h>
#include <velpick/host/stl_triangle.h>
#include <velpick/host/vector_math.h>

class MStlBaseElementInfoStlDependency;

using MStlIteratorStlPoint = MStlStoreIterator<MStlPoint>;
using MStlIteratorStlTriangle = MStlStoreIterator<MStlTriangle>;

/// A triangle mesh: vertices shared between triangles, triangles in creation order, a tree of
/// surfaces, feature graphs, and the registry that keeps masks in step with all of them.
///
/// Elements never move once created, so pointers to them stay valid for the mesh's life.
/// Element i of a kind (in creation order) has mask index i. Vertices and triangles are kept in
/// large chunks (see MStlElementStore): releasing a mesh frees the chunks, not each element.
/// Fewer than 2^32 vertices and 2^32 triangles fit in one mesh.
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
    /// A new empty feature graph of this mesh that the mesh does not list among its graphs:
    /// the caller owns it (the feature-graph cache does).
    std::unique_ptr<MStlGraph> _NewUnlistedGraph();

    /// The vertex at these coordinates, created when the mesh has none there yet.
    MStlPoint* FindOrAddPoint(std::int32_t x, std::int32_t y, std::int32_t z);
    /// The vertex at these coordinates, or null. Safe to call from several threads at once
    /// while nothing is added to the mesh.
    MStlPoint* FindPoint(std::int32_t x, std::int32_t y, std::int32_t z) const;
    /// A new vertex for a caller that has already merged equal coordinates (an importer): the
    /// mesh must not hold a vertex at these coordinates yet. Cheaper than FindOrAddPoint,
    /// whose coordinate index is brought up to date only when next needed.
    MStlPoint* AddDistinctPoint(std::int32_t x, std::int32_t y, std::int32_t z);
    /// `count` new vertices at once, vertex k at xyz[3k], xyz[3k + 1], xyz[3k + 2]: the same
    /// mesh as that many AddDistinctPoint calls, under the same condition. An allocation
    /// failure keeps the vertices made before it.
    void AddDistinctPoints(const std::int32_t* xyz, std::size_t count);
    /// Room for this many vertices and triangles in all, allocated now (a few large blocks
    /// backed by huge pages where the system has them); throws std::bad_alloc, changing
    /// nothing, when the memory cannot be had.
    void Reserve(std::size_t points, std::size_t triangles);

    std::size_t GetNumberOfPoints() const { return m_points.Size(); }
    std::size_t GetNumberOfTriangles() const { return m_triangles.Size(); }
    std::size_t GetNumberOfGraphEdges() const { return m_graphEdgeCount; }
    /// Vertex i in creation order (its mask index is i).
    MStlPoint& GetPoint(std::size_t i) const { return m_points[i]; }
    /// Triangle i in creation order.
    MStlTriangle& GetTriangle(std::size_t i) { return m_triangles[i]; }
    const MStlTriangle& GetTriangle(std::size_t i) const { return m_triangles[i]; }
    /// Triangle i from a const mesh, for walks that hand out triangles to mark.
    MStlTriangle& _Triangle(std::size_t i) const { return m_triangles[i]; }

    /// The unit normals of all triangles, in triangle order, each equal to that triangle's
    /// GetNormal(). Computed on first request and kept; triangles added later are computed on
    /// the next request. The array stays valid while the returned pointer is held.
    std::shared_ptr<const std::vector<VelSDK::Math::point3d>> GetTriangleNormals() const;

    MStlBaseMasks& GetMasks() { return m_masks; }

    MStlIteratorStlPoint BeginPoint() const { return MStlIteratorStlPoint(m_points); }
    MStlIteratorStlTriangle BeginTriangle() const { return MStlIteratorStlTriangle(m_triangles); }
    MStlRange<MStlIteratorStlPoint> Vertices() const { return {BeginPoint()}; }
    MStlRange<MStlIteratorStlTriangle> Triangles() const { return {BeginTriangle()}; }
    /// Every surface, sub-surfaces included, depth first.
    MStlRange<MStlIteratorFeatureSurface> Surfaces() const {
        return {MStlIteratorFeatureSurface::Begin(this)};
    }
    const std::vector<std::unique_ptr<MStlSurface>>& GetTopSurfaces() const { return m_surfaces; }
    const std::vector<std::unique_ptr<MStlGraph>>& GetGraphs() const { return m_graphs; }

    /// The vertex and triangle stores, for callers that walk them chunk by chunk.
    const MStlElementStore<MStlPoint>& _Points() const { return m_points; }
    const MStlElementStore<MStlTriangle>& _Triangles() const { return m_triangles; }

    // Called by surfaces and graphs as they grow.
    MStlTriangle* _AddTriangle(std::uint32_t surface, const MStlPoint& a, const MStlPoint& b,
                               const MStlPoint& c);
    /// Triangles of vertex numbers already checked; an allocation failure keeps those made.
    void _AddTriangles(std::uint32_t surface, const std::uint32_t* corners, std::size_t count);
    MStlSurface* _SurfaceByNumber(std::uint32_t number) const { return m_surfacesByNumber[number]; }
    std::size_t _NextGraphEdgeIndex() { return m_graphEdgeCount; }
    /// Records `count` edges appended to some graph, numbered from _NextGraphEdgeIndex on.
    void _GraphEdgesAdded(std::size_t count);

    /// The feature graphs FeatureEdgeGraph (feature_graphs.h) built, by sharp angle, for the
    /// first `triangles` triangles; every field is guarded by `mutex`.
    struct FeatureGraphCache {
        std::mutex mutex;
        std::size_t triangles = 0;
        std::map<double, std::unique_ptr<MStlGraph>> graphs;
    };
    FeatureGraphCache& _FeatureGraphs() { return m_featureGraphs; }

    /// Named masks, by name and creating thread (see named_mask.h); guarded by the mutex.
    struct NamedMasks {
        std::mutex mutex;
        std::map<std::pair<std::wstring, std::thread::id>, const void*> masks;
    };
    NamedMasks& _NamedMasks() { return m_namedMasks; }

    // Element information hangs off the mesh (see element_info.h).
    std::unique_ptr<MStlBaseElementInfoStlDependency>& _ElementInfo() { return m_elementInfo; }

  private:
    /// Open addressing over vertex indices, keyed by the vertices' coordinates.
    class PointIndex {
      public:
        static constexpr std::uint32_t kEmpty = UINT32_MAX;
        /// Adds the vertices created since the last call.
        void CatchUp(const MStlElementStore<MStlPoint>& points);
        /// The slot holding the vertex at (x, y, z), or the empty slot where it would go.
        std::uint32_t& Slot(const MStlElementStore<MStlPoint>& points, std::int32_t x,
                            std::int32_t y, std::int32_t z);
        /// Makes room for `count` vertices and records that vertex count - 1 is indexed.
        void Added(const MStlElementStore<MStlPoint>& points, std::size_t count);

      private:
        void Rebuild(const MStlElementStore<MStlPoint>& points, std::size_t capacity);

        std::vector<std::uint32_t> m_slots;
        std::size_t m_indexed = 0;
    };

    // Declared first so that it is destroyed last: masks owned by the members below
    // unregister from it.
    MStlBaseMasks m_masks;
    MStlElementStore<MStlPoint> m_points;
    MStlElementStore<MStlTriangle> m_triangles;
    mutable std::mutex m_cacheMutex;  // guards the index and the normals built on demand
    mutable PointIndex m_pointIndex;
    mutable std::shared_ptr<const std::vector<VelSDK::Math::point3d>> m_normals;
    std::vector<std::unique_ptr<MStlSurface>> m_surfaces;
    std::vector<MStlSurface*> m_surfacesByNumber;
    std::vector<std::unique_ptr<MStlGraph>> m_graphs;
    std::size_t m_graphEdgeCount = 0;
    std::unique_ptr<MStlBaseElementInfoStlDependency> m_elementInfo;
    NamedMasks m_namedMasks;
    FeatureGraphCache m_featureGraphs;
};

inline MStlPoint* MStlTriangle::GetPoint(std::size_t i) const {
    return &m_stl->GetPoint(m_points[i]);
}

inline VelSDK::Math::point3d MStlTriangle::GetVertex(const std::size_t& i) const {
    const MStlPoint& p = m_stl->GetPoint(m_points[i]);
    return {static_cast<double>(p[0]), static_cast<double>(p[1]), static_cast<double>(p[2])};
}

inline VelSDK::Math::point3d MStlTriangle::GetNormal() const {
    return VelSDK::Math::UnitNormal(GetVertex(0), GetVertex(1), GetVertex(2));
}

inline MStlSurface* MStlTriangle::GetSurface() const {
    return m_stl->_SurfaceByNumber(m_surface);
}

template <class Element>
inline Element& MStlSurfaceTriangleWalk<Element>::operator*() const {
    return m_stl->_Triangle(m_current);
}
