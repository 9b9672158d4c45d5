#include "session/screen_tile_index.h"

#include <algorithm>
#include <cmath>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

namespace AU_MarkOperations::PolygonMarking {

namespace {

/// The smallest tile side, in pixels: a brush of a few pixels meets a handful of tiles.
constexpr double kMinTilePixels = 8.0;
/// Finest tiles are at least this many times the median triangle's extent, so that most
/// triangles are listed in the finest level.
constexpr double kTileToTriangleExtent = 2.0;
/// At most one finest tile per this many triangles: the tile offsets of all levels stay
/// within 2.2 bytes a triangle.
constexpr std::uint32_t kTrianglesPerTile = 4;
/// Triangle extents sampled to find the median.
constexpr std::uint32_t kExtentSamples = 1024;
/// Triangles per task of a parallel pass; meshes of at most this many are indexed on the
/// calling thread.
constexpr std::uint32_t kBuildBlock = 16384;

/// Calls visit(block, first, end) for triangles [first, end) of every block of kBuildBlock, on
/// up to `threads` threads of the caller's arena. Blocks are disjoint: a visit that writes only
/// its block's results gives the same results on any number of threads.
template <class Visit>
void ForEachBlock(std::uint32_t triangles, int threads, Visit&& visit) {
    const std::size_t blocks = (std::size_t{triangles} + kBuildBlock - 1) / kBuildBlock;
    const auto run = [&](std::size_t block) {
        const std::size_t first = block * kBuildBlock;
        visit(block, static_cast<std::uint32_t>(first),
              static_cast<std::uint32_t>(std::min<std::size_t>(triangles, first + kBuildBlock)));
    };
    if (threads <= 1 || blocks <= 1) {
        for (std::size_t block = 0; block < blocks; ++block)
            run(block);
        return;
    }
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, blocks),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          for (std::size_t block = range.begin(); block != range.end(); ++block)
                              run(block);
                      });
}

/// The frame of a block's bounds and the extents of its sampled triangles.
struct BoundsSurvey {
    PixelBounds frame{HUGE_VAL, HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    std::vector<double> extents;

    void Add(const PixelBounds& b) {
        frame = {std::min(frame.xmin, b.xmin), std::min(frame.ymin, b.ymin),
                 std::max(frame.xmax, b.xmax), std::max(frame.ymax, b.ymax)};
    }
};

}  // namespace

ScreenTileIndex::ScreenTileIndex(std::uint32_t triangles, const FootprintOf& footprint,
                                 int threads) {
    _ChooseLevels(triangles, footprint, threads);
    _FillLevels(_Place(triangles, footprint, threads));
}

// The frame of all bounds and the median extent of a sample, surveyed block by block and
// merged in block order; the finest tile size from that extent, doubled until the tiles are
// few enough; then coarser levels up to one tile over the frame.
void ScreenTileIndex::_ChooseLevels(std::uint32_t triangles, const FootprintOf& footprint,
                                    int threads) {
    const std::uint32_t stride = std::max<std::uint32_t>(1, triangles / kExtentSamples);
    std::vector<BoundsSurvey> surveys((std::size_t{triangles} + kBuildBlock - 1) / kBuildBlock);
    ForEachBlock(triangles, threads,
                 [&](std::size_t block, std::uint32_t first, std::uint32_t end) {
                     BoundsSurvey& survey = surveys[block];
                     PixelBounds b{};
                     for (std::uint32_t t = first; t < end; ++t) {
                         if (footprint(t, b) != Footprint::kBounds)
                             continue;
                         survey.Add(b);
                         if (t % stride == 0)
                             survey.extents.push_back(std::max(b.xmax - b.xmin, b.ymax - b.ymin));
                     }
                 });
    BoundsSurvey all;
    for (const BoundsSurvey& survey : surveys) {
        all.Add(survey.frame);
        all.extents.insert(all.extents.end(), survey.extents.begin(), survey.extents.end());
    }
    const PixelBounds& frame = all.frame;
    std::vector<double>& extents = all.extents;
    const double width = frame.xmax - frame.xmin, height = frame.ymax - frame.ymin;
    if (extents.empty() || !std::isfinite(width) || !std::isfinite(height)) {
        m_levels.push_back({1, 1, {}, {}});  // one tile holds everything
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
    m_finestTilesPerPixel = 1.0 / size;
    // Each coarser level merges 4 × 4 tiles: its last column is the finest one's, halved twice
    // per level.
    auto lastColumn = static_cast<std::uint32_t>(tilesAlong(width) - 1.0);
    auto lastRow = static_cast<std::uint32_t>(tilesAlong(height) - 1.0);
    for (;; lastColumn >>= 2, lastRow >>= 2) {
        m_levels.push_back({lastColumn + 1, lastRow + 1, {}, {}});
        if (lastColumn == 0 && lastRow == 0)
            break;
    }
}

// Clamping to the border tiles keeps every overlap: a box beyond the frame meets the border
// tiles, which hold every triangle reaching beyond it on that side. The map is monotone in
// each coordinate, so overlapping boxes get overlapping ranges.
ScreenTileIndex::TileRange ScreenTileIndex::_FinestRange(const PixelBounds& b) const {
    const auto tile = [&](double coordinate, double origin, std::uint32_t count) {
        const double index = std::floor((coordinate - origin) * m_finestTilesPerPixel);
        return static_cast<std::uint32_t>(std::clamp(index, 0.0, count - 1.0));
    };
    const Level& finest = m_levels.front();
    return {tile(b.xmin, m_originX, finest.columns), tile(b.ymin, m_originY, finest.rows),
            tile(b.xmax, m_originX, finest.columns), tile(b.ymax, m_originY, finest.rows)};
}

// The finest level where the bounds meet at most two tiles; the last level has one tile.
ScreenTileIndex::Placement ScreenTileIndex::_PlacementOf(const PixelBounds& bounds) const {
    const TileRange finest = _FinestRange(bounds);
    for (unsigned level = 0;; ++level) {
        const TileRange r = finest.Coarser(level);
        const std::size_t count = r.Count();
        if (count > 2 && level + 1 < m_levels.size())
            continue;
        const Placement::Shape shape = count == 1    ? Placement::kOneTile
                                       : r.x1 > r.x0 ? Placement::kTileAndRight
                                                     : Placement::kTileAndBelow;
        return {r.y0 * m_levels[level].columns + r.x0, static_cast<std::uint8_t>(level), shape};
    }
}

// Every triangle's tiles, found block by block.
std::vector<ScreenTileIndex::Placement> ScreenTileIndex::_Place(std::uint32_t triangles,
                                                                const FootprintOf& footprint,
                                                                int threads) const {
    std::vector<Placement> placements(triangles);
    ForEachBlock(triangles, threads, [&](std::size_t, std::uint32_t first, std::uint32_t end) {
        PixelBounds b{};
        for (std::uint32_t t = first; t < end; ++t) {
            switch (footprint(t, b)) {
                case Footprint::kNowhere:
                    placements[t] = {0, 0, Placement::kUnlisted};
                    break;
                case Footprint::kEverywhere:
                    placements[t] = {0, 0, Placement::kEverywhere};
                    break;
                case Footprint::kBounds:
                    placements[t] = _PlacementOf(b);
                    break;
            }
        }
    });
    return placements;
}

// Counts the triangles of every tile, then writes them in ascending order.
void ScreenTileIndex::_FillLevels(const std::vector<Placement>& placements) {
    const auto forEachTile = [&](const Placement& p, auto visit) {
        if (p.shape < Placement::kOneTile)
            return;
        visit(p.tile);
        if (p.shape == Placement::kTileAndRight)
            visit(p.tile + 1);
        else if (p.shape == Placement::kTileAndBelow)
            visit(p.tile + m_levels[p.level].columns);
    };
    std::vector<std::vector<std::uint64_t>> cursors;
    for (const Level& level : m_levels)
        cursors.emplace_back(std::size_t{level.columns} * level.rows + 1, 0);
    for (const Placement& p : placements)
        forEachTile(p, [&](std::size_t tile) { ++cursors[p.level][tile + 1]; });
    for (std::size_t level = 0; level < m_levels.size(); ++level) {
        std::vector<std::uint64_t>& cursor = cursors[level];
        for (std::size_t tile = 0; tile + 1 < cursor.size(); ++tile)
            cursor[tile + 1] += cursor[tile];
        m_levels[level].tileStart = cursor;
        m_levels[level].triangles.resize(cursor.back());
    }
    for (std::uint32_t t = 0; t < placements.size(); ++t) {
        const Placement& p = placements[t];
        if (p.shape == Placement::kEverywhere)
            m_everywhere.push_back(t);
        forEachTile(p, [&](std::size_t tile) {
            m_levels[p.level].triangles[cursors[p.level][tile]++] = t;
        });
    }
    m_everywhere.shrink_to_fit();
}

void ScreenTileIndex::Gather(const PixelBounds& box, TriangleBitmap& candidates) const {
    const TileRange finest = _FinestRange(box);
    for (unsigned l = 0; l < m_levels.size(); ++l) {
        const Level& level = m_levels[l];
        const TileRange r = finest.Coarser(l);
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
