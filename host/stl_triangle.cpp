#include "stl_triangle.h"

#include "stl_point.h"
#include "vector_math.h"

using VelSDK::Math::point3d;

point3d MStlTriangle::GetVertex(const std::size_t& i) const {
    const MStlPoint& p = *m_points[i];
    return {static_cast<double>(p[0]), static_cast<double>(p[1]), static_cast<double>(p[2])};
}

point3d MStlTriangle::GetNormal() const {
    const point3d a = GetVertex(0), b = GetVertex(1), c = GetVertex(2);
    const point3d u{b.x - a.x, b.y - a.y, b.z - a.z}, v{c.x - a.x, c.y - a.y, c.z - a.z};
    point3d normal{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
    VelSDK::Math::Normalize(normal);
    return normal;
}
