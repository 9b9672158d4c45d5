#pragma once

#include <mutex>
#include <set>
#include <shared_mutex>

class MStlBase;
class MStlGraph;

namespace velpick {

/// Keeps graph picks of one shared mesh apart from the building of its feature graphs.
/// Building a graph adds graph edges, which grows every edge mask of the mesh, so it must not
/// overlap a pick that holds an edge mask of that mesh. Picks of graphs already built share
/// the mesh freely; a pick that needs a new graph (or writes edge thicknesses into the mesh)
/// waits until it is alone.
class FeatureGraphGuard {
  public:
    /// Picks hold this while they use the graph.
    using ReadLock = std::shared_lock<std::shared_mutex>;
    using WriteLock = std::unique_lock<std::shared_mutex>;

    /// The mesh's graph at this sharp angle, built when it is new; `read` is held on return.
    MStlGraph& Graph(MStlBase& mesh, double sharpAngleDegrees, ReadLock& read);
    /// The same with the guard held alone (for a pick that writes into the mesh).
    MStlGraph& Graph(MStlBase& mesh, double sharpAngleDegrees, WriteLock& write);

  private:
    std::shared_mutex m_mutex;
    std::set<double> m_built;  // the angles whose graph exists, guarded by m_mutex
};

/// The feature graph the graph picker marks (see FeatureEdgeGraph in the host's
/// feature_graphs.h): built on the first pick of `mesh` at this sharp angle and kept with the
/// mesh for later picks. For a mesh that one thread picks; shared meshes go through a guard.
MStlGraph* AddFeatureEdgeGraph(MStlBase& mesh, double sharpAngleDegrees);

}  // namespace velpick
