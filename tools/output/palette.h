#pragma once

#include "rgb_image.h"

namespace velpick {

/// Colours of the picture and of the coloured PLY; a marked pixel is the only kind whose red
/// exceeds its blue.
constexpr Rgb kBackgroundColour{28, 30, 38};
constexpr Rgb kSurfaceColour{178, 186, 204};
constexpr Rgb kHighlightColour{255, 128, 0};
constexpr Rgb kOutlineColour{0, 230, 255};

}  // namespace velpick
