// The visibility detector's marked sets on varied scenes, recorded as a count and a hash of
// the marked triangle indices per scene. Any change in which triangles a scene marks fails
// here; a deliberate change of behaviour means recording the table anew.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <velpick/host/stl_base.h>
#include <velpick/visibility_detector.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"
#include "support/screen_frame.h"

using VelSDK::Math::point2d;
using Detector = MStlBaseOperatorVisibilityDetector;

namespace {

/// FNV-1a over 64-bit words.
std::uint64_t Hash(const std::vector<std::uint64_t>& words) {
    std::uint64_t hash = 0xCBF29CE484222325ull;
    for (std::uint64_t word : words)
        for (int byte = 0; byte < 8; ++byte) {
            hash ^= (word >> (8 * byte)) & 0xFF;
            hash *= 0x100000001B3ull;
        }
    return hash;
}

// The screen frame, optionally tilted.
MMTransformMatrix Frame(bool tilted) {
    MMTransformMatrix turn;
    if (tilted)
        turn.MakeRotationInPlane({0, 0, 1}, {0.2, -0.6, 0.77}, {0, 0, 0});
    return scene::ScreenFrame(turn);
}

std::vector<point2d> Lasso() {
    return {{23.3, 26.1}, {68.7, 21.9}, {77.2, 47.5}, {55.1, 52.3},
            {74.9, 76.6}, {31.4, 79.2}, {21.6, 55.8}};
}

/// Random triangles of varied size and depth over the view, with exact duplicates (depth
/// ties), slivers and triangles seen edge-on.
std::unique_ptr<MStlBase> TriangleSoup() {
    std::mt19937 random(11u);
    const auto uniform = [&](double low, double high) {
        return low + (high - low) * (static_cast<double>(random()) / 4294967295.0);
    };
    return scene::oneSurface([&](MStlSurface& s) {
        for (int i = 0; i < 400; ++i) {
            const scene::V a{uniform(-3000, 3000), uniform(-3000, 3000), uniform(-900, 900)};
            const double size = uniform(50, 1500);
            scene::V b =
                a + scene::V{uniform(-size, size), uniform(-size, size), uniform(-300, 300)};
            scene::V c =
                a + scene::V{uniform(-size, size), uniform(-size, size), uniform(-300, 300)};
            if (i % 17 == 0)
                c = a + 0.5 * (b + (-1.0) * a) + scene::V{3, -2, 40};  // a sliver
            if (i % 23 == 0) {  // in a plane y = const: edge-on in the untilted frame
                b.y = a.y;
                c = {a.x, a.y, a.z + 500};
            }
            scene::addTriangle(s, a, b, c);
            if (i % 13 == 0)
                scene::addTriangle(s, a, b, c);  // an exact duplicate
        }
    });
}

struct Scene {
    std::string name;
    std::function<std::unique_ptr<MStlBase>()> mesh;
    bool tilted;
    std::function<void(Detector&)> configure;
    std::size_t count;
    std::uint64_t hash;
};

std::unique_ptr<MStlBase> Torus() {
    return scene::ToHostMesh(scene::NoisyTorus(80, 120, 2500, 1000, 0.2));
}

void Polygon(Detector& d) {
    d.SetPath(Lasso());
}

TEST(VisibilityRegression, MarkedSetsOfVariedScenesStayTheSame) {
    const std::vector<Scene> scenes{
        {"torus", Torus, false, Polygon, 3802, 2597993718034037472ull},
        {"torus tilted", Torus, true, Polygon, 4142, 8645852402600560838ull},
        {"torus through", Torus, true,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkThrough(true);
         },
         6819, 17098710620738341783ull},
        {"torus brush", Torus, true,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(3.5);
             d.SetPath({{20, 30}, {45, 62}, {58, 61}, {80, 35}});
         },
         1439, 24862232648671689ull},
        {"torus disc", Torus, true,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(9);
             d.SetPath({{38, 57}});
         },
         564, 16096132646066886765ull},
        {"torus sparse lines", Torus, true,
         [](Detector& d) {
             Polygon(d);
             d.SetPixelProportion(0.7);
         },
         4015, 5833693102993217801ull},
        {"torus planes", Torus, true,
         [](Detector& d) {
             Polygon(d);
             d.AddClippingPlane({0.2, 1, 0.1, 300});
             d.AddClippingPlane({-1, 0.3, 0, 1200});
         },
         1950, 8679565064327404203ull},
        {"torus flipped through", Torus, true,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkThrough(true);
             d.SetMarkFlippedTriangles(true);
         },
         13700, 12292912688526996819ull},
        {"soup", TriangleSoup, false,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkFlippedTriangles(true);
         },
         288, 8150386131319516191ull},
        {"soup tilted", TriangleSoup, true, Polygon, 147, 17842344024908943987ull},
        {"soup through", TriangleSoup, false,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkThrough(true);
             d.SetMarkFlippedTriangles(true);
         },
         332, 8206384970433757866ull},
        {"soup brush", TriangleSoup, false,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(2.5);
             d.SetPath({{20, 50}, {80, 50}, {50, 20}});
             d.SetMarkFlippedTriangles(true);
         },
         97, 8266986488447206064ull},
    };
    for (const Scene& s : scenes) {
        const std::unique_ptr<MStlBase> mesh = s.mesh();
        Detector detector;
        detector.AddStlAndTransformation(mesh.get(), Frame(s.tilted), MMTransformMatrix(), true,
                                         nullptr);
        s.configure(detector);
        detector.Operate();
        std::vector<std::uint64_t> marked;
        for (MStlTriangle& t : mesh->Triangles())
            if (t.IsMarked())
                marked.push_back(t.GetMaskIndex());
        EXPECT_EQ(marked.size(), s.count) << s.name;
        EXPECT_EQ(Hash(marked), s.hash) << s.name;
    }
}

}  // namespace
