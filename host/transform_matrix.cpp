#include <velpick/host/transform_matrix.h>

#include <cmath>
#include <utility>

#include <velpick/host/vector_math.h>

using VelSDK::Math::point3d;
using VelSDK::Math::point3f;

bool MMTransform::Transform(point3d& p, bool isDirection) const {
    point3d in = p;
    return Transform(p, in, isDirection);
}

bool MMTransform::Transform(point3f& out, const point3f& in, bool isDirection) const {
    point3d mapped;
    if (!Transform(mapped, point3d{in.x, in.y, in.z}, isDirection))
        return false;
    out = {static_cast<float>(mapped.x), static_cast<float>(mapped.y),
           static_cast<float>(mapped.z)};
    return true;
}

point3d MMTransform::operator()(const point3d& p, bool isDirection) const {
    point3d out = p;
    Transform(out, p, isDirection);
    return out;
}

namespace {

using Matrix = double[4][4];

void setIdentity(Matrix m) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m[r][c] = r == c ? 1.0 : 0.0;
}

// result = a · b
void multiply(const Matrix a, const Matrix b, Matrix result) {
    double product[4][4];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k)
                sum += a[r][k] * b[k][c];
            product[r][c] = sum;
        }
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            result[r][c] = product[r][c];
}

// Gauss-Jordan elimination with partial pivoting; false when a pivot is exactly zero.
bool invert(const Matrix m, Matrix inverse) {
    double a[4][8];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            a[r][c] = m[r][c];
            a[r][c + 4] = r == c ? 1.0 : 0.0;
        }
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::fabs(a[r][col]) > std::fabs(a[pivot][col]))
                pivot = r;
        if (a[pivot][col] == 0.0 || !std::isfinite(a[pivot][col]))
            return false;
        if (pivot != col)
            std::swap(a[pivot], a[col]);
        const double scale = 1.0 / a[col][col];
        for (double& v : a[col])
            v *= scale;
        for (int r = 0; r < 4; ++r) {
            if (r == col || a[r][col] == 0.0)
                continue;
            const double factor = a[r][col];
            for (int c = 0; c < 8; ++c)
                a[r][c] -= factor * a[col][c];
        }
    }
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            inverse[r][c] = a[r][c + 4];
    return true;
}

point3d cross(const point3d& a, const point3d& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double dot(const point3d& a, const point3d& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

}  // namespace

MMTransformMatrix::MMTransformMatrix() {
    setIdentity(m_m);
}

MMTransformMatrix::MMTransformMatrix(const std::array<double, 16>& rowMajor) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m_m[r][c] = rowMajor[4 * r + c];
}

MMTransformMatrix& MMTransformMatrix::PreMultiply(const MMTransformMatrix& other) {
    multiply(other.m_m, m_m, m_m);
    return *this;
}

MMTransformMatrix& MMTransformMatrix::PostMultiply(const MMTransformMatrix& other) {
    multiply(m_m, other.m_m, m_m);
    return *this;
}

bool MMTransformMatrix::Invert() {
    return invert(m_m, m_m);
}

bool MMTransformMatrix::MakeIdentity() {
    setIdentity(m_m);
    return true;
}

bool MMTransformMatrix::MakeTranslation(const point3d& offset) {
    setIdentity(m_m);
    m_m[0][3] = offset.x;
    m_m[1][3] = offset.y;
    m_m[2][3] = offset.z;
    return true;
}

bool MMTransformMatrix::MakeScale1D(double factor) {
    return MakeScale3D(factor, factor, factor);
}

bool MMTransformMatrix::MakeScale3D(const double& sx, const double& sy, const double& sz) {
    setIdentity(m_m);
    m_m[0][0] = sx;
    m_m[1][1] = sy;
    m_m[2][2] = sz;
    return true;
}

bool MMTransformMatrix::MakeRotationInPlane(point3d from, point3d to, const point3d& centre) {
    if (!VelSDK::Math::Normalize(from) || !VelSDK::Math::Normalize(to))
        return false;

    // Rodrigues' formula about the axis from × to, with cos = from·to and sin = |from × to|.
    point3d axis = cross(from, to);
    const double cosAngle = dot(from, to);
    double sinAngle = VelSDK::Math::Length(axis);
    if (!VelSDK::Math::Normalize(axis)) {
        if (cosAngle > 0.0)
            return MakeIdentity();
        // Opposite directions: a half turn about any axis perpendicular to `from`.
        const point3d helper = std::fabs(from.x) < 0.9 ? point3d{1, 0, 0} : point3d{0, 1, 0};
        axis = cross(from, helper);
        VelSDK::Math::Normalize(axis);
        sinAngle = 0.0;
    }
    const double k[3] = {axis.x, axis.y, axis.z};
    const double oneMinusCos = 1.0 - cosAngle;
    setIdentity(m_m);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            m_m[r][c] = k[r] * k[c] * oneMinusCos + (r == c ? cosAngle : 0);
    m_m[0][1] -= k[2] * sinAngle;
    m_m[0][2] += k[1] * sinAngle;
    m_m[1][0] += k[2] * sinAngle;
    m_m[1][2] -= k[0] * sinAngle;
    m_m[2][0] -= k[1] * sinAngle;
    m_m[2][1] += k[0] * sinAngle;
    // Rotate about the centre: p' = R (p - c) + c.
    const double c[3] = {centre.x, centre.y, centre.z};
    for (int r = 0; r < 3; ++r)
        m_m[r][3] = c[r] - (m_m[r][0] * c[0] + m_m[r][1] * c[1] + m_m[r][2] * c[2]);
    return true;
}

bool MMTransformMatrix::Transform(point3d& out, const point3d& in, bool isDirection) const {
    const double w = isDirection ? 0.0 : 1.0;
    const point3d p = in;  // `out` may alias `in`
    out.x = m_m[0][0] * p.x + m_m[0][1] * p.y + m_m[0][2] * p.z + m_m[0][3] * w;
    out.y = m_m[1][0] * p.x + m_m[1][1] * p.y + m_m[1][2] * p.z + m_m[1][3] * w;
    out.z = m_m[2][0] * p.x + m_m[2][1] * p.y + m_m[2][2] * p.z + m_m[2][3] * w;
    return true;
}

bool MMTransformMatrix::InverseTransform(point3d& out, const point3d& in, bool isDirection) const {
    MMTransformMatrix inverse = *this;
    if (!inverse.Invert())
        return false;
    return inverse.Transform(out, in, isDirection);
}

MMTransformMatrix::operator VelSDK::Math::matrix4x4<double>() const {
    VelSDK::Math::matrix4x4<double> result;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            result.m[i][j] = m_m[j][i];
    return result;
}
