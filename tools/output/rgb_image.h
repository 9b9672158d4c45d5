#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velpick {

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
};

/// A picture in the pixel convention of the picker: pixel (x, y) is entry y·width + x, and
/// row 0 is the lowest screen y.
struct RgbImage {
    int width = 0, height = 0;
    std::vector<Rgb> pixels;

    RgbImage() = default;
    RgbImage(int w, int h, Rgb fill)
        : width(w), height(h), pixels(static_cast<std::size_t>(w) * h, fill) {}
    Rgb& At(int x, int y) { return pixels[static_cast<std::size_t>(y) * width + x]; }
    const Rgb& At(int x, int y) const { return pixels[static_cast<std::size_t>(y) * width + x]; }
};

}  // namespace velpick
