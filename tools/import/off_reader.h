#pragma once

#include <string_view>

#include "polygon_soup.h"

namespace velpick::detail {

/// Reads an OFF file: the keyword OFF (or COFF, NOFF, CNOFF), the vertex, face and edge counts,
/// one vertex per line (x y z, anything after them such as a colour or normal is ignored), then
/// one face per line (n, then n vertex indices, then an optional colour). Lines starting with
/// '#' are comments. Throws ImportFailure naming the line for malformed or truncated text.
PolygonSoup ReadOff(std::string_view text);

}  // namespace velpick::detail
