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
    for (const std::vector<Triangle>& meshPieces : triangles)
        tbb::parallel_for_each(meshPieces.begin(), meshPieces.end(), [&](const Triangle& t) {
            point3d normal{
                (t.p1.y - t.p0.y) * (t.p2.z - t.p0.z) - (t.p1.z - t.p0.z) * (t.p2.y - t.p0.y),
                (t.p1.z - t.p0.z) * (t.p2.x - t.p0.x) - (t.p1.x - t.p0.x) * (t.p2.z - t.p0.z),
                (t.p1.x - t.p0.x) * (t.p2.y - t.p0.y) - (t.p1.y - t.p0.y) * (t.p2.x - t.p0.x)};
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

    for (std::vector<Triangle>& meshPieces : triangles)
        for (Triangle& t : meshPieces) {
            Rotate(rotation, t.p0);
            Rotate(rotation, t.p1);
            Rotate(rotation, t.p2);
        }
}
