// Perspective and pinhole cameras of scene files: where the field-of-view camera puts points,
// the pinhole form against the field-of-view form, a far narrow camera against the
// orthographic one, the picture of what lies behind the eye, and the camera errors.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "camera_view.h"
#include "picker.h"
#include "scene.h"
#include "scene_image.h"
#include "scene_loader.h"
#include "support/scene_builders.h"

namespace {

using nlohmann::json;
using VelSDK::Math::point3d;
using Marks = std::set<std::pair<std::size_t, std::size_t>>;  // (mesh, triangle)

constexpr double kPi = 3.14159265358979323846;
constexpr double kScreenW = 160.0, kScreenH = 100.0;
// Rounding may settle a triangle on a region or silhouette boundary either way.
constexpr std::size_t kFewBoundaryTriangles = 4;

point3d Sub(point3d a, point3d b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
point3d Add(point3d a, point3d b, double s = 1.0) {
    return {a.x + s * b.x, a.y + s * b.y, a.z + s * b.z};
}
double Dot(point3d a, point3d b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
point3d Cross(point3d a, point3d b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
point3d Unit(point3d a) {
    return Add({0, 0, 0}, a, 1.0 / std::sqrt(Dot(a, a)));
}
json Json(point3d p) {
    return {p.x, p.y, p.z};
}
json With(json base, const json& extra) {
    base.update(extra);
    return base;
}

// A sphere in front of a plate with a hole (model units 1000 internal units each).
std::vector<std::unique_ptr<MStlBase>> Meshes() {
    std::vector<std::unique_ptr<MStlBase>> meshes;
    meshes.push_back(scene::plateWithHole(30000, 8000, 0, 24));
    meshes.push_back(scene::uvSphere({0, 0, -9000}, 12000));
    return meshes;
}

velpick::Scene Parse(const json& camera, const json& region) {
    const json scene = {{"meshes", {{{"file", "plate.obj"}}, {{"file", "sphere.obj"}}}},
                        {"camera", camera},
                        {"region", region}};
    return velpick::ParseScene(scene.dump(), "scene.json", ".");
}

Marks Pick(const json& camera, const json& region, const std::string& picker = "zbuffer") {
    const auto meshes = Meshes();
    velpick::Scene scene = Parse(camera, region);
    scene.settings.picker = picker;
    const velpick::PickResult result =
        velpick::MakePicker(picker)->Pick(velpick::MakePickRequest(scene, meshes));
    Marks marks;
    for (std::size_t m = 0; m < result.meshes.size(); ++m)
        for (std::size_t t : result.meshes[m].triangles)
            marks.insert({m, t});
    return marks;
}

std::size_t Differing(const Marks& a, const Marks& b) {
    std::size_t count = 0;
    for (const auto& mark : a)
        count += !b.count(mark);
    for (const auto& mark : b)
        count += !a.count(mark);
    return count;
}

json FovCamera(point3d eye, point3d target, point3d up, double fov) {
    return {{"eye", Json(eye)},
            {"target", Json(target)},
            {"up", Json(up)},
            {"fov_deg", fov},
            {"screen", {kScreenW, kScreenH}}};
}

const point3d kEye{14, -40, 35}, kTarget{2, 1, -3}, kUp{0, 0, 1};
const json kLasso = {{"polygon", {{30, 18}, {128, 26}, {110, 88}, {46, 80}}}};

TEST(FovCamera, TargetPlaneMapsAsTheOrthographicCameraAndNearerPointsSpreadOut) {
    const double fov = 40.0, d = std::sqrt(Dot(Sub(kTarget, kEye), Sub(kTarget, kEye)));
    const velpick::PerspectiveCamera lens{kEye, kTarget, kUp, fov, kScreenW, kScreenH, {}};
    const velpick::OrthoCamera flat{kEye,     kTarget, kUp, 2 * d * std::tan(fov * kPi / 360),
                                    kScreenW, kScreenH};
    const velpick::View view = *velpick::PerspectiveView(lens, 1000.0);
    const MMTransformMatrix ortho = *velpick::CameraView(flat, 1000.0);
    // Two directions across the viewing axis, made without the camera's own frame.
    const point3d axis = Unit(Sub(kTarget, kEye));
    const point3d a = Unit(Cross(axis, {1, 2, 3})), b = Cross(axis, a);
    for (const double s : {0.0, 1.0, -7.5})
        for (const double t : {0.0, 2.0, -4.25}) {
            const point3d onPlane = Add(Add(kTarget, a, s), b, t);
            const auto Screen = [&](point3d p) {
                const point3d e = view.matrix.TransformPoint(Add({0, 0, 0}, p, 1000.0));
                const velpick::ViewProjection& k = *view.projection;
                return std::make_pair(k.cx + k.fx * e.x / -e.z, k.cy + k.fy * e.y / -e.z);
            };
            const point3d expected = ortho.TransformPoint(Add({0, 0, 0}, onPlane, 1000.0));
            EXPECT_NEAR(Screen(onPlane).first, expected.x, 1e-9);
            EXPECT_NEAR(Screen(onPlane).second, expected.y, 1e-9);
            // Halfway to the eye the same offset lands twice as far from the centre.
            const point3d nearer = Add(Add(Add(kEye, axis, d / 2), a, s), b, t);
            EXPECT_NEAR(Screen(nearer).first - kScreenW / 2, 2 * (expected.x - kScreenW / 2), 1e-9);
            EXPECT_NEAR(Screen(nearer).second - kScreenH / 2, 2 * (expected.y - kScreenH / 2),
                        1e-9);
        }
}

TEST(PinholeCamera, PicksWhatTheSameFovCameraPicks) {
    const double fov = 50.0, f = kScreenH / (2 * std::tan(fov * kPi / 360));
    // The camera frame by hand: x right, y down, z along the view.
    const point3d z = Unit(Sub(kTarget, kEye)), x = Unit(Cross(z, kUp)), y = Cross(z, x);
    const json rotation = {Json(x), Json(y), Json(z)};
    const json translation = {-Dot(x, kEye), -Dot(y, kEye), -Dot(z, kEye)};
    const json pinhole = {
        {"pinhole",
         {{"K", {{f, 0, kScreenW / 2 - 0.5}, {0, f, kScreenH / 2 - 0.5}, {0, 0, 1}}},
          {"R", rotation},
          {"t", translation},
          {"image", {kScreenW, kScreenH}}}}};
    // The same regions in image coordinates: u = x − 0.5, v = h − y − 0.5.
    json imageLasso = kLasso;
    for (json& p : imageLasso["polygon"])
        p = {p[0].get<double>() - 0.5, kScreenH - p[1].get<double>() - 0.5};
    const json brush = {{"brush", {{"path", {{40, 50}, {120, 55}}}, {"radius", 9}}}};
    const json imageBrush = {{"brush", {{"path", {{39.5, 49.5}, {119.5, 44.5}}}, {"radius", 9}}}};
    const std::vector<std::pair<json, json>> regions{{kLasso, imageLasso}, {brush, imageBrush}};
    for (const auto& [screenRegion, imageRegion] : regions) {
        const Marks fovMarks = Pick(FovCamera(kEye, kTarget, kUp, fov), screenRegion);
        const Marks pinholeMarks = Pick(pinhole, imageRegion);
        EXPECT_GT(fovMarks.size(), 100u);
        EXPECT_LE(Differing(fovMarks, pinholeMarks), kFewBoundaryTriangles);
    }
}

TEST(FovCamera, FarAndNarrowPicksWhatTheOrthographicCameraPicks) {
    const double height = 70.0, distance = 1e5;
    const point3d eye = Add(kTarget, Unit(Sub(kEye, kTarget)), distance);
    const double fov = 360 / kPi * std::atan(height / (2 * distance));
    const json ortho = {{"eye", Json(kEye)},
                        {"target", Json(kTarget)},
                        {"up", Json(kUp)},
                        {"height", height},
                        {"screen", {kScreenW, kScreenH}}};
    const Marks flat = Pick(ortho, kLasso);
    EXPECT_GT(flat.size(), 100u);
    EXPECT_LE(Differing(flat, Pick(FovCamera(eye, kTarget, kUp, fov), kLasso)),
              kFewBoundaryTriangles);
}

TEST(PerspectivePicture, DrawsNothingBehindTheEye) {
    const auto meshes = Meshes();
    const std::vector<velpick::PlacedMesh> placed{{meshes[0].get(), {}}, {meshes[1].get(), {}}};
    const velpick::ImageFrame frame{0, 0, 1, int(kScreenW), int(kScreenH)};
    const velpick::SelectionRegion none;
    const auto Drawn = [&](point3d target) {
        const velpick::PerspectiveCamera lens{{0, 0, 40}, target,   {0, 1, 0}, 60,
                                              kScreenW,   kScreenH, {}};
        const velpick::RgbImage image =
            velpick::RenderScene(placed, *velpick::PerspectiveView(lens, 1000.0), none, frame);
        std::size_t count = 0;
        for (const velpick::Rgb& pixel : image.pixels)
            count += pixel.r != image.pixels[0].r || pixel.g != image.pixels[0].g;
        return count;
    };
    EXPECT_GT(Drawn({0, 0, 0}), 1000u);  // looking down at the plate and the sphere
    EXPECT_EQ(Drawn({0, 0, 80}), 0u);    // looking up, away from them
}

TEST(CameraErrors, NameTheFieldInOneLine) {
    const json eye = {
        {"eye", {0, 0, 50}}, {"target", {0, 0, 0}}, {"up", {0, 1, 0}}, {"screen", {160, 100}}};
    const json k = {{100, 0, 80}, {0, 100, 50}, {0, 0, 1}}, r = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const auto Pinhole = [&](const json& key, const json& value) {
        json lens = {{"K", k}, {"R", r}, {"t", {0, 0, 50}}, {"image", {160, 100}}};
        lens[key.get<std::string>()] = value;
        return json{{"pinhole", lens}};
    };
    const std::pair<json, std::string> cases[] = {
        {With(eye, {{"fov_deg", 0}}), "camera.fov_deg: expected a number > 0 and < 180"},
        {With(eye, {{"fov_deg", 180}}), "camera.fov_deg: expected a number > 0 and < 180"},
        {With(eye, {{"fov_deg", 60}, {"near", 0}}), "camera.near: expected a number > 0"},
        {With(eye, {{"height", 9}, {"near", 1}}), "camera.near: unknown field"},
        {Pinhole("K", {{100, 1, 80}, {0, 100, 50}, {0, 0, 1}}), "camera.pinhole.K: skew"},
        {Pinhole("K", {{100, 0, 80}, {0, 100, 50}, {0, 0, 2}}), "camera.pinhole.K: the third row"},
        {Pinhole("K", {{100, 0, 80}, {0, -100, 50}, {0, 0, 1}}), "camera.pinhole.K: fx and fy"},
        {Pinhole("R", {{1.00001, 0, 0}, {0, 1, 0}, {0, 0, 1}}), "camera.pinhole.R: not a rotation"},
        {Pinhole("R", {{1, 0, 0}, {0, 1, 0}, {0, 0, -1}}), "camera.pinhole.R: a reflection"},
        {Pinhole("distortion", {0.1, 0}), "camera.pinhole.distortion: unknown field"},
    };
    for (const auto& [camera, message] : cases) {
        try {
            Parse(camera, kLasso);
            ADD_FAILURE() << "accepted " << camera.dump();
        } catch (const velpick::SceneError& error) {
            const std::string what = error.what();
            EXPECT_EQ(what.rfind("scene.json: " + message, 0), 0u) << what;
            EXPECT_EQ(what.find('\n'), std::string::npos) << what;
        }
    }
    // Until their operators project, the other pickers refuse perspective cameras by name.
    for (const std::string picker : {"scanline", "graph"}) {
        try {
            Pick(Pinhole("t", {0, 0, 50}), kLasso, picker);
            ADD_FAILURE() << picker << " took a pinhole camera";
        } catch (const velpick::PickError& error) {
            EXPECT_EQ(error.Field(), "camera") << picker;
        }
    }
}

}  // namespace
