// The visibility detector's marked sets on varied scenes, recorded as a count and a hash of
// the marked triangle indices per scene. Any change in which triangles a scene marks fails
// here; a deliberate change of behaviour means recording the table anew.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <tuple>
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
        for (int byte = 0; byte < 8; ++byte)
            hash = (hash ^ ((word >> (8 * byte)) & 0xFF)) * 0x100000001B3ull;
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
// Builds a scene's meshes and registers them with the detector.
using MeshSetup = std::function<Meshes(Detector&)>;

// Switches a scene may turn on besides its region; kNearest judges by depth within 0.3.
enum Switch : unsigned { kThrough = 1, kFlipped = 2, kAllSurfaces = 4, kNearest = 8 };

// The meshes, the region, the switches, and the marked count and hash recorded.
using Scene =
    std::tuple<MeshSetup, std::function<void(Detector&)>, unsigned, std::size_t, std::uint64_t>;

std::unique_ptr<MStlBase> Torus() {
    return scene::ToHostMesh(scene::NoisyTorus(80, 120, 2500, 1000, 0.2));
}

// One mesh, every surface markable, in the screen frame tilted or not.
MeshSetup Alone(std::unique_ptr<MStlBase> (*build)(), bool tilted) {
    return [=](Detector& d) {
        Meshes meshes;
        meshes.push_back(build());
        d.AddStlAndTransformation(meshes[0].get(), Frame(tilted), {}, true, nullptr);
        return meshes;
    };
}

/// The torus in the tilted frame and, in the untilted one, a plate over part of the torus and
/// in front of it, of three surfaces: a left half, markable alone, a right half and, under the
/// right half, a sub-surface switched invisible; and the soup scaled down and flattened.
Meshes Stack(Detector& d) {
    Meshes meshes;
    meshes.push_back(Torus());
    MStlBase& plate = *meshes.emplace_back(std::make_unique<MStlBase>());
    meshes.push_back(TriangleSoup());
    MStlSurface &left = *plate.AddSurface(nullptr), &right = *plate.AddSurface(nullptr);
    MStlSurface& hidden = *plate.AddSurface(&right);
    scene::addGrid(left, {-2000, -1500, 1300}, {1500, 0, 0}, {0, 3000, 200}, 5);
    scene::addGrid(right, {-500, -1500, 1300}, {1500, 0, 0}, {0, 3000, -300}, 5);
    scene::addGrid(hidden, {-500, -1500, 1600}, {1500, 0, 0}, {0, 3000, 0}, 3);
    hidden.SetVisible(false);
    d.AddStlAndTransformation(meshes[0].get(), Frame(true), {}, true, nullptr);
    d.AddStlAndTransformation(&plate, Frame(false), {}, false, nullptr);
    d.SetMarkableSurface(left);
    MMTransformMatrix shrink;
    shrink.MakeScale3D(0.6, 0.6, 0.3);
    d.AddStlAndTransformation(meshes[2].get(), Frame(false).PostMultiply(shrink), {}, true,
                              nullptr);
    return meshes;
}

/// The tilted torus and, in front of it, a plate switched invisible whose visible sub-surface
/// (walked though its parent is skipped) is the only markable one, given twice.
Meshes TorusUnderHiddenParent(Detector& d) {
    Meshes meshes;
    meshes.push_back(Torus());
    meshes.push_back(std::make_unique<MStlBase>());
    MStlSurface &parent = *meshes[1]->AddSurface(nullptr), &sub = *meshes[1]->AddSurface(&parent);
    scene::addGrid(parent, {-3000, -3000, 1500}, {6000, 0, 0}, {0, 6000, 0}, 4);
    scene::addGrid(sub, {-1000, -2000, 1400}, {2500, 0, 0}, {0, 2500, 0}, 3);
    parent.SetVisible(false);
    d.AddStlAndTransformation(meshes[0].get(), Frame(true), {}, false, nullptr);
    d.AddStlAndTransformation(meshes[1].get(), Frame(false), {}, false, nullptr);
    d.SetMarkableSurface(sub);
    d.SetMarkableSurface(sub);
    return meshes;
}

// The lasso (brush radius 0) or a brush stroke along `path`, cut by `planes`.
std::function<void(Detector&)> Region(double radius = 0, std::vector<point2d> path = Lasso(),
                                      double linesPerPixel = 5,
                                      std::vector<MMPlaneEq<double>> planes = {}) {
    return [=](Detector& d) {
        d.SetMode(radius ? Detector::Brush : Detector::Polygon);
        d.SetBrushRadius(radius);
        d.SetPath(path);
        d.SetPixelProportion(linesPerPixel);
        for (const MMPlaneEq<double>& plane : planes)
            d.AddClippingPlane(plane);
    };
}

TEST(VisibilityRegression, MarkedSetsOfVariedScenesStayTheSame) {
    const MeshSetup torus = Alone(Torus, false), tilted = Alone(Torus, true);
    const MeshSetup soup = Alone(TriangleSoup, false), tiltedSoup = Alone(TriangleSoup, true);
    const auto lasso = Region(), sparse = Region(0, Lasso(), 0.7);
    const Scene scenes[] = {
        {torus, lasso, 0, 3802, 2597993718034037472ull},
        {tilted, lasso, 0, 4142, 8645852402600560838ull},
        {tilted, lasso, kThrough, 6819, 17098710620738341783ull},
        {tilted, Region(3.5, {{20, 30}, {45, 62}, {58, 61}, {80, 35}}), 0, 1439,
         24862232648671689ull},
        {tilted, Region(9, {{38, 57}}), 0, 564, 16096132646066886765ull},
        {tilted, sparse, 0, 4015, 5833693102993217801ull},
        {tilted, Region(0, Lasso(), 5, {{0.2, 1, 0.1, 300}, {-1, 0.3, 0, 1200}}), 0, 1950,
         8679565064327404203ull},
        {tilted, lasso, kThrough | kFlipped, 13700, 12292912688526996819ull},
        {tilted, lasso, kNearest, 4166, 16908377346535379237ull},
        {soup, lasso, kFlipped, 288, 8150386131319516191ull},
        {tiltedSoup, lasso, 0, 147, 17842344024908943987ull},
        {soup, lasso, kThrough | kFlipped, 332, 8206384970433757866ull},
        {soup, Region(2.5, {{20, 50}, {80, 50}, {50, 20}}), kFlipped, 97, 8266986488447206064ull},
        {tiltedSoup,
         Region(0, Lasso(), 5, {{0.1, -1, 0.3, 900}, {1, 0.2, -0.4, 0}, {-0.3, 0.4, 1, 200}}),
         kFlipped, 39, 2464245187362536504ull},
        {soup, sparse, kNearest, 133, 3371850312850355194ull},
        {tiltedSoup, lasso, kNearest | kFlipped, 332, 13905353950184441126ull},
        {Stack, lasso, 0, 3281, 756991826208256967ull},
        {Stack, Region(0, Lasso(), 5, {{0.5, 1, 0, 0}, {0, 0, 1, -200}}), 0, 1707,
         15802357315118280372ull},
        {Stack, lasso, kFlipped, 3314, 5194084744573117686ull},
        {Stack, lasso, kAllSurfaces, 3248, 10217932282903862178ull},
        {Stack, lasso, kThrough, 7080, 14690501223548917745ull},
        {Stack, Region(2.2, {{22, 48}, {41, 40}, {47, 61}, {78, 55}}), 0, 485,
         11898634115484032929ull},
        {Stack, Region(7, {{45, 52}, {52, 45}}, 13), 0, 153, 765685135045856907ull},
        {Stack, lasso, kNearest, 3302, 10199121255163827060ull},
        {TorusUnderHiddenParent, lasso, 0, 18, 15496327388993318692ull},
        {TorusUnderHiddenParent, lasso, kAllSurfaces, 0, 14695981039346656037ull},
    };
    for (const auto& [setup, region, switches, count, hash] : scenes) {
        Detector detector;
        const Meshes meshes = setup(detector);
        region(detector);
        detector.SetMarkThrough(switches & kThrough);
        detector.SetMarkFlippedTriangles(switches & kFlipped);
        detector.SetCheckSurfaceVisibility(!(switches & kAllSurfaces));
        detector.SetRule(switches & kNearest ? Detector::VisibilityRule::Nearest
                                             : Detector::VisibilityRule::Ordered);
        detector.SetDepthTolerance(0.3);
        detector.Operate();
        // Mesh index in the high word: a mark moving from one mesh to another shows.
        std::vector<std::uint64_t> marked;
        for (std::size_t m = 0; m < meshes.size(); ++m)
            for (MStlTriangle& t : meshes[m]->Triangles())
                if (t.IsMarked())
                    marked.push_back(m << 32 | t.GetMaskIndex());
        EXPECT_TRUE(marked.size() == count && Hash(marked) == hash)
            << "recorded " << count << ", now " << marked.size() << ", " << Hash(marked);
    }
}

}  // namespace
