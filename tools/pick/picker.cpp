#include "picker.h"

namespace velpick {

namespace {

struct PickerEntry {
    const char* name;
    const char* description;
    std::unique_ptr<Picker> (*make)();
};

// Adding a picker: one source file with its factory, and one line here.
constexpr PickerEntry kPickers[] = {
    {"zbuffer", "visible triangles from a depth buffer over the region's pixels (default)",
     &MakeZBufferPicker},
    {"scanline", "visible triangles from parallel sample lines, lines_per_pixel per pixel row",
     &MakeScanLinePicker},
    {"graph", "feature edges (sharp and border edges) under a polygon; marks no triangle",
     &MakeGraphPicker},
};

}  // namespace

std::unique_ptr<Picker> MakePicker(const std::string& name) {
    for (const PickerEntry& entry : kPickers) {
        if (name == entry.name)
            return entry.make();
    }
    return nullptr;
}

std::vector<std::string> PickerNames() {
    std::vector<std::string> names;
    for (const PickerEntry& entry : kPickers)
        names.emplace_back(entry.name);
    return names;
}

std::string DescribePickers() {
    std::string text;
    for (const PickerEntry& entry : kPickers)
        text += std::string("  ") + entry.name + ": " + entry.description + "\n";
    return text;
}

std::vector<std::size_t> MarkedTriangles(const MStlBase& mesh) {
    std::vector<std::size_t> marked;
    for (std::size_t i = 0; i < mesh.GetNumberOfTriangles(); ++i) {
        if (mesh.GetTriangle(i).IsMarked())
            marked.push_back(i);
    }
    return marked;
}

PickResult CollectMarkedTriangles(const PickRequest& request) {
    PickResult result;
    for (const PickMesh& mesh : request.meshes)
        result.meshes.push_back({MarkedTriangles(*mesh.mesh), std::nullopt});
    result.region =
        ComputeRegionPixelBox(request.settings.region, request.settings.pixelProportion);
    return result;
}

}  // namespace velpick
