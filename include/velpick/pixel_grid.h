#pragma once

#include <array>
#include <cstdint>
#include <iterator>
#include <valarray>
#include <vector>

#include <velpick/host/point.h>

namespace AU_MarkOperations::PolygonMarking {

/// Segments whose squared length is below this test only the pixel of their lower endpoint.
constexpr double kMinSegmentLengthSq = 0.0003452669770922512;

/// A boolean raster of screen pixels, one byte per pixel, row-major.
///
/// Pixel (column x, row y) is cell y·width + x; row 0 is the lowest screen y. Pixel (x, y)
/// covers [x, x+1) × [y, y+1) and is sampled at (x + pixelSize/2, y + pixelSize/2). Screen
/// coordinates are converted to pixel indices by truncation toward zero.
///
/// The grid owns its cells. Callers keep width·height ≤ 2 147 483 647. A const grid hands out
/// its cells only for reading.
///
/// Hostile sizes: a grid with no cells (a zero or negative width or height, e.g. 0 × INT32_MAX
/// or 0 × INT32_MIN) is valid; filling it and both Intersect forms do nothing and return false
/// at once. A negative or NaN pixel size moves the samples below and left of their pixels
/// (or nowhere); every run the span walk writes or reads is still clipped to its row.
class PixelGrid {
  public:
    /// A width × height grid with every cell set to initialValue. Throws std::length_error when
    /// width·height is negative or exceeds 2 147 483 647.
    PixelGrid(std::int32_t width, std::int32_t height, double pixelSize, bool initialValue);
    /// The same grid, then the polygon (closed implicitly, in pixel units) scan-converted into
    /// it over all rows. Cells a row's span walk touches get the even-odd state of their
    /// sample; cells it does not touch keep initialValue.
    ///
    /// A scanline through a vertex gets one crossing from each edge meeting there. A
    /// horizontal edge lying on a scanline gives a NaN crossing; NaN crossings sort after all
    /// others and run the row's span to its last pixel with the state reached there.
    PixelGrid(const std::vector<VelSDK::Math::point2d>& polygon, std::int32_t width,
              std::int32_t height, double pixelSize, bool initialValue);
    PixelGrid(const PixelGrid&) = delete;
    PixelGrid& operator=(const PixelGrid&) = delete;

    /// The cell at (row, column): row first. No bounds check.
    bool& At(unsigned long long row, unsigned long long column) {
        return m_cells[row * m_width + column];
    }
    bool At(unsigned long long row, unsigned long long column) const {
        return m_cells[row * m_width + column];
    }
    std::int32_t GetWidth() const { return m_width; }
    std::int32_t GetHeight() const { return m_height; }
    /// The cells, for callers that walk the raster directly (null for a grid without cells).
    operator bool*() { return std::begin(m_cells); }
    operator const bool*() const { return std::begin(m_cells); }

    /// True when some pixel that filling `polygon` would set inside is already set. The grid
    /// is unchanged; an empty polygon gives false.
    bool Intersect(const std::vector<VelSDK::Math::point2d>& polygon) const;
    /// True when some pixel crossed by the segment is set. The segment is walked cell by cell
    /// in a frame one pixel wider than its box on every side; a segment shorter than
    /// √kMinSegmentLengthSq tests only the pixel of its lower endpoint. The walk skips the
    /// cells before the grid and stops after it, so its cost is bounded by the grid's width
    /// plus height whatever the segment's length. Coordinates beyond the 32-bit range, NaN or
    /// infinite give a walk that ends, with no promise about which cells it tested.
    bool Intersect(std::array<VelSDK::Math::point2d, 2> segment) const;

  private:
    std::int32_t m_width;
    std::int32_t m_height;
    double m_pixelSize;
    // One bool per cell, row-major. std::valarray rather than std::vector: std::vector<bool>
    // packs bits and could not hand out the bool* the cells are read and written through.
    std::valarray<bool> m_cells;
};

}  // namespace AU_MarkOperations::PolygonMarking
