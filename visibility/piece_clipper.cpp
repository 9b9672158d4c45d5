#include "visibility/piece_clipper.h"

using VelSDK::Math::point3d;

namespace visibility {
namespace {

// Where the line p + t·dir meets the plane. A line parallel to the plane has no such point;
// the cut then lands on the origin, which is what the crossing formula gives with t = 0 and
// the point left at its initial value.
point3d CrossPlane(const point3d& p, const point3d& dir, const MMPlaneEq<double>& plane) {
    const double denominator = plane.a * dir.x + plane.b * dir.y + plane.c * dir.z;
    if (denominator == 0.0)
        return {0.0, 0.0, 0.0};
    const double t = -(plane.a * p.x + plane.b * p.y + plane.c * p.z + plane.d) / denominator;
    return {p.x + t * dir.x, p.y + t * dir.y, p.z + t * dir.z};
}

point3d Minus(const point3d& a, const point3d& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

void ClipPiece(const Piece& piece, const MMPlaneEq<double>& plane, std::vector<Piece>& out) {
    bool kept[3];
    int keptCount = 0;
    for (int v = 0; v < 3; ++v) {
        kept[v] = plane.SignedValue(piece.p[v]) >= 0.0;  // a corner on the plane is kept
        keptCount += kept[v];
    }
    if (keptCount == 3) {
        out.push_back(piece);
        return;
    }
    if (keptCount == 0)
        return;
    int i = 0;
    while (kept[i] == kept[(i + 1) % 3] || kept[i] == kept[(i + 2) % 3])
        ++i;
    const point3d& pi = piece.p[i];
    const point3d& pj = piece.p[(i + 1) % 3];
    const point3d& pk = piece.p[(i + 2) % 3];
    const point3d x1 = CrossPlane(pi, Minus(pi, pj), plane);
    const point3d x2 = CrossPlane(pi, Minus(pi, pk), plane);
    if (kept[i]) {
        out.push_back({{pi, x1, x2}});
    } else {
        out.push_back({{x1, pj, pk}});
        out.push_back({{x1, pk, x2}});
    }
}

}  // namespace

void ClipPieces(std::vector<Piece>& pieces, const MMPlaneEq<double>& plane,
                std::vector<Piece>& scratch) {
    scratch.clear();
    for (const Piece& piece : pieces)
        ClipPiece(piece, plane, scratch);
    pieces.swap(scratch);
}

}  // namespace visibility
