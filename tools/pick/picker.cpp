#include "picker.h"

#include "pinhole_view.h"

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

CallMarksList StartCallMarks(const PickRequest& request) {
    CallMarksList marks;
    for (const PickMesh& mesh : request.meshes)
        marks.push_back(std::make_unique<CallMarks>(*mesh.mesh));
    return marks;
}

PickResult CollectMarkedTriangles(const PickRequest& request, const CallMarksList& marks) {
    PickResult result;
    for (const std::unique_ptr<CallMarks>& mesh : marks)
        result.meshes.push_back({mesh->Marked(), std::nullopt});
    result.region = ComputeRegionPixelBox(RegionOnScreen(request.settings.region, request.view),
                                          request.settings.pixelProportion);
    return result;
}

}  // namespace velpick
