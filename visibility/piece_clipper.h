#pragma once

#include <vector>

#include <velpick/host/plane_eq.h>
#include <velpick/host/point.h>

namespace visibility {

/// A triangle piece: three corners in the winding of the triangle it came from.
struct Piece {
    VelSDK::Math::point3d p[3];
};

/// Replaces every piece of `pieces` by its part on the kept side of `plane` (value ≥ 0), in
/// order, keeping each piece's winding. `scratch` is reused working storage.
///
/// A piece with all corners kept stays as it is, one with none vanishes. Otherwise the odd
/// corner i (the first whose side differs from both others; j = i + 1, k = i + 2 mod 3) is cut
/// towards j and k along the lines p_i + t·(p_i − p_j) and p_i + t·(p_i − p_k), giving X1 and
/// X2; a line parallel to the plane gives the point (0, 0, 0). A kept odd corner leaves
/// (p_i, X1, X2); a dropped one leaves (X1, p_j, p_k) and (X1, p_k, X2).
void ClipPieces(std::vector<Piece>& pieces, const MMPlaneEq<double>& plane,
                std::vector<Piece>& scratch);

}  // namespace visibility
