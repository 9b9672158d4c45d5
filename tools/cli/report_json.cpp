#include "report_json.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace velpick {

namespace {

double TenthsOfMilliseconds(double milliseconds) {
    return std::round(milliseconds * 10.0) / 10.0;
}

nlohmann::ordered_json MeshesJson(const std::vector<PickReport::Mesh>& meshes) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const PickReport::Mesh& mesh : meshes) {
        nlohmann::ordered_json entry = {{"file", mesh.file}, {"triangles", mesh.triangles}};
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

}  // namespace

std::string FormatReport(const PickReport& report) {
    nlohmann::ordered_json document = {{"picker", report.picker}};
    if (report.views.empty()) {
        document["meshes"] = MeshesJson(report.meshes);
    } else {
        nlohmann::ordered_json views = nlohmann::ordered_json::array();
        for (const std::vector<PickReport::Mesh>& view : report.views)
            views.push_back({{"meshes", MeshesJson(view)}});
        document["views"] = std::move(views);
    }
    nlohmann::ordered_json& region = document["region"];
    region["origin"] = {report.region.xmin, report.region.ymin};
    region["width"] = report.region.width;
    region["height"] = report.region.height;
    nlohmann::ordered_json timing = {{"load", TenthsOfMilliseconds(report.loadMilliseconds)},
                                     {"pick", TenthsOfMilliseconds(report.pickMilliseconds)}};
    if (report.picker == "graph")
        timing["graph"] = TenthsOfMilliseconds(report.graphMilliseconds);
    document["timing_ms"] = std::move(timing);
    return document.dump() + "\n";
}

}  // namespace velpick
