// The scan-line detector through a pinhole against a brute-force ray cast from the eye through
// every pixel centre of the view (first hit), against what lies behind the eye, from near a
// cube's corner, and with a depth tolerance along the viewing axis.

#include <gtest/gtest.h>

#include <velpick/visibility_detector.h>
#include "support/pinhole_oracle.h"

using Rule = MStlBaseOperatorVisibilityDetector::VisibilityRule;

namespace pinhole {
namespace {

constexpr int kView = 160;  // pixels; the screen runs y down, as the detector's hosts do

PerspectiveProjection Lens(const Scene& s) {
    return Camera(s.fovDegrees, kView, 0.5 * kView, true);
}

std::vector<bool> Pick(const Scene& s, Rule rule, double depthTolerance = 1.0) {
    MStlMarkTrianglesByMasks sink(*s.mesh);
    MStlBaseOperatorVisibilityDetector detector;
    detector.AddStlAndTransformation(s.mesh.get(), s.eye, MMTransformMatrix(), true, &sink);
    detector.SetPerspective(Lens(s));
    detector.SetRule(rule);
    detector.SetDepthTolerance(depthTolerance);
    detector.SetMarkFlippedTriangles(s.fromInside);
    detector.SetPath({{0, 0}, {kView, 0}, {kView, kView}, {0, kView}});
    detector.Operate();
    return Marks(*s.mesh, sink);
}

// The ordered rule compares crossing pieces at one point: it may lose a triangle that a single
// pixel centre sees, never one seen by two.
TEST(PinholeDetector, MarksWhatTheRayCastSeesFirstAndNothingBehindTheEye) {
    const Scene scenes[] = {Spheres(), Floor(), Room()};
    for (const Scene& s : scenes) {
        const std::vector<int> hits = RayCastHits(*s.mesh, s.eye, Lens(s), 0, kView);
        for (Rule rule : {Rule::Ordered, Rule::Nearest})
            ExpectMarksSeen(s, hits, Pick(s, rule), rule == Rule::Ordered ? 2 : 1);
    }
}

TEST(PinholeDetector, FlippedRuleFromNearACornerKeepsTheFacesTheEyeIsInFrontOf) {
    const Scene cube = CornerCube();
    EXPECT_EQ(Pick(cube, Rule::Ordered), FacingEye(*cube.mesh, kCornerEye));
}

// A plate 50 units behind another, wholly hidden by it, is marked under the nearest rule with a
// tolerance above 50 and not below.
TEST(PinholeDetector, DepthToleranceIsADistanceAlongTheViewingAxis) {
    const Scene plates{scene::oneSurface([](MStlSurface& s) {
                           scene::addPlateWithHole(s, 1000, 0, 0, 2);
                           scene::addPlateWithHole(s, 1000, 0, -50, 2);
                       }),
                       LookAt({0, 0, 5000}, {0, 0, 0}), 60, 0.0};
    for (const double tolerance : {40.0, 60.0}) {
        const std::vector<bool> marked = Pick(plates, Rule::Nearest, tolerance);
        for (int index = 0; index < 16; ++index)
            EXPECT_EQ(marked[index], index < 8 || tolerance > 50) << tolerance << " " << index;
    }
}

}  // namespace
}  // namespace pinhole
