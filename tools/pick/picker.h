#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/visibility_detector.h>
#include "call_marks.h"
#include "feature_edge_graph.h"
#include "pick_settings.h"
#include "pinhole_view.h"
#include "placed_mesh.h"
#include "selection_region.h"

namespace velpick {

/// One mesh as a picker sees it: borrowed, with its placement and what of it may be marked.
struct PickMesh {
    MStlBase* mesh = nullptr;
    MMTransformMatrix placement;  // mesh internal units → scene internal units
    bool markWholeMesh = true;
    std::vector<MStlSurface*> markableSurfaces;  // used when markWholeMesh is false
    /// Set when picks on several threads share the mesh: the graph picker then builds a new
    /// feature graph only while no other graph pick of the mesh runs. Null for a mesh that one
    /// thread picks.
    FeatureGraphGuard* graphGuard = nullptr;
    /// The bounds of this mesh under this placement, kept by a holder that picks it again so
    /// that perspective picks find them once (see ResolvedProjection); null: found per pick.
    PlacedBoundsCache* bounds = nullptr;
};

/// Everything a pick needs, already validated: no files, no formats.
struct PickRequest {
    std::vector<PickMesh> meshes;
    View view;
    PickSettings settings;
};

/// What the graph picker produced for one mesh.
struct EdgePick {
    std::size_t edgeCount = 0;     // edges of the mesh's feature graph
    int returnCode = 0;            // the graph operator's return code, 0 on success
    std::vector<EdgeEnds> marked;  // sorted
    /// The mesh vertex numbers (mask indices) of each marked edge's ends, in the same order.
    std::vector<std::array<std::uint32_t, 2>> markedVertices;
    double graphMilliseconds = 0.0;  // spent finding or building the feature graph
};

/// What a picker produced for one mesh.
struct MeshPick {
    std::vector<std::size_t> triangles;  // sorted indices of the marked triangles
    std::optional<EdgePick> edges;       // the graph picker's edges
};

struct PickResult {
    std::vector<MeshPick> meshes;  // one per mesh of the request, same order
    RegionPixelBox region;         // the region's pixel raster
};

/// A pick that a picker cannot run; `Field()` names the scene field that made it fail.
class PickError : public std::runtime_error {
  public:
    PickError(std::string field, const std::string& reason)
        : std::runtime_error(reason), m_field(std::move(field)) {}
    const std::string& Field() const { return m_field; }

  private:
    std::string m_field;
};

/// A picking algorithm. It reports which triangles of the request's meshes are marked after
/// marking (or unmarking) what it selects, starting from the triangles' own mark flags. The
/// meshes are only read, never marked: picks on several threads may share a mesh.
class Picker {
  public:
    virtual ~Picker() = default;
    /// Throws PickError, with the meshes left unchanged, when the request cannot be picked.
    virtual PickResult Pick(const PickRequest& request) = 0;
    /// About how many bytes Pick() allocates for its rasters, so that a caller can refuse a
    /// region too large for the machine before the run; 0 when the picker does not say.
    virtual std::uint64_t RasterBytes(const PickRequest& request) const {
        static_cast<void>(request);
        return 0;
    }
};

/// The picker registered under `name`, or null for an unknown name.
std::unique_ptr<Picker> MakePicker(const std::string& name);
/// Every registered name, in registration order.
std::vector<std::string> PickerNames();

/// A per-call mark mask for every mesh of the request, in order (see CallMarks).
CallMarksList StartCallMarks(const PickRequest& request);
/// The result of a triangle picker: the marked triangles of every mesh, and the region's box.
PickResult CollectMarkedTriangles(const PickRequest& request, const CallMarksList& marks);

/// A one-line description of every registered picker, for help texts.
std::string DescribePickers();

/// The scan-line detector's rule for `settings`, and its nearest-rule depth tolerance in the
/// detector's depth units for `view` (what the scan-line picker sets; sessions share it).
MStlBaseOperatorVisibilityDetector::VisibilityRule DetectorRule(const PickSettings& settings);
double ScanLineDepthTolerance(const PickSettings& settings, const View& view);

// One factory per picker file.
std::unique_ptr<Picker> MakeZBufferPicker();
std::unique_ptr<Picker> MakeScanLinePicker();
std::unique_ptr<Picker> MakeGraphPicker();

}  // namespace velpick
