#pragma once

// The benchmark scene: a noisy torus (fixed seed) of 100k, 1M or 4M triangles seen obliquely
// in a 1000 × 1000 pixel view, a disc lasso over half the view, a brush stroke of radius 20
// pixels and two clipping planes; the same view as a pinhole camera. Meshes are generated once per
// process, written as binary PLY and loaded through the importer, as a user's scan would be.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/mark_polygon.h>
#include "mesh_import.h"
#include "tests/support/noisy_torus.h"

namespace bench {

constexpr double kPixelsPerUnit = 5.0;        // screen units are millimetres, 200 mm wide view
constexpr int kViewPixels = 1000;             // the view is 1000 × 1000 pixels
constexpr double kDiscRadiusPixels = 399.0;   // π · 399² ≈ half of 1000²
constexpr std::size_t kBrushRadiusUnits = 4;  // 20 pixels at 5 pixels per unit

/// Rings × segments with two triangles per quad.
inline scene::IndexedMesh Torus(std::size_t triangles) {
    const int segments = triangles >= 4000000 ? 1000 : triangles >= 1000000 ? 500 : 158;
    const int rings = static_cast<int>(triangles / (2 * segments));
    return scene::NoisyTorus(rings, segments, 60000.0, 25000.0, 0.04);
}

template <class T>
void AppendBytes(std::string& bytes, T value) {
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    bytes.append(raw, sizeof(T));
}

/// The mesh as binary little-endian PLY in millimetres (float x, y, z; uchar-int face lists).
inline std::filesystem::path WritePly(const scene::IndexedMesh& mesh, const std::string& name) {
    const auto path = std::filesystem::temp_directory_path() / ("velpick_bench_" + name + ".ply");
    std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex " +
                        std::to_string(mesh.vertices.size()) +
                        "\nproperty float x\nproperty float y\nproperty float z\nelement face " +
                        std::to_string(mesh.faces.size()) +
                        "\nproperty list uchar int vertex_indices\nend_header\n";
    bytes.reserve(bytes.size() + 12 * mesh.vertices.size() + 13 * mesh.faces.size());
    for (const auto& v : mesh.vertices)
        for (std::int32_t c : v)
            AppendBytes<float>(bytes, static_cast<float>(c / 1000.0));
    for (const auto& f : mesh.faces) {
        AppendBytes<std::uint8_t>(bytes, 3);
        for (std::uint32_t index : f)
            AppendBytes<std::int32_t>(static_cast<std::string&>(bytes),
                                      static_cast<std::int32_t>(index));
    }
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

/// The torus of about `triangles` triangles as a binary PLY file, written once per process.
inline const std::filesystem::path& TorusPly(std::size_t triangles) {
    static std::map<std::size_t, std::filesystem::path> files;
    auto [it, inserted] = files.try_emplace(triangles);
    if (inserted)
        it->second = WritePly(Torus(triangles), "torus_" + std::to_string(triangles));
    return it->second;
}

/// The loaded torus, kept for the whole process.
inline MStlBase& TorusMesh(std::size_t triangles) {
    static std::map<std::size_t, std::unique_ptr<MStlBase>> meshes;
    auto [it, inserted] = meshes.try_emplace(triangles);
    if (inserted)
        it->second = velpick::ImportMesh(TorusPly(triangles), 1000.0);
    return *it->second;
}

/// Millimetres to screen units, tilted so that the torus hides part of itself.
inline MMTransformMatrix View() {
    MMTransformMatrix scale, tilt;
    scale.MakeScale1D(0.001);
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.6, 0.8}, {0, 0, 0});
    scale.PostMultiply(tilt);
    return scale;
}

/// A 256-gon disc about the view centre with `radius` pixels, in screen units.
inline std::vector<VelSDK::Math::point2d> Disc(double radiusPixels = kDiscRadiusPixels) {
    std::vector<VelSDK::Math::point2d> disc;
    const double r = radiusPixels / kPixelsPerUnit, pi = std::acos(-1.0);
    for (int k = 0; k < 256; ++k)
        disc.push_back({r * std::cos(2 * pi * k / 256), r * std::sin(2 * pi * k / 256)});
    return disc;
}

/// A stroke across the torus's front.
inline std::vector<VelSDK::Math::point2d> Stroke() {
    return {{-80, -30}, {-40, 20}, {0, -10}, {40, 25}, {80, -20}};
}

/// Two planes of the placement space (internal units): x ≤ 40 mm and z ≥ −10 mm.
inline std::vector<MMPlaneEq<double>> Planes() {
    return {{-1, 0, 0, 40000}, {0, 0, 1, 10000}};
}

/// The same view as a pinhole: the tilted torus moved kEyeDistance in front of the eye (eye
/// space in internal units), with a focal length that gives the plane through the torus's
/// centre the orthographic view's scale.
constexpr double kEyeDistance = 300000.0;  // internal units, 3.5 torus radii
inline MMTransformMatrix EyeView() {
    MMTransformMatrix tilt, away;
    tilt.MakeRotationInPlane({0, 0, 1}, {0, -0.6, 0.8}, {0, 0, 0});
    away.MakeTranslation({0, 0, -kEyeDistance});
    away.PostMultiply(tilt);
    return away;
}

inline AU_MarkOperations::PolygonMarking::PerspectiveProjection Pinhole() {
    const double focal = 0.001 * kEyeDistance;  // screen units per unit of x/depth
    return {focal, focal, 0.0, 0.0, 1e-4 * kEyeDistance};
}

struct PickOptions {
    bool markThrough = false, culling = false, planes = false, brush = false;
    bool perspective = false;
    double discRadius = kDiscRadiusPixels;
    int threads = 1;  // the picker's SetThreads
};

/// One pick on `mesh` as a user's drag would run it.
inline bool Pick(MStlBase& mesh, const PickOptions& o) {
    static const MMTransformMatrix view = View(), eyeView = EyeView(), placement;
    MStlBaseOperatorMarkPolygon picker(kPixelsPerUnit, 0.05, false);
    picker.AddStl(&mesh, o.perspective ? &eyeView : &view, &placement, true, nullptr);
    if (o.perspective)
        picker.SetPerspective(Pinhole());
    if (o.brush)
        picker.SetBrushPath(Stroke(), kBrushRadiusUnits);
    else
        picker.SetPolygon(Disc(o.discRadius));
    picker.SetMarkThrough(o.markThrough);
    picker.SetBackFaceCulling(o.culling);
    picker.SetThreads(o.threads);
    if (o.planes)
        for (const MMPlaneEq<double>& plane : Planes())
            picker.AddClippingPlane(plane);
    return picker.operate();
}

}  // namespace bench
