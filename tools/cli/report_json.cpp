#include "report_json.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace velpick {

namespace {

using Json = nlohmann::ordered_json;

// An object's keys sit in a vector of (const key, value) pairs: one that outgrows its room
// copies every value it holds, lists of marks included. Each object below gets room for all
// its keys up front.
constexpr std::size_t kDocumentKeys = 4;  // picker, meshes or views, region, timing_ms
constexpr std::size_t kMeshKeys = 6;      // file, triangles, edges, code, marked_edges, marked

Json ObjectWithRoom(std::size_t keys) {
    Json object = Json::object();
    object.get_ref<Json::object_t&>().reserve(keys);
    return object;
}

double TenthsOfMilliseconds(double milliseconds) {
    return std::round(milliseconds * 10.0) / 10.0;
}

Json MeshesJson(const std::vector<PickReport::Mesh>& meshes) {
    Json list = Json::array();
    for (const PickReport::Mesh& mesh : meshes) {
        Json entry = ObjectWithRoom(kMeshKeys);
        entry["file"] = mesh.file;
        entry["triangles"] = mesh.triangles;
        if (mesh.edges) {
            entry["edges"] = mesh.edges->edgeCount;
            entry["code"] = mesh.edges->returnCode;
            entry["marked_edges"] = mesh.edges->marked;
        }
        entry["marked"] = mesh.marked;
        list.push_back(std::move(entry));
    }
    return list;
}

// Empties the long lists of `meshes` element by element. Released with the document instead,
// each would be taken apart through a stack of values that grows step by step to its length.
void ReleaseMarks(Json& meshes) {
    for (Json& entry : meshes) {
        entry["marked"].get_ref<Json::array_t&>().clear();
        if (entry.contains("marked_edges"))
            entry["marked_edges"].get_ref<Json::array_t&>().clear();
    }
}

}  // namespace

std::string FormatReport(const PickReport& report) {
    Json document = ObjectWithRoom(kDocumentKeys);
    document["picker"] = report.picker;
    if (report.views.empty()) {
        document["meshes"] = MeshesJson(report.meshes);
    } else {
        Json views = Json::array();
        for (const std::vector<PickReport::Mesh>& view : report.views)
            views.push_back({{"meshes", MeshesJson(view)}});
        document["views"] = std::move(views);
    }
    Json& region = document["region"];
    region["origin"] = {report.region.xmin, report.region.ymin};
    region["width"] = report.region.width;
    region["height"] = report.region.height;
    Json timing = {{"load", TenthsOfMilliseconds(report.loadMilliseconds)},
                   {"pick", TenthsOfMilliseconds(report.pickMilliseconds)}};
    if (report.picker == "graph")
        timing["graph"] = TenthsOfMilliseconds(report.graphMilliseconds);
    document["timing_ms"] = std::move(timing);

    std::string text = document.dump();
    text += '\n';
    if (report.views.empty()) {
        ReleaseMarks(document["meshes"]);
    } else {
        for (Json& view : document["views"])
            ReleaseMarks(view["meshes"]);
    }
    return text;
}

}  // namespace velpick
