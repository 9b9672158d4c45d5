#include "tools/picker.h"

namespace velpick {

namespace {

struct PickerEntry {
    const char* name;
    std::unique_ptr<Picker> (*make)();
};

// Adding a picker: one source file with its factory, and one line here.
constexpr PickerEntry kPickers[] = {
    {"zbuffer", &MakeZBufferPicker},
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

std::vector<std::size_t> MarkedTriangles(const MStlBase& mesh) {
    std::vector<std::size_t> marked;
    for (std::size_t i = 0; i < mesh.GetNumberOfTriangles(); ++i) {
        if (mesh.GetTriangle(i).IsMarked())
            marked.push_back(i);
    }
    return marked;
}

}  // namespace velpick
