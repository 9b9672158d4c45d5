#include "session/screen_tile_index.h"

#include <algorithm>
#include <cmath>

namespace AU_MarkOperations::PolygonMarking {

namespace {

/// The smallest tile side, in pixels: a brush of a few pixels meets a handful of tiles.
constexpr double kMinTilePixels = 8.0;
/// Finest tiles are at least this many times the median triangle's extent, so that most
/// triangles are listed in the finest level.
constexpr double kTileToTriangleExtent = 2.0;
/// Each level's tiles are this many times wider than the level before.
constexpr double kLevelGrowth = 4.0;
/// A triangle is listed in the finest level where its bounds meet at most this many tiles.
constexpr std::size_t kMaxListedTiles = 2;
/// At most one finest tile per this many triangles: the tile offsets of all levels stay
/// within 2.2 bytes a triangle.
constexpr std::uint32_t kTrianglesPerTile = 4;
/// Triangle extents sampled to find the median.
constexpr std::uint32_t kExtentSamples = 1024;

}  // namespace

ScreenTileIndex::ScreenTileIndex(std::uint32_t triangles, const FootprintOf& footprint) {
    _ChooseLevels(triangles, footprint);
    _FillLevels(triangles, footprint);
}

// The frame of all bounds; the finest tile size from the median triangle extent, doubled until
// the tiles are few enough; then coarser levels up to one tile over the frame.
void ScreenTileIndex::_ChooseLevels(std::uint32_t triangles, const FootprintOf& footprint) {
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
    const double width = frame.xmax - frame.xmin, height = frame.ymax - frame.ymin;
    if (extents.empty() || !std::isfinite(width) || !std::isfinite(height)) {
        m_levels.push_back({1.0, 1, 1, {}, {}});  // one tile holds everything
        return;
    }
    std::nth_element(extents.begin(), extents.begin() + extents.size() / 2, extents.end());
    m_originX = frame.xmin;
    m_originY = frame.ymin;
    double size = std::max(kMinTilePixels, kTileToTriangleExtent * extents[extents.size() / 2]);
    const auto tilesAlong = [&](double extent) { return std::floor(extent / size) + 1.0; };
    const double cap = std::max<std::uint32_t>(1, triangles / kTrianglesPerTile);
    while (tilesAlong(width) * tilesAlong(height) > cap)
        size *= 2.0;
    for (;; size *= kLevelGrowth) {
        const double columns = tilesAlong(width), rows = tilesAlong(height);
        m_levels.push_back(
            {size, static_cast<std::uint32_t>(columns), static_cast<std::uint32_t>(rows), {}, {}});
        if (columns * rows == 1.0)
            break;
    }
}

// Clamping to the border tiles keeps every overlap: a box beyond the frame meets the border
// tiles, which hold every triangle reaching beyond it on that side.
ScreenTileIndex::TileRange ScreenTileIndex::Level::Range(const PixelBounds& b, double originX,
                                                         double originY) const {
    const auto tile = [&](double coordinate, double origin, std::uint32_t count) {
        const double index = std::floor((coordinate - origin) / tileSize);
        return static_cast<std::uint32_t>(std::clamp(index, 0.0, count - 1.0));
    };
    return {tile(b.xmin, originX, columns), tile(b.ymin, originY, rows),
            tile(b.xmax, originX, columns), tile(b.ymax, originY, rows)};
}

// The finest level where the bounds meet few enough tiles; the last level has one tile.
std::size_t ScreenTileIndex::_LevelOf(const PixelBounds& bounds, TileRange& range) const {
    for (std::size_t level = 0;; ++level) {
        range = m_levels[level].Range(bounds, m_originX, m_originY);
        if (range.Count() <= kMaxListedTiles || level + 1 == m_levels.size())
            return level;
    }
}

// Counts the triangles of every tile, then writes them in ascending order.
void ScreenTileIndex::_FillLevels(std::uint32_t triangles, const FootprintOf& footprint) {
    std::vector<std::vector<std::uint64_t>> cursors;
    for (const Level& level : m_levels)
        cursors.emplace_back(std::size_t{level.columns} * level.rows + 1, 0);
    const auto forEachTile = [&](const Level& level, const TileRange& r, auto visit) {
        for (std::uint32_t y = r.y0; y <= r.y1; ++y)
            for (std::uint32_t x = r.x0; x <= r.x1; ++x)
                visit(std::size_t{y} * level.columns + x);
    };
    PixelBounds b{};
    TileRange r{};
    for (std::uint32_t t = 0; t < triangles; ++t) {
        if (footprint(t, b) != Footprint::kBounds)
            continue;
        const std::size_t level = _LevelOf(b, r);
        forEachTile(m_levels[level], r, [&](std::size_t tile) { ++cursors[level][tile + 1]; });
    }
    for (std::size_t level = 0; level < m_levels.size(); ++level) {
        std::vector<std::uint64_t>& cursor = cursors[level];
        for (std::size_t tile = 0; tile + 1 < cursor.size(); ++tile)
            cursor[tile + 1] += cursor[tile];
        m_levels[level].tileStart = cursor;
        m_levels[level].triangles.resize(cursor.back());
    }
    for (std::uint32_t t = 0; t < triangles; ++t) {
        const Footprint where = footprint(t, b);
        if (where == Footprint::kEverywhere)
            m_everywhere.push_back(t);
        if (where != Footprint::kBounds)
            continue;
        const std::size_t level = _LevelOf(b, r);
        forEachTile(m_levels[level], r, [&](std::size_t tile) {
            m_levels[level].triangles[cursors[level][tile]++] = t;
        });
    }
    m_everywhere.shrink_to_fit();
}

void ScreenTileIndex::Gather(const PixelBounds& box, TriangleBitmap& candidates) const {
    for (const Level& level : m_levels) {
        const TileRange r = level.Range(box, m_originX, m_originY);
        for (std::uint32_t y = r.y0; y <= r.y1; ++y) {
            // A row's tiles x0 … x1 hold one contiguous run of the list.
            const std::size_t row = std::size_t{y} * level.columns;
            const std::uint32_t* t = level.triangles.data() + level.tileStart[row + r.x0];
            const std::uint32_t* end = level.triangles.data() + level.tileStart[row + r.x1 + 1];
            for (; t != end; ++t)
                candidates.Set(*t);
        }
    }
    for (const std::uint32_t t : m_everywhere)
        candidates.Set(t);
}

std::size_t ScreenTileIndex::MemoryBytes() const {
    std::size_t bytes = m_everywhere.capacity() * sizeof(std::uint32_t);
    for (const Level& level : m_levels)
        bytes += level.tileStart.capacity() * sizeof(std::uint64_t) +
                 level.triangles.capacity() * sizeof(std::uint32_t);
    return bytes;
}

}  // namespace AU_MarkOperations::PolygonMarking
