#pragma once

#include <velpick/host/plane_eq.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/host/vector_math.h>

namespace VelSDK::Math {

/// The plane `plane` carried through the affine `transform` (for clipping planes given in one
/// space and applied in another, `transform` is the inverse of the map between them). The
/// plane's foot point (its point nearest the origin, −d·n/|n|²) is mapped as a point and its
/// normal as a direction; the result has a unit normal and passes through the mapped foot point.
/// A zero normal has no foot point: the division gives a NaN plane, which keeps nothing.
inline MMPlaneEq<double> TransformPlane(const MMPlaneEq<double>& plane,
                                        const MMTransformMatrix& transform) {
    const point3d normal{plane.a, plane.b, plane.c};
    const double scale =
        -plane.d / (normal.x * normal.x + normal.y * normal.y + normal.z * normal.z);
    point3d foot, mappedNormal;
    transform.Transform(foot, point3d{scale * normal.x, scale * normal.y, scale * normal.z}, false);
    transform.Transform(mappedNormal, normal, true);
    Normalize(mappedNormal);
    const double offset =
        -(mappedNormal.x * foot.x + mappedNormal.y * foot.y + mappedNormal.z * foot.z);
    return {mappedNormal.x, mappedNormal.y, mappedNormal.z, offset};
}

}  // namespace VelSDK::Math
