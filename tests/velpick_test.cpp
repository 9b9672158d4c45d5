// The velpick program end to end: scene files written here, the built program run on them, its
// JSON, picture and PLY read back and checked against geometry worked out independently. The
// pickers' own algorithms are tested in the library's tests; these check that the settings
// reach them, that outputs are written whole and that errors name the field.

#include <gtest/gtest.h>
#include <png.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include <velpick/host/feature_graphs.h>
#include "palette.h"
#include "picker.h"
#include "scene.h"
#include "scene_loader.h"
#include "support/obj_text.h"
#include "support/ray_cast_oracle.h"
#include "support/scene_builders.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Mesh = std::unique_ptr<MStlBase>;
using VelSDK::Math::point2d;

// A plate of columns × rows square cells of side `cell` model units from the origin at height
// z, two triangles per cell facing +z, row by row from the lowest y. With `halves`, the left
// and right half of each row are surfaces 0 and 1.
Mesh Plate(double cell, int columns, int rows, double z, bool halves = false) {
    auto mesh = std::make_unique<MStlBase>();
    MStlSurface* left = mesh->AddSurface(nullptr);
    MStlSurface* right = halves ? mesh->AddSurface(nullptr) : left;
    const double k = 1000 * cell;  // internal units
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c)
            scene::addQuad(c < columns / 2 ? *left : *right, {k * c, k * r, 1000 * z}, {k, 0, 0},
                           {0, k, 0});
    return mesh;
}

/// Centroid (x, y) of triangle i in model units.
point2d Centroid(const MStlBase& mesh, std::size_t i) {
    const MStlTriangle& t = mesh.GetTriangle(i);
    return {(t.GetVertex(0).x + t.GetVertex(1).x + t.GetVertex(2).x) / 3000,
            (t.GetVertex(0).y + t.GetVertex(1).y + t.GetVertex(2).y) / 3000};
}

std::string ReadText(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

struct Png {
    int width = 0, height = 0;
    std::vector<unsigned char> rgb;  // top row first
};

Png ReadPng(const fs::path& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Png png;
    if (png_image_begin_read_from_file(&image, file.c_str())) {
        image.format = PNG_FORMAT_RGB;
        png.rgb.resize(PNG_IMAGE_SIZE(image));
        if (png_image_finish_read(&image, nullptr, png.rgb.data(), 0, nullptr))
            png = {static_cast<int>(image.width), static_cast<int>(image.height), png.rgb};
    }
    return png;
}

// Screen units are model units: internal units (1000 per model unit) scaled by 1/1000.
const json kUnitView = {0.001, 0, 0, 0, 0, 0.001, 0, 0, 0, 0, 0.001, 0, 0, 0, 0, 1};

struct RunResult {
    int status;
    std::string out, err;
};

class VelpickTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/velpick_test.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { fs::remove_all(m_dir); }

    fs::path Path(const std::string& name) const { return m_dir / name; }
    void Write(const std::string& name, const std::string& text) const {
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    /// " option 'path'" for a file in the test directory.
    std::string Option(const std::string& option, const std::string& name) const {
        return " " + option + " '" + Path(name).string() + "'";
    }
    /// Writes `scene` to scene.json unless it is empty and runs velpick on that file with
    /// `options`; `limits` are shell commands run first (e.g. a ulimit).
    RunResult Run(const std::string& scene, const std::string& options = "",
                  const std::string& limits = "") const {
        if (!scene.empty())
            Write("scene.json", scene);
        const std::string command = limits + "'" + VELPICK_EXECUTABLE + "'" +
                                    Option("", "scene.json") + options + Option(">", "stdout") +
                                    Option("2>", "stderr");
        const int raw = std::system(command.c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadText(Path("stdout")),
                ReadText(Path("stderr"))};
    }
    /// Runs `scene` and returns the parsed JSON output, failing the test on any error.
    json Pick(const json& scene) const {
        const RunResult run = Run(scene.dump());
        EXPECT_EQ(run.status, 0) << run.err;
        return run.status == 0 ? json::parse(run.out) : json();
    }
    static std::set<std::size_t> Marked(const json& result, std::size_t mesh) {
        return result["meshes"][mesh]["marked"].get<std::set<std::size_t>>();
    }

    fs::path m_dir;
};

// A back plate at z = 0 over x 0..20, half covered by a front plate at z = 5 over x 0..10,
// and a rectangle over x 2..18 (y 2..8) seen straight down the z axis.
class OcclusionScene : public VelpickTest {
  protected:
    const Mesh back = Plate(1, 20, 10, 0);
    const Mesh front = Plate(1, 10, 10, 5);

    json Scene() const {
        Write("back.obj", scene::ObjText(*back));
        Write("front.obj", scene::ObjText(*front));
        return {{"meshes", {{{"file", "back.obj"}}, {{"file", "front.obj"}}}},
                {"view", kUnitView},
                {"pixel_proportion", 4},
                {"region", {{"polygon", {{2, 2}, {18, 2}, {18, 8}, {2, 8}}}}}};
    }
    // Triangles with their centroid half a cell inside the rectangle / a cell outside it.
    static bool WellInside(point2d c) { return c.x > 2.5 && c.x < 17.5 && c.y > 2.5 && c.y < 7.5; }
    static bool WellOutside(point2d c) { return c.x < 1 || c.x > 19 || c.y < 1 || c.y > 9; }
};

// Occlusion, mark-through, unmarking from all marked, a clipping plane and a brush, each
// checked against the plates' layout.
TEST_F(OcclusionScene, SettingsReachThePicker) {
    const json scene = Scene(), result = Pick(scene);
    const auto with = [&](const json& patch) {
        json changed = scene;
        changed.merge_patch(patch);
        return Pick(changed);
    };
    const json all = with({{"mark_through", true}});
    const json unmarking = with({{"start_marked", true}, {"unmark", true}});
    const json clipped = with({{"clipping_planes", {{0, 0, -1, 2500}}}});  // keeps z <= 2.5
    for (std::size_t m = 0; m < 2; ++m) {
        const MStlBase& mesh = m == 0 ? *back : *front;
        const auto visible = Marked(result, m), marked = Marked(all, m);
        for (std::size_t i = 0; i < mesh.GetNumberOfTriangles(); ++i) {
            const point2d c = Centroid(mesh, i);
            const bool hidden = m == 0 && c.x < 10.0;  // wholly behind the front plate
            if (WellInside(c) || WellOutside(c)) {
                EXPECT_EQ(marked.count(i), WellInside(c) ? 1u : 0u) << m << " triangle " << i;
                EXPECT_EQ(visible.count(i), WellInside(c) && !hidden ? 1u : 0u) << m << " " << i;
                EXPECT_EQ(Marked(clipped, m).count(i), WellInside(c) && m == 0 ? 1u : 0u);
            }
            EXPECT_NE(visible.count(i), Marked(unmarking, m).count(i)) << "unmark " << m << i;
        }
    }
    // Screen x 2..18 at 4 pixels per unit: pixels 8..72 inclusive.
    EXPECT_EQ(result["region"], json::parse(R"({"origin": [8, 8], "width": 65, "height": 25})"));
    const json brushed = with(json::parse(
        R"({"region": {"polygon": null, "brush": {"path": [[5.3, 5], [12, 5.5]], "radius": 1}}})"));
    // The box is widened by the radius: floor(21.2) − 4, floor(20) − 4; ceil(48) + 4, ceil(22) + 4.
    EXPECT_EQ(brushed["region"], json::parse(R"({"origin": [17, 16], "width": 36, "height": 11})"));
    EXPECT_FALSE(Marked(brushed, 1).empty());
}

TEST_F(OcclusionScene, PlyColoursExactlyTheMarkedFacesAndImageSizeIsKept) {
    const RunResult run =
        Run(Scene().dump(),
            Option("--ply", "pick.ply") + Option("--image", "pick.png") + " --image-size 100 50");
    ASSERT_EQ(run.status, 0) << run.err;
    const Png png = ReadPng(Path("pick.png"));
    EXPECT_EQ(std::make_pair(png.width, png.height), std::make_pair(100, 50));
    const std::string ply = ReadText(Path("pick.ply"));
    // Binary faces: a count byte, three 32-bit indices and an RGB colour.
    const std::size_t body = ply.find("end_header\n") + 11, vertices = 21 * 11 + 11 * 11,
                      faceBytes = 1 + 3 * 4 + 3;
    ASSERT_NE(ply.find("element face 600\n"), std::string::npos);
    ASSERT_NE(ply.find("element vertex " + std::to_string(vertices) + "\n"), std::string::npos);
    ASSERT_EQ(ply.size(), body + vertices * 12 + 600 * faceBytes);
    std::set<std::size_t> coloured[2];
    for (std::size_t face = 0; face < 600; ++face) {
        const char* red = &ply[body + vertices * 12 + face * faceBytes + 13];
        if (static_cast<unsigned char>(*red) == velpick::kHighlightColour.r)
            coloured[face / 400].insert(face % 400);
    }
    EXPECT_EQ(coloured[0], Marked(json::parse(run.out), 0));
    EXPECT_EQ(coloured[1], Marked(json::parse(run.out), 1));
}

// The plate's left half is surface 0, its right half surface 1.
TEST_F(VelpickTest, MarkableAndHiddenSurfacesLimitWhatIsMarked) {
    const Mesh plate = Plate(1, 10, 10, 0, /*halves=*/true);
    Write("plate.obj", scene::ObjText(*plate));
    const auto onLeft = [&](std::size_t i) { return Centroid(*plate, i).x < 5.0; };
    json scene = {{"meshes", {{{"file", "plate.obj"}, {"markable", {1}}}}},
                  {"view", kUnitView},
                  {"region", {{"polygon", {{1, 1}, {9, 1}, {9, 9}, {1, 9}}}}}};
    const json result = Pick(scene);
    // The default of 5 pixels per screen unit frames the region.
    EXPECT_EQ(result["region"], json::parse(R"({"origin": [5, 5], "width": 41, "height": 41})"));
    const std::set<std::size_t> markable = Marked(result, 0);
    scene["meshes"][0] = {{"file", "plate.obj"}, {"hidden_surfaces", {0}}};
    const std::set<std::size_t> kept = Marked(Pick(scene), 0);
    scene["skip_hidden_surfaces"] = true;
    const std::set<std::size_t> skipped = Marked(Pick(scene), 0);
    ASSERT_FALSE(markable.empty() || skipped.empty());
    EXPECT_TRUE(std::any_of(kept.begin(), kept.end(), onLeft));
    EXPECT_TRUE(std::none_of(markable.begin(), markable.end(), onLeft));
    EXPECT_TRUE(std::none_of(skipped.begin(), skipped.end(), onLeft));
}

// The camera's screen is 20 × 20 units, twice the model, at 3 pixels per unit: 60 × 60 pixels.
const json kCameraScene = json::parse(R"({"meshes": [{"file": "plate.obj"}], "pixel_proportion": 3,
    "camera": {"eye": [5, 5, 9], "target": [5, 5, 0], "up": [0, 1, 0], "height": 10,
               "screen": [20, 20]}})");

TEST_F(VelpickTest, PictureHighlightsOnlyInsideTheRegionOutline) {
    Write("plate.obj", scene::ObjText(*Plate(0.25, 40, 40, 0)));
    const std::vector<point2d> polygon = {{3, 2}, {17, 5}, {8, 16}};
    json scene = kCameraScene;
    scene["region"] = {{"polygon", {{3, 2}, {17, 5}, {8, 16}}}};
    const RunResult run = Run(scene.dump(), Option("--image", "pick.png"));
    ASSERT_EQ(run.status, 0) << run.err;
    const Png png = ReadPng(Path("pick.png"));
    ASSERT_EQ(std::make_pair(png.width, png.height), std::make_pair(60, 60));
    int highlighted = 0;
    for (int row = 0; row < png.height; ++row)
        for (int x = 0; x < png.width; ++x) {
            const unsigned char* p = &png.rgb[3 * (row * png.width + x)];
            if (p[0] <= p[2] + 40)
                continue;
            ++highlighted;
            // PNG row 0 is the top: screen y grows upwards.
            const double sx = (x + 0.5) / 3, sy = (png.height - row - 0.5) / 3;
            // A marked triangle may stick out of the region by its own size, a cell diagonal
            // of 0.25·√2 model units: 0.71 screen units.
            EXPECT_GT(oracle::PolygonRegion(polygon)(sx, sy), -0.75)
                << "highlighted pixel (" << x << ", " << row << ") is outside";
        }
    // The polygon covers 72 square screen units, 648 pixels; outline pixels are drawn over.
    EXPECT_GT(highlighted, 400);
}

// A list of cameras: one result per view, each from the same initial marks, as the scenes of
// the single cameras give; --view must name one of them.
TEST_F(VelpickTest, CameraListPicksEachViewFromTheSameInitialMarks) {
    Write("plate.obj", scene::ObjText(*Plate(0.5, 20, 20, 0)));
    json list = kCameraScene;
    list.update({{"start_marked", true}, {"unmark", true}});
    list["region"] = {{"polygon", {{2, 2}, {18, 3}, {10, 17}}}};
    list["camera"] = {list["camera"], list["camera"]};
    list["camera"][1]["eye"] = {-5, -4, 30};
    const json views = Pick(list)["views"];
    ASSERT_EQ(views.size(), 2u);
    EXPECT_NE(views[0], views[1]);
    for (std::size_t v = 0; v < 2; ++v) {
        json single = list;
        single["camera"] = list["camera"][v];
        EXPECT_EQ(views[v]["meshes"], Pick(single)["meshes"]) << "view " << v;
    }
    const RunResult beyond = Run(list.dump(), " --view 2");
    EXPECT_EQ(beyond.status, 2);
    EXPECT_NE(beyond.err.find("--view 2: the scene has 2 view(s)"), std::string::npos);
}

// Picks share no state. Threads pick two meshes loaded at two internal-unit scales with every
// picker, initial marks and feature-graph angles differing per pick, the graphs built by the
// threads themselves: each gets the marks it gets alone, and the meshes keep their own marks.
TEST_F(VelpickTest, ConcurrentPicksOnSharedMeshesAtTwoScalesGiveTheSequentialMarks) {
    Write("plate.obj", scene::ObjText(*Plate(0.5, 40, 40, 0)));
    std::vector<std::vector<Mesh>> meshes;
    std::vector<velpick::PickRequest> bases;
    std::vector<velpick::FeatureGraphGuard> guards(4);
    for (double units : {1000.0, 3.0}) {  // at 3 units the cells round to other shapes
        json document = kCameraScene;
        document.update({{"units_per_model_unit", units}, {"start_marked", true}});
        document["region"] = {{"polygon", {{2.3, 1.1}, {17.2, 4.7}, {9.6, 16.4}}}};
        const velpick::Scene scene = velpick::ParseScene(document, "scene", m_dir);
        meshes.push_back(velpick::LoadSceneMeshes(scene, "scene"));
        bases.push_back(velpick::MakePickRequest(scene, meshes.back()));
        bases.back().meshes[0].graphGuard = &guards[bases.size() - 1];
    }
    // Scale, picker, unmark, sharp angle and thickness of each pick.
    using Run = std::tuple<std::size_t, std::string, bool, double, double>;
    const std::vector<Run> runs = {{0, "zbuffer", true, 30, 0},  {1, "zbuffer", true, 30, 0},
                                   {0, "scanline", true, 30, 0}, {1, "scanline", false, 30, 0},
                                   {0, "graph", false, 10, 0},   {0, "graph", false, 50, 0.2},
                                   {1, "graph", false, 30, 0}};
    const auto pick = [&](const Run& run) {
        velpick::PickRequest request = bases[std::get<0>(run)];
        velpick::PickSettings& settings = request.settings;
        std::tie(std::ignore, settings.picker, settings.unmark, settings.graph.sharpAngleDegrees,
                 settings.graph.thickness) = run;
        const velpick::MeshPick mesh =
            velpick::MakePicker(settings.picker)->Pick(request).meshes[0];
        return std::make_pair(mesh.triangles,
                              mesh.edges ? mesh.edges->marked : std::vector<velpick::EdgeEnds>{});
    };
    std::vector<decltype(pick(runs[0]))> sequential;
    for (const Run& run : runs)
        sequential.push_back(pick(run));
    EXPECT_NE(sequential[0], sequential[1]);
    EXPECT_LT(sequential[0].first.size(), meshes[0][0]->GetNumberOfTriangles());  // unmarked some
    for (std::size_t s = 0; s < 2; ++s) {  // the threads build the graphs again
        ReleaseFeatureEdgeGraphs(*meshes[s][0]);
        bases[s].meshes[0].graphGuard = &guards[2 + s];
    }
    std::vector<std::thread> threads;
    for (std::size_t r = 0; r < runs.size(); ++r)
        threads.emplace_back([&, r] {
            for (int repeat = 0; repeat < 3; ++repeat)
                EXPECT_EQ(pick(runs[r]), sequential[r]) << "run " << r;
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& loaded : meshes)
        for (std::size_t t = 0; t < loaded[0]->GetNumberOfTriangles(); ++t)
            ASSERT_TRUE(loaded[0]->GetTriangle(t).IsMarked()) << "a pick wrote into the mesh";
}

// ---- errors: status 2, one line naming the file and the field, no output left behind ----

// The sanitizers' shadow memory needs more address space than this limit leaves.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const std::string kAddressLimit;
#else
const std::string kAddressLimit = "ulimit -v 2097152; ";
#endif

// The scene file's own rules; those the settings validator applies alike to Python arguments
// are tested with the binding. A snippet that is valid JSON is merged into a valid scene over a
// plate of two surfaces; one that is not is the whole scene file.
const char* const kSceneErrors[][2] = {
    {R"({"meshes": [}")", "malformed JSON"},
    {R"({"depth_tolerance": 1e999})", "malformed JSON"},
    {R"({"meshes":[{"file":"plate.obj","placement":[1]}]})", "meshes[0].placement: expected 16"},
    {R"({"camera": null, "view": [1,0,0,0, 0,1,0,0, 0,0,0,0, 0,0,0,1]})",
     "view: the matrix is not"},
    {R"({"pixel_proportion": 0})", "pixel_proportion: expected a number > 0"},
    {R"({"region": {"polygon": null, "brush": {"path": [], "radius": 1}}})",
     "region.brush.path: expected at least 1 point, got 0"},
    {R"({"meshes": [{"file": "absent.obj"}]})", "meshes[0].file: "},
    {R"({"meshes":[{"file":"plate.obj","markable":[0,3]}]})", "meshes[0].markable[1]: surface 3"},
    {R"({"camera": {"up": [0, 0, 2]}})", "camera.up: zero or parallel to the viewing direction"},
    {R"({"camera": {"eye": [1e308, 5, 0], "target": [-1e308, 5, 0]}})", "camera.eye: too far"},
    {R"({"camera": {"height": 1e-300, "screen": [1e300, 1e300]}})",
     "camera: the view matrix leaves"},
    // Control characters are echoed escaped, and a NUL does not cut a key short.
    {R"({"meshes\u0000x": 1})", "meshes\\0x: unknown field"},
    {R"({"mark\nthrough": true})", "mark\\nthrough: unknown field"},
    {R"({"picker": "z\rbuffer\u0001"})", "picker: unknown picker \"z\\rbuffer\\x01\""},
    {R"({"meshes": [{"file": "plate.obj\u0000.stl"}]})",
     "meshes[0].file: the file name \"plate.obj\\0"},
    // Scaled by 1e306 the meshes' screen bounds overflow: the pick runs, the picture cannot.
    {R"({"camera": null, "view": [1e306,0,0,0, 0,1e306,0,0, 0,0,1e306,0, 0,0,0,1]})",
     "view: the picture cannot frame the scene"},
    {R"({"graph": {"angle": 30}})", "graph.angle: unknown field"},
    {R"({"scanline_rule": 1})", "scanline_rule: expected a string, got 1"},
    {R"({"picker": "graph", "region": {"polygon": null, "brush": {"path": [[1, 1]], "radius": 1}}})",
     "region: the graph picker takes a polygon"},
    {R"({"region": {"polygon": [[0, 0], [1e5, 0], [0, 1e5]]}})",
     "region: the selection raster of 300001 x 300001 pixels"},
    // Under the cell limit, but the rasters need about 19 GB: more than the machine has, or
    // than the address space velpick is given here. Once a bare std::bad_alloc.
    {R"({"region": {"polygon": [[0, 0], [15333, 0], [0, 15333]]}})",
     "region: the selection raster of 46000 x 46000 pixels"},
};

TEST_F(VelpickTest, BadScenesFailNamingFileAndFieldAndCommitNoOutput) {
    Write("plate.obj", scene::ObjText(*Plate(1, 10, 10, 0, /*halves=*/true)));
    json valid = kCameraScene;
    valid["region"] = {{"polygon", {{1, 1}, {9, 1}, {5, 9}}}};
    fs::create_directory(Path("picture"));
    const auto fails = [&](const std::string& scene, const std::string& image,
                           const std::string& message) {
        const RunResult run = Run(
            scene,
            Option("--output", "out.json") + Option("--image", image) + Option("--ply", "out.ply"),
            kAddressLimit);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_TRUE(run.out.empty());
        for (const auto& entry : fs::directory_iterator(m_dir)) {
            const std::string name = entry.path().filename().string();
            EXPECT_TRUE(name.rfind("out", 0) != 0 && name[0] != '.') << "left behind: " << name;
        }
    };
    for (const auto& [snippet, field] : kSceneErrors) {
        SCOPED_TRACE(snippet);
        if (kAddressLimit.empty() && std::string(field).find("46000") != std::string::npos)
            continue;
        json scene = valid;
        if (json::accept(snippet))
            scene.merge_patch(json::parse(snippet));
        fails(json::accept(snippet) ? scene.dump() : snippet, "out.png",
              Path("scene.json").string() + ": " + field);
    }
    fs::remove(Path("scene.json"));
    fails("", "out.png", Path("scene.json").string() + ": no such file");
    // A valid scene whose picture cannot replace a folder: no output is committed.
    fails(valid.dump(), "picture", Path("picture").string() + ": cannot replace");
}

}  // namespace
