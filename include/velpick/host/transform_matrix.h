#pragma once

#include <array>

#include <velpick/host/point.h>

/// A transform of 3D points and directions. A direction (isDirection true) ignores the
/// translation part; a position (false) does not.
class MMTransform {
  public:
    virtual ~MMTransform() = default;

    /// out = this transform applied to in. Returns false when the transform cannot be applied.
    virtual bool Transform(VelSDK::Math::point3d& out, const VelSDK::Math::point3d& in,
                           bool isDirection) const = 0;
    /// out = the inverse transform applied to in; false (out unchanged) when not invertible.
    virtual bool InverseTransform(VelSDK::Math::point3d& out, const VelSDK::Math::point3d& in,
                                  bool isDirection) const = 0;

    /// In place.
    bool Transform(VelSDK::Math::point3d& p, bool isDirection) const;
    /// Single-precision points are mapped in double precision and rounded once to float.
    bool Transform(VelSDK::Math::point3f& out, const VelSDK::Math::point3f& in,
                   bool isDirection) const;
    /// The mapped point (the input itself when the transform cannot be applied).
    VelSDK::Math::point3d operator()(const VelSDK::Math::point3d& p, bool isDirection) const;
};

/// A 4x4 affine transform of doubles, a value type.
///
/// Layout: Get(row, column) is the matrix for column vectors (x, y, z, 1), so a point maps to
/// x' = Get(0,0) x + Get(0,1) y + Get(0,2) z + Get(0,3), and likewise for y' and z'. The fourth
/// row is kept but never used to divide: points are mapped as an affine map.
/// The conversion to matrix4x4<double> transposes into the row-vector layout documented there.
class MMTransformMatrix : public MMTransform {
  public:
    /// Identity.
    MMTransformMatrix();
    /// From 16 values in row-major order of the column-vector matrix (see Layout).
    explicit MMTransformMatrix(const std::array<double, 16>& rowMajor);
    MMTransformMatrix(const MMTransformMatrix&) = default;
    MMTransformMatrix& operator=(const MMTransformMatrix&) = default;
    ~MMTransformMatrix() override = default;

    double Get(int row, int column) const { return m_m[row][column]; }
    void Set(int row, int column, double value) { m_m[row][column] = value; }

    /// A.PreMultiply(B): A becomes "apply the old A, then B" (the matrix product B·A).
    MMTransformMatrix& PreMultiply(const MMTransformMatrix& other);
    /// A.PostMultiply(B): A becomes "apply B, then the old A" (the matrix product A·B).
    MMTransformMatrix& PostMultiply(const MMTransformMatrix& other);
    /// Replaces the matrix by its inverse. Returns false, leaving it unchanged, when singular.
    bool Invert();

    bool MakeIdentity();
    bool MakeTranslation(const VelSDK::Math::point3d& offset);
    bool MakeScale1D(double factor);
    bool MakeScale3D(const double& sx, const double& sy, const double& sz);
    /// The rotation about `centre` in the plane of `from` and `to` that turns direction `from`
    /// into direction `to`. Opposite directions turn by a half turn about an axis perpendicular
    /// to `from`. Returns false, leaving the matrix unchanged, when a direction has length 0.
    bool MakeRotationInPlane(VelSDK::Math::point3d from, VelSDK::Math::point3d to,
                             const VelSDK::Math::point3d& centre);

    /// The same map as Transform(out, in, false), bit for bit, without the virtual call: for
    /// loops over many points.
    VelSDK::Math::point3d TransformPoint(const VelSDK::Math::point3d& p) const {
        return {m_m[0][0] * p.x + m_m[0][1] * p.y + m_m[0][2] * p.z + m_m[0][3] * 1.0,
                m_m[1][0] * p.x + m_m[1][1] * p.y + m_m[1][2] * p.z + m_m[1][3] * 1.0,
                m_m[2][0] * p.x + m_m[2][1] * p.y + m_m[2][2] * p.z + m_m[2][3] * 1.0};
    }

    using MMTransform::Transform;
    bool Transform(VelSDK::Math::point3d& out, const VelSDK::Math::point3d& in,
                   bool isDirection) const override;
    bool InverseTransform(VelSDK::Math::point3d& out, const VelSDK::Math::point3d& in,
                          bool isDirection) const override;

    /// The matrix in the row-vector layout of matrix4x4: m[i][j] = Get(j, i).
    operator VelSDK::Math::matrix4x4<double>() const;

  private:
    double m_m[4][4];
};
