#pragma once

// Small meshes for picking scenes, built directly in internal units. Every triangle is
// counter-clockwise about its outward normal.

#include <cmath>
#include <cstdint>
#include <memory>

#include "stl_base.h"
#include "stl_surface.h"
#include "stl_triangle.h"

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
    const auto r = [](double v) { return static_cast<int>(std::lround(v)); };
    const int ax = r(a.x), ay = r(a.y), az = r(a.z), bx = r(b.x), by = r(b.y), bz = r(b.z);
    const int cx = r(c.x), cy = r(c.y), cz = r(c.z);
    const bool ab = ax == bx && ay == by && az == bz, bc = bx == cx && by == cy && bz == cz;
    const bool ca = cx == ax && cy == ay && cz == az;
    if (ab || bc || ca)
        return nullptr;
    return surface.AddTriangle(ax, ay, az, bx, by, bz, cx, cy, cz);
}

/// The quad corner, corner + u, corner + u + v, corner + v as two triangles (normal u × v).
inline void addQuad(MStlSurface& surface, V corner, V u, V v) {
    addTriangle(surface, corner, corner + u, corner + u + v);
    addTriangle(surface, corner, corner + u + v, corner + v);
}

/// A grid of cells × cells quads spanning corner … corner + u + v.
inline void addGrid(MStlSurface& surface, V corner, V u, V v, int cells) {
    const V du = (1.0 / cells) * u, dv = (1.0 / cells) * v;
    for (int i = 0; i < cells; ++i)
        for (int j = 0; j < cells; ++j)
            addQuad(surface, corner + i * du + j * dv, du, dv);
}

inline void addUvSphere(MStlSurface& surface, V centre, double radius, int rings, int segments) {
    const double pi = std::acos(-1.0);
    const auto at = [&](int ring, int segment) {
        const double theta = pi * ring / rings, phi = 2.0 * pi * segment / segments;
        return centre + radius * V{std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                                   std::cos(theta)};
    };
    for (int i = 0; i < rings; ++i) {
        for (int j = 0; j < segments; ++j) {
            addTriangle(surface, at(i, j), at(i + 1, j), at(i + 1, j + 1));
            addTriangle(surface, at(i, j), at(i + 1, j + 1), at(i, j + 1));
        }
    }
}

inline std::unique_ptr<MStlBase> uvSphere(V centre, double radius, int rings = 24,
                                          int segments = 48) {
    auto mesh = std::make_unique<MStlBase>();
    addUvSphere(*mesh->AddSurface(nullptr), centre, radius, rings, segments);
    return mesh;
}

/// A square plate [−half, half]² at height z facing +z, cut into cells × cells quads.
inline std::unique_ptr<MStlBase> plate(double half, double z, int cells) {
    auto mesh = std::make_unique<MStlBase>();
    addGrid(*mesh->AddSurface(nullptr), {-half, -half, z}, {2 * half, 0, 0}, {0, 2 * half, 0},
            cells);
    return mesh;
}

/// A plate as above with the cells inside the square [−holeHalf, holeHalf]² left out.
inline void addPlateWithHole(MStlSurface& surface, double half, double holeHalf, double z,
                             int cells) {
    const double step = 2 * half / cells;
    for (int i = 0; i < cells; ++i) {
        for (int j = 0; j < cells; ++j) {
            const V corner{-half + i * step, -half + j * step, z};
            const bool inHole = corner.x >= -holeHalf && corner.x + step <= holeHalf &&
                                corner.y >= -holeHalf && corner.y + step <= holeHalf;
            if (!inHole)
                addQuad(surface, corner, {step, 0, 0}, {0, step, 0});
        }
    }
}

inline std::unique_ptr<MStlBase> plateWithHole(double half, double holeHalf, double z,
                                               int cells = 16) {
    auto mesh = std::make_unique<MStlBase>();
    addPlateWithHole(*mesh->AddSurface(nullptr), half, holeHalf, z, cells);
    return mesh;
}

/// A closed axis-aligned cube, each face a grid of cells × cells quads.
inline std::unique_ptr<MStlBase> cube(V centre, double half, int cells = 4) {
    auto mesh = std::make_unique<MStlBase>();
    MStlSurface& s = *mesh->AddSurface(nullptr);
    const double e = 2 * half;
    const V lo = centre + V{-half, -half, -half}, hi = centre + V{half, half, half};
    addGrid(s, lo, {0, e, 0}, {e, 0, 0}, cells);    // bottom, −z
    addGrid(s, hi, {-e, 0, 0}, {0, -e, 0}, cells);  // top, +z
    addGrid(s, lo, {e, 0, 0}, {0, 0, e}, cells);    // −y
    addGrid(s, hi, {0, 0, -e}, {-e, 0, 0}, cells);  // +y
    addGrid(s, lo, {0, 0, e}, {0, e, 0}, cells);    // −x
    addGrid(s, hi, {0, -e, 0}, {0, 0, -e}, cells);  // +x
    return mesh;
}

}  // namespace scene
