// A candidate list that holds every triangle whose screen bounds meet the region's pixel box
// gives the z-buffer picker's marks of the full run, on random scenes and regions; a list
// missing one needed triangle does not.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include <velpick/camera_view.h>
#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/mark_polygon.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

constexpr double kPixelsPerUnit = 4.0;
constexpr double kBoundsMargin = 2.0;  // pixels around each triangle's screen bounds

/// Every call in order, as (direction, triangle index).
class RecordingSink : public IStlMarkTriangles {
  public:
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override { calls.push_back(t.GetMaskIndex()); }
    void Unmark(MStlTriangle& t) override { calls.push_back(~t.GetMaskIndex()); }
    std::vector<std::uint64_t> calls;
};

struct Scene {
    std::unique_ptr<MStlBase> mesh;
    MMTransformMatrix view;
    std::vector<point2d> region;
    std::size_t brushRadius = 0;  // 0: a lasso
    bool culling = false, plane = false;
};

Scene RandomScene(std::mt19937& random) {
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    Scene s;
    const int kind = static_cast<int>(random() % 3);
    s.mesh = kind == 0   ? scene::ToHostMesh(scene::NoisyTorus(30, 20, 3000, 1200, 0.2,
                                                               static_cast<std::uint32_t>(random())))
             : kind == 1 ? scene::uvSphere({unit(random) * 500, 0, 0}, 2500, 16, 32)
                         : scene::cube({0, 0, 0}, 2000, 5);
    MMTransformMatrix scale, tilt;
    scale.MakeScale1D(0.01);
    tilt.MakeRotationInPlane({0, 0, 1}, {unit(random), unit(random), 1.5}, {0, 0, 0});
    scale.PostMultiply(tilt);
    s.view = scale;
    // A random star-shaped polygon of 3 to 9 corners, or a short brush path.
    const point2d centre{unit(random) * 30, unit(random) * 30};
    const int corners = 3 + static_cast<int>(random() % 7);
    for (int k = 0; k < corners; ++k) {
        const double angle = 2 * std::acos(-1.0) * k / corners, r = 4 + 12 * (1 + unit(random));
        s.region.push_back({centre.x + r * std::cos(angle), centre.y + r * std::sin(angle)});
    }
    if (random() % 4 == 0) {
        s.region.resize(3);
        s.brushRadius = 1 + random() % 3;
    }
    s.culling = random() % 3 == 0;
    s.plane = random() % 4 == 0;
    return s;
}

/// The region's pixel box [min, max] as the picker defines it.
VelSDK::Math::boundingbox<double, 2> PixelBox(const Scene& s) {
    if (s.brushRadius == 0)
        return AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention(s.region,
                                                                                   kPixelsPerUnit);
    VelSDK::Math::boundingbox<double, 2> box{{1e300, 1e300}, {-1e300, -1e300}};
    for (const point2d& p : s.region) {
        box.min = {std::min(box.min.x, std::floor(p.x * kPixelsPerUnit)),
                   std::min(box.min.y, std::floor(p.y * kPixelsPerUnit))};
        box.max = {std::max(box.max.x, std::ceil(p.x * kPixelsPerUnit)),
                   std::max(box.max.y, std::ceil(p.y * kPixelsPerUnit))};
    }
    const double r = static_cast<double>(s.brushRadius) * kPixelsPerUnit;
    return {{box.min.x - r, box.min.y - r}, {box.max.x + r, box.max.y + r}};
}

/// Triangles whose screen bounds, widened by the margin, meet the pixel box (one pixel wider at
/// the top, whose last row and column reach up to max + 1), in ascending order.
std::vector<std::uint32_t> TrianglesMeetingBox(const Scene& s) {
    const auto box = PixelBox(s);
    std::vector<std::uint32_t> list;
    std::uint32_t index = 0;
    for (MStlTriangle& t : s.mesh->Triangles()) {
        double low[2] = {1e300, 1e300}, high[2] = {-1e300, -1e300};
        for (std::size_t k = 0; k < 3; ++k) {
            point3d screen;
            s.view.Transform(screen, t.GetVertex(k), false);
            const double pixel[2] = {screen.x * kPixelsPerUnit, screen.y * kPixelsPerUnit};
            for (int axis = 0; axis < 2; ++axis) {
                low[axis] = std::min(low[axis], pixel[axis]);
                high[axis] = std::max(high[axis], pixel[axis]);
            }
        }
        const bool meets =
            high[0] + kBoundsMargin >= box.min.x && low[0] - kBoundsMargin <= box.max.x + 1 &&
            high[1] + kBoundsMargin >= box.min.y && low[1] - kBoundsMargin <= box.max.y + 1;
        if (meets)
            list.push_back(index);
        ++index;
    }
    return list;
}

/// The sink calls of one run, restricted to `candidates` unless null.
std::vector<std::uint64_t> Marks(const Scene& s, const std::vector<std::uint32_t>* candidates,
                                 int threads) {
    RecordingSink sink;
    MStlBaseOperatorMarkPolygon picker(kPixelsPerUnit, 0.05, false, 1000.0);
    const MMTransformMatrix placement;
    picker.AddStl(s.mesh.get(), &s.view, &placement, true, &sink);
    if (candidates) {
        EXPECT_TRUE(picker.SetCandidateTriangles(candidates->data(), candidates->size()));
    }
    if (s.brushRadius)
        picker.SetBrushPath(s.region, s.brushRadius);
    else
        picker.SetPolygon(s.region);
    picker.SetBackFaceCulling(s.culling);
    if (s.plane)
        picker.AddClippingPlane({0.3, -1.0, 0.2, 400.0});
    picker.SetThreads(threads);
    EXPECT_TRUE(picker.operate());
    return sink.calls;
}

TEST(CandidateTriangles, TrianglesMeetingTheBoxGiveTheFullRunsMarks) {
    std::mt19937 random(11);
    int listsShorterThanTheMesh = 0, scenesWithMarks = 0;
    for (int trial = 0; trial < 60; ++trial) {
        const Scene s = RandomScene(random);
        const std::vector<std::uint32_t> list = TrianglesMeetingBox(s);
        const int threads = 1 + trial % 2;
        const std::vector<std::uint64_t> full = Marks(s, nullptr, threads);
        EXPECT_EQ(Marks(s, &list, threads), full) << "trial " << trial;
        listsShorterThanTheMesh += list.size() < s.mesh->GetNumberOfTriangles();
        scenesWithMarks += !full.empty();

        // A list missing one triangle that the full run marks gives other marks.
        if (full.empty())
            continue;
        std::vector<std::uint32_t> faulty = list;
        faulty.erase(std::find(faulty.begin(), faulty.end(),
                               static_cast<std::uint32_t>(full[full.size() / 2])));
        EXPECT_NE(Marks(s, &faulty, threads), full) << "trial " << trial;
    }
    // The scenes exercise both the list and the picker.
    EXPECT_GT(listsShorterThanTheMesh, 40);
    EXPECT_GT(scenesWithMarks, 40);
}

TEST(CandidateTriangles, RefusesListsNotAscendingOrOutOfRange) {
    auto mesh = scene::cube({0, 0, 0}, 1000, 1);  // 12 triangles
    MStlBaseOperatorMarkPolygon picker;
    const std::uint32_t ascending[] = {0, 5, 11}, repeated[] = {1, 1}, beyond[] = {3, 12};
    EXPECT_FALSE(picker.SetCandidateTriangles(ascending, 3));  // no mesh yet
    picker.AddStl(mesh.get(), nullptr, nullptr, true, nullptr);
    EXPECT_TRUE(picker.SetCandidateTriangles(ascending, 3));
    EXPECT_FALSE(picker.SetCandidateTriangles(repeated, 2));
    EXPECT_FALSE(picker.SetCandidateTriangles(beyond, 2));
    EXPECT_FALSE(picker.SetCandidateTriangles(nullptr, 1));
    EXPECT_TRUE(picker.SetCandidateTriangles(nullptr, 0));
}

}  // namespace
