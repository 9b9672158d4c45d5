#pragma once

// Small meshes for picking scenes, built directly in internal units. Every triangle is
// counter-clockwise about its outward normal.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>

#include <velpick/host/stl_base.h>
#include <velpick/host/stl_surface.h>
#include <velpick/host/stl_triangle.h>

namespace scene {

struct V {
    double x, y, z;
};

inline V operator+(V a, V b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline V operator*(double s, V a) {
    return {s * a.x, s * a.y, s * a.z};
}

/// Appends the triangle a, b, c rounded to internal units; degenerate ones (two vertices on
/// the same integer point) are skipped and give null.
inline MStlTriangle* addTriangle(MStlSurface& surface, V a, V b, V c) {
    const auto r = [](V v) {
        return std::array<int, 3>{int(std::lround(v.x)), int(std::lround(v.y)),
                                  int(std::lround(v.z))};
    };
    const auto p = r(a), q = r(b), s = r(c);
    if (p == q || q == s || s == p)
        return nullptr;
    return surface.AddTriangle(p[0], p[1], p[2], q[0], q[1], q[2], s[0], s[1], s[2]);
}

/// The quad corner, corner + u, corner + u + v, corner + v as two triangles (normal u × v).
inline void addQuad(MStlSurface& surface, V corner, V u, V v) {
    addTriangle(surface, corner, corner + u, corner + u + v);
    addTriangle(surface, corner, corner + u + v, corner + v);
}

/// A grid of cells × cells quads spanning corner … corner + u + v, leaving out the cells that lie
/// inside the square [−holeHalf, holeHalf]² in x and y.
inline void addGrid(MStlSurface& surface, V corner, V u, V v, int cells, double holeHalf = 0) {
    const V du = (1.0 / cells) * u, dv = (1.0 / cells) * v;
    for (int i = 0; i < cells; ++i)
        for (int j = 0; j < cells; ++j) {
            const V c = corner + i * du + j * dv, far = c + du + dv;
            const bool inHole =
                std::min(c.x, far.x) >= -holeHalf && std::max(c.x, far.x) <= holeHalf &&
                std::min(c.y, far.y) >= -holeHalf && std::max(c.y, far.y) <= holeHalf;
            if (!inHole || holeHalf <= 0)
                addQuad(surface, c, du, dv);
        }
}

inline void addUvSphere(MStlSurface& surface, V centre, double radius, int rings, int segments) {
    const double pi = std::acos(-1.0);
    const auto at = [&](int ring, int segment) {
        const double theta = pi * ring / rings, phi = 2.0 * pi * segment / segments;
        return centre + radius * V{std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                                   std::cos(theta)};
    };
    for (int i = 0; i < rings; ++i)
        for (int j = 0; j < segments; ++j) {
            addTriangle(surface, at(i, j), at(i + 1, j), at(i + 1, j + 1));
            addTriangle(surface, at(i, j), at(i + 1, j + 1), at(i, j + 1));
        }
}

/// A mesh of one surface filled by `build`.
template <class Build>
std::unique_ptr<MStlBase> oneSurface(Build build) {
    auto mesh = std::make_unique<MStlBase>();
    build(*mesh->AddSurface(nullptr));
    return mesh;
}

inline std::unique_ptr<MStlBase> uvSphere(V centre, double radius, int rings = 24,
                                          int segments = 48) {
    return oneSurface([&](MStlSurface& s) { addUvSphere(s, centre, radius, rings, segments); });
}

/// A square plate [−half, half]² at height z facing +z, cut into cells × cells quads, with the
/// cells inside the square [−holeHalf, holeHalf]² left out.
inline void addPlateWithHole(MStlSurface& surface, double half, double holeHalf, double z,
                             int cells) {
    addGrid(surface, {-half, -half, z}, {2 * half, 0, 0}, {0, 2 * half, 0}, cells, holeHalf);
}

inline std::unique_ptr<MStlBase> plateWithHole(double half, double holeHalf, double z,
                                               int cells = 16) {
    return oneSurface([&](MStlSurface& s) { addPlateWithHole(s, half, holeHalf, z, cells); });
}

inline std::unique_ptr<MStlBase> plate(double half, double z, int cells) {
    return plateWithHole(half, 0, z, cells);
}

/// A closed axis-aligned cube, each face a grid of cells × cells quads.
inline void addCube(MStlSurface& s, V centre, double half, int cells = 4) {
    const double e = 2 * half;
    const V lo = centre + V{-half, -half, -half}, hi = centre + V{half, half, half};
    addGrid(s, lo, {0, e, 0}, {e, 0, 0}, cells);    // bottom, −z
    addGrid(s, hi, {-e, 0, 0}, {0, -e, 0}, cells);  // top, +z
    addGrid(s, lo, {e, 0, 0}, {0, 0, e}, cells);    // −y
    addGrid(s, hi, {0, 0, -e}, {-e, 0, 0}, cells);  // +y
    addGrid(s, lo, {0, 0, e}, {0, e, 0}, cells);    // −x
    addGrid(s, hi, {0, -e, 0}, {0, 0, -e}, cells);  // +x
}

inline std::unique_ptr<MStlBase> cube(V centre, double half, int cells = 4) {
    return oneSurface([&](MStlSurface& s) { addCube(s, centre, half, cells); });
}

}  // namespace scene
