#include <tbb/concurrent_vector.h>
#include <tbb/parallel_for_each.h>
#include <tbb/parallel_sort.h>

#include <algorithm>
#include <cmath>

#include <velpick/host/vector_math.h>
#include "visibility/detector_impl.h"
#include "visibility/sweep_constants.h"

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

// The midpoint of the widest gap between consecutive sorted values; the first of equally wide
// gaps wins.
double WidestGapMidpoint(const tbb::concurrent_vector<double>& sorted) {
    double widest = sorted[1] - sorted[0];
    double midpoint = (sorted[0] + sorted[1]) / 2.0;
    for (std::size_t i = 1; i + 1 < sorted.size(); ++i) {
        const double gap = sorted[i + 1] - sorted[i];
        if (gap > widest) {
            widest = gap;
            midpoint = (sorted[i] + sorted[i + 1]) / 2.0;
        }
    }
    return midpoint;
}

void Rotate(const MMTransformMatrix& rotation, point3d& p) {
    rotation.Transform(p, false);
}

}  // namespace

void MStlBaseOperatorVisibilityDetector::Impl::_TransformModel() {
    // x components of the normals of edge-on pieces, mirrored, within the bounds ±1. An
    // edge-on piece projects to a line perpendicular to its normal's (x, y); the sweep
    // direction is then taken where these directions leave the widest gap.
    tbb::concurrent_vector<double> edgeOn{-1.0, 1.0};
    tbb::parallel_for_each(triangles.begin(), triangles.end(), [&](const Triangle& t) {
        const point3d &p0 = vertices[t.corners[0]], &p1 = vertices[t.corners[1]],
                      &p2 = vertices[t.corners[2]];
        point3d normal{(p1.y - p0.y) * (p2.z - p0.z) - (p1.z - p0.z) * (p2.y - p0.y),
                       (p1.z - p0.z) * (p2.x - p0.x) - (p1.x - p0.x) * (p2.z - p0.z),
                       (p1.x - p0.x) * (p2.y - p0.y) - (p1.y - p0.y) * (p2.x - p0.x)};
        VelSDK::Math::Normalize(normal);
        if (std::fabs(normal.z) < visibility::kOnPlaneTolerance) {
            edgeOn.push_back(normal.x);
            edgeOn.push_back(-normal.x);
        }
    });
    if (edgeOn.size() < visibility::kParallelThreshold)
        std::sort(edgeOn.begin(), edgeOn.end());
    else
        tbb::parallel_sort(edgeOn.begin(), edgeOn.end());

    const double c = WidestGapMidpoint(edgeOn);
    point3d direction{c, std::sqrt(1.0 - c * c), 0.0};
    VelSDK::Math::Normalize(direction);
    MMTransformMatrix rotation;
    rotation.MakeRotationInPlane(direction, point3d{0.0, 1.0, 0.0}, point3d{0.0, 0.0, 0.0});

    runPath = path;
    pathBoxMin = {1.7976931348623157e308, 1.7976931348623157e308};
    pathBoxMax = {-1.7976931348623157e308, -1.7976931348623157e308};
    for (point2d& point : runPath) {
        point3d p{point.x, point.y, 0.0};
        Rotate(rotation, p);
        point = {p.x, p.y};
        pathBoxMin = {std::min(pathBoxMin.x, p.x), std::min(pathBoxMin.y, p.y)};
        pathBoxMax = {std::max(pathBoxMax.x, p.x), std::max(pathBoxMax.y, p.y)};
    }
    if (mode == Brush) {
        pathBoxMin = {pathBoxMin.x - brushRadius, pathBoxMin.y - brushRadius};
        pathBoxMax = {pathBoxMax.x + brushRadius, pathBoxMax.y + brushRadius};
    }

    // Pieces share vertices: each is turned once.
    for (point3d& vertex : vertices)
        Rotate(rotation, vertex);
}
