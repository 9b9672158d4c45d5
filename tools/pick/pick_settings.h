#pragma once

// The settings of a pick, with every default and bound in one place: the scene file, the
// Python module and the pickers all read them from here.

#include <array>
#include <optional>
#include <string>
#include <utility>
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

/// A perspective camera in model units: it looks from `eye` towards `target` with `up` pointing
/// up the screen, and sees `fovDegrees` (0 < fov < 180) across the screen's height. The plane
/// through `target` perpendicular to the viewing axis maps exactly as the OrthoCamera of
/// height 2·d·tan(fov/2), d = |target − eye|: the target at the screen's centre, x right, y up.
struct PerspectiveCamera {
    VelSDK::Math::point3d eye, target, up;
    double fovDegrees = 60.0;
    double screenWidth = 1.0, screenHeight = 1.0;
    std::optional<double> nearDistance;  // model units; see ViewProjection for the default
};

/// A pinhole camera as photogrammetry gives it. A model point X has camera coordinates
/// (x, y, z) = R·X + t (z forward, x right, y down) and image coordinates (u, v) =
/// (fx·x/z + cx, fy·y/z + cy), integer (u, v) at pixel centres. Regions seen through it are
/// given in image coordinates (u right, v down); its screen is the image, screen point
/// (u + 0.5, h − (v + 0.5)), so the image's outer pixel edges are the screen's borders.
struct PinholeCamera {
    double fx = 1.0, fy = 1.0, cx = 0.0, cy = 0.0;              // K, in pixels
    std::array<double, 9> rotation{1, 0, 0, 0, 1, 0, 0, 0, 1};  // R, row by row
    VelSDK::Math::point3d translation{0.0, 0.0, 0.0};           // t, model units
    double imageWidth = 1.0, imageHeight = 1.0;                 // w, h in pixels
    std::optional<double> nearDistance;                         // model units
};

/// The cameras a view may come from. Code that handles cameras visits this variant.
using Camera = std::variant<OrthoCamera, PerspectiveCamera, PinholeCamera>;

/// The near distance is this share of the distance from the eye to the farthest corner of the
/// placed meshes' bounding box when a perspective camera does not give one.
constexpr double kDefaultNearShare = 1e-4;

/// The projection of a perspective view, applied after its matrix, which then maps into eye
/// space (internal units; the eye at the origin, x right, y up, looking along −z): a point's
/// screen position is (cx + fx·x/(−z), cy + fy·y/(−z)) in screen units, its depth −z. Points
/// nearer than `nearDistance` are cut away.
struct ViewProjection {
    double fx = 1.0, fy = 1.0, cx = 0.0, cy = 0.0;
    /// Internal units; 0 stands for the default, kDefaultNearShare of the distance from the
    /// eye to the farthest corner of the placed meshes' bounding box (see ResolvedProjection).
    double nearDistance = 0.0;
};

/// How the scene is seen: the map to the screen, and the camera it came from when it was not
/// given as a matrix.
struct View {
    View() = default;
    View(const MMTransformMatrix& toScreen, std::optional<Camera> from,
         std::optional<ViewProjection> perspective = std::nullopt)
        : matrix(toScreen), camera(std::move(from)), projection(perspective) {}

    /// Scene internal units → screen units (larger z nearer); under a projection, → eye space.
    MMTransformMatrix matrix;
    std::optional<Camera> camera;
    std::optional<ViewProjection> projection;  // set for the perspective cameras
};

/// How the graph picker builds each mesh's feature graph and marks its edges.
struct GraphSettings {
    double sharpAngleDegrees = 30.0;   // edges sharper than this are kept
    double thickness = 0.0;            // model length units; 0 marks edges as lines, not bars
    bool markWholeCandidates = false;  // mark every edge that meets the region's pixel box
};

/// How the scan-line picker decides what a sample line sees.
enum class ScanLineRule {
    kOrdered,  // the front of a depth order that pieces enter in x order: the default
    kNearest,  // every piece within the depth tolerance of the nearest depth there
};

/// The scene-file and Python name of each scan-line rule, in the enum's order.
constexpr const char* kScanLineRuleNames[] = {"ordered", "nearest"};

/// Everything a pick is asked to do besides its meshes and its view, validated.
struct PickSettings {
    double unitsPerModelUnit = 1000.0;  // internal units per model unit
    std::string picker = "zbuffer";
    SelectionRegion region;
    double pixelProportion = 5.0;  // pixels per screen unit
    double depthTolerance = 0.05;  // model length units; z-buffer and the nearest rule
    double linesPerPixel = 5.0;    // sample lines per pixel row; scan-line only
    ScanLineRule scanlineRule = ScanLineRule::kOrdered;  // scan-line only
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
