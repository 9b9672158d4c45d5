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
/// tiles, so it is held at most twice; per tile the list is ascending. Bounds and query boxes
/// go to tiles through one monotone map (a finest-level column or row, halved twice per
/// level), so a box that meets a triangle's bounds meets one of its tiles.
class ScreenTileIndex {
  public:
    /// `footprint(t, bounds)` classifies triangle t and, for kBounds, fills its bounds. It is
    /// called twice per triangle, from up to `threads` threads of the caller's oneTBB arena
    /// at once (1 or less: the calling thread alone); the index does not depend on `threads`.
    using FootprintOf = std::function<Footprint(std::uint32_t, PixelBounds&)>;

    ScreenTileIndex(std::uint32_t triangles, const FootprintOf& footprint, int threads);

    /// Sets in `candidates` the bit of every triangle whose bounds may meet `box` (finite).
    void Gather(const PixelBounds& box, TriangleBitmap& candidates) const;

    std::size_t MemoryBytes() const;

  private:
    /// Tiles x0 … x1 by y0 … y1 of one level, bounds included.
    struct TileRange {
        std::uint32_t x0, y0, x1, y1;

        TileRange Coarser(unsigned levels) const {
            const unsigned shift = 2 * levels;
            return {x0 >> shift, y0 >> shift, x1 >> shift, y1 >> shift};
        }
        std::size_t Count() const { return std::size_t{x1 - x0 + 1} * (y1 - y0 + 1); }
    };
    struct Level {
        std::uint32_t columns, rows;
        std::vector<std::uint64_t> tileStart;  // per tile, then the end of the last
        std::vector<std::uint32_t> triangles;
    };
    /// Where one triangle is listed: up to two adjacent tiles of one level.
    struct Placement {
        enum Shape : std::uint8_t {
            kUnlisted,
            kEverywhere,
            kOneTile,
            kTileAndRight,
            kTileAndBelow
        };
        std::uint32_t tile;  // the first tile, row-major in its level
        std::uint8_t level;
        Shape shape;
    };

    void _ChooseLevels(std::uint32_t triangles, const FootprintOf& footprint, int threads);
    std::vector<Placement> _Place(std::uint32_t triangles, const FootprintOf& footprint,
                                  int threads) const;
    void _FillLevels(const std::vector<Placement>& placements);
    TileRange _FinestRange(const PixelBounds& bounds) const;
    Placement _PlacementOf(const PixelBounds& bounds) const;

    double m_originX = 0.0, m_originY = 0.0;  // the lower left corner of every level's tile (0, 0)
    double m_finestTilesPerPixel = 1.0;
    std::vector<Level> m_levels;  // finest first
    std::vector<std::uint32_t> m_everywhere;
};

}  // namespace AU_MarkOperations::PolygonMarking
