#include "session/screen_tile_index.h"

#include <algorithm>
#include <cmath>

namespace AU_MarkOperations::PolygonMarking {

namespace {

/// The smallest tile side, in pixels: a brush of a few pixels meets a handful of tiles.
constexpr double kMinTilePixels = 8.0;
/// Tiles are at least this many times the median triangle's extent, so that most triangles
/// fall into one tile or two.
constexpr double kTileToTriangleExtent = 2.0;
/// Triangles whose bounds meet more tiles than this keep their tile range instead.
constexpr std::size_t kMaxListedTiles = 2;
/// At most one tile per this many triangles: the tile offsets stay within 2 bytes a triangle.
constexpr std::uint32_t kTrianglesPerTile = 4;
/// Triangle extents sampled to find the median.
constexpr std::uint32_t kExtentSamples = 1024;
/// Tile coordinates of wide triangles are kept in 16 bits.
constexpr std::uint32_t kMaxTilesPerAxis = 65535;

}  // namespace

ScreenTileIndex::ScreenTileIndex(std::uint32_t triangles, const FootprintOf& footprint) {
    _ChooseTiles(triangles, footprint);
    _FillTiles(triangles, footprint);
}

// The frame of all bounds, and a tile size from the median triangle extent, doubled until the
// tiles are few enough.
void ScreenTileIndex::_ChooseTiles(std::uint32_t triangles, const FootprintOf& footprint) {
    PixelBounds frame{HUGE_VAL, HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    std::vector<double> extents;
    const std::uint32_t stride = std::max<std::uint32_t>(1, triangles / kExtentSamples);
    PixelBounds b{};
    for (std::uint32_t t = 0; t < triangles; ++t) {
        if (footprint(t, b) != Footprint::kBounds)
            continue;
        frame = {std::min(frame.xmin, b.xmin), std::min(frame.ymin, b.ymin),
                 std::max(frame.xmax, b.xmax), std::max(frame.ymax, b.ymax)};
        if (t % stride == 0)
            extents.push_back(std::max(b.xmax - b.xmin, b.ymax - b.ymin));
    }
    if (extents.empty() || !std::isfinite(frame.xmax - frame.xmin) ||
        !std::isfinite(frame.ymax - frame.ymin))
        return;  // one tile holds everything
    std::nth_element(extents.begin(), extents.begin() + extents.size() / 2, extents.end());
    m_originX = frame.xmin;
    m_originY = frame.ymin;
    m_tileSize = std::max(kMinTilePixels, kTileToTriangleExtent * extents[extents.size() / 2]);
    const double cap = std::max<std::uint32_t>(1, triangles / kTrianglesPerTile);
    const auto tilesAlong = [&](double extent) { return std::floor(extent / m_tileSize) + 1.0; };
    while (tilesAlong(frame.xmax - frame.xmin) * tilesAlong(frame.ymax - frame.ymin) > cap ||
           tilesAlong(frame.xmax - frame.xmin) > kMaxTilesPerAxis ||
           tilesAlong(frame.ymax - frame.ymin) > kMaxTilesPerAxis)
        m_tileSize *= 2.0;
    m_columns = static_cast<std::uint32_t>(tilesAlong(frame.xmax - frame.xmin));
    m_rows = static_cast<std::uint32_t>(tilesAlong(frame.ymax - frame.ymin));
}

// Counts the listed triangles of every tile, then writes them in ascending order.
void ScreenTileIndex::_FillTiles(std::uint32_t triangles, const FootprintOf& footprint) {
    const std::size_t tiles = std::size_t{m_columns} * m_rows;
    std::vector<std::uint64_t> cursor(tiles + 1, 0);
    PixelBounds b{};
    for (std::uint32_t t = 0; t < triangles; ++t) {
        if (footprint(t, b) != Footprint::kBounds)
            continue;
        const TileRange r = _Range(b);
        if (r.Count() > kMaxListedTiles)
            continue;
        for (std::uint32_t y = r.y0; y <= r.y1; ++y)
            for (std::uint32_t x = r.x0; x <= r.x1; ++x)
                ++cursor[std::size_t{y} * m_columns + x + 1];
    }
    for (std::size_t tile = 0; tile < tiles; ++tile)
        cursor[tile + 1] += cursor[tile];
    m_tileStart = cursor;
    m_tileTriangles.resize(cursor[tiles]);
    for (std::uint32_t t = 0; t < triangles; ++t) {
        const Footprint where = footprint(t, b);
        if (where == Footprint::kEverywhere)
            m_everywhere.push_back(t);
        if (where != Footprint::kBounds)
            continue;
        const TileRange r = _Range(b);
        if (r.Count() > kMaxListedTiles) {
            m_wide.push_back({t, static_cast<std::uint16_t>(r.x0), static_cast<std::uint16_t>(r.y0),
                              static_cast<std::uint16_t>(r.x1), static_cast<std::uint16_t>(r.y1)});
            continue;
        }
        for (std::uint32_t y = r.y0; y <= r.y1; ++y)
            for (std::uint32_t x = r.x0; x <= r.x1; ++x)
                m_tileTriangles[cursor[std::size_t{y} * m_columns + x]++] = t;
    }
    m_wide.shrink_to_fit();
    m_everywhere.shrink_to_fit();
}

std::uint32_t ScreenTileIndex::_Tile(double coordinate, double origin, std::uint32_t count) const {
    const double tile = std::floor((coordinate - origin) / m_tileSize);
    return static_cast<std::uint32_t>(std::clamp(tile, 0.0, count - 1.0));
}

// Clamping to the border tiles keeps every overlap: a box beyond the frame meets the border
// tiles, which hold every triangle reaching beyond it on that side.
ScreenTileIndex::TileRange ScreenTileIndex::_Range(const PixelBounds& b) const {
    return {_Tile(b.xmin, m_originX, m_columns), _Tile(b.ymin, m_originY, m_rows),
            _Tile(b.xmax, m_originX, m_columns), _Tile(b.ymax, m_originY, m_rows)};
}

void ScreenTileIndex::Gather(const PixelBounds& box, TriangleBitmap& candidates) const {
    const TileRange r = _Range(box);
    for (std::uint32_t y = r.y0; y <= r.y1; ++y) {
        const std::size_t row = std::size_t{y} * m_columns;
        const std::uint32_t* t = m_tileTriangles.data() + m_tileStart[row + r.x0];
        const std::uint32_t* end = m_tileTriangles.data() + m_tileStart[row + r.x1 + 1];
        for (; t != end; ++t)
            candidates.Set(*t);
    }
    for (const WideTriangle& w : m_wide)
        if (w.x0 <= r.x1 && r.x0 <= w.x1 && w.y0 <= r.y1 && r.y0 <= w.y1)
            candidates.Set(w.triangle);
    for (const std::uint32_t t : m_everywhere)
        candidates.Set(t);
}

std::size_t ScreenTileIndex::MemoryBytes() const {
    return m_tileStart.capacity() * sizeof(std::uint64_t) +
           m_tileTriangles.capacity() * sizeof(std::uint32_t) +
           m_wide.capacity() * sizeof(WideTriangle) +
           m_everywhere.capacity() * sizeof(std::uint32_t);
}

}  // namespace AU_MarkOperations::PolygonMarking
