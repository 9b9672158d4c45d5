#pragma once

class MStlBase;
class MStlGraph;

namespace velpick {

/// The feature graph the graph picker marks (see FeatureEdgeGraph in the host's
/// feature_graphs.h): built on the first pick of `mesh` at this sharp angle and kept with the
/// mesh for later picks.
MStlGraph* AddFeatureEdgeGraph(MStlBase& mesh, double sharpAngleDegrees);

}  // namespace velpick
