#pragma once

namespace velpick {

/// Each setting a pick is validated from, whatever its source calls it: a scene file nests some
/// ("graph.thickness", "region.brush.radius"), Python names each by its keyword ("thickness",
/// "brush_radius"). Each source maps these to its own names once.
enum class Setting {
    kUnitsPerModelUnit,
    kView,
    kCamera,
    kViewOrCamera,  // the pair, for the complaint that exactly one is needed
    kPixelProportion,
    kPicker,
    kMarkThrough,
    kBackFaceCulling,
    kUnmark,
    kSkipHiddenSurfaces,
    kDepthTolerance,
    kClippingPlanes,
    kLinesPerPixel,
    kScanLineRule,
    kThreads,
    kSharpAngle,
    kThickness,
    kMarkWholeCandidates,
    kRegion,  // the region as a whole, polygon or brush
    kPolygon,
    kBrushPath,
    kBrushRadius,
};

}  // namespace velpick
