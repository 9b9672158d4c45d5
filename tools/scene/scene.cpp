#include "scene.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>

#include "json_field.h"
#include "message_text.h"
#include "pick_settings_validator.h"

namespace velpick {

namespace fs = std::filesystem;

namespace {

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
        mesh.placement = settings_detail::Matrix(field.Member("placement"));
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

// Where the scene file keeps each setting: a member of the root, of "graph", or of the region.
class SceneSettings {
  public:
    explicit SceneSettings(const JsonField& root) : m_root(root) {}

    std::optional<JsonField> Find(Setting setting) const {
        switch (setting) {
            case Setting::kSharpAngle:
                return GraphMember("sharp_angle_deg");
            case Setting::kThickness:
                return GraphMember("thickness");
            case Setting::kMarkWholeCandidates:
                return GraphMember("mark_whole_candidates");
            case Setting::kPolygon:
                return RegionMember("polygon");
            case Setting::kBrushPath:
                return BrushMember("path");
            case Setting::kBrushRadius:
                return BrushMember("radius");
            default:
                return RootMember(RootName(setting));
        }
    }
    [[noreturn]] void Fail(Setting setting, const std::string& reason) const {
        if (setting == Setting::kRegion)
            m_root.Member("region").Fail(reason);
        if (setting == Setting::kBrushRadius)
            m_root.Member("region").Member("brush").Member("radius").Fail(reason);
        m_root.Fail(reason);
    }

  private:
    static const char* RootName(Setting setting) {
        switch (setting) {
            case Setting::kUnitsPerModelUnit:
                return "units_per_model_unit";
            case Setting::kView:
                return "view";
            case Setting::kCamera:
                return "camera";
            case Setting::kPixelProportion:
                return "pixel_proportion";
            case Setting::kPicker:
                return "picker";
            case Setting::kMarkThrough:
                return "mark_through";
            case Setting::kBackFaceCulling:
                return "back_face_culling";
            case Setting::kUnmark:
                return "unmark";
            case Setting::kSkipHiddenSurfaces:
                return "skip_hidden_surfaces";
            case Setting::kDepthTolerance:
                return "depth_tolerance";
            case Setting::kClippingPlanes:
                return "clipping_planes";
            case Setting::kLinesPerPixel:
                return "lines_per_pixel";
            case Setting::kScanLineRule:
                return "scanline_rule";
            case Setting::kThreads:
                return "threads";
            default:
                return "";
        }
    }
    std::optional<JsonField> RootMember(const char* name) const {
        if (!m_root.Has(name))
            return std::nullopt;
        return m_root.Member(name);
    }
    std::optional<JsonField> GraphMember(const char* name) const {
        if (!m_root.Has("graph"))
            return std::nullopt;
        const JsonField graph = m_root.Member("graph");
        graph.ExpectObject({"sharp_angle_deg", "thickness", "mark_whole_candidates"});
        return graph.Has(name) ? std::optional<JsonField>(graph.Member(name)) : std::nullopt;
    }
    std::optional<JsonField> RegionMember(const char* name) const {
        const JsonField region = m_root.Member("region");
        region.ExpectObject({"polygon", "brush"});
        return region.Has(name) ? std::optional<JsonField>(region.Member(name)) : std::nullopt;
    }
    std::optional<JsonField> BrushMember(const char* name) const {
        const std::optional<JsonField> brush = RegionMember("brush");
        if (!brush)
            return std::nullopt;
        brush->ExpectObject({"path", "radius"});
        return brush->Has(name) ? std::optional<JsonField>(brush->Member(name)) : std::nullopt;
    }

    const JsonField& m_root;
};

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
                       "lines_per_pixel", "scanline_rule", "threads", "graph"});
    Scene scene;
    scene.meshes = ParseMeshes(root.Member("meshes"), folder);
    const SceneSettings settings(root);
    scene.settings = ValidatePickSettings(settings);
    std::vector<View> views = ValidateViews(settings, scene.settings.unitsPerModelUnit);
    scene.view = views.front();
    if (root.Has("camera") && root.Member("camera").IsArray())
        scene.views = std::move(views);
    if (root.Has("start_marked"))
        scene.startMarked = root.Member("start_marked").Boolean();
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
