#include "feature_edge_graph.h"

#include <velpick/host/feature_graphs.h>

namespace velpick {

MStlGraph* AddFeatureEdgeGraph(MStlBase& mesh, double sharpAngleDegrees) {
    return &FeatureEdgeGraph(mesh, sharpAngleDegrees);
}

MStlGraph& FeatureGraphGuard::Graph(MStlBase& mesh, double sharpAngleDegrees, ReadLock& read) {
    read = ReadLock(m_mutex);
    if (m_built.count(sharpAngleDegrees) == 0) {
        read.unlock();
        WriteLock write(m_mutex);
        Graph(mesh, sharpAngleDegrees, write);
        write.unlock();
        read.lock();
    }
    // Built: the host's cache only looks it up.
    return FeatureEdgeGraph(mesh, sharpAngleDegrees);
}

MStlGraph& FeatureGraphGuard::Graph(MStlBase& mesh, double sharpAngleDegrees, WriteLock& write) {
    if (!write.owns_lock())
        write = WriteLock(m_mutex);
    MStlGraph& graph = FeatureEdgeGraph(mesh, sharpAngleDegrees);
    m_built.insert(sharpAngleDegrees);
    return graph;
}

}  // namespace velpick
