#include <velpick/visibility_detector.h>
#include "visibility/detector_impl.h"

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_triangle.h>
#include "visibility/chunk_sweep.h"
#include "visibility/line_schedule.h"
#include "visibility/region_intervals.h"
#include "visibility/sample_lines.h"
#include "visibility/sweep_constants.h"
#include "visibility/sweep_events.h"

using AU_MarkOperations::PolygonMarking::PerspectiveProjection;
using VelSDK::Math::point2d;
using namespace visibility;

MStlBaseOperatorVisibilityDetector::MStlBaseOperatorVisibilityDetector()
    : m_impl(std::make_unique<Impl>()) {}
MStlBaseOperatorVisibilityDetector::~MStlBaseOperatorVisibilityDetector() = default;
MStlBaseOperatorVisibilityDetector::MStlBaseOperatorVisibilityDetector(
    MStlBaseOperatorVisibilityDetector&&) noexcept = default;
MStlBaseOperatorVisibilityDetector& MStlBaseOperatorVisibilityDetector::operator=(
    MStlBaseOperatorVisibilityDetector&&) noexcept = default;

void MStlBaseOperatorVisibilityDetector::AddStlAndTransformation(
    const MStlBase* stl, const MMTransformMatrix& modelToScreen,
    const MMTransformMatrix& planeTransform, bool allSurfacesMarkable,
    MStlMarkTrianglesByMasks* marker) {
    m_impl->stls.push_back(
        {stl, modelToScreen, planeTransform, allSurfacesMarkable, marker, false, {}});
}

void MStlBaseOperatorVisibilityDetector::AddClippingPlane(const MMPlaneEq<double>& plane) {
    m_impl->clippingPlanes.push_back(plane);
}

void MStlBaseOperatorVisibilityDetector::SetPath(std::vector<point2d> path) {
    m_impl->path = std::move(path);
}

void MStlBaseOperatorVisibilityDetector::SetBrushRadius(double radius) {
    m_impl->brushRadius = radius;
}

void MStlBaseOperatorVisibilityDetector::SetPixelProportion(double proportion) {
    m_impl->pixelProportion = proportion;
}

void MStlBaseOperatorVisibilityDetector::SetMode(Mode mode) {
    m_impl->mode = mode;
}

void MStlBaseOperatorVisibilityDetector::SetMark(bool mark) {
    m_impl->mark = mark;
}

void MStlBaseOperatorVisibilityDetector::SetMarkThrough(bool markThrough) {
    m_impl->markThrough = markThrough;
}

void MStlBaseOperatorVisibilityDetector::SetMarkFlippedTriangles(bool markFlipped) {
    m_impl->markFlippedTriangles = markFlipped;
}

void MStlBaseOperatorVisibilityDetector::SetCheckSurfaceVisibility(bool check) {
    m_impl->checkSurfaceVisibility = check;
}

void MStlBaseOperatorVisibilityDetector::SetMarkableSurface(const MStlSurface& surface) {
    m_impl->markableSurfaces.insert(&surface);
}

void MStlBaseOperatorVisibilityDetector::SetRule(VisibilityRule rule) {
    m_impl->rule = rule;
}

void MStlBaseOperatorVisibilityDetector::SetDepthTolerance(double tolerance) {
    m_impl->depthTolerance = tolerance;
}

void MStlBaseOperatorVisibilityDetector::SetPerspective(const PerspectiveProjection& projection) {
    m_impl->perspective = true;
    m_impl->projection = projection;
}

bool MStlBaseOperatorVisibilityDetector::SetCandidateTriangles(const std::uint32_t* triangles,
                                                               std::size_t count) {
    if (m_impl->stls.empty() || (count > 0 && !triangles))
        return false;
    Impl::StlEntry& entry = m_impl->stls.back();
    const std::size_t size = entry.stl->_Triangles().Size();
    for (std::size_t k = 0; k < count; ++k)
        if (triangles[k] >= size || (k > 0 && triangles[k] <= triangles[k - 1]))
            return false;
    entry.candidates.assign(triangles, triangles + count);
    entry.listed = true;
    return true;
}

void MStlBaseOperatorVisibilityDetector::Operate() {
    m_impl->Operate();
}

namespace {

using Triangle = visibility::Triangle;
using VelSDK::Math::point3d;

bool LexicographicLess(const point3d& a, const point3d& b) {
    if (a.x != b.x)
        return a.x < b.x;
    if (a.y != b.y)
        return a.y < b.y;
    return a.z < b.z;
}

// The sample lines split into chunks of about equal work, one chunk per task: chunk k runs
// from line firstLine[k] to the next chunk's first line (the last one to the last line).
struct Chunks {
    std::vector<std::size_t> firstLine;
};

// Contiguous runs of lines holding about total / n active pieces each, n being the arena's
// concurrency (at most one chunk per line).
Chunks SplitIntoChunks(const std::vector<std::int32_t>& counts) {
    const auto n = static_cast<std::int64_t>(
        std::min<std::size_t>(tbb::this_task_arena::max_concurrency(), counts.size()));
    std::int64_t total = 0;
    for (std::int32_t count : counts)
        total += count;
    Chunks chunks;
    std::int64_t sum = 0, threshold = 0;
    for (std::size_t line = 0; line < counts.size(); ++line) {
        if (sum >= threshold / n) {
            chunks.firstLine.push_back(line);
            threshold += total;
        }
        sum += counts[line];
    }
    chunks.firstLine.push_back(counts.size());
    return chunks;
}

// Whether a piece is active on a chunk's first line y as it would be in one chunk of all lines:
// strictly across it, or of zero height below it and still cut by it. A piece of zero height
// meets its end event before its start event, so it stays active to the end of its chunk; only
// lines within kOnPlaneTolerance above it cut it, and those see it in every chunking.
bool ActiveOnFirstLine(const PieceRef& ref, double y) {
    if (ref.yMin == ref.yMax)
        return ref.yMin < y && !(ref.yMin - y < -kOnPlaneTolerance);
    return ref.yMin < y && y < ref.yMax;
}

// For every chunk, the pieces active on its first line, in ascending global index.
std::vector<std::vector<std::uint64_t>> InitialActiveSets(const PieceBounds& refs,
                                                          const std::vector<double>& lines,
                                                          const Chunks& chunks) {
    std::vector<double> firstY;
    for (std::size_t chunk = 0; chunk + 1 < chunks.firstLine.size(); ++chunk)
        firstY.push_back(lines[chunks.firstLine[chunk]]);
    std::vector<std::vector<std::uint64_t>> sets(firstY.size());
    for (std::size_t index = 0; index < refs.size(); ++index) {
        const PieceRef ref = refs[index];
        auto chunk = std::upper_bound(firstY.begin(), firstY.end(), ref.yMin);
        for (; chunk != firstY.end() && ActiveOnFirstLine(ref, *chunk); ++chunk)
            sets[chunk - firstY.begin()].push_back(index);
    }
    return sets;
}

// Greedy stabbing lines over the pieces' shrunk ranges.
std::vector<double> ChooseStabbingLines(const PieceBounds& refs) {
    std::vector<Point> events;
    events.reserve(2 * refs.size());
    for (std::size_t index = 0; index < refs.size(); ++index)
        AppendPieceEvents(index, refs[index], events);
    SortValues(events, PointRangeComparator());
    return StabbingLines(events, refs.size());
}

// Sweeps the chunk's lines [begin, end): before each line after the first, pieces leave and
// join the active set; each line is decided with its region intervals.
void SweepChunk(ChunkSweep& sweep, const std::vector<double>& lines, const LineSchedule& schedule,
                std::size_t begin, std::size_t end, const RegionIntervals& regions,
                std::vector<std::uint32_t>& found) {
    for (std::size_t line = begin; line < end; ++line) {
        if (line > begin) {
            for (std::size_t i = schedule.leavingAt[line]; i < schedule.leavingAt[line + 1]; ++i)
                sweep.Erase(schedule.leaving[i]);
            for (std::size_t i = schedule.enteringAt[line]; i < schedule.enteringAt[line + 1]; ++i)
                sweep.Insert(schedule.entering[i]);
        }
        sweep.Decide(lines[line], regions.begin(line), regions.end(line), found);
    }
}

}  // namespace

bool MStlBaseOperatorVisibilityDetector::Impl::_ComputeRegionBox() {
    for (const point2d& p : path)
        if (!std::isfinite(p.x) || !std::isfinite(p.y))
            return false;
    if (mode == Brush && !std::isfinite(brushRadius))
        return false;
    pathBoxMin = {DBL_MAX, DBL_MAX};
    pathBoxMax = {-DBL_MAX, -DBL_MAX};
    for (const point2d& p : path) {
        pathBoxMin = {std::min(pathBoxMin.x, p.x), std::min(pathBoxMin.y, p.y)};
        pathBoxMax = {std::max(pathBoxMax.x, p.x), std::max(pathBoxMax.y, p.y)};
    }
    if (mode == Brush) {
        pathBoxMin = {pathBoxMin.x - brushRadius, pathBoxMin.y - brushRadius};
        pathBoxMax = {pathBoxMax.x + brushRadius, pathBoxMax.y + brushRadius};
    }
    return true;
}

void MStlBaseOperatorVisibilityDetector::Impl::Operate() {
    if (stls.empty() || !_ComputeRegionBox())
        return;
    pixelStep = 1.0 / pixelProportion;
    _CollectTriangles();
    _TransformModel();

    std::vector<double> lines = ChooseStabbingLines(PieceBounds(triangles, vertices));
    if (!lines.empty()) {
        CompleteSampleLines(lines, pathBoxMin.y, pathBoxMax.y, pixelStep);
        _SweepChunks(lines);
        _MarkVisiblePieces();
    }
    // The pieces are the largest working data of a run; none of it is kept between runs.
    std::vector<Triangle>().swap(triangles);
    std::vector<point3d>().swap(vertices);
}

void MStlBaseOperatorVisibilityDetector::Impl::_SweepChunks(const std::vector<double>& lines) {
    const RegionIntervals regions = mode == Brush ? BrushIntervals(runPath, brushRadius, lines)
                                                  : PolygonIntervals(runPath, lines);
    const PieceBounds refs(triangles, vertices);
    const LineSchedule schedule = ScheduleLines(refs, lines);
    const Chunks chunks = SplitIntoChunks(schedule.activeCounts);
    const std::vector<std::vector<std::uint64_t>> initialSets =
        InitialActiveSets(refs, lines, chunks);
    const std::size_t chunkCount = chunks.firstLine.size() - 1;
    chunkResults.resize(chunkCount);

    // Only now: the bounds above are read in the corners' collected order, which decides them
    // for pieces with a NaN y.
    _SortCorners();
    tbb::enumerable_thread_specific<ChunkSweep> sweeps(
        [&] { return ChunkSweep(triangles, vertices, SweepRule()); });
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, chunkCount, 1),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          ChunkSweep& sweep = sweeps.local();
                          for (std::size_t chunk = range.begin(); chunk != range.end(); ++chunk) {
                              sweep.Begin(initialSets[chunk]);
                              SweepChunk(sweep, lines, schedule, chunks.firstLine[chunk],
                                         chunks.firstLine[chunk + 1], regions, chunkResults[chunk]);
                          }
                      });
}

// The order of a piece's corners matters no more once it is marked flipped or not and the
// screen is turned.
void MStlBaseOperatorVisibilityDetector::Impl::_SortCorners() {
    const auto less = [&](std::uint32_t a, std::uint32_t b) {
        return LexicographicLess(vertices[a], vertices[b]);
    };
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, triangles.size()),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              std::uint32_t* corners = triangles[i].corners;
                              std::sort(corners, corners + 3, less);
                          }
                      });
}

ChunkSweep::Rule MStlBaseOperatorVisibilityDetector::Impl::SweepRule() const {
    // A tolerance that is negative or NaN takes only the nearest depth itself.
    const double tolerance = depthTolerance > 0.0 ? depthTolerance : 0.0;
    // Under a projection the pieces' depths are reciprocal depths near/depth.
    const double reciprocalScale = perspective ? projection.nearDistance : 0.0;
    return {markThrough, rule == VisibilityRule::Nearest, {tolerance, reciprocalScale}};
}

// Flags the found pieces by global index, so that each is marked once, in mesh order and
// piece order.
void MStlBaseOperatorVisibilityDetector::Impl::_MarkVisiblePieces() {
    std::vector<char> visible(triangles.size(), 0);
    for (std::vector<std::uint32_t>& found : chunkResults) {
        for (const std::uint32_t piece : found)
            visible[piece] = 1;
        found.clear();
    }
    for (std::size_t mesh = 0; mesh < stls.size(); ++mesh) {
        MStlMarkTrianglesByMasks* const marker = stls[mesh].marker;
        for (std::size_t i = meshFirstPiece[mesh]; i < meshFirstPiece[mesh + 1]; ++i) {
            if (!visible[i])
                continue;
            MStlTriangle& triangle = *triangles[i].triangle;
            if (marker)
                mark ? marker->Mark(triangle) : marker->Unmark(triangle);
            else
                mark ? triangle.Mark() : triangle.Unmark();
        }
    }
}
