#include <velpick/host/line2d.h>

#include <algorithm>
#include <cmath>

using VelSDK::Math::point2d;

namespace {

double cross(const point2d& a, const point2d& b) {
    return a.x * b.y - a.y * b.x;
}
point2d minus(const point2d& a, const point2d& b) {
    return {a.x - b.x, a.y - b.y};
}
double dot(const point2d& a, const point2d& b) {
    return a.x * b.x + a.y * b.y;
}
int sign(double v) {
    return (v > 0.0) - (v < 0.0);
}

point2d lerp(const point2d& a, const point2d& b, double t) {
    return {a.x + t * (b.x - a.x), a.y + t * (b.y - a.y)};
}

// The point of segment [a, b] closest to p.
point2d closestOnSegment(const point2d& p, const point2d& a, const point2d& b) {
    const point2d d = minus(b, a);
    const double lengthSq = dot(d, d);
    if (lengthSq == 0.0)
        return a;
    return lerp(a, b, std::clamp(dot(minus(p, a), d) / lengthSq, 0.0, 1.0));
}

// Collinear segments: parameters of [c, d] along [a, b], clipped to [0, 1].
bool collinearOverlap(const point2d& a, const point2d& b, const point2d& c, const point2d& d,
                      point2d& out) {
    const point2d ab = minus(b, a);
    const double lengthSq = dot(ab, ab);
    if (lengthSq == 0.0) {  // [a, b] is a point lying on the line of [c, d]
        const point2d cd = minus(d, c);
        const double t = dot(cd, cd) == 0.0 ? 0.0 : dot(minus(a, c), cd) / dot(cd, cd);
        if ((cd.x != 0.0 || cd.y != 0.0 || a != c) && (t < 0.0 || t > 1.0))
            return false;
        out = a;
        return true;
    }
    double t0 = dot(minus(c, a), ab) / lengthSq, t1 = dot(minus(d, a), ab) / lengthSq;
    if (t0 > t1)
        std::swap(t0, t1);
    const double start = std::max(t0, 0.0), end = std::min(t1, 1.0);
    if (start > end)
        return false;
    out = lerp(a, b, start);
    return true;
}

}  // namespace

MMLine2D::MMLine2D(const point2d& from, const point2d& to) : m_from(from), m_to(to) {}

bool MMLine2D::GetIntersectionSegmentSegment(point2d& out, const MMLine2D& other,
                                             double tolerance) const {
    const point2d &a = m_from, &b = m_to, &c = other.m_from, &d = other.m_to;
    const int sideC = sign(cross(minus(b, a), minus(c, a)));
    const int sideD = sign(cross(minus(b, a), minus(d, a)));
    const int sideA = sign(cross(minus(d, c), minus(a, c)));
    const int sideB = sign(cross(minus(d, c), minus(b, c)));

    if (sideC == 0 && sideD == 0 && sideA == 0 && sideB == 0) {
        if (collinearOverlap(a, b, c, d, out))
            return true;
    } else if (sideC * sideD <= 0 && sideA * sideB <= 0) {
        const double denominator = cross(minus(b, a), minus(d, c));
        if (denominator != 0.0) {
            out = lerp(a, b, cross(minus(c, a), minus(d, c)) / denominator);
            return true;
        }
    }

    // No exact meeting: the closest pair of points is at an endpoint of one of the segments.
    const point2d candidates[4][2] = {{a, closestOnSegment(a, c, d)},
                                      {b, closestOnSegment(b, c, d)},
                                      {closestOnSegment(c, a, b), c},
                                      {closestOnSegment(d, a, b), d}};
    int best = 0;
    double bestDistance = INFINITY;
    for (int i = 0; i < 4; ++i) {
        const double distance = std::hypot(candidates[i][0].x - candidates[i][1].x,
                                           candidates[i][0].y - candidates[i][1].y);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    if (!(bestDistance <= tolerance))
        return false;
    out = lerp(candidates[best][0], candidates[best][1], 0.5);
    return true;
}
