#include "report_json.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace velpick {

namespace {

double TenthsOfMilliseconds(double milliseconds) {
    return std::round(milliseconds * 10.0) / 10.0;
}

}  // namespace

std::string FormatReport(const PickReport& report) {
    nlohmann::ordered_json meshes = nlohmann::ordered_json::array();
    for (const PickReport::Mesh& mesh : report.meshes) {
        nlohmann::ordered_json entry = {{"file", mesh.file}, {"triangles", mesh.triangles}};
        if (mesh.edges) {
            entry["edges"] = mesh.edges->edgeCount;
            entry["code"] = mesh.edges->returnCode;
            entry["marked_edges"] = mesh.edges->marked;
        }
        entry["marked"] = mesh.marked;
        meshes.push_back(std::move(entry));
    }
    const nlohmann::ordered_json document = {
        {"picker", report.picker},
        {"meshes", meshes},
        {"region",
         {{"origin", {report.region.xmin, report.region.ymin}},
          {"width", report.region.width},
          {"height", report.region.height}}},
        {"timing_ms",
         {{"load", TenthsOfMilliseconds(report.loadMilliseconds)},
          {"pick", TenthsOfMilliseconds(report.pickMilliseconds)}}}};
    return document.dump() + "\n";
}

}  // namespace velpick
