#pragma once

/// A plane a·x + b·y + c·z + d = 0. The kept side is where a·x + b·y + c·z + d ≥ 0; the
/// coefficients are used as given, never normalised implicitly.
template <class T>
struct MMPlaneEq {
    T a{}, b{}, c{}, d{};

    template <class P>
    T SignedValue(const P& p) const {
        return a * p.x + b * p.y + c * p.z + d;
    }
};
