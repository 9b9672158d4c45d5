#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "placed_mesh.h"
#include "report_json.h"
#include "rgb_image.h"
#include "scene.h"
#include "scene_image.h"

namespace velpick {

/// One requested output: where it goes and its complete contents.
struct OutputFile {
    std::filesystem::path target;
    std::string bytes;
};

/// The scene's meshes with their placements and the edges the report marks on each, in view
/// `view` of a report with several views.
std::vector<PlacedMesh> PlacedMeshes(const Scene& scene,
                                     const std::vector<std::unique_ptr<MStlBase>>& meshes,
                                     const PickReport& report, std::size_t view = 0);

/// Sets each mesh's own mark flags to what `picked` (one entry per mesh) marks, so that the
/// picture and the PLY show that pick: picks never write into the meshes themselves.
void ApplyMarks(const std::vector<std::unique_ptr<MStlBase>>& meshes,
                const std::vector<PickReport::Mesh>& picked);

/// The picture's frame: the camera's screen, or under a bare view what the meshes and the
/// region cover; at the scene's pixel proportion when `imageSize` is empty, else fitted to
/// its two numbers (width, height). Nothing when the view's numbers overflow the frame.
std::optional<ImageFrame> PictureFrame(const Scene& scene, const std::vector<PlacedMesh>& meshes,
                                       const std::vector<int>& imageSize);

/// The image as PNG bytes, and the placed meshes as binary PLY bytes. Both are made in memory
/// so that nothing touches the file system until every output is complete. Throw
/// std::runtime_error when the encoder fails.
std::string PngBytes(const RgbImage& image);
std::string PlyBytes(const std::vector<PlacedMesh>& meshes, double unitsPerModelUnit);

/// Writes every file under a temporary name beside its target, closes them all, and only then
/// renames them onto their targets. A target that is a folder, an unwritable folder or a write
/// error fails before any target changes; every temporary is removed on failure. Throws
/// OutputError naming the file.
void CommitOutputs(const std::vector<OutputFile>& files);

}  // namespace velpick
