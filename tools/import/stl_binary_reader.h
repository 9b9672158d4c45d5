#pragma once

#include <filesystem>
#include <memory>

#include <velpick/host/stl_base.h>

namespace velpick::detail {

/// The mesh of a binary STL file, or null when `file` is a text STL file, which the general
/// reader then reads. Binary STL is an 80-byte comment, a little-endian 32-bit facet count and
/// 50 bytes per facet: a normal (ignored), three corners of little-endian float x, y, z and a
/// 16-bit attribute (ignored).
///
/// A file is binary exactly when its size is 84 + 50 × the count in its header, whatever its
/// first bytes (many binary files begin with "solid"). A file of another size is text when it
/// begins with "solid" (after blanks) and its first 134 bytes (a binary header and first facet)
/// hold no control character other than tab, line feed, vertical tab, form feed and carriage
/// return, as text STL never does. Any other file of at least 84 bytes looks binary and is
/// refused as truncated (or as having bytes after its last facet), naming the byte offset where
/// it ends (or where the extra bytes start); a shorter one is not an STL file.
///
/// The mesh is the one BuildMesh makes of the general reader's polygons: triangle t is facet t
/// with its corners in file order, degenerate facets included, in one surface; coordinates pass
/// through single precision, are scaled by `unitsPerModelUnit` and rounded to the nearest
/// integer; equal positions make one vertex, numbered in order of first use. Facets are read in
/// blocks, never the whole file at once. Throws ImportFailure naming the first coordinate out of
/// range (as vertex 3t + k for corner k of facet t), a file without facets or a failed read.
std::unique_ptr<MStlBase> ReadBinaryStl(const std::filesystem::path& file,
                                        double unitsPerModelUnit);

}  // namespace velpick::detail
