#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pinhole_projection.h>
#include <velpick/visibility_detector.h>
#include "visibility/chunk_sweep.h"
#include "visibility/piece_clipper.h"
#include "visibility/screen_piece.h"

/// The detector's settings, the working state of one run and the run's steps.
class MStlBaseOperatorVisibilityDetector::Impl {
  public:
    using Triangle = visibility::Triangle;

    struct StlEntry {
        const MStlBase* stl;
        VelSDK::Math::matrix4x4<double> modelToScreen;
        MMTransformMatrix planeTransform;
        bool allSurfacesMarkable;
        MStlMarkTrianglesByMasks* marker;
        /// Whether a candidate list restricts the run to `candidates` (ascending indices).
        bool listed = false;
        std::vector<std::uint32_t> candidates;
    };

    void Operate();

    // Settings, as the setters store them.
    std::vector<StlEntry> stls;
    std::vector<VelSDK::Math::point2d> path;
    double brushRadius = 0.0;
    Mode mode = Polygon;
    std::set<const MStlSurface*> markableSurfaces;
    std::vector<MMPlaneEq<double>> clippingPlanes;
    double pixelProportion = 5.0;
    bool mark = true;
    bool markFlippedTriangles = false;
    bool checkSurfaceVisibility = true;
    bool markThrough = false;
    VisibilityRule rule = VisibilityRule::Ordered;
    double depthTolerance = 0.0;
    /// A pinhole projection after each mesh's modelToScreen, when set.
    bool perspective = false;
    AU_MarkOperations::PolygonMarking::PerspectiveProjection projection{};

  private:
    /// False, leaving the box as it was, when the path or the brush radius is not finite.
    bool _ComputeRegionBox();
    /// Builds `triangles` and `vertices`: every visible triangle clipped by the planes, mapped
    /// to the screen, culled against the region box and flagged markable or not.
    void _CollectTriangles();
    /// The pieces of one triangle that the planes keep, mapped to the screen, inside the region
    /// box, appended to `triangles`. `modelPlanes`: the planes in the mesh's model space.
    void _CollectTriangle(const StlEntry& entry, const std::vector<MMPlaneEq<double>>& modelPlanes,
                          MStlTriangle& triangle, bool markableSurface);
    /// The index in `vertices` of the mesh's point `point` on the screen, mapped on first use.
    std::uint32_t _SharedVertex(const StlEntry& entry, std::uint32_t point);
    /// Appends a screen corner of a clipped piece to `vertices`; its index.
    std::uint32_t _AddVertex(const VelSDK::Math::point3d& p);
    /// Calls visit(triangle, markableSurface) for the triangles of the mesh a run considers, in
    /// the order of its surfaces: all of them, or the listed ones.
    template <class Visit>
    void _ForEachTriangle(const StlEntry& entry, Visit&& visit) const;
    /// A piece's corner on the screen: through modelToScreen, or into eye space, divided by its
    /// depth and given the reciprocal depth as z.
    VelSDK::Math::point3d _ToScreen(const StlEntry& entry, const VelSDK::Math::point3d& p) const;
    /// Turns the screen plane about the view axis so that no edge-on piece projects along the
    /// sweep direction, rotating the working path, the region box and every piece.
    void _TransformModel();
    /// Sweeps the sample lines chunk by chunk on the oneTBB scheduler, filling chunkResults.
    void _SweepChunks(const std::vector<double>& lines);
    /// Puts every piece's corners in lexicographic (x, y, z) order.
    void _SortCorners();
    /// How the chunks decide each line, from the settings.
    visibility::ChunkSweep::Rule SweepRule() const;
    /// Merges the chunks' results and marks or unmarks each piece's triangle once.
    void _MarkVisiblePieces();

    // Working state of a run.
    /// The pieces of the run, meshes in order (mesh m's from meshFirstPiece[m] on), and the
    /// screen vertices their corners refer to; freed after the run.
    std::vector<Triangle> triangles;
    std::vector<std::size_t> meshFirstPiece;
    std::vector<VelSDK::Math::point3d> vertices;
    /// While a mesh is collected, per point of it, its index in `vertices` (kNoVertex: not yet
    /// mapped).
    std::vector<std::uint32_t> vertexOfPoint;
    VelSDK::Math::point2d pathBoxMin{1.7976931348623157e308, 1.7976931348623157e308};
    VelSDK::Math::point2d pathBoxMax{-1.7976931348623157e308, -1.7976931348623157e308};
    double pixelStep = 0.2;
    /// Per chunk of sample lines, the global indices of the visible markable pieces it found (a
    /// piece may be listed more than once; the merge keeps one of each); emptied, capacity kept,
    /// after every run.
    std::vector<std::vector<std::uint32_t>> chunkResults;
    /// The path of the current run, rotated with the screen plane.
    std::vector<VelSDK::Math::point2d> runPath;
    /// One triangle's pieces while the planes cut it, and the clipper's working storage.
    std::vector<visibility::Piece> pieces, clipScratch;
};
