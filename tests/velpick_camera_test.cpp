// Perspective and pinhole cameras of scene files: camera pairs that pick alike (the pinhole form
// and the field-of-view form of one camera, a far narrow camera and the orthographic one), the
// picture of what lies behind the eye, and the camera errors.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>

#include <nlohmann/json.hpp>

#include "camera_view.h"
#include "picker.h"
#include "scene.h"
#include "scene_image.h"
#include "scene_loader.h"
#include "support/pinhole_oracle.h"

namespace pinhole {
namespace {

using nlohmann::json;

constexpr double kPi = 3.14159265358979323846;
constexpr double kScreenW = 160.0, kScreenH = 100.0;
// Rounding may settle a triangle on a region or silhouette boundary either way.
constexpr std::size_t kFewBoundaryTriangles = 4;

// a + s·b
point3d Mix(point3d a, double s, point3d b) {
    return {a.x + s * b.x, a.y + s * b.y, a.z + s * b.z};
}
point3d Unit(point3d a) {
    return Mix({0, 0, 0}, 1.0 / std::sqrt(Dot(a, a)), a);
}
json Json(point3d p) {
    return {p.x, p.y, p.z};
}
json With(json base, const json& extra) {
    base.update(extra);
    return base;
}

const point3d kEye{14, -40, 35}, kTarget{2, 1, -3}, kUp{0, 0, 1};
const json kLook = {{"eye", Json(kEye)},
                    {"target", Json(kTarget)},
                    {"up", Json(kUp)},
                    {"screen", {kScreenW, kScreenH}}};
const json kLasso = {{"polygon", {{30, 18}, {128, 26}, {110, 88}, {46, 80}}}};

// A sphere in front of a plate with a hole (model units 1000 internal units each).
velpick::PickResult Pick(const json& camera, const json& region, const char* picker = "zbuffer") {
    std::vector<std::unique_ptr<MStlBase>> meshes;
    meshes.push_back(scene::plateWithHole(30000, 8000, 0, 24));
    meshes.push_back(scene::uvSphere({0, 0, -9000}, 12000));
    const json file = {{"meshes", {{{"file", "plate.obj"}}, {{"file", "sphere.obj"}}}},
                       {"camera", camera},
                       {"region", region}};
    velpick::Scene scene = velpick::ParseScene(file.dump(), "scene.json", ".");
    scene.settings.picker = picker;
    return velpick::MakePicker(picker)->Pick(velpick::MakePickRequest(scene, meshes));
}

// Triangles marked by one pick and not the other, over all meshes; the first pick marks many.
std::size_t Differing(const velpick::PickResult& a, const velpick::PickResult& b) {
    std::vector<std::size_t> odd;
    for (std::size_t m = 0; m < a.meshes.size(); ++m) {
        const std::vector<std::size_t>&x = a.meshes[m].triangles, &y = b.meshes[m].triangles;
        std::set_symmetric_difference(x.begin(), x.end(), y.begin(), y.end(),
                                      std::back_inserter(odd));
    }
    EXPECT_GT(a.meshes[0].triangles.size() + a.meshes[1].triangles.size(), 100u);
    return odd.size();
}

// The pinhole form of a field-of-view camera, its lasso in image coordinates
// (u = x − 0.5, v = h − y − 0.5); a far narrow camera and the orthographic one of its height.
TEST(Cameras, PairsPickAlikeButForAFewBoundaryTriangles) {
    const double fov = 50.0, f = kScreenH / (2 * std::tan(fov * kPi / 360));
    // The camera frame by hand: x right, y down, z along the view.
    const point3d z = Unit(Sub(kTarget, kEye)), x = Unit(Cross(z, kUp)), y = Cross(z, x);
    const json pinhole = {
        {"pinhole",
         {{"K", {{f, 0, kScreenW / 2 - 0.5}, {0, f, kScreenH / 2 - 0.5}, {0, 0, 1}}},
          {"R", {Json(x), Json(y), Json(z)}},
          {"t", {-Dot(x, kEye), -Dot(y, kEye), -Dot(z, kEye)}},
          {"image", {kScreenW, kScreenH}}}}};
    json imageLasso = kLasso;
    for (json& p : imageLasso["polygon"])
        p = {p[0].get<double>() - 0.5, kScreenH - p[1].get<double>() - 0.5};
    const double height = 70.0, far = 1e5;
    const json farEye = Json(Mix(kTarget, far, Unit(Sub(kEye, kTarget))));
    const std::tuple<json, json, json> pairs[] = {
        {With(kLook, {{"fov_deg", fov}}), pinhole, imageLasso},
        {With(kLook, {{"height", height}}),
         With(kLook, {{"eye", farEye}, {"fov_deg", 360 / kPi * std::atan(height / (2 * far))}}),
         kLasso}};
    for (const auto& [camera, other, otherLasso] : pairs)
        for (const char* picker : {"zbuffer", "scanline"})
            EXPECT_LE(Differing(Pick(camera, kLasso, picker), Pick(other, otherLasso, picker)),
                      kFewBoundaryTriangles)
                << picker << " " << other.dump();
}

TEST(PerspectivePicture, DrawsNothingBehindTheEye) {
    const auto plate = scene::plateWithHole(30000, 8000, 0, 24);
    const auto Drawn = [&](point3d target) {
        const velpick::PerspectiveCamera lens{{0, 0, 40}, target, {0, 1, 0}, 60, 160, 100, {}};
        const velpick::RgbImage image =
            velpick::RenderScene({{plate.get(), {}}}, *velpick::PerspectiveView(lens, 1000.0), {},
                                 velpick::ImageFrame{0, 0, 1, int(kScreenW), int(kScreenH)});
        return std::count_if(image.pixels.begin(), image.pixels.end(), [&](velpick::Rgb pixel) {
            return pixel.r != image.pixels[0].r || pixel.g != image.pixels[0].g;
        });
    };
    EXPECT_GT(Drawn({0, 0, 0}), 1000);  // looking down at the plate
    EXPECT_EQ(Drawn({0, 0, 80}), 0);    // looking up, away from it
}

TEST(CameraErrors, NameTheFieldInOneLine) {
    const auto Pinhole = [](const char* key, const json& value) {
        json lens = json::parse(R"({"K": [[100, 0, 80], [0, 100, 50], [0, 0, 1]], "t": [0, 0, 50],
            "R": [[1, 0, 0], [0, 1, 0], [0, 0, 1]], "image": [160, 100]})");
        lens[key] = value;
        return json{{"pinhole", lens}};
    };
    const std::pair<json, std::string> cases[] = {
        {With(kLook, {{"fov_deg", 0}}), "camera.fov_deg: expected a number > 0 and < 180"},
        {With(kLook, {{"fov_deg", 180}}), "camera.fov_deg: expected a number > 0 and < 180"},
        {With(kLook, {{"fov_deg", 60}, {"near", 0}}), "camera.near: expected a number > 0"},
        {With(kLook, {{"height", 9}, {"near", 1}}), "camera.near: unknown field"},
        {Pinhole("K", {{100, 1, 80}, {0, 100, 50}, {0, 0, 1}}), "camera.pinhole.K: skew"},
        {Pinhole("K", {{100, 0, 80}, {0, 100, 50}, {0, 0, 2}}), "camera.pinhole.K: the third row"},
        {Pinhole("K", {{100, 0, 80}, {0, -100, 50}, {0, 0, 1}}), "camera.pinhole.K: fx and fy"},
        {Pinhole("R", {{1.00001, 0, 0}, {0, 1, 0}, {0, 0, 1}}), "camera.pinhole.R: not a rotation"},
        {Pinhole("R", {{1, 0, 0}, {0, 1, 0}, {0, 0, -1}}), "camera.pinhole.R: a reflection"},
        {Pinhole("distortion", {0.1, 0}), "camera.pinhole.distortion: unknown field"},
    };
    for (const auto& [camera, message] : cases) {
        try {
            Pick(camera, kLasso);
            ADD_FAILURE() << "accepted " << camera.dump();
        } catch (const velpick::SceneError& error) {
            const std::string what = error.what();
            EXPECT_TRUE(what.rfind("scene.json: " + message, 0) == 0 &&
                        what.find('\n') == std::string::npos)
                << what;
        }
    }
}

}  // namespace
}  // namespace pinhole
