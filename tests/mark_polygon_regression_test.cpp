// The z-buffer picker's marked sets on a few dozen varied scenes, recorded as a count and a
// hash per scene. Any change in which triangles a scene marks (or in the order and number of
// sink calls) fails here; a deliberate change of behaviour means recording the table anew.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/mark_polygon.h>
#include "support/noisy_torus.h"
#include "support/scene_builders.h"

using VelSDK::Math::point2d;

namespace {

constexpr double kPixelsPerUnit = 10.0;

/// FNV-1a over 64-bit words, and their count.
struct Digest {
    std::size_t count = 0;
    std::uint64_t hash = 0xCBF29CE484222325ull;

    void Add(std::uint64_t word) {
        for (int byte = 0; byte < 8; ++byte)
            hash = (hash ^ ((word >> (8 * byte)) & 0xFF)) * 0x100000001B3ull;
        ++count;
    }
    bool operator==(const Digest& other) const {
        return hash == other.hash && count == other.count;
    }
};

/// Records every call in order, with its mesh, triangle and direction.
struct RecordingSink : IStlMarkTriangles {
    RecordingSink(Digest& digest, std::uint64_t mesh) : digest(digest), mesh(mesh) {}
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override { digest.Add(mesh << 40 | 1ull << 32 | t.GetMaskIndex()); }
    void Unmark(MStlTriangle& t) override {
        digest.Add(mesh << 40 | 2ull << 32 | t.GetMaskIndex());
    }

    Digest& digest;
    std::uint64_t mesh;
};

struct Placed {
    std::unique_ptr<MStlBase> mesh;
    MMTransformMatrix placement;
    bool whole = true;
    MStlSurface* markable = nullptr;
};

MMTransformMatrix Placement(scene::V offset, scene::V turnTo = {0, 0, 1}) {
    MMTransformMatrix turn, shift;
    turn.MakeRotationInPlane({0, 0, 1}, {turnTo.x, turnTo.y, turnTo.z}, {0, 0, 0});
    shift.MakeTranslation({offset.x, offset.y, offset.z});
    shift.PostMultiply(turn);
    return shift;
}

/// Random triangles of varied size and depth, with exact duplicates (depth ties), slivers,
/// invisible triangles and a hidden second surface.
std::unique_ptr<MStlBase> TriangleSoup(unsigned seed = 7u, int triangles = 400) {
    std::mt19937 random(seed);
    const auto uniform = [&](double low, double high) {
        return low + (high - low) * (static_cast<double>(random()) / 4294967295.0);
    };
    auto mesh = std::make_unique<MStlBase>();
    MStlSurface* surfaces[2] = {mesh->AddSurface(nullptr), mesh->AddSurface(nullptr)};
    surfaces[1]->SetVisible(false);
    scene::V last[3] = {};
    for (int i = 0; i < triangles; ++i) {
        scene::V corner[3];
        if (i % 10 == 9) {
            std::copy(last, last + 3, corner);
        } else {
            const scene::V centre{uniform(-4500, 4500), uniform(-4500, 4500), uniform(-3000, 3000)};
            const double size = uniform(150, 2500);
            for (scene::V& c : corner)
                c = centre + scene::V{uniform(-size, size), uniform(-size, size),
                                      uniform(-size, size) * 0.3};
            if (i % 7 == 3)
                corner[2] = 0.5 * (corner[0] + corner[1]) + scene::V{3, -2, 1};
        }
        std::copy(corner, corner + 3, last);
        MStlTriangle* t =
            scene::addTriangle(*surfaces[i % 5 == 4], corner[0], corner[1], corner[2]);
        if (t && i % 13 == 6)
            t->SetVisible(false);
    }
    return mesh;
}

std::vector<Placed> MeshSet(int which) {
    std::vector<Placed> set;
    const auto add = [&](std::unique_ptr<MStlBase> mesh, MMTransformMatrix placement = {}) {
        set.push_back({std::move(mesh), placement});
        return &set.back();
    };
    switch (which) {
        case 0:
            add(scene::ToHostMesh(scene::NoisyTorus(40, 24, 3300, 1300, 0.15)));
            break;
        case 1: {
            add(scene::uvSphere({0, 0, 0}, 3000));
            Placed* plate = add(scene::plateWithHole(6000, 1500, 5000));
            plate->whole = false;  // it hides the sphere but only its first surface is marked
            plate->markable = plate->mesh->GetTopSurfaces().front().get();
            break;
        }
        case 2:
            add(TriangleSoup());
            break;
        default:
            add(scene::cube({0, 0, 0}, 1800, 6), Placement({-1500, 800, 1000}, {0.3, 0.4, 0.866}));
            add(scene::ToHostMesh(scene::NoisyTorus(30, 16, 2600, 900, 0.3, 99u)),
                Placement({1200, -900, -500}, {-0.5, 0.1, 0.86}));
            break;
    }
    return set;
}

MMTransformMatrix View(int which) {
    MMTransformMatrix scale, tilt;
    scale.MakeScale1D(0.001);
    const VelSDK::Math::point3d to[] = {{0, -0.5, 0.866}, {0.6, 0.3, 0.742}, {0, 0, 1}};
    tilt.MakeRotationInPlane({0, 0, 1}, to[which], {0, 0, 0});
    scale.PostMultiply(tilt);
    return scale;
}

struct Region {
    std::vector<point2d> points;
    std::size_t brushRadius = 0;  // 0: a lasso polygon
};

Region RegionShape(int which) {
    switch (which) {
        case 0:
            return {{{-5, -5}, {5, -5}, {5, 5}, {-5, 5}}};
        case 1: {  // a concave seven-pointed star
            Region star;
            for (int k = 0; k < 14; ++k) {
                const double angle = std::acos(-1.0) * k / 7, r = k % 2 ? 2.0 : 5.0;
                star.points.push_back({r * std::cos(angle) + 0.3, r * std::sin(angle) - 0.2});
            }
            return star;
        }
        case 2:  // a self-crossing bow tie
            return {{{-5, -4}, {4.5, 3.5}, {4.5, -4}, {-5, 4.2}}};
        case 3:
            return {{{-4, -3}, {-1, 2}, {2, -2.5}, {4, 3}}, 1};
        default:
            return {{{0.5, 0.3}}, 2};
    }
}

struct Options {
    const char* name;
    bool culling = false, through = false, unmark = false, sink = false, skipHidden = false;
    int planes = 0;
    double tolerance = 0.05;
};

const Options kOptions[] = {
    {"plain"},
    {"culling", true},
    {"through", false, true},
    {"one plane", false, false, false, false, false, 1},
    {"two planes, culling", true, false, false, false, false, 2},
    {"two planes, through", false, true, false, false, false, 2},
    {"wide tolerance, culling", true, false, false, false, false, 0, 1.0},
    {"unmark", false, false, true},
    {"sink, plane, hidden surfaces", false, false, false, true, true, 1},
};
constexpr int kMeshSets = 4, kOptionCount = sizeof(kOptions) / sizeof(kOptions[0]);

/// Runs the picker with `threads` on the meshes and digests what it marked.
Digest RunScene(std::vector<Placed> meshes, const Options& o, const MMTransformMatrix& view,
                const Region& region, int threads) {
    Digest digest;
    std::vector<std::unique_ptr<RecordingSink>> sinks;
    MStlBaseOperatorMarkPolygon picker(kPixelsPerUnit, o.tolerance, o.skipHidden);
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        Placed& placed = meshes[i];
        if (o.unmark)
            for (MStlTriangle& t : placed.mesh->Triangles())
                t.Mark();
        sinks.push_back(o.sink ? std::make_unique<RecordingSink>(digest, i) : nullptr);
        picker.AddStl(placed.mesh.get(), &view, &placed.placement, placed.whole,
                      sinks.back().get());
        picker.SetMarkableSurface(placed.markable);
    }
    const MMPlaneEq<double> planes[] = {{1, 0.3, 0, -500}, {0, -0.2, 1, 800}};
    for (int k = 0; k < o.planes; ++k)
        picker.AddClippingPlane(planes[k]);
    picker.SetBackFaceCulling(o.culling);
    picker.SetMarkThrough(o.through);
    picker.SetUnmark(o.unmark);
    picker.SetThreads(threads);
    if (region.brushRadius)
        picker.SetBrushPath(region.points, region.brushRadius);
    else
        picker.SetPolygon(region.points);
    EXPECT_TRUE(picker.operate());

    if (!o.sink)
        for (std::size_t i = 0; i < meshes.size(); ++i)
            for (MStlTriangle& t : meshes[i].mesh->Triangles())
                if (t.IsMarked())
                    digest.Add(std::uint64_t{i} << 40 | t.GetMaskIndex());
    return digest;
}

// Recorded from the straightforward picker (one record per covered triangle, 16-byte depth
// cells, every call through the host interfaces), in the order meshSet × option.
const Digest kRecorded[kMeshSets * kOptionCount] = {
    {1072, 0x4a9646973fc40f8eull}, {562, 0xfe18076850394040ull},  {967, 0xd0dca3a68c79af8eull},
    {314, 0xea0e971e368ba6e7ull},  {157, 0x25bdb3d9e5f4492ull},   {680, 0x9aa411e123e5d208ull},
    {588, 0xe2ee150ec0bc3f2cull},  {1454, 0x630b13066ce4488full}, {288, 0x724e50ce2ffec7f9ull},
    {578, 0x815e6af67cc3ce1bull},  {185, 0x80c20542d366335eull},  {1690, 0xa25e36c3f4e04e35ull},
    {175, 0x3563e4cccf6ad832ull},  {257, 0xc1c5273d733eaeadull},  {425, 0xd185dd90bea53935ull},
    {370, 0x4f1b873a3b2b3651ull},  {2353, 0x4a1d560fb6e78b74ull}, {414, 0xd7b1e464a9e13b56ull},
    {145, 0x97c326379a6189aeull},  {86, 0x4aece0528a9bc095ull},   {116, 0x3ae1c636eb09d798ull},
    {172, 0xe4429701fde97e18ull},  {35, 0x9971a073f3684bf2ull},   {88, 0x9d7e273e8ef8dd52ull},
    {89, 0xd01e6addd54213bbull},   {328, 0xe31c28400ced50d2ull},  {148, 0x24479e0e14bdbc6full},
    {423, 0x72aabf4497f17771ull},  {166, 0x2731c412676038c1ull},  {1392, 0xfd1786516e68ebd5ull},
    {247, 0xbb046d3d5b63103cull},  {152, 0x84713508b29c5b40ull},  {404, 0x3a6b1c0c5bf631a6ull},
    {141, 0x5254fa6ec9d134b7ull},  {705, 0x52e360a15c626d5cull},  {236, 0xf9c26c1f36ca7618ull},
};

// Every scene of the table on one thread and on two, drawn in two bands of rows.
TEST(MarkPolygonRegression, EveryScenePicksTheRecordedSet) {
    for (int threads : {1, 2})
        for (int scene = 0; scene < kMeshSets * kOptionCount; ++scene) {
            const int meshSet = scene / kOptionCount, option = scene % kOptionCount;
            const Digest digest =
                RunScene(MeshSet(meshSet), kOptions[option], View((2 * meshSet + option) % 3),
                         RegionShape((meshSet + option) % 5), threads);
            EXPECT_TRUE(digest == kRecorded[scene])
                << threads << " threads, mesh set " << meshSet << ", " << kOptions[option].name
                << ": now {" << digest.count << ", 0x" << std::hex << digest.hash << "ull},";
        }
}

// Random soups of over one mesh chunk (so that the per-triangle steps run in parallel too),
// random views and regions, with and without depth: two threads mark what one marks.
TEST(MarkPolygonRegression, TwoThreadsMarkWhatOneMarksOnRandomScenes) {
    std::mt19937 random(2024u);
    for (int trial = 0; trial < 12; ++trial) {
        const unsigned seed = random();
        const auto soup = [seed] {
            std::vector<Placed> set;
            set.push_back({TriangleSoup(seed, 20000), Placement({0, 0, 0})});
            return set;
        };
        const Options& options = kOptions[random() % 3];  // plain, culling, through
        const MMTransformMatrix view = View(static_cast<int>(random() % 3));
        const Region region = RegionShape(static_cast<int>(random() % 5));
        const Digest one = RunScene(soup(), options, view, region, 1);
        EXPECT_GT(one.count, 0u) << "trial " << trial;
        EXPECT_TRUE(one == RunScene(soup(), options, view, region, 2))
            << "trial " << trial << ", " << options.name;
    }
}

}  // namespace
