#include "visibility/sample_lines.h"

#include <tbb/parallel_sort.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <stdexcept>

#include "visibility/sweep_constants.h"

namespace visibility {

template <class T, class Less>
void SortValues(std::vector<T>& values, Less less) {
    if (values.size() < kParallelThreshold)
        std::sort(values.begin(), values.end(), less);
    else
        tbb::parallel_sort(values.begin(), values.end(), less);
}

template void SortValues(std::vector<Point>&, PointKeyComparator);
template void SortValues(std::vector<double>&, std::less<double>);

void AppendPieceEvents(std::uint64_t index, const PieceRef& ref, std::vector<Point>& events) {
    if (index >= Point::kMaxPieces)
        throw std::length_error("visibility sweep: more pieces or sample lines than it numbers");
    if (std::isnan(ref.yMin) || std::isnan(ref.yMax))
        return;
    const double h = (ref.yMax - ref.yMin) * 0.01;
    const double lo = std::min(ref.yMin + h, ref.yMax);
    const double hi = std::max(ref.yMax - h, lo);
    events.push_back(Point::Make(lo, index, kPieceStart));
    events.push_back(Point::Make(hi, index, kPieceEnd));
}

void AppendPieceEvents(const std::vector<PieceRef>& refs, std::vector<Point>& events) {
    for (std::size_t index = 0; index < refs.size(); ++index)
        AppendPieceEvents(index, refs[index], events);
}

std::vector<double> StabbingLines(const std::vector<Point>& events, std::size_t pieceCount) {
    std::vector<double> lines;
    std::vector<bool> covered(pieceCount, false);
    std::vector<std::uint64_t> open;  // started, not yet covered
    for (const Point& event : events) {
        if (event.Kind() == kPieceStart) {
            open.push_back(event.Index());
        } else if (!covered[event.Index()]) {
            for (std::uint64_t index : open)
                covered[index] = true;
            open.clear();
            // A copy: the packed event's key may sit off an 8-byte boundary.
            const double key = event.key;
            lines.push_back(key);
        }
    }
    return lines;
}

namespace {

// Room for the fill lines of every gap (about gap / step each), taken before the first one is
// added. A span the vector cannot hold, an infinite one among them, raises std::length_error at
// once instead of filling memory with values that never reach the gap's end.
void ReserveFillLines(std::vector<double>& lines, double step) {
    double fills = 0.0;
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        const double gap = lines[i + 1] - lines[i];
        if (gap > step)
            fills += gap / step;
    }
    if (!(fills < static_cast<double>(lines.max_size() - lines.size())))
        throw std::length_error("visibility sweep: more sample lines than a vector holds");
    lines.reserve(lines.size() + static_cast<std::size_t>(fills) + lines.size());
}

}  // namespace

void CompleteSampleLines(std::vector<double>& lines, double boxMinY, double boxMaxY, double step) {
    lines.push_back(boxMinY);
    lines.push_back(boxMaxY);
    SortValues(lines, std::less<double>());
    if (step > 0.0) {
        ReserveFillLines(lines, step);
        const std::size_t count = lines.size();
        for (std::size_t i = 0; i + 1 < count; ++i) {
            const double a = lines[i], b = lines[i + 1];
            if (!(b - a > step))
                continue;
            for (double k = 1.0;; k += 1.0) {
                const double fill = a + k * step;
                if (!(fill < b))
                    break;
                lines.push_back(fill);
            }
        }
        SortValues(lines, std::less<double>());
    }
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
}

}  // namespace visibility
