#pragma once

// A noisy torus as an indexed triangle list, generated from a fixed seed so that every run,
// every compiler and every machine builds the same mesh. Used by tests and benchmarks.

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include <velpick/host/stl_base.h>
#include <velpick/host/stl_surface.h>

namespace scene {

struct IndexedMesh {
    std::vector<std::array<std::int32_t, 3>> vertices;  // internal units
    std::vector<std::array<std::uint32_t, 3>> faces;    // counter-clockwise about the outside
};

/// A torus about the z axis (major radius `major`, minor radius `minor`, internal units) of
/// rings × segments quads, each split into two triangles; every vertex is pushed along its
/// normal by up to ±noise × minor. The noise comes from mt19937's raw output, which the
/// standard fixes, not from a distribution, whose results it leaves to the library.
inline IndexedMesh NoisyTorus(int rings, int segments, double major, double minor, double noise,
                              std::uint32_t seed = 20261125u) {
    std::mt19937 random(seed);
    const double pi = std::acos(-1.0);
    IndexedMesh mesh;
    mesh.vertices.reserve(static_cast<std::size_t>(rings) * segments);
    for (int i = 0; i < rings; ++i) {
        const double u = 2.0 * pi * i / rings;
        for (int j = 0; j < segments; ++j) {
            const double v = 2.0 * pi * j / segments;
            const double unit = static_cast<double>(random()) / 4294967295.0;  // [0, 1]
            const double r = minor * (1.0 + noise * (2.0 * unit - 1.0));
            const double ring = major + r * std::cos(v);
            mesh.vertices.push_back({static_cast<std::int32_t>(std::lround(ring * std::cos(u))),
                                     static_cast<std::int32_t>(std::lround(ring * std::sin(u))),
                                     static_cast<std::int32_t>(std::lround(r * std::sin(v)))});
        }
    }
    const auto at = [&](int i, int j) {
        return static_cast<std::uint32_t>((i % rings) * segments + j % segments);
    };
    mesh.faces.reserve(2 * mesh.vertices.size());
    for (int i = 0; i < rings; ++i)
        for (int j = 0; j < segments; ++j) {
            mesh.faces.push_back({at(i, j), at(i + 1, j), at(i + 1, j + 1)});
            mesh.faces.push_back({at(i, j), at(i + 1, j + 1), at(i, j + 1)});
        }
    return mesh;
}

/// The indexed mesh as a host mesh of one surface, in face order.
inline std::unique_ptr<MStlBase> ToHostMesh(const IndexedMesh& indexed) {
    auto mesh = std::make_unique<MStlBase>();
    MStlSurface& surface = *mesh->AddSurface(nullptr);
    for (const auto& face : indexed.faces) {
        const auto& a = indexed.vertices[face[0]];
        const auto& b = indexed.vertices[face[1]];
        const auto& c = indexed.vertices[face[2]];
        surface.AddTriangle(a[0], a[1], a[2], b[0], b[1], b[2], c[0], c[1], c[2]);
    }
    return mesh;
}

}  // namespace scene
