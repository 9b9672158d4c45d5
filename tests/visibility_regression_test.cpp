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
#include <velpick/host/stl_surface.h>
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

using Meshes = std::vector<std::unique_ptr<MStlBase>>;

struct Scene {
    std::string name;
    std::function<Meshes()> meshes;
    bool tilted;
    std::function<void(Detector&)> configure;
    std::size_t count;
    std::uint64_t hash;
    // Registers the meshes; by default each with every surface markable, in the scene's frame.
    std::function<void(Detector&, Meshes&)> registerMeshes = {};
};

std::unique_ptr<MStlBase> Torus() {
    return scene::ToHostMesh(scene::NoisyTorus(80, 120, 2500, 1000, 0.2));
}

Meshes One(std::unique_ptr<MStlBase> mesh) {
    Meshes meshes;
    meshes.push_back(std::move(mesh));
    return meshes;
}

/// A plate over part of the torus and in front of it, of three surfaces: a left half, a right
/// half and, under the right half, a sub-surface switched invisible.
std::unique_ptr<MStlBase> SurfacesPlate() {
    auto mesh = std::make_unique<MStlBase>();
    MStlSurface& left = *mesh->AddSurface(nullptr);
    MStlSurface& right = *mesh->AddSurface(nullptr);
    MStlSurface& hidden = *mesh->AddSurface(&right);
    scene::addGrid(left, {-2000, -1500, 1300}, {1500, 0, 0}, {0, 3000, 200}, 5);
    scene::addGrid(right, {-500, -1500, 1300}, {1500, 0, 0}, {0, 3000, -300}, 5);
    scene::addGrid(hidden, {-500, -1500, 1600}, {1500, 0, 0}, {0, 3000, 0}, 3);
    hidden.SetVisible(false);
    return mesh;
}

/// The torus, the plate of surfaces and the soup, each a mesh of its own.
Meshes Stack() {
    Meshes meshes = One(Torus());
    meshes.push_back(SurfacesPlate());
    meshes.push_back(TriangleSoup());
    return meshes;
}

void Polygon(Detector& d) {
    d.SetPath(Lasso());
}

// The torus in the tilted frame; the plate, markable on its left half only, in the untilted
// one; the soup scaled down and flattened.
void RegisterStack(Detector& d, Meshes& meshes) {
    MStlMarkTrianglesByMasks* const none = nullptr;
    d.AddStlAndTransformation(meshes[0].get(), Frame(true), MMTransformMatrix(), true, none);
    d.AddStlAndTransformation(meshes[1].get(), Frame(false), MMTransformMatrix(), false, none);
    d.SetMarkableSurface(*meshes[1]->GetTopSurfaces()[0]);
    MMTransformMatrix shrink;
    shrink.MakeScale3D(0.6, 0.6, 0.3);
    d.AddStlAndTransformation(meshes[2].get(), Frame(false).PostMultiply(shrink),
                              MMTransformMatrix(), true, none);
}

TEST(VisibilityRegression, MarkedSetsOfVariedScenesStayTheSame) {
    const std::function<Meshes()> torus = [] { return One(Torus()); };
    const std::function<Meshes()> soup = [] { return One(TriangleSoup()); };
    const std::vector<Scene> scenes{
        {"torus", torus, false, Polygon, 3802, 2597993718034037472ull},
        {"torus tilted", torus, true, Polygon, 4142, 8645852402600560838ull},
        {"torus through", torus, true,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkThrough(true);
         },
         6819, 17098710620738341783ull},
        {"torus brush", torus, true,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(3.5);
             d.SetPath({{20, 30}, {45, 62}, {58, 61}, {80, 35}});
         },
         1439, 24862232648671689ull},
        {"torus disc", torus, true,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(9);
             d.SetPath({{38, 57}});
         },
         564, 16096132646066886765ull},
        {"torus sparse lines", torus, true,
         [](Detector& d) {
             Polygon(d);
             d.SetPixelProportion(0.7);
         },
         4015, 5833693102993217801ull},
        {"torus planes", torus, true,
         [](Detector& d) {
             Polygon(d);
             d.AddClippingPlane({0.2, 1, 0.1, 300});
             d.AddClippingPlane({-1, 0.3, 0, 1200});
         },
         1950, 8679565064327404203ull},
        {"torus flipped through", torus, true,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkThrough(true);
             d.SetMarkFlippedTriangles(true);
         },
         13700, 12292912688526996819ull},
        {"soup", soup, false,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkFlippedTriangles(true);
         },
         288, 8150386131319516191ull},
        {"soup tilted", soup, true, Polygon, 147, 17842344024908943987ull},
        {"soup through", soup, false,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkThrough(true);
             d.SetMarkFlippedTriangles(true);
         },
         332, 8206384970433757866ull},
        {"soup brush", soup, false,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(2.5);
             d.SetPath({{20, 50}, {80, 50}, {50, 20}});
             d.SetMarkFlippedTriangles(true);
         },
         97, 8266986488447206064ull},
        {"soup planes flipped", soup, true,
         [](Detector& d) {
             Polygon(d);
             d.AddClippingPlane({0.1, -1, 0.3, 900});
             d.AddClippingPlane({1, 0.2, -0.4, 0});
             d.AddClippingPlane({-0.3, 0.4, 1, 200});
             d.SetMarkFlippedTriangles(true);
         },
         39, 2464245187362536504ull},
        {"stack", Stack, false, Polygon, 3281, 756991826208256967ull, RegisterStack},
        {"stack planes", Stack, false,
         [](Detector& d) {
             Polygon(d);
             d.AddClippingPlane({0.5, 1, 0, 0});
             d.AddClippingPlane({0, 0, 1, -200});
         },
         1707, 15802357315118280372ull, RegisterStack},
        {"stack flipped", Stack, false,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkFlippedTriangles(true);
         },
         3314, 5194084744573117686ull, RegisterStack},
        {"stack all surfaces", Stack, false,
         [](Detector& d) {
             Polygon(d);
             d.SetCheckSurfaceVisibility(false);
         },
         3248, 10217932282903862178ull, RegisterStack},
        {"stack through", Stack, false,
         [](Detector& d) {
             Polygon(d);
             d.SetMarkThrough(true);
         },
         7080, 14690501223548917745ull, RegisterStack},
        {"stack brush", Stack, false,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(2.2);
             d.SetPath({{22, 48}, {41, 40}, {47, 61}, {78, 55}});
         },
         485, 11898634115484032929ull, RegisterStack},
        {"stack brush dense", Stack, false,
         [](Detector& d) {
             d.SetMode(Detector::Brush);
             d.SetBrushRadius(7);
             d.SetPath({{45, 52}, {52, 45}});
             d.SetPixelProportion(13);
         },
         153, 765685135045856907ull, RegisterStack},
    };
    for (const Scene& s : scenes) {
        Meshes meshes = s.meshes();
        Detector detector;
        if (s.registerMeshes)
            s.registerMeshes(detector, meshes);
        else
            for (auto& mesh : meshes)
                detector.AddStlAndTransformation(mesh.get(), Frame(s.tilted), MMTransformMatrix(),
                                                 true, nullptr);
        s.configure(detector);
        detector.Operate();
        // Mesh index in the high word: a mark moving from one mesh to another shows.
        std::vector<std::uint64_t> marked;
        for (std::size_t m = 0; m < meshes.size(); ++m)
            for (MStlTriangle& t : meshes[m]->Triangles())
                if (t.IsMarked())
                    marked.push_back(m << 32 | t.GetMaskIndex());
        EXPECT_EQ(marked.size(), s.count) << s.name;
        EXPECT_EQ(Hash(marked), s.hash) << s.name;
    }
}

}  // namespace
