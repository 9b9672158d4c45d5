// The velpick program end to end: scene files written here, the built program run on them, its
// JSON, picture and PLY read back and checked against geometry worked out independently.

#include <gtest/gtest.h>
#include <png.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include <velpick/host/feature_graphs.h>
#include "camera_view.h"
#include "palette.h"
#include "picker.h"
#include "scene.h"
#include "scene_loader.h"
#include "support/obj_text.h"
#include "support/ray_cast_oracle.h"
#include "support/scene_builders.h"
#include "view_batch.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

using Mesh = std::unique_ptr<MStlBase>;
using VelSDK::Math::point2d;

// A plate of columns × rows square cells of side `cell` model units from the origin at height
// z, two triangles per cell facing +z, cells row by row from the lowest y. With `halves`, the
// left and right half of each row are surfaces 0 and 1.
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

json Points(const std::vector<point2d>& points) {
    json array = json::array();
    for (const point2d& p : points)
        array.push_back({p.x, p.y});
    return array;
}

struct RunResult {
    int status;
    std::string out, err;
};

std::string ReadText(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool InsideRectangle(point2d p, double x0, double y0, double x1, double y1) {
    return p.x > x0 && p.x < x1 && p.y > y0 && p.y < y1;
}

// Screen units are model units: internal units (1000 per model unit) scaled by 1/1000.
const json kUnitView = {0.001, 0, 0, 0, 0, 0.001, 0, 0, 0, 0, 0.001, 0, 0, 0, 0, 1};

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

    /// Runs velpick with `arguments`; `limits` are shell commands run first (e.g. a ulimit).
    RunResult Run(const std::string& arguments, const std::string& limits = "") const {
        const std::string command = limits + "'" + VELPICK_EXECUTABLE + "' " + arguments + " >'" +
                                    Path("stdout").string() + "' 2>'" + Path("stderr").string() +
                                    "'";
        const int raw = std::system(command.c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadText(Path("stdout")),
                ReadText(Path("stderr"))};
    }

    /// " option 'path'" for an output file in the test directory.
    std::string Option(const std::string& option, const std::string& name) const {
        return " " + option + " '" + Path(name).string() + "'";
    }
    RunResult RunScene(const json& scene, const std::string& options = "") const {
        Write("scene.json", scene.dump());
        return Run("'" + Path("scene.json").string() + "'" + options);
    }

    /// Runs `scene` and returns the parsed JSON output, failing the test on any error.
    json Pick(const json& scene) {
        const RunResult run = RunScene(scene);
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

    json Scene() {
        Write("back.obj", scene::ObjText(*back));
        Write("front.obj", scene::ObjText(*front));
        return {{"meshes", {{{"file", "back.obj"}}, {{"file", "front.obj"}}}},
                {"view", kUnitView},
                {"pixel_proportion", 4},
                {"region", {{"polygon", {{2, 2}, {18, 2}, {18, 8}, {2, 8}}}}}};
    }
    // Triangles well inside the rectangle (centroid at least half a cell in).
    static bool WellInside(point2d c) { return InsideRectangle(c, 2.5, 2.5, 17.5, 7.5); }
    // Triangles well outside the rectangle (centroid more than a cell out).
    static bool WellOutside(point2d c) { return !InsideRectangle(c, 1, 1, 19, 9); }
};

TEST_F(OcclusionScene, HiddenTrianglesStayUnmarkedAndMarkThroughTakesThem) {
    const json scene = Scene();
    const json result = Pick(scene);
    const std::set<std::size_t> visible = Marked(result, 0), frontMarked = Marked(result, 1);
    json through = scene;
    through["mark_through"] = true;
    const std::set<std::size_t> all = Marked(Pick(through), 0);
    for (std::size_t i = 0; i < back->GetNumberOfTriangles(); ++i) {
        const point2d c = Centroid(*back, i);
        const bool hidden = c.x < 10.0;  // wholly behind the front plate
        if (WellInside(c)) {
            EXPECT_EQ(all.count(i), 1u) << "mark-through misses triangle " << i;
            EXPECT_EQ(visible.count(i), hidden ? 0u : 1u) << "triangle " << i;
        }
        if (WellOutside(c)) {
            EXPECT_EQ(all.count(i), 0u) << "triangle " << i << " lies outside the region";
        }
    }
    for (std::size_t i : visible)
        EXPECT_EQ(all.count(i), 1u) << "a visible pick is part of the mark-through pick";
    for (std::size_t i = 0; i < front->GetNumberOfTriangles(); ++i) {
        const point2d c = Centroid(*front, i);
        if (WellInside(c) || WellOutside(c)) {
            EXPECT_EQ(frontMarked.count(i), WellInside(c) ? 1u : 0u) << "front triangle " << i;
        }
    }
    EXPECT_EQ(result["picker"], "zbuffer");
    EXPECT_EQ(result["meshes"][0]["file"], "back.obj");
    EXPECT_EQ(result["meshes"][0]["triangles"], back->GetNumberOfTriangles());
    // Screen x 2..18 at 4 pixels per unit: pixels 8..72 inclusive.
    EXPECT_EQ(result["region"]["origin"], json({8, 8}));
    EXPECT_EQ(result["region"]["width"], 65);
    EXPECT_EQ(result["region"]["height"], 25);
    EXPECT_TRUE(result["timing_ms"]["load"].is_number());
    EXPECT_TRUE(result["timing_ms"]["pick"].is_number());
}

TEST_F(OcclusionScene, UnmarkFromAllMarkedClearsExactlyWhatMarkingSets) {
    json scene = Scene();
    const json marking = Pick(scene);
    scene["start_marked"] = true;
    scene["unmark"] = true;
    const json unmarking = Pick(scene);
    for (std::size_t mesh = 0; mesh < 2; ++mesh) {
        const std::set<std::size_t> set = Marked(marking, mesh), left = Marked(unmarking, mesh);
        ASSERT_FALSE(set.empty());
        const std::size_t count = marking["meshes"][mesh]["triangles"];
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_NE(set.count(i), left.count(i)) << "mesh " << mesh << " triangle " << i;
    }
}

TEST_F(OcclusionScene, ClippingPlaneAndBrushRegion) {
    json scene = Scene();
    scene["clipping_planes"] = {{0, 0, -1, 2500}};  // keeps z <= 2.5 model units
    const json clipped = Pick(scene);
    EXPECT_TRUE(Marked(clipped, 1).empty());
    for (std::size_t i = 0; i < back->GetNumberOfTriangles(); ++i) {
        if (WellInside(Centroid(*back, i))) {
            EXPECT_EQ(Marked(clipped, 0).count(i), 1u) << "triangle " << i;
        }
    }

    scene.erase("clipping_planes");
    scene["region"] = {{"brush", {{"path", {{5.3, 5.0}, {12.0, 5.5}}}, {"radius", 1}}}};
    const json brushed = Pick(scene);
    // The box is widened by the radius: floor(21.2) − 4, floor(20) − 4; ceil(48) + 4, ceil(22) + 4.
    EXPECT_EQ(brushed["region"]["origin"], json({17, 16}));
    EXPECT_EQ(brushed["region"]["width"], 52 - 17 + 1);
    EXPECT_EQ(brushed["region"]["height"], 26 - 16 + 1);
    EXPECT_FALSE(Marked(brushed, 1).empty());
}

// The plate's left half is surface 0, its right half surface 1.
TEST_F(VelpickTest, MarkableAndHiddenSurfacesLimitWhatIsMarked) {
    const Mesh plate = Plate(1, 10, 10, 0, /*halves=*/true);
    Write("plate.obj", scene::ObjText(*plate));
    const auto onLeft = [&](std::size_t i) { return Centroid(*plate, i).x < 5.0; };
    json scene = {{"meshes", {{{"file", "plate.obj"}, {"markable", {1}}}}},
                  {"view", kUnitView},
                  {"region", {{"polygon", {{1, 1}, {9, 1}, {9, 9}, {1, 9}}}}}};
    const std::set<std::size_t> markable = Marked(Pick(scene), 0);
    scene["meshes"][0] = {{"file", "plate.obj"}, {"hidden_surfaces", {0}}};
    const std::set<std::size_t> kept = Marked(Pick(scene), 0);
    scene["skip_hidden_surfaces"] = true;
    const std::set<std::size_t> skipped = Marked(Pick(scene), 0);
    ASSERT_FALSE(markable.empty());
    ASSERT_FALSE(skipped.empty());
    EXPECT_TRUE(std::any_of(kept.begin(), kept.end(), onLeft));
    EXPECT_TRUE(std::none_of(markable.begin(), markable.end(), onLeft));
    EXPECT_TRUE(std::none_of(skipped.begin(), skipped.end(), onLeft));
}

// Equivalent scenes must pick the same, non-empty set.
TEST_F(VelpickTest, PlacementAndCameraPickAsTheirEquivalentViews) {
    Write("plate.obj", scene::ObjText(*Plate(0.5, 20, 20, 0)));
    const auto expectSame = [&](const json& a, const json& b) {
        const std::set<std::size_t> marked = Marked(Pick(a), 0);
        EXPECT_FALSE(marked.empty());
        EXPECT_EQ(marked, Marked(Pick(b), 0));
    };
    const json plate = {{"file", "plate.obj"}};
    {
        SCOPED_TRACE("placement P with view V equals the single view V·P");
        // P: a quarter turn about z, then 3 model units along x. V: screen = 2 × scene, turned
        // a little about x so that depth varies, shifted by (1, 2).
        const json placement = {0, -1, 0, 3000, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        const double c = 2 * std::cos(0.3) / 1000, s = 2 * std::sin(0.3) / 1000;
        const json view = {0.002, 0, 0, 1, 0, c, -s, 2, 0, s, c, 0, 0, 0, 0, 1};
        const json combined = {0, -0.002, 0, 7, c, 0, -s, 2, s, 0, c, 0, 0, 0, 0, 1};
        const json region = {{"polygon", {{-15, 4}, {0, 3}, {1, 12}, {-12, 15}}}};
        expectSame({{"meshes", {{{"file", "plate.obj"}, {"placement", placement}}}},
                    {"view", view},
                    {"region", region}},
                   {{"meshes", {plate}}, {"view", combined}, {"region", region}});
    }
    SCOPED_TRACE("a camera equals its view matrix worked out by hand");
    // From above (4, 5, 0), 10 model units fill 20 screen units with (4, 5) at the screen
    // centre (10, 10): x' = 2x + 2, y' = 2y.
    const json camera = json::parse(R"({"eye": [4, 5, 30], "target": [4, 5, 0], "up": [0, 1, 0],
                                         "height": 10, "screen": [20, 20]})");
    const json view = {0.002, 0, 0, 2, 0, 0.002, 0, 0, 0, 0, 0.002, 0, 0, 0, 0, 1};
    const json region = {{"polygon", {{5, 3}, {17, 6}, {9, 15}}}};
    expectSame({{"meshes", {plate}}, {"camera", camera}, {"region", region}},
               {{"meshes", {plate}}, {"view", view}, {"region", region}});
}

// Picks share no state: threads picking at two internal-unit scales, with both triangle
// pickers, get exactly the marks the same picks get one after another.
TEST_F(VelpickTest, ConcurrentPicksAtTwoScalesGiveTheSequentialMarks) {
    Write("plate.obj", scene::ObjText(*Plate(0.5, 40, 40, 0)));
    const auto pick = [&](double units, const std::string& picker) {
        const json document = {{"units_per_model_unit", units},
                               {"meshes", {{{"file", "plate.obj"}}}},
                               {"camera", json::parse(R"({"eye": [3, -4, 30], "target": [10, 10, 0],
                                       "up": [0, 1, 0], "height": 20, "screen": [40, 40]})")},
                               {"region", {{"polygon", {{4.3, 5.1}, {35.2, 9.7}, {21.6, 33.4}}}}},
                               {"picker", picker}};
        const velpick::Scene scene = velpick::ParseScene(document, "scene", m_dir);
        const auto meshes = velpick::LoadSceneMeshes(scene, "scene");
        return velpick::MakePicker(picker)
            ->Pick(velpick::MakePickRequest(scene, meshes))
            .meshes[0]
            .triangles;
    };
    // At 3 internal units a model unit the plate's cells round to different shapes.
    const std::vector<std::pair<double, std::string>> runs = {
        {1000.0, "zbuffer"}, {3.0, "zbuffer"}, {1000.0, "scanline"}, {3.0, "scanline"}};
    std::vector<std::vector<std::size_t>> sequential;
    for (const auto& [units, picker] : runs)
        sequential.push_back(pick(units, picker));
    EXPECT_NE(sequential[0], sequential[1]);
    std::vector<std::vector<std::vector<std::size_t>>> concurrent(runs.size());
    std::vector<std::thread> threads;
    for (std::size_t r = 0; r < runs.size(); ++r)
        threads.emplace_back([&, r] {
            for (int repeat = 0; repeat < 5; ++repeat)
                concurrent[r].push_back(pick(runs[r].first, runs[r].second));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t r = 0; r < runs.size(); ++r)
        for (const auto& marks : concurrent[r])
            EXPECT_EQ(marks, sequential[r]) << runs[r].first << " " << runs[r].second;
}

// A list of cameras: one result per view, each from the same initial marks, as the scenes of
// the single cameras give; --view must name one of them.
TEST_F(VelpickTest, CameraListPicksEachViewFromTheSameInitialMarks) {
    Write("plate.obj", scene::ObjText(*Plate(0.5, 20, 20, 0)));
    json list = {{"meshes", {{{"file", "plate.obj"}}}},
                 {"start_marked", true},
                 {"unmark", true},
                 {"region", {{"polygon", {{2, 2}, {18, 3}, {10, 17}}}}}};
    json cameras = json::array();
    std::vector<json> singles;
    for (double eyeX : {2.0, -5.0}) {
        cameras.push_back({{"eye", {eyeX, -4, 30}},
                           {"target", {5, 5, 0}},
                           {"up", {0, 1, 0}},
                           {"height", 12},
                           {"screen", {20, 20}}});
        json single = list;
        single["camera"] = cameras.back();
        singles.push_back(Pick(single)["meshes"][0]["marked"]);
    }
    list["camera"] = cameras;
    const json views = Pick(list)["views"];
    ASSERT_EQ(views.size(), 2u);
    EXPECT_NE(singles[0], singles[1]);
    for (std::size_t v = 0; v < 2; ++v)
        EXPECT_EQ(views[v]["meshes"][0]["marked"], singles[v]) << "view " << v;
    const RunResult beyond = RunScene(list, " --view 2");
    EXPECT_EQ(beyond.status, 2);
    EXPECT_NE(beyond.err.find("--view 2: the scene has 2 view(s)"), std::string::npos);
}

// One mesh shared by threads: views, pickers and initial marks differ per pick, graph picks
// build feature graphs at new angles and write thicknesses, and every pick gets the marks it
// gets alone; the mesh's own marks stay as loaded. The many-view batch gives the same rows.
TEST_F(VelpickTest, PicksSharingOneMeshGetTheirSequentialMarks) {
    Write("plate.obj", scene::ObjText(*Plate(0.5, 40, 40, 0)));
    const json document = {
        {"meshes", {{{"file", "plate.obj"}}}},
        {"start_marked", true},
        {"camera", json::parse(R"({"eye": [3, -4, 30], "target": [10, 10, 0], "up": [0, 1, 0],
                                  "height": 20, "screen": [40, 40]})")},
        {"region", {{"polygon", {{4.3, 5.1}, {35.2, 9.7}, {21.6, 33.4}}}}}};
    const velpick::Scene scene = velpick::ParseScene(document, "scene", m_dir);
    const auto meshes = velpick::LoadSceneMeshes(scene, "scene");
    velpick::FeatureGraphGuard guard;
    velpick::PickRequest base = velpick::MakePickRequest(scene, meshes);
    base.meshes[0].graphGuard = &guard;
    struct Run {
        std::string picker;
        double eyeX;
        bool unmark;
        double angle, thickness;
    };
    const std::vector<Run> runs = {{"zbuffer", 3, true, 30, 0},   {"scanline", -6, true, 30, 0},
                                   {"zbuffer", 9, false, 30, 0},  {"graph", 3, false, 10, 0},
                                   {"graph", -6, false, 50, 0.2}, {"graph", 9, false, 30, 0}};
    const auto pick = [&](const Run& run) {
        velpick::PickRequest request = base;
        request.settings.picker = run.picker;
        request.settings.unmark = run.unmark;
        request.settings.graph.sharpAngleDegrees = run.angle;
        request.settings.graph.thickness = run.thickness;
        velpick::OrthoCamera camera = std::get<velpick::OrthoCamera>(*scene.view.camera);
        camera.eye.x = run.eyeX;
        request.view = {*velpick::CameraView(camera, 1000.0), camera};
        const velpick::MeshPick mesh = velpick::MakePicker(run.picker)->Pick(request).meshes[0];
        if (!mesh.edges)
            return mesh.triangles;
        std::vector<std::size_t> ends;  // the marked edges' coordinates, flattened
        for (const velpick::EdgeEnds& edge : mesh.edges->marked)
            for (const auto& end : edge)
                ends.insert(ends.end(), end.begin(), end.end());
        return ends;
    };
    std::vector<std::vector<std::size_t>> sequential;
    for (const Run& run : runs)
        sequential.push_back(pick(run));
    EXPECT_NE(sequential[0], sequential[1]);
    EXPECT_LT(sequential[0].size(), meshes[0]->GetNumberOfTriangles());  // unmarked some
    ReleaseFeatureEdgeGraphs(*meshes[0]);
    velpick::FeatureGraphGuard freshGuard;  // the graphs are built again, now by the threads
    base.meshes[0].graphGuard = &freshGuard;
    std::vector<std::vector<std::vector<std::size_t>>> concurrent(runs.size());
    std::vector<std::thread> threads;
    for (std::size_t r = 0; r < runs.size(); ++r)
        threads.emplace_back([&, r] {
            for (int repeat = 0; repeat < 3; ++repeat)
                concurrent[r].push_back(pick(runs[r]));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t r = 0; r < runs.size(); ++r)
        for (const auto& marks : concurrent[r])
            EXPECT_EQ(marks, sequential[r]) << "run " << r;
    for (std::size_t t = 0; t < meshes[0]->GetNumberOfTriangles(); ++t)
        ASSERT_TRUE(meshes[0]->GetTriangle(t).IsMarked()) << "a pick wrote into the mesh";

    velpick::ViewBatch batch{base.meshes[0], {}, {base.settings.region}, base.settings};
    batch.settings.unmark = true;
    batch.settings.threads = 2;
    for (std::size_t r : {0, 1, 2}) {
        velpick::OrthoCamera camera = std::get<velpick::OrthoCamera>(*scene.view.camera);
        camera.eye.x = runs[r].eyeX;
        batch.views.push_back({*velpick::CameraView(camera, 1000.0), camera});
    }
    std::vector<std::vector<std::size_t>> rows(3);
    velpick::PickViews(batch, 0, 3, [&](std::size_t v, const std::vector<std::size_t>& marked) {
        rows[v] = marked;
    });
    EXPECT_EQ(rows[0], sequential[0]);
    EXPECT_EQ(rows[2], pick({"zbuffer", 9, true, 30, 0}));
}

// ---- errors: status 2, one line naming the file and the field, no output left behind ----

struct ErrorCase {
    const char* name;
    const char* patch;  // JSON merge patch applied to a valid scene
    const char* field;
};

// Rules the settings validator applies alike to Python arguments are tested once, with the
// binding; these are the scene file's own.
const ErrorCase kErrorCases[] = {
    {"ShortPlacement",
     R"({"meshes": [{"file": "plate.obj", "placement": [1,1,1,1,1,1,1,1,1,1,1,1]}]})",
     "meshes[0].placement: expected 16 numbers, got 12"},
    {"SingularView", R"({"view": [1,0,0,0, 0,1,0,0, 0,0,0,0, 0,0,0,1]})",
     "view: the matrix is not invertible"},
    {"ZeroPixelProportion", R"({"pixel_proportion": 0})",
     "pixel_proportion: expected a number > 0"},
    {"UnknownField", R"({"mark_thru": true})", "mark_thru: unknown field"},
    {"EmptyBrushPath", R"({"region": {"polygon": null, "brush": {"path": [], "radius": 1}}})",
     "region.brush.path: expected at least 1 point, got 0"},
    {"MissingMeshFile", R"({"meshes": [{"file": "absent.obj"}]})", "meshes[0].file: "},
    {"NoSuchSurface", R"({"meshes": [{"file": "plate.obj", "markable": [0, 3]}]})",
     "meshes[0].markable[1]: surface 3 does not exist"},
    {"CameraUpAlongView",
     R"({"view": null, "camera": {"eye": [0, 0, 1], "target": [0, 0, 0], "up": [0, 0, 2],
                                  "height": 1, "screen": [1, 1]}})",
     "camera.up: zero or parallel to the viewing direction"},
    {"CameraEyeBeyondDoubleRange",
     R"({"view": null, "camera": {"eye": [1e308, 0, 0], "target": [-1e308, 0, 0],
                                  "up": [0, 1, 0], "height": 1, "screen": [1, 1]}})",
     "camera.eye: too far from the target"},
    {"CameraScaleOverflows",
     R"({"view": null, "camera": {"eye": [0, 0, 1], "target": [0, 0, 0], "up": [0, 1, 0],
                                  "height": 1e-300, "screen": [1e300, 1e300]}})",
     "camera: the view matrix leaves the double range"},
    // Control characters are echoed escaped, and a NUL does not cut a key short.
    {"KeyWithNul", R"({"meshes\u0000x": 1})", "meshes\\0x: unknown field"},
    {"KeyWithLineBreak", R"({"mark\nthrough": true})", "mark\\nthrough: unknown field"},
    {"PickerNameWithLineBreak", R"({"picker": "z\rbuffer\u0001"})",
     "picker: unknown picker \"z\\rbuffer\\x01\""},
    {"MeshFileWithNul", R"({"meshes": [{"file": "plate.obj\u0000.stl"}]})",
     "meshes[0].file: the file name \"plate.obj\\0.stl\" holds a NUL"},
    // Scaled by 1e306 the meshes' screen bounds overflow: the pick runs, the picture cannot.
    {"ViewOverflowsThePicture", R"({"view": [1e306,0,0,0, 0,1e306,0,0, 0,0,1e306,0, 0,0,0,1]})",
     "view: the picture cannot frame the scene"},
    {"GraphUnknownMember", R"({"graph": {"angle": 30}})", "graph.angle: unknown field"},
    {"GraphBrush",
     R"({"picker": "graph", "region": {"polygon": null, "brush": {"path": [[1, 1]], "radius": 1}}})",
     "region: the graph picker takes a polygon"},
    {"UnknownPicker", R"({"picker": "raycast"})", "picker: unknown picker \"raycast\""},
    {"RasterOverCellLimit",
     R"({"region": {"polygon": [[0, 0], [100000, 0], [0, 100000]]}, "pixel_proportion": 1})",
     "region: the selection raster of 100001 x 100001 pixels"},
};

class VelpickErrors : public VelpickTest, public ::testing::WithParamInterface<ErrorCase> {
  protected:
    /// A valid scene over a plate of two surfaces, whose file it writes.
    json ValidScene() {
        Write("plate.obj", scene::ObjText(*Plate(1, 10, 10, 0, /*halves=*/true)));
        return {{"meshes", {{{"file", "plate.obj"}}}},
                {"view", kUnitView},
                {"region", {{"polygon", {{1, 1}, {9, 1}, {5, 9}}}}}};
    }
    void ExpectCleanFailure(const std::string& sceneArgument, const std::string& message,
                            const std::string& limits = "") {
        const RunResult run = Run(sceneArgument + Option("--output", "out.json") +
                                      Option("--image", "out.png") + Option("--ply", "out.ply"),
                                  limits);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_TRUE(run.out.empty());
        for (const auto& entry : fs::directory_iterator(m_dir)) {
            const std::string name = entry.path().filename().string();
            EXPECT_TRUE(name.rfind("out", 0) != 0 && name[0] != '.') << "left behind: " << name;
        }
    }
};

TEST_P(VelpickErrors, FailsNamingFileAndField) {
    json scene = ValidScene();
    scene.merge_patch(json::parse(GetParam().patch));
    Write("scene.json", scene.dump());
    const std::string file = Path("scene.json").string();
    ExpectCleanFailure("'" + file + "'", file + ": " + GetParam().field);
}

INSTANTIATE_TEST_SUITE_P(Scene, VelpickErrors, ::testing::ValuesIn(kErrorCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(VelpickErrors, MalformedOrMissingSceneFile) {
    Write("scene.json", R"({"meshes": [}")");
    const std::string scene = Path("scene.json").string();
    ExpectCleanFailure("'" + scene + "'", scene + ": malformed JSON");
    Write("scene.json", R"({"depth_tolerance": 1e999})");
    ExpectCleanFailure("'" + scene + "'", scene + ": malformed JSON");
    ExpectCleanFailure("'" + Path("none.json").string() + "'", "none.json: no such file");
}

TEST_F(VelpickErrors, RasterBeyondTheMemoryNamesTheRegion) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer's shadow memory needs more address space than the limit leaves";
#endif
    // 46 000 × 46 000 pixels are under the cell limit, but their rasters need about 19 GB: more
    // than the machine has, or than the 2 GB of address space velpick is given here.
    json scene = ValidScene();
    scene["pixel_proportion"] = 1;
    scene["region"] = {{"polygon", {{0, 0}, {45999, 0}, {0, 45999}}}};
    Write("scene.json", scene.dump());
    const std::string file = Path("scene.json").string();
    ExpectCleanFailure("'" + file + "'",
                       file + ": region: the selection raster of 46000 x 46000 pixels",
                       "ulimit -v 2097152; ");
}

TEST_F(VelpickErrors, NoOutputIsCommittedUntilEveryOneIsWritten) {
    Write("scene.json", ValidScene().dump());
    fs::create_directory(Path("picture"));
    const RunResult run =
        Run("'" + Path("scene.json").string() + "'" + Option("--output", "out.json") +
            Option("--image", "picture") + Option("--ply", "out.ply"));
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(Path("picture").string() + ": cannot replace"), std::string::npos)
        << run.err;
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(m_dir))
        left.push_back(entry.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left,
              (std::vector<std::string>{"picture", "plate.obj", "scene.json", "stderr", "stdout"}));
}

// ---- picture and mesh outputs ----

struct Png {
    int width = 0, height = 0;
    std::vector<unsigned char> rgb;  // PNG order: top row first
};

Png ReadPng(const fs::path& file) {
    Png png;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, file.c_str()))
        return png;
    image.format = PNG_FORMAT_RGB;
    png.rgb.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, png.rgb.data(), 0, nullptr)) {
        png.width = static_cast<int>(image.width);
        png.height = static_cast<int>(image.height);
    }
    return png;
}

TEST_F(VelpickTest, PictureHighlightsOnlyInsideTheRegionOutline) {
    Write("plate.obj", scene::ObjText(*Plate(0.25, 40, 40, 0)));
    // Screen = 2 × model, 3 pixels per screen unit: 60 × 60 pixels.
    const std::vector<point2d> polygon = {{3, 2}, {17, 5}, {8, 16}};
    json scene = json::parse(R"({"meshes": [{"file": "plate.obj"}], "pixel_proportion": 3,
        "camera": {"eye": [5, 5, 9], "target": [5, 5, 0], "up": [0, 1, 0], "height": 10,
                   "screen": [20, 20]}})");
    scene["region"] = {{"polygon", Points(polygon)}};
    const RunResult run = RunScene(scene, Option("--image", "pick.png"));
    ASSERT_EQ(run.status, 0) << run.err;
    const Png png = ReadPng(Path("pick.png"));
    ASSERT_EQ(png.width, 60);
    ASSERT_EQ(png.height, 60);

    // A marked triangle may stick out of the region by up to its own size: a cell diagonal,
    // 0.25·√2 model units, is 0.71 screen units.
    const double reach = 0.75;
    int highlighted = 0;
    for (int row = 0; row < png.height; ++row) {
        for (int x = 0; x < png.width; ++x) {
            const unsigned char* p = &png.rgb[3 * (row * png.width + x)];
            if (p[0] <= p[2] + 40)
                continue;
            ++highlighted;
            // PNG row 0 is the top: screen y grows upwards.
            const double sx = (x + 0.5) / 3, sy = (png.height - row - 0.5) / 3;
            bool near = false;
            for (double dx : {-reach, 0.0, reach})
                for (double dy : {-reach, 0.0, reach})
                    near = near || oracle::InsideEvenOdd(polygon, sx + dx, sy + dy);
            EXPECT_TRUE(near) << "highlighted pixel (" << x << ", " << row << ") is outside";
        }
    }
    // The polygon covers 72 square screen units, 648 pixels; outline pixels are drawn over.
    EXPECT_GT(highlighted, 400);
}

TEST_F(OcclusionScene, PlyColoursExactlyTheMarkedFacesAndImageSizeIsKept) {
    const RunResult run =
        RunScene(Scene(), Option("--ply", "pick.ply") + Option("--image", "pick.png") +
                              " --image-size 100 50");
    ASSERT_EQ(run.status, 0) << run.err;
    const Png png = ReadPng(Path("pick.png"));
    EXPECT_EQ(png.width, 100);
    EXPECT_EQ(png.height, 50);
    const json result = json::parse(run.out);
    const std::string ply = ReadText(Path("pick.ply"));
    const std::size_t body = ply.find("end_header\n") + 11;
    ASSERT_NE(ply.find("element face 600\n"), std::string::npos);
    const std::size_t vertices = 21 * 11 + 11 * 11;
    ASSERT_NE(ply.find("element vertex " + std::to_string(vertices) + "\n"), std::string::npos);
    constexpr std::size_t kFaceBytes = 1 + 3 * 4 + 3;
    ASSERT_EQ(ply.size(), body + vertices * 12 + 600 * kFaceBytes);

    std::set<std::size_t> coloured[2];
    for (std::size_t face = 0; face < 600; ++face) {
        const char* red = &ply[body + vertices * 12 + face * kFaceBytes + 13];
        if (static_cast<unsigned char>(*red) == velpick::kHighlightColour.r)
            coloured[face < 400 ? 0 : 1].insert(face < 400 ? face : face - 400);
    }
    EXPECT_EQ(coloured[0], Marked(result, 0));
    EXPECT_EQ(coloured[1], Marked(result, 1));
}

TEST_F(VelpickTest, DemoAndHelpNeedNoSceneFile) {
    const RunResult demo = Run("--demo" + Option("--image", "demo.png"));
    ASSERT_EQ(demo.status, 0) << demo.err;
    EXPECT_NE(demo.out.find("marked"), std::string::npos);
    EXPECT_GT(ReadPng(Path("demo.png")).width, 0);
    const RunResult help = Run("--help");
    ASSERT_EQ(help.status, 0);
    for (const char* picker : {"zbuffer", "scanline", "graph"})
        EXPECT_NE(help.out.find(picker), std::string::npos) << picker;
}

// ---- the graph picker ----

// A closed cube of side 10 model units from the origin, each face n × n cells.
Mesh Cube(int n) {
    return scene::cube({5000, 5000, 5000}, 5000, n);
}

// An oblique orthographic view: turned 25 degrees about z, then 35 about x, scaled from
// internal units to screen units; rows of a column-vector matrix.
struct ObliqueView {
    double r[3][3];

    ObliqueView() {
        const double a = 25.0 * M_PI / 180.0, b = 35.0 * M_PI / 180.0;
        const double rz[3][3] = {{cos(a), -sin(a), 0}, {sin(a), cos(a), 0}, {0, 0, 1}};
        const double rx[3][3] = {{1, 0, 0}, {0, cos(b), -sin(b)}, {0, sin(b), cos(b)}};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                r[i][j] = rx[i][0] * rz[0][j] + rx[i][1] * rz[1][j] + rx[i][2] * rz[2][j];
    }
    json Matrix() const {
        json m = json::array();
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                m.push_back(i == 3 ? (j == 3 ? 1.0 : 0.0) : (j == 3 ? 0.0 : r[i][j] * 0.001));
        return m;
    }
    /// Screen (x, y) of a model point.
    std::pair<double, double> Project(const std::array<double, 3>& p) const {
        return {r[0][0] * p[0] + r[0][1] * p[1] + r[0][2] * p[2],
                r[1][0] * p[0] + r[1][1] * p[1] + r[1][2] * p[2]};
    }
    bool FacesViewer(const VelSDK::Math::point3d& normal) const {
        return r[2][0] * normal.x + r[2][1] * normal.y + r[2][2] * normal.z > 0.0;
    }
};

// Back-face culling leaves only faces turned to the viewer. For the scan-line picker even a
// mark-through pick culls, which tells whether its screen is mirrored the right way.

// The cube's 12 edges are its feature graph (the face diagonals are flat). An edge is under
// the lasso when a point sampled along its projection falls on a pixel whose centre lies
// inside the polygon (even-odd).
class GraphPickerScene : public VelpickTest {
  protected:
    const ObliqueView view;
    const double pixels = 4.0;
    const std::vector<point2d> lasso{{-9, 1}, {-1, 1}, {-1, 9}, {-9, 9}};

    json Scene() {
        Write("cube.obj", scene::ObjText(*Cube(1)));
        return {{"meshes", {{{"file", "cube.obj"}}}},
                {"view", view.Matrix()},
                {"pixel_proportion", pixels},
                {"picker", "graph"},
                {"region", {{"polygon", Points(lasso)}}}};
    }

    // The lasso's vertices are floored to pixels; the pixel (px, py) lies in is tested at
    // its centre.
    bool PixelCentreInside(double px, double py) const {
        std::vector<point2d> pixelLasso;
        for (const point2d& p : lasso)
            pixelLasso.push_back({std::floor(p.x * pixels), std::floor(p.y * pixels)});
        return oracle::InsideEvenOdd(pixelLasso, std::floor(px) + 0.5, std::floor(py) + 0.5);
    }

    bool UnderLasso(const std::array<double, 3>& a, const std::array<double, 3>& b) const {
        const auto [ax, ay] = view.Project(a);
        const auto [bx, by] = view.Project(b);
        for (int k = 0; k <= 200; ++k) {
            const double t = k / 200.0;
            if (PixelCentreInside((ax + t * (bx - ax)) * pixels, (ay + t * (by - ay)) * pixels))
                return true;
        }
        return false;
    }

    using Edge = std::array<std::array<double, 3>, 2>;

    /// The marked edges of a mesh's result, in model units.
    static std::set<Edge> MarkedEdges(const json& mesh) {
        const auto model = [](const json& p) {
            return std::array<double, 3>{p[0].get<double>() / 1000, p[1].get<double>() / 1000,
                                         p[2].get<double>() / 1000};
        };
        std::set<Edge> marked;
        for (const json& edge : mesh["marked_edges"])
            marked.insert({model(edge[0]), model(edge[1])});
        return marked;
    }

    static std::vector<std::array<std::array<double, 3>, 2>> CubeEdges() {
        std::vector<std::array<std::array<double, 3>, 2>> edges;
        for (int axis = 0; axis < 3; ++axis) {
            for (int corner = 0; corner < 4; ++corner) {
                std::array<double, 3> a{};
                a[(axis + 1) % 3] = (corner & 1) ? 10.0 : 0.0;
                a[(axis + 2) % 3] = (corner & 2) ? 10.0 : 0.0;
                std::array<double, 3> b = a;
                b[axis] = 10.0;
                edges.push_back({a, b});
            }
        }
        return edges;
    }
};

TEST_F(GraphPickerScene, MarksTheCubeEdgesUnderTheLasso) {
    const json result = Pick(Scene());
    const json& mesh = result["meshes"][0];
    EXPECT_EQ(mesh["edges"], 12);
    EXPECT_EQ(mesh["code"], 0);
    EXPECT_EQ(mesh["marked"], json::array());
    const std::set<Edge> marked = MarkedEdges(mesh);
    std::size_t under = 0;
    for (const auto& edge : CubeEdges()) {
        under += UnderLasso(edge[0], edge[1]);
        EXPECT_EQ(marked.count(edge), UnderLasso(edge[0], edge[1]) ? 1u : 0u)
            << edge[0][0] << " " << edge[0][1] << " " << edge[0][2] << " to " << edge[1][0] << " "
            << edge[1][1] << " " << edge[1][2];
    }
    EXPECT_GT(under, 0u);
    EXPECT_LT(under, 12u);
    EXPECT_TRUE(std::is_sorted(mesh["marked_edges"].begin(), mesh["marked_edges"].end()));
}

// A plane keeping z <= 5 cuts the cube open: the top edges are cut away and never marked, the
// vertical edges are cut and count only where their kept half is under the lasso.
TEST_F(GraphPickerScene, ClippingPlaneCutsTheCubeOpen) {
    json scene = Scene();
    scene["clipping_planes"] = {{0, 0, -1, 5000}};
    scene["graph"] = {{"mark_whole_candidates", false}};
    const json mesh = Pick(scene)["meshes"][0];
    EXPECT_EQ(mesh["code"], 0);
    const std::set<Edge> marked = MarkedEdges(mesh);
    for (const auto& edge : CubeEdges()) {
        const bool top = edge[0][2] == 10.0 && edge[1][2] == 10.0;
        const bool bottom = edge[0][2] == 0.0 && edge[1][2] == 0.0;
        std::size_t expected = marked.count(edge);
        if (top)
            expected = 0;  // cut away by the plane
        else if (bottom)
            expected = UnderLasso(edge[0], edge[1]) ? 1 : 0;
        else if (!UnderLasso(edge[0], {edge[1][0], edge[1][1], 5.0}))
            expected = 0;  // only the kept half of a cut edge counts
        EXPECT_EQ(marked.count(edge), expected) << edge[0][0] << " " << edge[0][1];
    }
    // The kept half of the left vertical edge lies under the lasso and nothing hides it.
    EXPECT_EQ(marked.count({{{0, 10, 0}, {0, 10, 10}}}), 1u);
}

}  // namespace
