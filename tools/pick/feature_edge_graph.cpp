#include "feature_edge_graph.h"

#include <velpick/host/feature_graphs.h>

namespace velpick {

MStlGraph* AddFeatureEdgeGraph(MStlBase& mesh, double sharpAngleDegrees) {
    return &FeatureEdgeGraph(mesh, sharpAngleDegrees);
}

}  // namespace velpick
