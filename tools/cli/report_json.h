#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "picker.h"
#include "selection_region.h"

namespace velpick {

/// What a run picked, as written to the JSON output.
struct PickReport {
    struct Mesh {
        std::string file;
        std::size_t triangles = 0;
        std::vector<std::size_t> marked;  // sorted triangle indices
        std::optional<EdgePick> edges;    // the graph picker's edges
    };
    std::string picker;
    std::vector<Mesh> meshes;              // a scene of one view
    std::vector<std::vector<Mesh>> views;  // a list of cameras: the meshes of each view
    RegionPixelBox region;
    double loadMilliseconds = 0.0;
    double pickMilliseconds = 0.0;   // the picks, feature graphs apart
    double graphMilliseconds = 0.0;  // finding or building feature graphs; graph picker only
};

/// The report as one JSON object on one line, fields in the order "picker", "meshes" (or
/// "views": [{"meshes": [...]}, ...] when `views` is not empty), "region", "timing_ms"
/// ("load", "pick", and "graph" for the graph picker); timings rounded to 0.1 ms. A mesh reads
/// "file", "triangles", then for the graph picker "edges", "code" and "marked_edges", then
/// "marked".
std::string FormatReport(const PickReport& report);

}  // namespace velpick
