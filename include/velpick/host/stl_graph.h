#pragma once

#include <cstddef>
#include <deque>

#include <velpick/host/data_mask.h>
#include <velpick/host/stl_element_key.h>
#include <velpick/host/stl_feature_item.h>
#include <velpick/host/stl_iterators.h>

class MStlPoint;
class MStlGraph;
class MStlIteratorGraphEdge;
class MStlIteratorGraphEdgeConst;

/// An edge of a feature graph between two mesh vertices.
class MStlGraphEdge : public MDataMaskIndex {
  public:
    MStlGraphEdge(MStlElementKey, std::size_t maskIndex, MStlGraph* graph, MStlPoint* v0,
                  MStlPoint* v1)
        : MDataMaskIndex(maskIndex), m_graph(graph), m_vertices{v0, v1} {}

    /// Vertex 0 or 1.
    MStlPoint* GetVertex(int i) const { return m_vertices[i]; }
    MStlGraph* GetGraph() const { return m_graph; }

  private:
    MStlGraph* m_graph;
    MStlPoint* m_vertices[2];
};

/// The feature graph of a mesh: edges between its vertices.
class MStlGraph : public MStlFeatureItem {
  public:
    MStlGraph(MStlElementKey, MStlBase* stl) : MStlFeatureItem(stl) {}

    /// Appends the edge v0–v1; both vertices must belong to this graph's mesh.
    MStlGraphEdge* AddEdge(MStlPoint* v0, MStlPoint* v1);
    /// Appends `count` edges, edge k from ends[2k] to ends[2k + 1]: the same graph as that many
    /// AddEdge calls, with the mesh's edge masks grown once. An allocation failure keeps the
    /// edges made before it.
    void AddEdges(MStlPoint* const* ends, std::size_t count);

    MStlRange<MStlIteratorGraphEdge> GraphEdges();
    MStlRange<MStlIteratorGraphEdgeConst> GraphEdges() const;
    std::size_t GetNumberOfEdges() const { return m_edges.size(); }

  private:
    friend class MStlIteratorGraphEdge;
    friend class MStlIteratorGraphEdgeConst;

    std::deque<MStlGraphEdge> m_edges;
};

class MStlIteratorGraphEdge
    : public MStlSequenceIterator<std::deque<MStlGraphEdge>, MStlGraphEdge> {
  public:
    using MStlSequenceIterator::MStlSequenceIterator;
    static MStlIteratorGraphEdge Begin(MStlGraph* graph);
};

class MStlIteratorGraphEdgeConst
    : public MStlSequenceIterator<const std::deque<MStlGraphEdge>, const MStlGraphEdge> {
  public:
    using MStlSequenceIterator::MStlSequenceIterator;
    static MStlIteratorGraphEdgeConst Begin(const MStlGraph* graph);
};

namespace VelMesh::StlBase::Handle {
/// The handle through which graph edges are passed by reference.
using GraphEdge = MStlGraphEdge;
}  // namespace VelMesh::StlBase::Handle
