#pragma once

namespace AU_MarkOperations::PolygonMarking {

/// A pinhole projection applied after the view transform. With a projection set, a mesh's
/// `view` maps the placed mesh into eye space (internal units): the eye at the origin, x right,
/// y up, looking along −z (visible points have z < 0). A point's screen position is
/// (cx + fx·x/(−z), cy + fy·y/(−z)) in screen units and its depth is −z, the distance along the
/// viewing axis in internal units. Points nearer than `nearDistance` (−z < nearDistance) are
/// cut away before projection: the part of a triangle on the eye's side of that plane is never
/// marked and hides nothing; a triangle wholly on that side is ignored. `nearDistance` must be
/// positive and finite, fx and fy nonzero.
struct PerspectiveProjection {
    double fx, fy, cx, cy, nearDistance;
};

}  // namespace AU_MarkOperations::PolygonMarking
