#include "scene_image.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "palette.h"
#include "pinhole_view.h"

namespace velpick {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

// Even a surface seen edge-on keeps this much of its colour, so that it stays visible.
constexpr double kAmbientShade = 0.25;

// A double clamped to [low, high] before its conversion to int, since a triangle or region
// may reach far beyond the picture; NaN, from a view that overflowed, gives low.
int ClampedToInt(double value, int low, int high) {
    if (!(value > low))
        return low;
    return value < high ? static_cast<int>(value) : high;
}

// Pixel bounds of a span, in [0, limit − 1].
int ClampedPixel(double position, int limit) {
    return ClampedToInt(std::floor(position), 0, limit - 1);
}

// A frame the renderer can convert with: finite corner and scale, a scale above zero.
std::optional<ImageFrame> Checked(const ImageFrame& frame) {
    const bool usable = std::isfinite(frame.xmin) && std::isfinite(frame.ymin) &&
                        std::isfinite(frame.pixelsPerUnit) && frame.pixelsPerUnit > 0.0;
    return usable ? std::optional<ImageFrame>(frame) : std::nullopt;
}

bool IsFinite(const ScreenBox& box) {
    return std::isfinite(box.xmin) && std::isfinite(box.ymin) && std::isfinite(box.xmax) &&
           std::isfinite(box.ymax);
}

bool IsDrawn(const MStlTriangle& triangle) {
    return triangle.IsVisible() && triangle.GetSurface()->GetVisible();
}

MMTransformMatrix MeshToScreen(const PlacedMesh& mesh, const MMTransformMatrix& view) {
    MMTransformMatrix transform(view);
    transform.PostMultiply(mesh.placement);
    return transform;
}

Rgb Shaded(Rgb colour, double shade) {
    const auto scale = [shade](std::uint8_t c) {
        return static_cast<std::uint8_t>(std::lround(c * shade));
    };
    return {scale(colour.r), scale(colour.g), scale(colour.b)};
}

// Flat shading: the share of the face turned towards the viewer, either side; `sight` points
// from the face towards the viewer.
double FaceShade(const point3d (&p)[3], const point3d& sight) {
    const point3d u{p[1].x - p[0].x, p[1].y - p[0].y, p[1].z - p[0].z};
    const point3d v{p[2].x - p[0].x, p[2].y - p[0].y, p[2].z - p[0].z};
    const point3d n{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
    const double length = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z) *
                          std::sqrt(sight.x * sight.x + sight.y * sight.y + sight.z * sight.z);
    const double along = n.x * sight.x + n.y * sight.y + n.z * sight.z;
    // Overflowing corners give an infinite or NaN normal: shade such a face as edge-on.
    const double facing = length > 0.0 && std::isfinite(length) ? std::abs(along) / length : 0.0;
    return kAmbientShade + (1.0 - kAmbientShade) * facing;
}

// Along an affine view the viewer looks down the screen's z axis.
constexpr point3d kScreenSight{0.0, 0.0, 1.0};

/// How points reach the picture: through an affine view to the screen, or through a
/// perspective view to eye space, cut at the near plane and divided by their depth.
class PictureProjection {
  public:
    PictureProjection(const std::optional<ViewProjection>& projection, const ImageFrame& frame)
        : m_projection(projection), m_frame(frame) {}

    bool IsPerspective() const { return m_projection.has_value(); }

    /// A screen point (x, y, larger z nearer) in picture pixels; under a perspective view an
    /// eye-space point in front of the near plane, its z the reciprocal depth near/depth.
    point3d ToPicture(const point3d& p) const {
        if (!m_projection)
            return {(p.x - m_frame.xmin) * m_frame.pixelsPerUnit,
                    (p.y - m_frame.ymin) * m_frame.pixelsPerUnit, p.z};
        const ViewProjection& camera = *m_projection;
        const double depth = -p.z;
        return {(camera.cx + camera.fx * p.x / depth - m_frame.xmin) * m_frame.pixelsPerUnit,
                (camera.cy + camera.fy * p.y / depth - m_frame.ymin) * m_frame.pixelsPerUnit,
                camera.nearDistance / depth};
    }

    /// The part of the polygon `corners` that lies at or beyond the near plane (all of it
    /// under an affine view); corners made on the plane sit exactly at the near depth.
    std::vector<point3d> Kept(const std::vector<point3d>& corners) const {
        if (!m_projection)
            return corners;
        const double nearDistance = m_projection->nearDistance;
        const auto beyond = [nearDistance](const point3d& p) { return -p.z - nearDistance; };
        std::vector<point3d> kept;
        const bool closed = corners.size() > 2;
        for (std::size_t i = 0; i < corners.size(); ++i) {
            const point3d& a = corners[i];
            if (beyond(a) >= 0.0)
                kept.push_back(a);
            if (!closed && i + 1 == corners.size())
                break;
            const point3d& b = corners[(i + 1) % corners.size()];
            const double da = beyond(a), db = beyond(b);
            if ((da >= 0.0) != (db >= 0.0)) {
                const double t = da / (da - db);
                kept.push_back({a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, -nearDistance});
            }
        }
        return kept;
    }

  private:
    std::optional<ViewProjection> m_projection;
    ImageFrame m_frame;
};

/// A triangle in picture pixels, drawn with a depth test (larger z nearer).
class TriangleFiller {
  public:
    TriangleFiller(RgbImage& image, std::vector<float>& depth) : m_image(image), m_depth(depth) {}

    void Fill(const point3d (&p)[3], Rgb colour) {
        const double area = Edge(p[0], p[1], p[2].x, p[2].y);
        if (area == 0.0)
            return;
        const int x0 = ClampedPixel(std::min({p[0].x, p[1].x, p[2].x}), m_image.width);
        const int x1 = ClampedPixel(std::max({p[0].x, p[1].x, p[2].x}), m_image.width);
        const int y0 = ClampedPixel(std::min({p[0].y, p[1].y, p[2].y}), m_image.height);
        const int y1 = ClampedPixel(std::max({p[0].y, p[1].y, p[2].y}), m_image.height);
        for (int y = y0; y <= y1; ++y)
            FillRow(p, area, colour, y, x0, x1);
    }

  private:
    static double Edge(const point3d& a, const point3d& b, double x, double y) {
        return (b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x);
    }

    void FillRow(const point3d (&p)[3], double area, Rgb colour, int y, int x0, int x1) {
        const std::size_t row = static_cast<std::size_t>(y) * m_image.width;
        Rgb* pixel = m_image.pixels.data() + row + x0;
        float* depth = m_depth.data() + row + x0;
        const double yc = y + 0.5;
        for (int x = x0; x <= x1; ++x, ++pixel, ++depth) {
            const double xc = x + 0.5;
            const double w0 = Edge(p[1], p[2], xc, yc) / area;
            const double w1 = Edge(p[2], p[0], xc, yc) / area;
            const double w2 = 1.0 - w0 - w1;
            if (w0 < 0.0 || w1 < 0.0 || w2 < 0.0)
                continue;
            const auto z = static_cast<float>(w0 * p[0].z + w1 * p[1].z + w2 * p[2].z);
            if (z > *depth) {
                *depth = z;
                *pixel = colour;
            }
        }
    }

    RgbImage& m_image;
    std::vector<float>& m_depth;
};

// The kept part of a triangle, a fan of up to two triangles, each in picture pixels.
void DrawTriangle(const point3d (&corners)[3], Rgb colour, const PictureProjection& projection,
                  TriangleFiller& filler) {
    const std::vector<point3d> kept = projection.Kept({corners[0], corners[1], corners[2]});
    for (std::size_t i = 1; i + 1 < kept.size(); ++i) {
        const point3d picture[3] = {projection.ToPicture(kept[0]), projection.ToPicture(kept[i]),
                                    projection.ToPicture(kept[i + 1])};
        filler.Fill(picture, colour);
    }
}

void DrawMesh(const PlacedMesh& mesh, const MMTransformMatrix& view,
              const PictureProjection& projection, TriangleFiller& filler) {
    const MMTransformMatrix toView = MeshToScreen(mesh, view);
    for (std::size_t i = 0; i < mesh.mesh->GetNumberOfTriangles(); ++i) {
        const MStlTriangle& triangle = mesh.mesh->GetTriangle(i);
        if (!IsDrawn(triangle))
            continue;
        point3d corners[3];
        for (std::size_t k = 0; k < 3; ++k)
            toView.Transform(corners[k], triangle.GetVertex(k), false);
        // In eye space the viewer sits at the origin: the sight line runs from the face's
        // centre back to it.
        const point3d sight = projection.IsPerspective()
                                  ? point3d{-(corners[0].x + corners[1].x + corners[2].x),
                                            -(corners[0].y + corners[1].y + corners[2].y),
                                            -(corners[0].z + corners[1].z + corners[2].z)}
                                  : kScreenSight;
        const Rgb base = triangle.IsMarked() ? kHighlightColour : kSurfaceColour;
        DrawTriangle(corners, Shaded(base, FaceShade(corners, sight)), projection, filler);
    }
}

point2d ToPicture(const point2d& p, const ImageFrame& frame) {
    return {(p.x - frame.xmin) * frame.pixelsPerUnit, (p.y - frame.ymin) * frame.pixelsPerUnit};
}

// Even-odd fill of pixel centres, row by row; an edge counts for rows whose centre lies in
// [lower y, upper y), so that a vertex on a row is crossed once.
void FillPolygonMask(const std::vector<point2d>& polygon, const ImageFrame& frame,
                     std::vector<std::uint8_t>& mask) {
    if (polygon.empty())
        return;
    std::vector<point2d> points;
    for (const point2d& p : polygon)
        points.push_back(ToPicture(p, frame));
    std::vector<double> crossings;
    for (int y = 0; y < frame.height; ++y) {
        const double yc = y + 0.5;
        crossings.clear();
        for (std::size_t i = 0, j = points.size() - 1; i < points.size(); j = i++) {
            const point2d &a = points[j], &b = points[i];
            if ((a.y <= yc) != (b.y <= yc))
                crossings.push_back(a.x + (yc - a.y) * (b.x - a.x) / (b.y - a.y));
        }
        std::sort(crossings.begin(), crossings.end());
        std::uint8_t* row = mask.data() + static_cast<std::size_t>(y) * frame.width;
        for (std::size_t k = 0; k + 1 < crossings.size(); k += 2) {
            // Centres x + 0.5 in [left, right): x from ceil(left − 0.5) to ceil(right − 0.5).
            const int from = ClampedToInt(std::ceil(crossings[k] - 0.5), 0, frame.width);
            const int to = ClampedToInt(std::ceil(crossings[k + 1] - 0.5), 0, frame.width);
            std::fill(row + from, row + std::max(from, to), std::uint8_t{1});
        }
    }
}

double SegmentDistance(const point2d& c, const point2d& a, const point2d& b) {
    const double dx = b.x - a.x, dy = b.y - a.y, lengthSq = dx * dx + dy * dy;
    const double t = lengthSq > 0.0
                         ? std::clamp(((c.x - a.x) * dx + (c.y - a.y) * dy) / lengthSq, 0.0, 1.0)
                         : 0.0;
    return std::hypot(c.x - (a.x + t * dx), c.y - (a.y + t * dy));
}

// Pixel centres within the radius of the path (a single point is a disc).
void FillBrushMask(const SelectionRegion& brush, const ImageFrame& frame,
                   std::vector<std::uint8_t>& mask) {
    const double radius = brush.brushRadius * frame.pixelsPerUnit;
    for (std::size_t i = 0; i < brush.points.size(); ++i) {
        const point2d a = ToPicture(brush.points[i], frame);
        const point2d b = ToPicture(brush.points[i + 1 < brush.points.size() ? i + 1 : i], frame);
        const int x0 = ClampedPixel(std::min(a.x, b.x) - radius, frame.width);
        const int x1 = ClampedPixel(std::max(a.x, b.x) + radius, frame.width);
        const int y0 = ClampedPixel(std::min(a.y, b.y) - radius, frame.height);
        const int y1 = ClampedPixel(std::max(a.y, b.y) + radius, frame.height);
        for (int y = y0; y <= y1; ++y) {
            std::uint8_t* cell = mask.data() + static_cast<std::size_t>(y) * frame.width + x0;
            for (int x = x0; x <= x1; ++x, ++cell) {
                if (SegmentDistance({x + 0.5, y + 0.5}, a, b) <= radius)
                    *cell = 1;
            }
        }
    }
}

// Marked feature edges as bars a few pixels wide on top of the shaded surfaces, so that edges
// behind a surface show too: the picture shows what was marked, not only what is in front.
void DrawMarkedEdges(const PlacedMesh& mesh, const MMTransformMatrix& view,
                     const PictureProjection& projection, const ImageFrame& frame,
                     RgbImage& image) {
    const double radius = std::max(1.5, std::max(frame.width, frame.height) / 500.0);
    const MMTransformMatrix toView = MeshToScreen(mesh, view);
    for (const EdgeEnds& edge : mesh.markedEdges) {
        std::vector<point3d> line(2);
        for (int v = 0; v < 2; ++v)
            toView.Transform(line[v], {double(edge[v][0]), double(edge[v][1]), double(edge[v][2])},
                             false);
        line = projection.Kept(line);
        if (line.size() != 2)
            continue;
        point2d ends[2];
        for (int v = 0; v < 2; ++v) {
            const point3d picture = projection.ToPicture(line[v]);
            ends[v] = {picture.x, picture.y};
        }
        const int x0 = ClampedPixel(std::min(ends[0].x, ends[1].x) - radius, frame.width);
        const int x1 = ClampedPixel(std::max(ends[0].x, ends[1].x) + radius, frame.width);
        const int y0 = ClampedPixel(std::min(ends[0].y, ends[1].y) - radius, frame.height);
        const int y1 = ClampedPixel(std::max(ends[0].y, ends[1].y) + radius, frame.height);
        for (int y = y0; y <= y1; ++y) {
            for (int x = x0; x <= x1; ++x) {
                if (SegmentDistance({x + 0.5, y + 0.5}, ends[0], ends[1]) <= radius)
                    image.At(x, y) = kHighlightColour;
            }
        }
    }
}

// The outline is the region's own pixels that touch a pixel outside it (or the picture edge).
void DrawOutline(const std::vector<std::uint8_t>& mask, RgbImage& image) {
    const int w = image.width, h = image.height;
    for (int y = 0; y < h; ++y) {
        const std::uint8_t* cell = mask.data() + static_cast<std::size_t>(y) * w;
        Rgb* pixel = &image.At(0, y);
        for (int x = 0; x < w; ++x, ++cell, ++pixel) {
            if (!*cell)
                continue;
            const bool edge = x == 0 || y == 0 || x == w - 1 || y == h - 1 || !cell[-1] ||
                              !cell[1] || !cell[-w] || !cell[w];
            if (edge)
                *pixel = kOutlineColour;
        }
    }
}

ImageFrame FrameAt(const ScreenBox& box, double pixelsPerUnit, int width, int height) {
    ImageFrame frame;
    frame.pixelsPerUnit = pixelsPerUnit;
    frame.width = width;
    frame.height = height;
    // Centre the box in the picture.
    frame.xmin = (box.xmin + box.xmax) / 2.0 - width / (2.0 * pixelsPerUnit);
    frame.ymin = (box.ymin + box.ymax) / 2.0 - height / (2.0 * pixelsPerUnit);
    return frame;
}

}  // namespace

std::optional<ImageFrame> NaturalFrame(const ScreenBox& box, double pixelsPerUnit) {
    if (!IsFinite(box) || !std::isfinite((box.xmax - box.xmin) * pixelsPerUnit) ||
        !std::isfinite((box.ymax - box.ymin) * pixelsPerUnit))
        return std::nullopt;
    const double width = std::max((box.xmax - box.xmin) * pixelsPerUnit, 1.0);
    const double height = std::max((box.ymax - box.ymin) * pixelsPerUnit, 1.0);
    const double shrink = std::min(1.0, kMaxDefaultImageSide / std::max(width, height));
    const int w = std::max(1, static_cast<int>(std::ceil(width * shrink)));
    const int h = std::max(1, static_cast<int>(std::ceil(height * shrink)));
    ImageFrame frame = FrameAt(box, pixelsPerUnit * shrink, w, h);
    if (shrink == 1.0) {
        // At the scene's own scale the picture starts at the box corner, pixel for pixel.
        frame.xmin = box.xmin;
        frame.ymin = box.ymin;
    }
    return Checked(frame);
}

std::optional<ImageFrame> FittedFrame(const ScreenBox& box, int width, int height) {
    if (!IsFinite(box) || !std::isfinite(box.xmax - box.xmin) ||
        !std::isfinite(box.ymax - box.ymin))
        return std::nullopt;
    const double boxWidth = std::max(box.xmax - box.xmin, std::numeric_limits<double>::min());
    const double boxHeight = std::max(box.ymax - box.ymin, std::numeric_limits<double>::min());
    const double scale = std::min(width / boxWidth, height / boxHeight);
    return Checked(FrameAt(box, scale, width, height));
}

ScreenBox ProjectedBounds(const std::vector<PlacedMesh>& meshes, const MMTransformMatrix& view,
                          const ScreenBox& box) {
    ScreenBox bounds = box;
    for (const PlacedMesh& mesh : meshes) {
        const MMTransformMatrix toScreen = MeshToScreen(mesh, view);
        for (std::size_t i = 0; i < mesh.mesh->GetNumberOfTriangles(); ++i) {
            const MStlTriangle& triangle = mesh.mesh->GetTriangle(i);
            if (!IsDrawn(triangle))
                continue;
            for (std::size_t k = 0; k < 3; ++k) {
                point3d p;
                toScreen.Transform(p, triangle.GetVertex(k), false);
                bounds = {std::min(bounds.xmin, p.x), std::min(bounds.ymin, p.y),
                          std::max(bounds.xmax, p.x), std::max(bounds.ymax, p.y)};
            }
        }
    }
    return bounds;
}

RgbImage RenderScene(const std::vector<PlacedMesh>& meshes, const View& view,
                     const SelectionRegion& region, const ImageFrame& frame) {
    RgbImage image(frame.width, frame.height, kBackgroundColour);
    std::vector<float> depth(image.pixels.size(), -std::numeric_limits<float>::infinity());
    TriangleFiller filler(image, depth);
    const PictureProjection projection(
        view.projection ? std::optional<ViewProjection>(ResolvedProjection(view, meshes))
                        : std::nullopt,
        frame);
    for (const PlacedMesh& mesh : meshes)
        DrawMesh(mesh, view.matrix, projection, filler);
    for (const PlacedMesh& mesh : meshes)
        DrawMarkedEdges(mesh, view.matrix, projection, frame, image);

    const SelectionRegion screen = RegionOnScreen(region, view);
    std::vector<std::uint8_t> mask(image.pixels.size(), 0);
    if (screen.shape == SelectionRegion::Shape::kPolygon)
        FillPolygonMask(screen.points, frame, mask);
    else
        FillBrushMask(screen, frame, mask);
    DrawOutline(mask, image);
    return image;
}

}  // namespace velpick
