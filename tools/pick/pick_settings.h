#pragma once

// The settings of a pick, with every default and bound in one place: the scene file, the
// Python module and the pickers all read them from here.

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>
#include "selection_region.h"

namespace velpick {

/// The largest 32-bit value, the bound of internal-unit coordinates and thicknesses.
constexpr double kInt32Max = 2147483647.0;
/// Region coordinates, scaled to pixels, stay inside this bound so that the z-buffer picker's
/// 32-bit pixel arithmetic cannot wrap.
constexpr double kMaxPixelCoordinate = kInt32Max;
/// More sample lines per pixel than this is a typing error: the scan-line picker allocates per
/// line, and 1e9 lines a pixel row would exhaust any machine.
constexpr double kMaxLinesPerPixel = 1024.0;
/// More threads than any machine offers is a typing error, not a request.
constexpr int kMaxThreads = 4096;

/// An orthographic camera in model units: it looks from `eye` towards `target` with `up`
/// pointing up the screen; `height` model units fill the screen's height, and the screen is
/// `screenWidth` × `screenHeight` screen units.
struct OrthoCamera {
    VelSDK::Math::point3d eye, target, up;
    double height = 1.0;
    double screenWidth = 1.0, screenHeight = 1.0;
};

/// The cameras a view may come from; only the orthographic one exists so far. Code that
/// handles cameras visits this variant, so that other camera kinds fit in beside it.
using Camera = std::variant<OrthoCamera>;

/// How the scene is seen: the affine map to the screen, and the camera it came from when it
/// was not given as a matrix.
struct View {
    MMTransformMatrix matrix;  // scene internal units → screen units, larger z nearer
    std::optional<Camera> camera;
};

/// How the graph picker builds each mesh's feature graph and marks its edges.
struct GraphSettings {
    double sharpAngleDegrees = 30.0;   // edges sharper than this are kept
    double thickness = 0.0;            // model length units; 0 marks edges as lines, not bars
    bool markWholeCandidates = false;  // mark every edge that meets the region's pixel box
};

/// Everything a pick is asked to do besides its meshes and its view, validated.
struct PickSettings {
    double unitsPerModelUnit = 1000.0;  // internal units per model unit
    std::string picker = "zbuffer";
    SelectionRegion region;
    double pixelProportion = 5.0;  // pixels per screen unit
    double depthTolerance = 0.05;  // model length units; z-buffer only
    double linesPerPixel = 5.0;    // sample lines per pixel row; scan-line only
    /// The most threads one call uses in all, for both triangle pickers; all cores (the
    /// caller's oneTBB arena for the z-buffer picker) when empty. Marks do not depend on it.
    std::optional<int> threads;
    GraphSettings graph;  // graph only
    bool markThrough = false;
    bool backFaceCulling = false;
    bool unmark = false;
    bool skipHiddenSurfaces = false;
    std::vector<MMPlaneEq<double>> clippingPlanes;  // scene internal units, kept side ≥ 0
};

}  // namespace velpick
