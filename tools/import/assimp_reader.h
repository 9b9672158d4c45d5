#pragma once

#include <filesystem>

#include "polygon_soup.h"

namespace velpick::detail {

/// The polygons of an STL or OBJ file as the general scene reader gives them, in file order.
/// With `surfacesFromGroups`, each OBJ group or object name becomes a surface, numbered in order
/// of first appearance; otherwise the whole file is surface 0. Throws ImportFailure with the
/// reader's reason when the file cannot be read.
PolygonSoup ReadWithAssimp(const std::filesystem::path& file, bool surfacesFromGroups);

}  // namespace velpick::detail
