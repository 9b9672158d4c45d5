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
/// Tiles come in levels, each 4 times coarser than the one before, the last a single tile over
/// the whole frame. A triangle is listed in the finest level where its bounds meet at most two
/// tiles, so it is held at most twice; per tile the list is ascending.
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
    struct TileRange {
        std::uint32_t x0, y0, x1, y1;
        std::size_t Count() const { return std::size_t{x1 - x0 + 1} * (y1 - y0 + 1); }
    };
    struct Level {
        double tileSize;  // pixels
        std::uint32_t columns, rows;
        std::vector<std::uint64_t> tileStart;  // per tile, then the end of the last
        std::vector<std::uint32_t> triangles;

        TileRange Range(const PixelBounds& bounds, double originX, double originY) const;
    };

    void _ChooseLevels(std::uint32_t triangles, const FootprintOf& footprint);
    void _FillLevels(std::uint32_t triangles, const FootprintOf& footprint);
    std::size_t _LevelOf(const PixelBounds& bounds, TileRange& range) const;

    double m_originX = 0.0, m_originY = 0.0;  // the lower left corner of every level's tile (0, 0)
    std::vector<Level> m_levels;              // finest first
    std::vector<std::uint32_t> m_everywhere;
};

}  // namespace AU_MarkOperations::PolygonMarking
