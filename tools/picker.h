#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "plane_eq.h"
#include "stl_base.h"
#include "tools/selection_region.h"
#include "transform_matrix.h"

namespace velpick {

/// One mesh as a picker sees it: borrowed, with its placement and what of it may be marked.
struct PickMesh {
    MStlBase* mesh = nullptr;
    MMTransformMatrix placement;  // mesh internal units → scene internal units
    bool markWholeMesh = true;
    std::vector<MStlSurface*> markableSurfaces;  // used when markWholeMesh is false
};

/// Everything a pick needs, already validated: no files, no formats.
struct PickRequest {
    std::vector<PickMesh> meshes;
    MMTransformMatrix view;  // scene internal units → screen units, larger z nearer
    SelectionRegion region;
    double pixelProportion = 5.0;  // pixels per screen unit
    double depthTolerance = 0.05;  // model length units
    bool markThrough = false;
    bool backFaceCulling = false;
    bool unmark = false;
    bool skipHiddenSurfaces = false;
    std::vector<MMPlaneEq<double>> clippingPlanes;  // scene internal units, kept side ≥ 0
};

struct PickResult {
    std::vector<std::vector<std::size_t>> marked;  // per mesh, sorted triangle indices
    RegionPixelBox region;                         // the selection raster in pixels
};

/// A picking algorithm. It marks (or unmarks) the triangles of the request's meshes in place
/// and reports what is marked afterwards.
class Picker {
  public:
    virtual ~Picker() = default;
    /// Nothing when the selection raster cannot be built (too many cells, or coordinates
    /// beyond the 32-bit pixel range); the meshes are then left unchanged.
    virtual std::optional<PickResult> Pick(const PickRequest& request) = 0;
};

/// The picker registered under `name`, or null for an unknown name.
std::unique_ptr<Picker> MakePicker(const std::string& name);
/// Every registered name, in registration order.
std::vector<std::string> PickerNames();

/// Sorted indices of the marked triangles of `mesh` (index i is triangle i).
std::vector<std::size_t> MarkedTriangles(const MStlBase& mesh);

// One factory per picker file.
std::unique_ptr<Picker> MakeZBufferPicker();

}  // namespace velpick
