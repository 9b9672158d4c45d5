#pragma once

// What the pickers and the picture share about perspective views: regions given in a pinhole
// camera's image coordinates moved onto the screen, and the near distance a camera leaves out.

#include <limits>

#include <velpick/host/point.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/transform_matrix.h>
#include "pick_settings.h"
#include "selection_region.h"

namespace velpick {

/// `region` on the screen of `view`. Regions seen through a pinhole camera are given in its
/// image coordinates (u right, v down, pixel centres whole): each point (u, v) becomes
/// (u + 0.5, h − (v + 0.5)), the radius stays. Other regions are already on the screen.
SelectionRegion RegionOnScreen(const SelectionRegion& region, const View& view);

/// The axis-aligned bounds of placed meshes' vertices, in scene internal units.
class PlacedBounds {
  public:
    void Add(const MStlBase& mesh, const MMTransformMatrix& placement);
    /// The largest distance from the origin of `toEye` (the eye) to a corner of the bounds,
    /// `toEye` a rigid map out of the scene; 0 when no vertex was added.
    double FarthestCornerDistance(const MMTransformMatrix& toEye) const;

  private:
    static constexpr double kInfinity = std::numeric_limits<double>::infinity();
    VelSDK::Math::point3d m_min{kInfinity, kInfinity, kInfinity};
    VelSDK::Math::point3d m_max{-kInfinity, -kInfinity, -kInfinity};
};

/// The near distance for a camera that gives none: kDefaultNearShare of the farthest corner's
/// distance; one internal unit when that is zero (no vertex, or all on the eye: nothing to
/// see) or not finite.
double DefaultNearDistance(double farthestCornerDistance);

/// The projection of a perspective `view` with its near distance resolved: the camera's own,
/// or the default for the bounds of `meshes`, each element with `mesh` (MStlBase*) and
/// `placement` (mesh → scene internal units).
template <class PlacedMeshes>
ViewProjection ResolvedProjection(const View& view, const PlacedMeshes& meshes) {
    ViewProjection projection = *view.projection;
    if (projection.nearDistance > 0.0)
        return projection;
    PlacedBounds bounds;
    for (const auto& placed : meshes)
        bounds.Add(*placed.mesh, placed.placement);
    projection.nearDistance = DefaultNearDistance(bounds.FarthestCornerDistance(view.matrix));
    return projection;
}

}  // namespace velpick
