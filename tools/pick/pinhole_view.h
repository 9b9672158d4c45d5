#pragma once

// What the pickers and the picture share about perspective views: regions given in a pinhole
// camera's image coordinates moved onto the screen, and the near distance a camera leaves out.

#include <limits>
#include <mutex>

#include <velpick/host/point.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pinhole_projection.h>
#include "pick_settings.h"
#include "selection_region.h"

namespace velpick {

/// `region` on the screen of `view`. Regions seen through a pinhole camera are given in its
/// image coordinates (u right, v down, pixel centres whole): each point (u, v) becomes
/// (u + 0.5, h − (v + 0.5)), the radius stays. Other regions are already on the screen.
SelectionRegion RegionOnScreen(const SelectionRegion& region, const View& view);

/// RegionOnScreen, checked again against the 32-bit pixel range at `pixelProportion`: a
/// pinhole camera's region moves by the image height on its way to the screen. Throws
/// PickError naming the region when a point leaves that range.
SelectionRegion PixelSafeRegionOnScreen(const SelectionRegion& region, const View& view,
                                        double pixelProportion);

/// The axis-aligned bounds of placed meshes' vertices, in scene internal units.
class PlacedBounds {
  public:
    void Add(const MStlBase& mesh, const MMTransformMatrix& placement);
    /// Widens the bounds to take in `other`: the same bounds as adding its vertices here.
    void Add(const PlacedBounds& other);
    /// The largest distance from the origin of `toEye` (the eye) to a corner of the bounds,
    /// `toEye` a rigid map out of the scene; 0 when no vertex was added.
    double FarthestCornerDistance(const MMTransformMatrix& toEye) const;

  private:
    static constexpr double kInfinity = std::numeric_limits<double>::infinity();
    VelSDK::Math::point3d m_min{kInfinity, kInfinity, kInfinity};
    VelSDK::Math::point3d m_max{-kInfinity, -kInfinity, -kInfinity};
};

/// The bounds of one mesh under one placement, found on first use and then kept: the holder
/// of a placed mesh that is picked again (many views, repeated calls) pays the pass over its
/// vertices once. Safe to use from several threads at once.
class PlacedBoundsCache {
  public:
    /// The bounds of `mesh` under `placement`; every call must pass the same pair.
    const PlacedBounds& Get(const MStlBase& mesh, const MMTransformMatrix& placement);

  private:
    std::once_flag m_found;
    PlacedBounds m_bounds;
};

/// The near distance for a camera that gives none: kDefaultNearShare of the farthest corner's
/// distance; one internal unit when that is zero (no vertex, or all on the eye: nothing to
/// see) or not finite.
double DefaultNearDistance(double farthestCornerDistance);

/// The projection of a perspective `view` with its near distance resolved: the camera's own,
/// or the default for the bounds of `meshes`, each element with `mesh` (MStlBase*),
/// `placement` (mesh → scene internal units) and `bounds` (a PlacedBoundsCache* of that pair,
/// or null to find them here).
template <class PlacedMeshes>
ViewProjection ResolvedProjection(const View& view, const PlacedMeshes& meshes) {
    ViewProjection projection = *view.projection;
    if (projection.nearDistance > 0.0)
        return projection;
    PlacedBounds bounds;
    for (const auto& placed : meshes) {
        if (placed.bounds)
            bounds.Add(placed.bounds->Get(*placed.mesh, placed.placement));
        else
            bounds.Add(*placed.mesh, placed.placement);
    }
    projection.nearDistance = DefaultNearDistance(bounds.FarthestCornerDistance(view.matrix));
    return projection;
}

/// A resolved projection as the triangle operators take it.
AU_MarkOperations::PolygonMarking::PerspectiveProjection OperatorProjection(
    const ViewProjection& projection);

}  // namespace velpick
