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
    nlohmann::ordered_json document = {{"picker", report.picker},
                                       {"meshes", nullptr},
                                       {"region",
                                        {{"origin", {report.region.xmin, report.region.ymin}},
                                         {"width", report.region.width},
                                         {"height", report.region.height}}},
                                       {"timing_ms",
                                        {{"load", TenthsOfMilliseconds(report.loadMilliseconds)},
                                         {"pick", TenthsOfMilliseconds(report.pickMilliseconds)}}}};
    // Set in place: a key added later would make the document's keys grow and copy the lists.
    document["meshes"] = std::move(meshes);
    std::string text = document.dump() + "\n";
    // A long list of marks released on its own is taken apart through one stack of its exact
    // size; released inside the document, through a stack that grows step by step to it.
    for (nlohmann::ordered_json& entry : document["meshes"])
        entry.erase("marked");
    return text;
}

}  // namespace velpick
