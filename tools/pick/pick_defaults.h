#pragma once

// The defaults of every pick setting, shared by the scene file, the pickers and the bindings.

namespace velpick {

constexpr const char* kDefaultPicker = "zbuffer";
constexpr double kDefaultUnitsPerModelUnit = 1000.0;  // internal units per model unit
constexpr double kDefaultPixelProportion = 5.0;       // pixels per screen unit
constexpr double kDefaultDepthTolerance = 0.05;       // model length units
constexpr double kDefaultLinesPerPixel = 5.0;         // scan-line picker's sample lines per pixel
constexpr double kDefaultSharpAngleDegrees = 30.0;    // graph picker's feature-edge angle

/// The largest 32-bit value, the bound of internal-unit coordinates and thicknesses.
constexpr double kInt32Max = 2147483647.0;
/// Region coordinates, scaled to pixels, stay inside this bound so that the z-buffer picker's
/// 32-bit pixel arithmetic cannot wrap.
constexpr double kMaxPixelCoordinate = kInt32Max;

}  // namespace velpick
