// The velpick pipeline behind the scene parser, on in-memory meshes: any scene text is either
// refused with a SceneError or picked, reported as JSON, framed and drawn as a picture, and
// written as PNG and PLY bytes.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "picker.h"
#include "report_json.h"
#include "scene.h"
#include "scene_image.h"
#include "scene_loader.h"
#include "scene_outputs.h"
#include "support/scene_builders.h"

namespace {

using namespace velpick;

// Rasters and pictures above these sizes are skipped only to keep each run fast and small;
// velpick itself refuses rasters by the machine's memory.
constexpr std::uint64_t kMaxRasterBytes = 64u << 20;
constexpr long kMaxNaturalPicturePixels = 256 * 256;

// Mesh i: a plate with a hole, a sphere above it and a sub-surface patch, moved along z by i,
// so that surface indices 0, 1 and 2 exist in every mesh.
std::unique_ptr<MStlBase> MakeMesh(std::size_t i) {
    auto mesh = std::make_unique<MStlBase>();
    const double z = 1000.0 * static_cast<double>(i % 4);
    MStlSurface* plate = mesh->AddSurface(nullptr);
    scene::addPlateWithHole(*plate, 10000, 3000, z, 6);
    MStlSurface* sphere = mesh->AddSurface(nullptr);
    scene::addUvSphere(*sphere, {0, 0, z + 4000}, 3000, 5, 10);
    MStlSurface* patch = mesh->AddSurface(sphere);
    scene::addGrid(*patch, {-2000, -2000, z - 2000}, {4000, 0, 0}, {0, 4000, 0}, 2);
    return mesh;
}

bool SurfacesExist(const std::vector<std::size_t>& indices, std::size_t count) {
    for (std::size_t index : indices)
        if (index >= count)
            return false;
    return true;
}

// What LoadSceneMeshes does after reading files: hidden surfaces, start_marked.
std::vector<std::unique_ptr<MStlBase>> SceneMeshes(const Scene& scene) {
    std::vector<std::unique_ptr<MStlBase>> meshes;
    for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
        meshes.push_back(MakeMesh(i));
        const std::vector<MStlSurface*> surfaces = SurfacesInOrder(*meshes.back());
        const SceneMesh& entry = scene.meshes[i];
        if (!SurfacesExist(entry.markableSurfaces, surfaces.size()) ||
            !SurfacesExist(entry.hiddenSurfaces, surfaces.size()))
            return {};
        for (std::size_t index : entry.hiddenSurfaces)
            surfaces[index]->SetVisible(false);
        if (scene.startMarked)
            for (MStlTriangle& triangle : meshes.back()->Triangles())
                triangle.Mark();
    }
    return meshes;
}

void DrawAndWrite(const Scene& scene, const std::vector<std::unique_ptr<MStlBase>>& meshes,
                  const PickReport& report) {
    const std::vector<PlacedMesh> placed = PlacedMeshes(scene, meshes, report);
    for (const std::vector<int>& size : {std::vector<int>{}, std::vector<int>{64, 48}}) {
        const std::optional<ImageFrame> frame = PictureFrame(scene, placed, size);
        if (!frame || long(frame->width) * frame->height > kMaxNaturalPicturePixels)
            continue;
        PngBytes(RenderScene(placed, scene.view, scene.settings.region, *frame));
    }
    PlyBytes(placed, scene.settings.unitsPerModelUnit);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Scene scene;
    try {
        scene = ParseScene(std::string(reinterpret_cast<const char*>(data), size), "fuzz", ".");
    } catch (const SceneError&) {
        return 0;
    }
    const std::vector<std::unique_ptr<MStlBase>> meshes = SceneMeshes(scene);
    const std::unique_ptr<Picker> picker = MakePicker(scene.settings.picker);
    if (meshes.empty() || !picker)
        return 0;
    const PickRequest request = MakePickRequest(scene, meshes);
    if (picker->RasterBytes(request) > kMaxRasterBytes)
        return 0;
    PickResult result;
    try {
        result = picker->Pick(request);
    } catch (const PickError&) {
        return 0;
    }

    PickReport report;
    report.picker = scene.settings.picker;
    for (std::size_t i = 0; i < meshes.size(); ++i)
        report.meshes.push_back({scene.meshes[i].file, meshes[i]->GetNumberOfTriangles(),
                                 result.meshes[i].triangles, result.meshes[i].edges});
    report.region = result.region;
    // The report must be valid JSON whatever the file names hold.
    static_cast<void>(nlohmann::json::parse(FormatReport(report)));
    DrawAndWrite(scene, meshes, report);
    return 0;
}
