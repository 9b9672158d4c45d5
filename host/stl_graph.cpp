#include <velpick/host/stl_graph.h>

#include <velpick/host/stl_base.h>

MStlGraphEdge* MStlGraph::AddEdge(MStlPoint* v0, MStlPoint* v1) {
    MStlBase& stl = *GetStl();
    MStlGraphEdge& edge =
        m_edges.emplace_back(MStlElementKey(), stl._NextGraphEdgeIndex(), this, v0, v1);
    stl._GraphEdgesAdded(1);
    return &edge;
}

void MStlGraph::AddEdges(MStlPoint* const* ends, std::size_t count) {
    MStlBase& stl = *GetStl();
    std::size_t added = 0;
    try {
        for (; added < count; ++added, ends += 2)
            m_edges.emplace_back(MStlElementKey(), stl._NextGraphEdgeIndex() + added, this, ends[0],
                                 ends[1]);
    } catch (...) {
        stl._GraphEdgesAdded(added);  // for the edges made before the failure
        throw;
    }
    stl._GraphEdgesAdded(added);
}

MStlRange<MStlIteratorGraphEdge> MStlGraph::GraphEdges() {
    return {MStlIteratorGraphEdge::Begin(this)};
}

MStlRange<MStlIteratorGraphEdgeConst> MStlGraph::GraphEdges() const {
    return {MStlIteratorGraphEdgeConst::Begin(this)};
}

MStlIteratorGraphEdge MStlIteratorGraphEdge::Begin(MStlGraph* graph) {
    return {graph->m_edges.begin(), graph->m_edges.end()};
}

MStlIteratorGraphEdgeConst MStlIteratorGraphEdgeConst::Begin(const MStlGraph* graph) {
    return {graph->m_edges.begin(), graph->m_edges.end()};
}
