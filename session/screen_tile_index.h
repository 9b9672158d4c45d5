#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "session/triangle_bitmap.h"

namespace AU_MarkOperations::PolygonMarking {

/// A box in screen pixels, bounds included.
struct PixelBounds {
    double xmin, ymin, xmax, ymax;
};

/// Where a triangle lies for the index: off every region (never a candidate), within its
/// bounds, or unknown (a candidate of every query).
enum class Footprint { kNowhere, kBounds, kEverywhere };

/// The triangles of one mesh binned into square screen tiles by their (already widened)
/// screen bounds. A query box yields every triangle whose bounds meet it, and possibly some
/// others near it; bounds beyond the tiled frame fall into its border tiles, so nothing is
/// ever missed.
///
/// Per tile an ascending list of the triangles whose bounds meet it, for triangles over at
/// most kMaxListedTiles tiles; a triangle over more keeps its tile range in a list of its own.
class ScreenTileIndex {
  public:
    /// `footprint(t, bounds)` classifies triangle t and, for kBounds, fills its bounds. It is
    /// called three times per triangle, in ascending order.
    using FootprintOf = std::function<Footprint(std::uint32_t, PixelBounds&)>;

    ScreenTileIndex(std::uint32_t triangles, const FootprintOf& footprint);

    /// Sets in `candidates` the bit of every triangle whose bounds may meet `box` (finite).
    void Gather(const PixelBounds& box, TriangleBitmap& candidates) const;

    std::size_t MemoryBytes() const;

  private:
    /// A triangle over more tiles than the lists hold, with its inclusive tile range.
    struct WideTriangle {
        std::uint32_t triangle;
        std::uint16_t x0, y0, x1, y1;
    };
    struct TileRange {
        std::uint32_t x0, y0, x1, y1;
        std::size_t Count() const { return std::size_t{x1 - x0 + 1} * (y1 - y0 + 1); }
    };

    void _ChooseTiles(std::uint32_t triangles, const FootprintOf& footprint);
    void _FillTiles(std::uint32_t triangles, const FootprintOf& footprint);
    TileRange _Range(const PixelBounds& bounds) const;
    std::uint32_t _Tile(double coordinate, double origin, std::uint32_t count) const;

    double m_originX = 0.0, m_originY = 0.0;  // the lower left corner of tile (0, 0)
    double m_tileSize = 1.0;                  // pixels
    std::uint32_t m_columns = 1, m_rows = 1;
    std::vector<std::uint64_t> m_tileStart;  // per tile, then the end of the last
    std::vector<std::uint32_t> m_tileTriangles;
    std::vector<WideTriangle> m_wide;
    std::vector<std::uint32_t> m_everywhere;
};

}  // namespace AU_MarkOperations::PolygonMarking
