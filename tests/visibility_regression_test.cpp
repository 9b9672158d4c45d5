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

#include <velpick/host/mark_triangles.h>
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

// Switches a scene may turn on besides its region.
enum Switch : unsigned { kThrough = 1, kFlipped = 2, kAllSurfaces = 4 };

struct Scene {
    std::string name;
    std::function<Meshes()> meshes;
    bool tilted;
    std::function<void(Detector&)> region;
    unsigned switches;
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

/// The torus and, in front of it, a plate switched invisible whose visible sub-surface (walked
/// though its parent is skipped) is the only markable one.
Meshes TorusUnderHiddenParent() {
    Meshes meshes = One(Torus());
    meshes.push_back(std::make_unique<MStlBase>());
    MStlSurface& parent = *meshes[1]->AddSurface(nullptr);
    MStlSurface& sub = *meshes[1]->AddSurface(&parent);
    scene::addGrid(parent, {-3000, -3000, 1500}, {6000, 0, 0}, {0, 6000, 0}, 4);
    scene::addGrid(sub, {-1000, -2000, 1400}, {2500, 0, 0}, {0, 2500, 0}, 3);
    parent.SetVisible(false);
    return meshes;
}

void RegisterHiddenParent(Detector& d, Meshes& meshes) {
    d.AddStlAndTransformation(meshes[0].get(), Frame(true), MMTransformMatrix(), false, nullptr);
    d.AddStlAndTransformation(meshes[1].get(), Frame(false), MMTransformMatrix(), false, nullptr);
    MStlSurface& sub = *meshes[1]->GetTopSurfaces()[0]->GetSubSurfaces()[0];
    d.SetMarkableSurface(sub);
    d.SetMarkableSurface(sub);
}

/// The torus, the plate of surfaces and the soup, each a mesh of its own.
Meshes Stack() {
    Meshes meshes = One(Torus());
    meshes.push_back(SurfacesPlate());
    meshes.push_back(TriangleSoup());
    return meshes;
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

void Polygon(Detector& d) {
    d.SetPath(Lasso());
}

std::function<void(Detector&)> Brush(double radius, std::vector<point2d> path,
                                     double linesPerPixel = 5) {
    return [=](Detector& d) {
        d.SetMode(Detector::Brush);
        d.SetBrushRadius(radius);
        d.SetPath(path);
        d.SetPixelProportion(linesPerPixel);
    };
}

std::function<void(Detector&)> PolygonCutBy(std::vector<MMPlaneEq<double>> planes) {
    return [=](Detector& d) {
        Polygon(d);
        for (const MMPlaneEq<double>& plane : planes)
            d.AddClippingPlane(plane);
    };
}

TEST(VisibilityRegression, MarkedSetsOfVariedScenesStayTheSame) {
    const std::function<Meshes()> torus = [] { return One(Torus()); };
    const std::function<Meshes()> soup = [] { return One(TriangleSoup()); };
    const auto sparse = [](Detector& d) {
        Polygon(d);
        d.SetPixelProportion(0.7);
    };
    const std::vector<Scene> scenes{
        {"torus", torus, false, Polygon, 0, 3802, 2597993718034037472ull},
        {"torus tilted", torus, true, Polygon, 0, 4142, 8645852402600560838ull},
        {"torus through", torus, true, Polygon, kThrough, 6819, 17098710620738341783ull},
        {"torus brush", torus, true, Brush(3.5, {{20, 30}, {45, 62}, {58, 61}, {80, 35}}), 0, 1439,
         24862232648671689ull},
        {"torus disc", torus, true, Brush(9, {{38, 57}}), 0, 564, 16096132646066886765ull},
        {"torus sparse lines", torus, true, sparse, 0, 4015, 5833693102993217801ull},
        {"torus planes", torus, true, PolygonCutBy({{0.2, 1, 0.1, 300}, {-1, 0.3, 0, 1200}}), 0,
         1950, 8679565064327404203ull},
        {"torus flipped through", torus, true, Polygon, kThrough | kFlipped, 13700,
         12292912688526996819ull},
        {"soup", soup, false, Polygon, kFlipped, 288, 8150386131319516191ull},
        {"soup tilted", soup, true, Polygon, 0, 147, 17842344024908943987ull},
        {"soup through", soup, false, Polygon, kThrough | kFlipped, 332, 8206384970433757866ull},
        {"soup brush", soup, false, Brush(2.5, {{20, 50}, {80, 50}, {50, 20}}), kFlipped, 97,
         8266986488447206064ull},
        {"soup planes flipped", soup, true,
         PolygonCutBy({{0.1, -1, 0.3, 900}, {1, 0.2, -0.4, 0}, {-0.3, 0.4, 1, 200}}), kFlipped, 39,
         2464245187362536504ull},
        {"stack", Stack, false, Polygon, 0, 3281, 756991826208256967ull, RegisterStack},
        {"stack planes", Stack, false, PolygonCutBy({{0.5, 1, 0, 0}, {0, 0, 1, -200}}), 0, 1707,
         15802357315118280372ull, RegisterStack},
        {"stack flipped", Stack, false, Polygon, kFlipped, 3314, 5194084744573117686ull,
         RegisterStack},
        {"stack all surfaces", Stack, false, Polygon, kAllSurfaces, 3248, 10217932282903862178ull,
         RegisterStack},
        {"stack through", Stack, false, Polygon, kThrough, 7080, 14690501223548917745ull,
         RegisterStack},
        {"stack brush", Stack, false, Brush(2.2, {{22, 48}, {41, 40}, {47, 61}, {78, 55}}), 0, 485,
         11898634115484032929ull, RegisterStack},
        {"stack brush dense", Stack, false, Brush(7, {{45, 52}, {52, 45}}, 13), 0, 153,
         765685135045856907ull, RegisterStack},
        {"hidden parent", TorusUnderHiddenParent, false, Polygon, 0, 18, 15496327388993318692ull,
         RegisterHiddenParent},
        {"hidden parent shown", TorusUnderHiddenParent, false, Polygon, kAllSurfaces, 0,
         14695981039346656037ull, RegisterHiddenParent},
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
        s.region(detector);
        detector.SetMarkThrough(s.switches & kThrough);
        detector.SetMarkFlippedTriangles(s.switches & kFlipped);
        detector.SetCheckSurfaceVisibility(!(s.switches & kAllSurfaces));
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
