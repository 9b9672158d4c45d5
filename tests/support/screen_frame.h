#pragma once

// The screen of the visibility detector's scenes: y-down pixels, 100 internal units to a
// pixel, the model origin at pixel (50, 50), and a lasso around it.

#include <vector>

#include <velpick/host/point.h>
#include <velpick/host/transform_matrix.h>

namespace scene {

/// x = x / 100 + 50, y = 50 − y / 100, depth z / 100 (larger nearer), after `turn`.
/// Triangles facing the viewer turn clockwise on screen.
inline MMTransformMatrix ScreenFrame(const MMTransformMatrix& turn = MMTransformMatrix()) {
    MMTransformMatrix m = turn, scale, shift;
    scale.MakeScale3D(0.01, -0.01, 0.01);
    shift.MakeTranslation({50, 50, 0});
    return m.PreMultiply(scale).PreMultiply(shift);
}

/// An irregular, partly concave polygon around (50, 50).
inline std::vector<VelSDK::Math::point2d> Lasso() {
    return {{33.3, 36.1}, {58.7, 31.9}, {67.2, 47.5}, {55.1, 52.3},
            {64.9, 66.6}, {41.4, 69.2}, {31.6, 55.8}};
}

}  // namespace scene
