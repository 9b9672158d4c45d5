#include "scene.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>

#include "json_field.h"
#include "message_text.h"

namespace velpick {

namespace fs = std::filesystem;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

// More threads than any machine offers is a typing error, not a request.
constexpr std::size_t kMaxThreads = 4096;

MMTransformMatrix ParseMatrix(const JsonField& field) {
    const std::vector<double> values = field.Numbers(16);
    if (values[12] != 0.0 || values[13] != 0.0 || values[14] != 0.0 || values[15] != 1.0)
        field.Fail("the last row must be 0 0 0 1 (affine transforms only)");
    std::array<double, 16> rowMajor;
    std::copy(values.begin(), values.end(), rowMajor.begin());
    const MMTransformMatrix matrix(rowMajor);
    MMTransformMatrix inverse(matrix);
    if (!inverse.Invert())
        field.Fail("the matrix is not invertible");
    return matrix;
}

point3d ParsePoint3(const JsonField& field) {
    const std::vector<double> v = field.Numbers(3);
    return {v[0], v[1], v[2]};
}

point2d ParsePoint2(const JsonField& field) {
    const std::vector<double> v = field.Numbers(2);
    return {v[0], v[1]};
}

std::vector<std::size_t> ParseSurfaceList(const JsonField& field) {
    std::vector<std::size_t> surfaces;
    const std::size_t count = field.ArraySize(0, "surface indices");
    for (std::size_t i = 0; i < count; ++i)
        surfaces.push_back(field.Item(i).WholeNumber("surfaces"));
    return surfaces;
}

void ParseMarkable(const JsonField& field, SceneMesh& mesh) {
    if (field.IsString()) {
        if (field.String() != "all")
            field.Fail("expected \"all\" or a list of surface indices, got \"" +
                       Printable(field.String()) + "\"");
        mesh.markWholeMesh = true;
        return;
    }
    mesh.markWholeMesh = false;
    mesh.markableSurfaces = ParseSurfaceList(field);
}

SceneMesh ParseMesh(const JsonField& field, const fs::path& folder) {
    field.ExpectObject({"file", "placement", "markable", "hidden_surfaces"});
    SceneMesh mesh;
    mesh.file = field.Member("file").String();
    if (mesh.file.empty())
        field.Member("file").Fail("expected a file name, got an empty string");
    // The file system would read the name only up to its first NUL: another file.
    if (mesh.file.find('\0') != std::string::npos)
        field.Member("file").Fail("the file name \"" + Printable(mesh.file) +
                                  "\" holds a NUL character");
    mesh.path = folder / fs::u8path(mesh.file);
    if (field.Has("placement"))
        mesh.placement = ParseMatrix(field.Member("placement"));
    if (field.Has("markable"))
        ParseMarkable(field.Member("markable"), mesh);
    if (field.Has("hidden_surfaces"))
        mesh.hiddenSurfaces = ParseSurfaceList(field.Member("hidden_surfaces"));
    return mesh;
}

std::vector<SceneMesh> ParseMeshes(const JsonField& field, const fs::path& folder) {
    std::vector<SceneMesh> meshes;
    const std::size_t count = field.ArraySize(1, "mesh");
    for (std::size_t i = 0; i < count; ++i)
        meshes.push_back(ParseMesh(field.Item(i), folder));
    return meshes;
}

OrthoCamera ParseCamera(const JsonField& field) {
    field.ExpectObject({"eye", "target", "up", "height", "screen"});
    OrthoCamera camera;
    camera.eye = ParsePoint3(field.Member("eye"));
    camera.target = ParsePoint3(field.Member("target"));
    camera.up = ParsePoint3(field.Member("up"));
    camera.height = field.Member("height").PositiveNumber();
    const JsonField screen = field.Member("screen");
    screen.Numbers(2);
    camera.screenWidth = screen.Item(0).PositiveNumber();
    camera.screenHeight = screen.Item(1).PositiveNumber();
    return camera;
}

std::vector<point2d> ParsePoints(const JsonField& field, std::size_t minCount) {
    std::vector<point2d> points;
    const std::size_t count = field.ArraySize(minCount, minCount == 1 ? "point" : "points");
    for (std::size_t i = 0; i < count; ++i)
        points.push_back(ParsePoint2(field.Item(i)));
    return points;
}

// The scan-line picker takes any radius; the z-buffer picker works in whole screen units.
SelectionRegion ParseRegion(const JsonField& field, const std::string& picker) {
    field.ExpectObject({"polygon", "brush"});
    if (field.Has("polygon") == field.Has("brush"))
        field.Fail("expected exactly one of \"polygon\" and \"brush\"");
    SelectionRegion region;
    if (field.Has("polygon")) {
        region.points = ParsePoints(field.Member("polygon"), 3);
        return region;
    }
    if (picker == "graph")
        field.Fail("the graph picker takes a polygon, not a brush");
    const JsonField brush = field.Member("brush");
    brush.ExpectObject({"path", "radius"});
    region.shape = SelectionRegion::Shape::kBrush;
    region.points = ParsePoints(brush.Member("path"), 1);
    const JsonField radius = brush.Member("radius");
    region.brushRadius = picker == "scanline"
                             ? radius.NonNegativeNumber()
                             : static_cast<double>(radius.WholeNumber("screen units"));
    return region;
}

GraphSettings ParseGraphSettings(const JsonField& field, double unitsPerModelUnit) {
    field.ExpectObject({"sharp_angle_deg", "thickness", "mark_whole_candidates"});
    GraphSettings graph;
    if (field.Has("sharp_angle_deg"))
        graph.sharpAngleDegrees = field.Member("sharp_angle_deg").Number();
    if (field.Has("thickness")) {
        const JsonField thickness = field.Member("thickness");
        graph.thickness = thickness.NonNegativeNumber();
        if (std::round(graph.thickness * unitsPerModelUnit) > kInt32Max)
            thickness.Fail("too large: over 2147483647 internal units");
    }
    if (field.Has("mark_whole_candidates"))
        graph.markWholeCandidates = field.Member("mark_whole_candidates").Boolean();
    return graph;
}

int ParseThreads(const JsonField& field) {
    const std::size_t threads = field.WholeNumber("threads");
    if (threads < 1 || threads > kMaxThreads)
        field.Fail("expected between 1 and " + std::to_string(kMaxThreads) + " threads, got " +
                   std::to_string(threads));
    return static_cast<int>(threads);
}

std::vector<MMPlaneEq<double>> ParsePlanes(const JsonField& field) {
    std::vector<MMPlaneEq<double>> planes;
    const std::size_t count = field.ArraySize(0, "planes");
    for (std::size_t i = 0; i < count; ++i) {
        const JsonField item = field.Item(i);
        const std::vector<double> v = item.Numbers(4);
        if (v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0)
            item.Fail("the normal (a, b, c) is zero");
        planes.push_back({v[0], v[1], v[2], v[3]});
    }
    return planes;
}

void ParseView(const JsonField& root, Scene& scene) {
    if (root.Has("view") == root.Has("camera"))
        root.Fail("expected exactly one of \"view\" and \"camera\"");
    if (root.Has("view")) {
        scene.view = ParseMatrix(root.Member("view"));
        return;
    }
    const JsonField field = root.Member("camera");
    scene.camera = ParseCamera(field);
    CameraFault fault = CameraFault::kNone;
    const std::optional<MMTransformMatrix> view =
        CameraView(*scene.camera, scene.unitsPerModelUnit, &fault);
    switch (fault) {
        case CameraFault::kNone:
            break;
        case CameraFault::kEyeOnTarget:
            field.Fail("eye and target coincide");
        case CameraFault::kDistanceOverflows:
            field.Member("eye").Fail("too far from the target: their distance overflows");
        case CameraFault::kUpAlongView:
            field.Member("up").Fail("zero or parallel to the viewing direction");
        case CameraFault::kViewOutOfRange:
            field.Fail(
                "the view matrix leaves the double range (target too far out, or the "
                "ratio of screen to height too large or too small)");
    }
    scene.view = *view;
}

// The picker works on 32-bit pixels: refuse regions that would leave that range once scaled,
// naming the first point that does.
void CheckRegionFitsPixels(const JsonField& root, const Scene& scene) {
    const JsonField region = root.Member("region");
    const bool brush = scene.region.shape == SelectionRegion::Shape::kBrush;
    const JsonField points =
        brush ? region.Member("brush").Member("path") : region.Member("polygon");
    const double p = scene.pixelProportion;
    const double radius = scene.region.brushRadius * p;
    if (radius > kMaxPixelCoordinate)
        region.Member("brush").Member("radius").Fail(
            "too large: the radius in pixels exceeds the 32-bit pixel range");
    for (std::size_t i = 0; i < scene.region.points.size(); ++i) {
        const point2d& q = scene.region.points[i];
        if (std::abs(q.x * p) + radius > kMaxPixelCoordinate ||
            std::abs(q.y * p) + radius > kMaxPixelCoordinate)
            points.Item(i).Fail("beyond the 32-bit pixel range at this pixel_proportion");
    }
}

nlohmann::json ParseJson(const std::string& text, const std::string& sourceName) {
    try {
        return nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception& error) {
        // Syntax errors and numbers out of double range; drop the library's
        // "[json.exception.parse_error.101] " prefix.
        std::string reason = error.what();
        const std::size_t end = reason.find("] ");
        if (end != std::string::npos)
            reason.erase(0, end + 2);
        throw SceneError(sourceName + ": malformed JSON: " + reason);
    }
}

// One of the registered pickers.
std::string ParsePickerName(const JsonField& field) {
    std::string name = field.String();
    if (MakePicker(name))
        return name;
    std::string known;
    for (const std::string& registered : PickerNames())
        known += (known.empty() ? "" : ", ") + registered;
    field.Fail("unknown picker \"" + Printable(name) + "\" (known: " + known + ")");
}

void ParseSettings(const JsonField& root, Scene& scene) {
    const auto optionalFlag = [&](const char* name, bool& flag) {
        if (root.Has(name))
            flag = root.Member(name).Boolean();
    };
    if (root.Has("pixel_proportion"))
        scene.pixelProportion = root.Member("pixel_proportion").PositiveNumber();
    if (root.Has("picker"))
        scene.picker = ParsePickerName(root.Member("picker"));
    optionalFlag("mark_through", scene.markThrough);
    optionalFlag("back_face_culling", scene.backFaceCulling);
    optionalFlag("unmark", scene.unmark);
    optionalFlag("start_marked", scene.startMarked);
    optionalFlag("skip_hidden_surfaces", scene.skipHiddenSurfaces);
    if (root.Has("depth_tolerance"))
        scene.depthTolerance = root.Member("depth_tolerance").NonNegativeNumber();
    if (root.Has("clipping_planes"))
        scene.clippingPlanes = ParsePlanes(root.Member("clipping_planes"));
    if (root.Has("lines_per_pixel"))
        scene.linesPerPixel = root.Member("lines_per_pixel").PositiveNumber();
    if (root.Has("threads"))
        scene.threads = ParseThreads(root.Member("threads"));
    if (root.Has("graph"))
        scene.graph = ParseGraphSettings(root.Member("graph"), scene.unitsPerModelUnit);
}

}  // namespace

Scene ParseScene(const std::string& text, const std::string& sourceName, const fs::path& folder) {
    return ParseScene(ParseJson(text, sourceName), sourceName, folder);
}

Scene ParseScene(const nlohmann::json& document, const std::string& sourceName,
                 const fs::path& folder) {
    const JsonField root(document, "", sourceName);
    root.ExpectObject({"units_per_model_unit", "meshes", "view", "camera", "pixel_proportion",
                       "region", "picker", "mark_through", "back_face_culling", "unmark",
                       "start_marked", "skip_hidden_surfaces", "depth_tolerance", "clipping_planes",
                       "lines_per_pixel", "threads", "graph"});
    Scene scene;
    if (root.Has("units_per_model_unit"))
        scene.unitsPerModelUnit = root.Member("units_per_model_unit").PositiveNumber();
    scene.meshes = ParseMeshes(root.Member("meshes"), folder);
    ParseView(root, scene);
    ParseSettings(root, scene);
    scene.region = ParseRegion(root.Member("region"), scene.picker);
    CheckRegionFitsPixels(root, scene);
    return scene;
}

Scene ReadSceneFile(const fs::path& file) {
    std::error_code error;
    if (!fs::is_regular_file(file, error))
        throw SceneError(file.string() + ": " +
                         (fs::exists(file, error) ? "not a regular file" : "no such file"));
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    if (in)
        text << in.rdbuf();
    if (!in || in.bad())
        throw SceneError(file.string() + ": cannot read: " + std::strerror(errno));
    return ParseScene(text.str(), file.string(), file.parent_path());
}

}  // namespace velpick
