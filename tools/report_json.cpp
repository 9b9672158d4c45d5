#include "tools/report_json.h"

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
        meshes.push_back(
            {{"file", mesh.file}, {"triangles", mesh.triangles}, {"marked", mesh.marked}});
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
