#pragma once

#include <cstdint>
#include <istream>
#include <memory>

#include <velpick/host/stl_base.h>

#include "ply_header.h"

namespace velpick::detail {

/// The mesh of a binary PLY file in the host's byte order whose layout allows streaming it:
/// exactly the elements "vertex" then "face"; vertex records of scalar properties with x, y
/// and z stored as float or double; faces of the index list alone, its count a uchar, int or
/// uint and its items int or uint, every face a triangle; at most 2^31 - 1 vertices. `body`
/// is the file positioned at the start of its body, `bodyBytes` the bytes from there to the end
/// of the file, `header` its header; coordinates are scaled by `unitsPerModelUnit` and rounded
/// to the nearest integer. The vertex records are held in internal units, the faces read in
/// blocks: the file is never held whole.
///
/// The mesh is the one the general reader would build (same merged vertices, numbered in order
/// of first use, same triangles in file order, one surface). Returns null, and nothing of what
/// it built, for any other layout and for any fault (a truncated or overlong body, a face that
/// is not a triangle, an index out of range, a coordinate out of range in internal units): the
/// general reader then reads the file and reports the fault in its own words.
std::unique_ptr<MStlBase> BuildPlyTriangleMesh(const PlyHeader& header, std::istream& body,
                                               std::uint64_t bodyBytes, double unitsPerModelUnit);

}  // namespace velpick::detail
