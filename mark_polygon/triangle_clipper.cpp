#include "mark_polygon/triangle_clipper.h"

#include <utility>

#include <velpick/host/stl_base.h>
#include <velpick/host/stl_point.h>
#include <velpick/host/vector_math.h>

namespace AU_MarkOperations::PolygonMarking {

using VelSDK::Math::point3f;

namespace {

point3f CornerOf(const MStlTriangle& triangle, std::size_t i) {
    const MStlPoint& p = *triangle.GetPoint(i);
    return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
}

MMPlaneEq<float> NormalisedFloatPlane(const MMPlaneEq<double>& plane) {
    MMPlaneEq<float> result{static_cast<float>(plane.a), static_cast<float>(plane.b),
                            static_cast<float>(plane.c), static_cast<float>(plane.d)};
    VelSDK::Math::Normalize(result);
    return result;
}

/// Where the edge from `inside` to `outside` crosses the plane.
point3f Crossing(const point3f& inside, const point3f& outside, const MMPlaneEq<float>& plane) {
    const point3f direction{outside.x - inside.x, outside.y - inside.y, outside.z - inside.z};
    float t;
    // Rounding can leave the denominator exactly 0 although the ends lie on both sides; the
    // crossing is then taken at the origin, a long-standing behaviour that selections rely on.
    if (!VelSDK::Math::IntersectLinePlane(inside, direction, plane, t))
        return {0.0f, 0.0f, 0.0f};
    return {inside.x + t * direction.x, inside.y + t * direction.y, inside.z + t * direction.z};
}

_ClippedPieceRecord PieceOf(const _ClippedPieceRecord& parent, const point3f& p0, const point3f& p1,
                            const point3f& p2) {
    _ClippedPieceRecord piece = parent;
    piece.corners[0] = p0;
    piece.corners[1] = p1;
    piece.corners[2] = p2;
    return piece;
}

/// Appends to `out` the part of `piece` on the plane's kept side, keeping the corner order.
void SplitPiece(const _ClippedPieceRecord& piece, const MMPlaneEq<float>& plane,
                std::vector<_ClippedPieceRecord>& out) {
    bool inside[3];
    int insideCount = 0;
    for (int i = 0; i < 3; ++i) {
        const point3f& p = piece.corners[i];
        inside[i] = plane.a * p.x + plane.b * p.y + plane.c * p.z + plane.d >= 0.0f;
        insideCount += inside[i];
    }
    if (insideCount == 3) {
        out.push_back(piece);
        return;
    }
    if (insideCount == 0)
        return;

    // Rotate so that corner k is the lone inside corner (one inside) or the lone outside
    // corner (two inside); j and l follow it cyclically.
    const bool lone = insideCount == 1;
    int k = 0;
    while (inside[k] != lone)
        ++k;
    const point3f& pk = piece.corners[k];
    const point3f& pj = piece.corners[(k + 1) % 3];
    const point3f& pl = piece.corners[(k + 2) % 3];
    if (lone) {
        out.push_back(PieceOf(piece, pk, Crossing(pk, pj, plane), Crossing(pk, pl, plane)));
        return;
    }
    // Quadrilateral pj, pl, crossing on pl→pk, crossing on pj→pk, split along pj–(pl→pk).
    const point3f crossL = Crossing(pl, pk, plane);
    const point3f crossJ = Crossing(pj, pk, plane);
    out.push_back(PieceOf(piece, pj, pl, crossL));
    out.push_back(PieceOf(piece, pj, crossL, crossJ));
}

}  // namespace

void _ClipTriangle(MStlTriangle& triangle, const MMPlaneEq<double>* planes, std::size_t count,
                   _ClipWorkLists& lists) {
    std::vector<_ClippedPieceRecord>* current = &lists.scratchA;
    std::vector<_ClippedPieceRecord>* next = &lists.scratchB;
    current->clear();
    _ClippedPieceRecord whole;
    whole.triangle = &triangle;
    whole.corners[0] = CornerOf(triangle, 0);
    whole.corners[1] = CornerOf(triangle, 1);
    whole.corners[2] = CornerOf(triangle, 2);
    current->push_back(whole);

    for (std::size_t i = 0; i < count && !current->empty(); ++i) {
        const MMPlaneEq<float> plane = NormalisedFloatPlane(planes[i]);
        next->clear();
        for (const _ClippedPieceRecord& piece : *current)
            SplitPiece(piece, plane, *next);
        std::swap(current, next);
    }
    lists.pieces.assign(current->begin(), current->end());
}

}  // namespace AU_MarkOperations::PolygonMarking
