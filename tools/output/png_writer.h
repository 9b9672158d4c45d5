#pragma once

#include <cstdio>

#include "rgb_image.h"

namespace velpick {

/// Writes `image` as an 8-bit RGB PNG to `stream`. PNG rows run top to bottom, so the image's
/// highest row is written first. Throws std::runtime_error when libpng reports an error.
void WritePng(std::FILE* stream, const RgbImage& image);

}  // namespace velpick
