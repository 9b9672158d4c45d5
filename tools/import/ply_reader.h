#pragma once

#include <string_view>

#include "ply_header.h"
#include "polygon_soup.h"

namespace velpick::detail {

/// Reads the body of a PLY file (ascii, binary_little_endian or binary_big_endian) whose
/// header is `header`, `bytes` being the whole file: vertex positions from the x, y and z
/// properties of element "vertex", faces from the list property "vertex_indices" (or
/// "vertex_index") of element "face"; every other element and property is read past and
/// ignored. Coordinates keep the precision of their stored type. Throws ImportFailure for a
/// truncated body, a negative index or data left over after the last element, and, before
/// reading an element, when its declared count cannot fit in the bytes that remain (each binary
/// instance takes its scalars and list counts, each ascii instance at least one character per
/// property). A binary element without properties occupies no bytes and is passed over
/// whatever its count.
PolygonSoup ReadPlyBody(const PlyHeader& header, std::string_view bytes);

}  // namespace velpick::detail
