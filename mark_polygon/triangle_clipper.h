#pragma once

// Cutting a mesh triangle by clipping planes into the pieces on the planes' kept sides.

#include <cstddef>
#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>

class MStlTriangle;

namespace AU_MarkOperations::PolygonMarking {

/// A piece of a clipped triangle: the triangle it was cut from and three corners (model
/// coordinates while clipping, grid pixels once projected).
struct _ClippedPieceRecord {
    MStlTriangle* triangle = nullptr;
    VelSDK::Math::point3f corners[3];
};

/// The lists the clipper works in, kept by the caller so that their storage is reused.
struct _ClipWorkLists {
    std::vector<_ClippedPieceRecord> scratchA;
    std::vector<_ClippedPieceRecord> scratchB;
    std::vector<_ClippedPieceRecord> pieces;  // the result of the last _ClipTriangle
};

/// Cuts `triangle` (its integer vertex coordinates, in single precision) by planes[0 … count)
/// into `lists.pieces`: the pieces on the kept side (a·x + b·y + c·z + d ≥ 0) of every plane,
/// each plane normalised first. A piece with one corner inside gives one piece, with two a
/// quadrilateral split into two. A crossing on an edge the plane is parallel to in floating
/// point (denominator exactly 0) is placed at the origin (0, 0, 0). No pieces when the
/// triangle lies outside.
void _ClipTriangle(MStlTriangle& triangle, const MMPlaneEq<double>* planes, std::size_t count,
                   _ClipWorkLists& lists);

}  // namespace AU_MarkOperations::PolygonMarking
