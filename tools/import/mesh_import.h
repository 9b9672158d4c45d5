#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>

#include <velpick/host/stl_base.h>

namespace velpick {

/// Thrown for any file that cannot be imported; what() is "<file>: <reason>".
class MeshImportError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads an STL (ASCII or binary), OBJ, PLY or OFF file into a new mesh. Coordinates are
/// multiplied by `unitsPerModelUnit` (internal units per model unit) and rounded to the nearest
/// integer; identical vertices
/// are merged; triangle i of the mesh is face i of the file (polygons fan-triangulated in file
/// order); OBJ groups become surfaces in order of first appearance, other formats give one surface.
///
/// The format is chosen by the file's extension (.stl, .obj, .ply, .off, any case). In OBJ, a
/// named object (o) starts a surface like a group does, faces before any group or object form
/// one surface of their own, and material changes do not matter. A face is a
/// polygon of at least three vertices: a face of fewer (an OBJ point or line element, a PLY or
/// OFF face listing one or two vertices) is an error naming the face, since dropping it would
/// shift the index of every later face. A file without any face is an error too. STL and OBJ
/// coordinates pass through single precision on the way in; PLY and OFF keep the precision of
/// the file. Nothing is returned on failure: no partly built mesh escapes.
std::unique_ptr<MStlBase> ImportMesh(const std::filesystem::path& file, double unitsPerModelUnit);

}  // namespace velpick
