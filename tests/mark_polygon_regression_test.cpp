// The z-buffer picker's marked sets on a few dozen varied scenes, recorded as a count and a
// hash per scene. Any change in which triangles a scene marks (or in the order and number of
// sink calls) fails here; a deliberate change of behaviour means recording the table anew.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
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
};

/// Digests every call in order, with its mesh, triangle and direction (1 mark, 2 unmark).
struct RecordingSink : IStlMarkTriangles {
    RecordingSink(Digest& digest, std::uint64_t mesh) : digest(digest), meshBits(mesh << 40) {}
    bool IsMarked(const MStlTriangle&) const override { return false; }
    void Mark(MStlTriangle& t) override { digest.Add(meshBits | 1ull << 32 | t.GetMaskIndex()); }
    void Unmark(MStlTriangle& t) override { digest.Add(meshBits | 2ull << 32 | t.GetMaskIndex()); }

    Digest& digest;
    std::uint64_t meshBits;
};

struct Placed {
    std::unique_ptr<MStlBase> mesh;
    MMTransformMatrix placement{};
    bool whole = true;  // otherwise only the mesh's first surface is markable
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
    scene::V v[3] = {};  // the corners
    for (int i = 0; i < triangles; ++i) {
        if (i % 10 != 9) {  // otherwise a copy of the last one
            const scene::V centre{uniform(-4500, 4500), uniform(-4500, 4500), uniform(-3000, 3000)};
            const double size = uniform(150, 2500);
            for (scene::V& c : v)
                c = centre + scene::V{uniform(-size, size), uniform(-size, size),
                                      uniform(-size, size) * 0.3};
            if (i % 7 == 3)
                v[2] = 0.5 * (v[0] + v[1]) + scene::V{3, -2, 1};
        }
        MStlTriangle* t = scene::addTriangle(*surfaces[i % 5 == 4], v[0], v[1], v[2]);
        if (t && i % 13 == 6)
            t->SetVisible(false);
    }
    return mesh;
}

/// 0: a noisy torus; 1: a sphere behind a plate with a hole, of which only the plate's first
/// surface is markable; 2: a triangle soup; 3: a placed cube and a placed torus; 4: a soup of
/// over one mesh chunk (so that the per-triangle steps run in parallel too).
std::vector<Placed> MeshSet(int which, unsigned seed) {
    std::vector<Placed> set;
    if (which == 0)
        set.push_back({scene::ToHostMesh(scene::NoisyTorus(40, 24, 3300, 1300, 0.15))});
    if (which == 1) {
        set.push_back({scene::uvSphere({0, 0, 0}, 3000)});
        set.push_back({scene::plateWithHole(6000, 1500, 5000), {}, false});
    }
    if (which == 2 || which == 4)
        set.push_back({which == 2 ? TriangleSoup() : TriangleSoup(seed, 20000)});
    if (which == 3) {
        set.push_back(
            {scene::cube({0, 0, 0}, 1800, 6), Placement({-1500, 800, 1000}, {0.3, 0.4, 0.866})});
        set.push_back({scene::ToHostMesh(scene::NoisyTorus(30, 16, 2600, 900, 0.3, 99u)),
                       Placement({1200, -900, -500}, {-0.5, 0.1, 0.86})});
    }
    return set;
}

constexpr int kCulling = 1, kThrough = 2, kUnmark = 4, kSink = 8, kSkipHidden = 16,
              kFirstPlane = 32, kBothPlanes = 64 | kFirstPlane, kWideTolerance = 128;

/// Runs the picker with `threads` on a mesh set and digests what it marked.
Digest RunScene(int meshSet, int options, int viewNumber, int region, int threads,
                unsigned seed = 0) {
    std::vector<Placed> meshes = MeshSet(meshSet, seed);
    MMTransformMatrix view, tilt;
    view.MakeScale1D(0.001);
    const VelSDK::Math::point3d to[] = {{0, -0.5, 0.866}, {0.6, 0.3, 0.742}, {0, 0, 1}};
    tilt.MakeRotationInPlane({0, 0, 1}, to[viewNumber], {0, 0, 0});
    view.PostMultiply(tilt);
    Digest digest;
    std::vector<std::unique_ptr<RecordingSink>> sinks;
    MStlBaseOperatorMarkPolygon picker(kPixelsPerUnit, options & kWideTolerance ? 1.0 : 0.05,
                                       options & kSkipHidden);
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        for (MStlTriangle& t : meshes[i].mesh->Triangles())
            if (options & kUnmark)
                t.Mark();
        sinks.push_back(options & kSink ? std::make_unique<RecordingSink>(digest, i) : nullptr);
        picker.AddStl(meshes[i].mesh.get(), &view, &meshes[i].placement, meshes[i].whole,
                      sinks.back().get());
        if (!meshes[i].whole)
            picker.SetMarkableSurface(meshes[i].mesh->GetTopSurfaces().front().get());
    }
    if (options & kFirstPlane)
        picker.AddClippingPlane({1, 0.3, 0, -500});
    if (options & kBothPlanes & ~kFirstPlane)
        picker.AddClippingPlane({0, -0.2, 1, 800});
    picker.SetBackFaceCulling(options & kCulling);
    picker.SetMarkThrough(options & kThrough);
    picker.SetUnmark(options & kUnmark);
    picker.SetThreads(threads);
    // A square, a concave seven-pointed star, a self-crossing bow tie: lassos; a stroke and a
    // dab: brush paths of radius 1 and 2.
    std::vector<point2d> star;
    for (int k = 0; k < 14; ++k) {
        const double angle = std::acos(-1.0) * k / 7, r = k % 2 ? 2.0 : 5.0;
        star.push_back({r * std::cos(angle) + 0.3, r * std::sin(angle) - 0.2});
    }
    const std::vector<point2d> regions[] = {{{-5, -5}, {5, -5}, {5, 5}, {-5, 5}},
                                            star,
                                            {{-5, -4}, {4.5, 3.5}, {4.5, -4}, {-5, 4.2}},
                                            {{-4, -3}, {-1, 2}, {2, -2.5}, {4, 3}},
                                            {{0.5, 0.3}}};
    region < 3 ? picker.SetPolygon(regions[region])
               : picker.SetBrushPath(regions[region], region - 2);
    EXPECT_TRUE(picker.operate());
    for (std::size_t i = 0; i < meshes.size() && !(options & kSink); ++i)
        for (MStlTriangle& t : meshes[i].mesh->Triangles())
            if (t.IsMarked())
                digest.Add(std::uint64_t{i} << 40 | t.GetMaskIndex());
    return digest;
}

// Every scene on one thread and on two, drawn in two bands of rows. Recorded from the
// straightforward picker (one record per covered triangle, 16-byte depth cells, every call
// through the host interfaces).
TEST(MarkPolygonRegression, EveryScenePicksTheRecordedSet) {
    const struct {
        int meshSet, options, view, region;
        Digest recorded;
    } scenes[] = {
        // mesh set, options, view, region: the recorded {count, hash}
        {0, 0, 0, 0, {1072, 0x4a9646973fc40f8eull}},
        {0, kCulling, 1, 1, {562, 0xfe18076850394040ull}},
        {0, kThrough, 2, 2, {967, 0xd0dca3a68c79af8eull}},
        {0, kFirstPlane, 0, 3, {314, 0xea0e971e368ba6e7ull}},
        {0, kBothPlanes | kCulling, 1, 4, {157, 0x25bdb3d9e5f4492ull}},
        {0, kBothPlanes | kThrough, 2, 0, {680, 0x9aa411e123e5d208ull}},
        {0, kWideTolerance | kCulling, 0, 1, {588, 0xe2ee150ec0bc3f2cull}},
        {0, kUnmark, 1, 2, {1454, 0x630b13066ce4488full}},
        {0, kSink | kSkipHidden | kFirstPlane, 2, 3, {288, 0x724e50ce2ffec7f9ull}},
        {1, 0, 2, 1, {578, 0x815e6af67cc3ce1bull}},
        {1, kCulling, 0, 2, {185, 0x80c20542d366335eull}},
        {1, kThrough, 1, 3, {1690, 0xa25e36c3f4e04e35ull}},
        {1, kFirstPlane, 2, 4, {175, 0x3563e4cccf6ad832ull}},
        {1, kBothPlanes | kCulling, 0, 0, {257, 0xc1c5273d733eaeadull}},
        {1, kBothPlanes | kThrough, 1, 1, {425, 0xd185dd90bea53935ull}},
        {1, kWideTolerance | kCulling, 2, 2, {370, 0x4f1b873a3b2b3651ull}},
        {1, kUnmark, 0, 3, {2353, 0x4a1d560fb6e78b74ull}},
        {1, kSink | kSkipHidden | kFirstPlane, 1, 4, {414, 0xd7b1e464a9e13b56ull}},
        {2, 0, 1, 2, {145, 0x97c326379a6189aeull}},
        {2, kCulling, 2, 3, {86, 0x4aece0528a9bc095ull}},
        {2, kThrough, 0, 4, {116, 0x3ae1c636eb09d798ull}},
        {2, kFirstPlane, 1, 0, {172, 0xe4429701fde97e18ull}},
        {2, kBothPlanes | kCulling, 2, 1, {35, 0x9971a073f3684bf2ull}},
        {2, kBothPlanes | kThrough, 0, 2, {88, 0x9d7e273e8ef8dd52ull}},
        {2, kWideTolerance | kCulling, 1, 3, {89, 0xd01e6addd54213bbull}},
        {2, kUnmark, 2, 4, {328, 0xe31c28400ced50d2ull}},
        {2, kSink | kSkipHidden | kFirstPlane, 0, 0, {148, 0x24479e0e14bdbc6full}},
        {3, 0, 0, 3, {423, 0x72aabf4497f17771ull}},
        {3, kCulling, 1, 4, {166, 0x2731c412676038c1ull}},
        {3, kThrough, 2, 0, {1392, 0xfd1786516e68ebd5ull}},
        {3, kFirstPlane, 0, 1, {247, 0xbb046d3d5b63103cull}},
        {3, kBothPlanes | kCulling, 1, 2, {152, 0x84713508b29c5b40ull}},
        {3, kBothPlanes | kThrough, 2, 3, {404, 0x3a6b1c0c5bf631a6ull}},
        {3, kWideTolerance | kCulling, 0, 4, {141, 0x5254fa6ec9d134b7ull}},
        {3, kUnmark, 1, 0, {705, 0x52e360a15c626d5cull}},
        {3, kSink | kSkipHidden | kFirstPlane, 2, 1, {236, 0xf9c26c1f36ca7618ull}},
    };
    for (int threads : {1, 2})
        for (const auto& s : scenes) {
            const Digest digest = RunScene(s.meshSet, s.options, s.view, s.region, threads);
            EXPECT_TRUE(digest.count == s.recorded.count && digest.hash == s.recorded.hash)
                << threads << " threads, scene " << &s - scenes << ": now {" << digest.count
                << ", 0x" << std::hex << digest.hash << "ull}";
        }
}

// Random soups, views and regions, with and without depth: two threads mark what one marks.
TEST(MarkPolygonRegression, TwoThreadsMarkWhatOneMarksOnRandomScenes) {
    const int kinds[] = {0, kCulling, kThrough};
    std::mt19937 random(2024u);
    for (int trial = 0; trial < 12; ++trial) {
        const unsigned seed = random();
        const int options = kinds[random() % 3], view = random() % 3, region = random() % 5;
        const Digest one = RunScene(4, options, view, region, 1, seed);
        EXPECT_GT(one.count, 0u) << "trial " << trial;
        EXPECT_EQ(one.hash, RunScene(4, options, view, region, 2, seed).hash)
            << "trial " << trial << ", options " << options;
    }
}

}  // namespace
