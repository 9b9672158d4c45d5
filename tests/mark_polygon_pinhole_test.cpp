// The z-buffer picker through a pinhole against a brute-force ray cast from the eye through the
// pixel centres (first hit): it misses no more than under an orthographic view, marks what the
// floor's and the room's rays see and nothing behind the eye, and culls by the eye's side.

#include <gtest/gtest.h>

#include <velpick/mark_polygon.h>
#include "support/pinhole_oracle.h"

namespace pinhole {
namespace {

constexpr int kView = 200;           // pixels about (0, 0); screen units are pixels
constexpr double kRateSlack = 0.01;  // miss rates compared to within one percent
constexpr double kUnseenSlack = 0.02;

PerspectiveProjection Lens(const Scene& s) {
    return Camera(s.fovDegrees, kView, 0.0, false);
}

std::vector<bool> Pick(const Scene& s, const MMTransformMatrix& view,
                       const std::optional<PerspectiveProjection>& camera, bool culling) {
    MStlMarkTrianglesByMasks sink(*s.mesh);
    MStlBaseOperatorMarkPolygon picker(1.0, 0.05, false, 1000.0);
    picker.AddStl(s.mesh.get(), &view, nullptr, true, &sink);
    if (camera)
        picker.SetPerspective(*camera);
    const double h = 0.5 * kView;
    picker.SetPolygon({{-h, -h}, {h, -h}, {h, h}, {-h, h}});
    picker.SetBackFaceCulling(culling);
    EXPECT_TRUE(picker.operate());
    return Marks(*s.mesh, sink);
}

// Rays through the pixel centres one pixel in from the view's border.
std::vector<int> Hits(const Scene& s, const MMTransformMatrix& view,
                      const std::optional<PerspectiveProjection>& camera) {
    return RayCastHits(*s.mesh, view, camera, 1 - kView / 2, kView / 2 - 1);
}

// Of the triangles the ray cast sees, the share missed; of those marked, the share it does not
// see (tolerance and silhouette slivers).
std::array<double, 2> Rates(const std::vector<int>& hits, const std::vector<bool>& marked) {
    double seen = 0, missed = 0, count = 0, unseen = 0;
    for (std::size_t i = 0; i < hits.size(); ++i) {
        seen += hits[i] > 0;
        missed += hits[i] > 0 && !marked[i];
        count += marked[i];
        unseen += hits[i] == 0 && marked[i];
    }
    EXPECT_GT(seen, 300);
    return {missed / seen, unseen / count};
}

// The orthographic view of the same scene in eye space, scaled to fill the view alike.
TEST(PerspectivePick, MissesNoMoreThanTheOrthographicPickAgainstTheRayCast) {
    const Scene s = Spheres();
    MMTransformMatrix orthographic = s.eye, scale;
    scale.MakeScale3D(0.017, 0.017, 1.0);
    orthographic.PreMultiply(scale);
    const auto perspective = Rates(Hits(s, s.eye, Lens(s)), Pick(s, s.eye, Lens(s), false));
    const auto flat =
        Rates(Hits(s, orthographic, std::nullopt), Pick(s, orthographic, std::nullopt, false));
    EXPECT_LE(perspective[0], flat[0] + kRateSlack);
    EXPECT_LE(perspective[1], flat[1] + kUnseenSlack);
}

// The edge walks may miss a triangle one pixel centre sees, never one seen by two.
TEST(PerspectivePick, FloorAndRoomMarkWhatTheRayCastSeesAndNothingBehindTheEye) {
    const Scene scenes[] = {Floor(), Room()};
    for (const Scene& s : scenes)
        ExpectMarksSeen(s, Hits(s, s.eye, Lens(s)), Pick(s, s.eye, Lens(s), false), 2);
}

TEST(PerspectivePick, CullingFromNearACornerKeepsTheFacesTheEyeIsInFrontOf) {
    const Scene cube = CornerCube();
    EXPECT_EQ(Pick(cube, cube.eye, Lens(cube), true), FacingEye(*cube.mesh, kCornerEye));
}

}  // namespace
}  // namespace pinhole
