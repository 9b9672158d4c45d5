#include "scene_outputs.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "atomic_file.h"
#include "camera_view.h"
#include "ply_writer.h"
#include "png_writer.h"

namespace velpick {

namespace {

// The screen rectangle a camera shows.
ScreenBox CameraScreen(const Camera& camera) {
    const auto [width, height] = ScreenSize(camera);
    return {0.0, 0.0, width, height};
}

// What `write` puts into a stream, collected in memory.
template <class Write>
std::string WrittenBytes(Write&& write) {
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* stream = ::open_memstream(&buffer, &size);
    if (!stream)
        throw std::bad_alloc();
    const auto release = [&buffer](std::FILE* file) {
        std::fclose(file);
        std::free(buffer);
    };
    std::unique_ptr<std::FILE, decltype(release)> owner(stream, release);
    write(stream);
    if (std::fflush(stream) != 0)
        throw std::bad_alloc();
    return std::string(buffer, size);
}

}  // namespace

void ApplyMarks(const std::vector<std::unique_ptr<MStlBase>>& meshes,
                const std::vector<PickReport::Mesh>& picked) {
    for (std::size_t m = 0; m < meshes.size(); ++m) {
        for (MStlTriangle& triangle : meshes[m]->Triangles())
            triangle.Unmark();
        for (std::size_t t : picked[m].marked)
            meshes[m]->GetTriangle(t).Mark();
    }
}

std::vector<PlacedMesh> PlacedMeshes(const Scene& scene,
                                     const std::vector<std::unique_ptr<MStlBase>>& meshes,
                                     const PickReport& report, std::size_t view) {
    const std::vector<PickReport::Mesh>& picked =
        report.views.empty() ? report.meshes : report.views.at(view);
    std::vector<PlacedMesh> placed;
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        placed.push_back({meshes[i].get(), scene.meshes[i].placement});
        if (picked[i].edges)
            placed.back().markedEdges = picked[i].edges->marked;
    }
    return placed;
}

std::optional<ImageFrame> PictureFrame(const Scene& scene, const std::vector<PlacedMesh>& meshes,
                                       const std::vector<int>& imageSize) {
    const ScreenBox box =
        scene.view.camera
            ? CameraScreen(*scene.view.camera)
            : ProjectedBounds(meshes, scene.view.matrix, RegionScreenBounds(scene.settings.region));
    if (imageSize.size() != 2)
        return NaturalFrame(box, scene.settings.pixelProportion);
    return FittedFrame(box, imageSize[0], imageSize[1]);
}

std::string PngBytes(const RgbImage& image) {
    return WrittenBytes([&](std::FILE* stream) { WritePng(stream, image); });
}

std::string PlyBytes(const std::vector<PlacedMesh>& meshes, double unitsPerModelUnit) {
    return WrittenBytes([&](std::FILE* stream) { WritePly(stream, meshes, unitsPerModelUnit); });
}

void CommitOutputs(const std::vector<OutputFile>& outputs) {
    std::vector<std::unique_ptr<AtomicFile>> files;
    for (const OutputFile& output : outputs) {
        files.push_back(std::make_unique<AtomicFile>(output.target));
        AtomicFile& file = *files.back();
        if (std::fwrite(output.bytes.data(), 1, output.bytes.size(), file.Stream()) !=
            output.bytes.size())
            throw OutputError(output.target.string() + ": cannot write");
    }
    for (const auto& file : files)
        file->Close();
    for (const auto& file : files)
        file->Commit();
}

}  // namespace velpick
