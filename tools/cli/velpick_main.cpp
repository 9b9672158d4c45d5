// velpick: reads a scene (meshes, placements, camera, region, switches), runs a picker and
// writes what was picked as JSON, as a picture and as a coloured mesh.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "atomic_file.h"
#include "demo_scene.h"
#include "message_text.h"
#include "picker.h"
#include "pinhole_view.h"
#include "report_json.h"
#include "scene.h"
#include "scene_help.h"
#include "scene_image.h"
#include "scene_loader.h"
#include "scene_outputs.h"

namespace {

using namespace velpick;

constexpr int kExitError = 2;
constexpr int kMaxImageSide = 16384;

struct Options {
    std::string scene;
    std::string output;
    std::string image;
    std::vector<int> imageSize;
    std::string ply;
    std::size_t view = 0;  // the view --image and --ply show
    bool demo = false;
};

/// A usage error in the command line itself.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Stopwatch {
  public:
    double Milliseconds() const {
        const auto elapsed = std::chrono::steady_clock::now() - m_start;
        return std::chrono::duration<double, std::milli>(elapsed).count();
    }

  private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

// The picture of the pick, framed as the options ask; a view whose numbers overflow the
// frame is refused before anything is drawn.
RgbImage RenderPicture(const Options& options, const Scene& scene,
                       const std::vector<PlacedMesh>& meshes, const std::string& sourceName) {
    const std::optional<ImageFrame> frame = PictureFrame(scene, meshes, options.imageSize);
    if (!frame)
        throw SceneError(sourceName + ": " + (scene.view.camera ? "camera" : "view") +
                         ": the picture cannot frame the scene: its screen bounds overflow");
    return RenderScene(meshes, scene.view, scene.settings.region, *frame);
}

// Encoders report failures without the file's name.
template <class Encode>
std::string Encoded(const std::string& target, Encode&& encode) {
    try {
        return encode();
    } catch (const std::runtime_error& error) {
        throw OutputError(target + ": " + error.what());
    }
}

/// Makes every requested output in memory first, then writes them all under temporary names
/// and renames them only once all are complete, so that a failure leaves no output behind.
void WriteOutputs(const Options& options, const Scene& scene,
                  const std::vector<std::unique_ptr<MStlBase>>& meshes, const PickReport& report,
                  const std::string& sourceName) {
    const std::vector<PlacedMesh> placed = PlacedMeshes(scene, meshes, report, options.view);
    std::vector<OutputFile> outputs;
    if (!options.output.empty())
        outputs.push_back({options.output, FormatReport(report)});
    if (!options.image.empty()) {
        const RgbImage picture = RenderPicture(options, scene, placed, sourceName);
        outputs.push_back(
            {options.image, Encoded(options.image, [&] { return PngBytes(picture); })});
    }
    if (!options.ply.empty()) {
        outputs.push_back({options.ply, Encoded(options.ply, [&] {
                               return PlyBytes(placed, scene.settings.unitsPerModelUnit);
                           })});
    }
    CommitOutputs(outputs);
}

std::vector<PickReport::Mesh> ReportMeshes(const Scene& scene,
                                           const std::vector<std::unique_ptr<MStlBase>>& meshes,
                                           PickResult& result) {
    std::vector<PickReport::Mesh> report;
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        MeshPick& pick = result.meshes[i];
        report.push_back({scene.meshes[i].file, meshes[i]->GetNumberOfTriangles(),
                          std::move(pick.triangles), std::move(pick.edges)});
    }
    return report;
}

double GraphMilliseconds(const PickResult& result) {
    double milliseconds = 0.0;
    for (const MeshPick& mesh : result.meshes)
        milliseconds += mesh.edges ? mesh.edges->graphMilliseconds : 0.0;
    return milliseconds;
}

PickReport MakeReport(const Scene& scene, const std::vector<std::unique_ptr<MStlBase>>& meshes,
                      PickResult result) {
    PickReport report;
    report.picker = scene.settings.picker;
    report.graphMilliseconds = GraphMilliseconds(result);
    report.meshes = ReportMeshes(scene, meshes, result);
    report.region = result.region;
    return report;
}

std::uint64_t PhysicalMemoryBytes() {
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGE_SIZE);
    return pages > 0 && pageSize > 0 ? std::uint64_t(pages) * std::uint64_t(pageSize) : 0;
}

std::string Megabytes(std::uint64_t bytes) {
    return std::to_string((bytes + (1u << 20) - 1) >> 20) + " MB";
}

PickResult RunPick(Picker& picker, const PickRequest& request, const std::string& sourceName) {
    const RegionPixelBox box = ComputeRegionPixelBox(
        RegionOnScreen(request.settings.region, request.view), request.settings.pixelProportion);
    const std::string raster = sourceName + ": region: the selection raster of " +
                               std::to_string(box.width) + " x " + std::to_string(box.height) +
                               " pixels";
    // Refused before the run: an allocation the machine cannot back would otherwise end as a
    // bare std::bad_alloc, or as the process killed while the buffer is filled.
    const std::uint64_t bytes = picker.RasterBytes(request), memory = PhysicalMemoryBytes();
    if (memory > 0 && bytes > memory)
        throw SceneError(raster + " needs about " + Megabytes(bytes) + ", more than the " +
                         Megabytes(memory) +
                         " of memory here (lower pixel_proportion or shrink the region)");
    try {
        return picker.Pick(request);
    } catch (const PickError& error) {
        throw SceneError(sourceName + ": " + error.Field() + ": " + error.what());
    } catch (const std::bad_alloc&) {
        throw SceneError(raster + " does not fit in memory (about " + Megabytes(bytes) + ")");
    }
}

// Every view of the scene picked from the same initial marks: the picks leave the meshes as
// they are.
PickReport PickViews(const Scene& scene, const std::vector<std::unique_ptr<MStlBase>>& meshes,
                     const std::string& sourceName) {
    const std::unique_ptr<Picker> picker = MakePicker(scene.settings.picker);
    PickRequest request = MakePickRequest(scene, meshes);
    std::vector<PlacedBoundsCache> bounds(meshes.size());  // found once for every view
    for (std::size_t i = 0; i < meshes.size(); ++i)
        request.meshes[i].bounds = &bounds[i];
    PickReport report;
    report.picker = scene.settings.picker;
    for (const View& view : scene.views) {
        request.view = view;
        PickResult result = RunPick(*picker, request, sourceName);
        report.graphMilliseconds += GraphMilliseconds(result);
        report.views.push_back(ReportMeshes(scene, meshes, result));
        report.region = result.region;
    }
    return report;
}

int RunScene(const Options& options) {
    if (options.scene.empty())
        throw UsageError("velpick: no scene file given (try --demo, or --help)");
    const Stopwatch loadClock;
    Scene scene = ReadSceneFile(options.scene);
    const std::size_t viewCount = std::max<std::size_t>(scene.views.size(), 1);
    if (options.view >= viewCount)
        throw UsageError("velpick: --view " + std::to_string(options.view) + ": the scene has " +
                         std::to_string(viewCount) + " view(s), numbered from 0");
    const std::vector<std::unique_ptr<MStlBase>> meshes = LoadSceneMeshes(scene, options.scene);
    const double loadMilliseconds = loadClock.Milliseconds();

    const Stopwatch pickClock;
    PickReport report;
    if (scene.views.empty()) {
        const std::unique_ptr<Picker> picker = MakePicker(scene.settings.picker);
        report = MakeReport(scene, meshes,
                            RunPick(*picker, MakePickRequest(scene, meshes), options.scene));
    } else {
        report = PickViews(scene, meshes, options.scene);
        scene.view = scene.views[options.view];
    }
    report.loadMilliseconds = loadMilliseconds;
    report.pickMilliseconds = pickClock.Milliseconds() - report.graphMilliseconds;

    ApplyMarks(meshes, report.views.empty() ? report.meshes : report.views[options.view]);
    WriteOutputs(options, scene, meshes, report, options.scene);
    if (options.output.empty())
        std::cout << FormatReport(report) << std::flush;
    return 0;
}

void PrintDemoSummary(const PickReport& report, const std::vector<std::size_t>& underLasso) {
    std::printf("velpick demo: a sphere behind a plate with a hole, a lasso over both\n");
    for (std::size_t i = 0; i < report.meshes.size(); ++i) {
        const PickReport::Mesh& mesh = report.meshes[i];
        std::printf("  %-12s %6zu triangles, %5zu under the lasso, %5zu visible and marked\n",
                    mesh.file.c_str(), mesh.triangles, underLasso[i], mesh.marked.size());
    }
}

// How many triangles a mark-through pick takes: what lies under the lasso, hidden or not.
std::vector<std::size_t> CountUnderRegion(Picker& picker, PickRequest request) {
    request.settings.markThrough = true;
    const PickResult through = RunPick(picker, request, "demo");
    std::vector<std::size_t> counts;
    for (const MeshPick& mesh : through.meshes)
        counts.push_back(mesh.triangles.size());
    return counts;
}

// One line per picker: what it marked on the demo scene over all meshes, and how fast.
void PrintPickerLine(const std::string& name, const PickResult& result, double milliseconds) {
    std::size_t triangles = 0, edges = 0, markedEdges = 0;
    for (const MeshPick& mesh : result.meshes) {
        triangles += mesh.triangles.size();
        if (mesh.edges) {
            edges += mesh.edges->edgeCount;
            markedEdges += mesh.edges->marked.size();
        }
    }
    if (name == "graph")
        std::printf("  %-9s %6zu of %zu feature edges marked   %8.1f ms\n", name.c_str(),
                    markedEdges, edges, milliseconds);
    else
        std::printf("  %-9s %6zu triangles marked               %8.1f ms\n", name.c_str(),
                    triangles, milliseconds);
}

int RunDemo(const Options& options) {
    DemoScene demo = MakeDemoScene();
    const PickRequest request = MakePickRequest(demo.scene, demo.meshes);
    const std::unique_ptr<Picker> defaultPicker = MakePicker(demo.scene.settings.picker);
    const std::vector<std::size_t> underLasso = CountUnderRegion(*defaultPicker, request);

    std::optional<PickReport> pictured;
    std::vector<std::pair<std::string, std::pair<PickResult, double>>> runs;
    for (const std::string& name : PickerNames()) {
        const Stopwatch pickClock;
        PickResult result = RunPick(*MakePicker(name), request, "demo");
        const double milliseconds = pickClock.Milliseconds();
        if (name == demo.scene.settings.picker) {
            // The picture and the outputs show the default picker's marks.
            pictured = MakeReport(demo.scene, demo.meshes, result);
            pictured->pickMilliseconds = milliseconds;
        }
        runs.push_back({name, {std::move(result), milliseconds}});
    }
    ApplyMarks(demo.meshes, pictured->meshes);
    WriteOutputs(options, demo.scene, demo.meshes, *pictured, "demo");
    PrintDemoSummary(*pictured, underLasso);
    for (const auto& [name, run] : runs)
        PrintPickerLine(name, run.first, run.second);
    if (!options.image.empty())
        std::printf("  picture: %s (%s picker)\n", options.image.c_str(),
                    demo.scene.settings.picker.c_str());
    return 0;
}

void DefineOptions(CLI::App& app, Options& options) {
    CLI::Option* scene =
        app.add_option("scene", options.scene, "Scene file (JSON); see the format below");
    app.add_option("-o,--output", options.output, "Write the JSON result here, not to stdout");
    app.add_option("--image", options.image, "Write a PNG picture of the view and the pick");
    app.add_option("--image-size", options.imageSize,
                   "Picture size in pixels (default: the camera's screen, or the view's extent "
                   "of meshes and region, at pixel_proportion)")
        ->expected(2)
        ->check(CLI::Range(1, kMaxImageSide));
    app.add_option("--ply", options.ply, "Write the placed meshes, marked faces coloured, as PLY");
    app.add_option("--view", options.view,
                   "With a list of cameras: the view (from 0) that --image and --ply show (0)");
    app.add_flag("--demo", options.demo, "Run the built-in demo scene (no scene file)")
        ->excludes(scene);
    app.footer(SceneHelp());
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"velpick: picks the mesh triangles under a screen region, as a viewer sees them"};
    Options options;
    DefineOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "velpick: " << Printable(error.what()) << " (see --help)\n";
        return kExitError;
    }
    try {
        return options.demo ? RunDemo(options) : RunScene(options);
    } catch (const std::exception& error) {
        // File names and fields are the user's text: keep the message on one line.
        std::cerr << Printable(error.what()) << "\n";
        return kExitError;
    }
}
