#pragma once

#include <velpick/host/point.h>

/// A 2D line through two points, also read as the segment between them.
class MMLine2D {
  public:
    MMLine2D(const VelSDK::Math::point2d& from, const VelSDK::Math::point2d& to);

    const VelSDK::Math::point2d& From() const { return m_from; }
    const VelSDK::Math::point2d& To() const { return m_to; }

    /// Whether this segment and `other` meet, or pass within `tolerance` of each other.
    /// On success `out` is the meeting point: the crossing point of crossing segments, the
    /// first point of the overlap along this segment for collinear overlapping segments, and
    /// the midpoint of the closest pair of points for segments that only come within the
    /// tolerance. `out` is unchanged when the result is false.
    bool GetIntersectionSegmentSegment(VelSDK::Math::point2d& out, const MMLine2D& other,
                                       double tolerance) const;

  private:
    VelSDK::Math::point2d m_from, m_to;
};
