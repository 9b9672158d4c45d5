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
#include <velpick/host/stl_base.h>
#include <velpick/mark_polygon.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

constexpr double kPixelsPerUnit = 4.0;
constexpr double kBoundsMargin = 2.0;  // pixels around each triangle's screen bounds

// Random noisy tori under random tilted views; random lassos (crossing themselves or not) or brush
// paths, with and without culling and a clipping plane, on one thread and on two.
TEST(CandidateTriangles, TrianglesMeetingTheBoxGiveTheFullRunsMarks) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    int listsShorterThanTheMesh = 0, scenesWithMarks = 0;
    for (int trial = 0; trial < 60; ++trial) {
        auto mesh = scene::ToHostMesh(
            scene::NoisyTorus(30, 20, 3000, 1200, 0.2, static_cast<std::uint32_t>(random())));
        MMTransformMatrix view, tilt;
        view.MakeScale1D(0.01);
        tilt.MakeRotationInPlane({0, 0, 1}, {unit(random), unit(random), 1.5}, {0, 0, 0});
        view.PostMultiply(tilt);
        const point2d centre{unit(random) * 30, unit(random) * 30};
        std::vector<point2d> region(3 + random() % 6);  // a lasso, or a brush path
        for (point2d& p : region)
            p = {centre.x + 20 * unit(random), centre.y + 20 * unit(random)};
        const std::size_t brushRadius = random() % 4 == 0 ? 1 + random() % 3 : 0;
        const bool culling = random() % 3 == 0, plane = random() % 4 == 0;
        const auto marks = [&](const std::vector<std::uint32_t>* candidates) {
            MStlBaseOperatorMarkPolygon picker(kPixelsPerUnit, 0.05, false, 1000.0);
            picker.AddStl(mesh.get(), &view, nullptr, true, nullptr);  // no placement
            EXPECT_TRUE(!candidates ||
                        picker.SetCandidateTriangles(candidates->data(), candidates->size()));
            brushRadius ? picker.SetBrushPath(region, brushRadius) : picker.SetPolygon(region);
            picker.SetBackFaceCulling(culling);
            if (plane)
                picker.AddClippingPlane({0.3, -1.0, 0.2, 400.0});
            picker.SetThreads(1 + trial % 2);
            EXPECT_TRUE(picker.operate());
            std::vector<std::uint32_t> marked;
            for (MStlTriangle& t : mesh->Triangles())
                if (t.IsMarked())
                    marked.push_back(t.GetMaskIndex()), t.Unmark();
            return marked;
        };
        // The list: triangles whose screen bounds, widened by the margin, meet the region's
        // pixel box (one pixel wider at the top, whose last row and column reach up to max + 1).
        const auto box = AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention(
            region, kPixelsPerUnit);
        const double r = static_cast<double>(brushRadius) * kPixelsPerUnit + kBoundsMargin;
        std::vector<std::uint32_t> list;
        for (MStlTriangle& t : mesh->Triangles()) {
            point3d p[3];
            for (std::size_t k = 0; k < 3; ++k)
                view.Transform(p[k], t.GetVertex(k), false);
            const auto [left, right] = std::minmax({p[0].x, p[1].x, p[2].x});
            const auto [low, high] = std::minmax({p[0].y, p[1].y, p[2].y});
            if (right * kPixelsPerUnit >= box.min.x - r &&
                left * kPixelsPerUnit <= box.max.x + 1 + r &&
                high * kPixelsPerUnit >= box.min.y - r && low * kPixelsPerUnit <= box.max.y + 1 + r)
                list.push_back(t.GetMaskIndex());
        }
        const std::vector<std::uint32_t> full = marks(nullptr);
        EXPECT_EQ(marks(&list), full) << "trial " << trial;
        listsShorterThanTheMesh += list.size() < mesh->GetNumberOfTriangles();
        scenesWithMarks += !full.empty();
        if (full.empty())
            continue;
        // A list missing one triangle that the full run marks gives other marks.
        list.erase(std::find(list.begin(), list.end(), full[full.size() / 2]));
        EXPECT_NE(marks(&list), full) << "trial " << trial;
    }
    EXPECT_GT(std::min(listsShorterThanTheMesh, scenesWithMarks), 40);
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
