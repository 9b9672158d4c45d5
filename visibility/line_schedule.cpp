#include "visibility/line_schedule.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace visibility {
namespace {

constexpr std::uint32_t kNever = std::numeric_limits<std::uint32_t>::max();

// Finds a value's place among the sorted lines from a guess by equal-width buckets over their
// span, then a short walk; any guess gives the exact place, a good one makes the walk short.
class LineLocator {
  public:
    explicit LineLocator(const std::vector<double>& lines) : m_lines(lines) {
        m_scale = lines.size() / (lines.back() - lines.front());
        if (!(m_scale > 0.0 && std::isfinite(m_scale)))
            return;  // one line, or a span beyond the double range: walk from the ends
        m_bucketFirst.resize(lines.size());
        std::size_t line = 0;
        for (std::size_t b = 0; b < m_bucketFirst.size(); ++b) {
            while (line < lines.size() && Bucket(lines[line]) < b)
                ++line;
            m_bucketFirst[b] = line;
        }
    }

    /// The first line ≥ y.
    std::size_t LowerBound(double y) const {
        std::size_t i = Guess(y);
        while (i > 0 && m_lines[i - 1] >= y)
            --i;
        while (i < m_lines.size() && m_lines[i] < y)
            ++i;
        return i;
    }

    /// The first line > y.
    std::size_t UpperBound(double y) const {
        std::size_t i = Guess(y);
        while (i > 0 && m_lines[i - 1] > y)
            --i;
        while (i < m_lines.size() && m_lines[i] <= y)
            ++i;
        return i;
    }

  private:
    std::size_t Bucket(double y) const {
        const double t = (y - m_lines.front()) * m_scale;
        if (!(t > 0.0))
            return 0;
        return t < static_cast<double>(m_bucketFirst.size() - 1) ? static_cast<std::size_t>(t)
                                                                 : m_bucketFirst.size() - 1;
    }

    std::size_t Guess(double y) const {
        if (m_bucketFirst.empty())
            return std::lower_bound(m_lines.begin(), m_lines.end(), y) - m_lines.begin();
        return m_bucketFirst[Bucket(y)];
    }

    const std::vector<double>& m_lines;
    double m_scale;
    std::vector<std::size_t> m_bucketFirst;  // per bucket, the first line in it or after it
};

// Groups the pieces by line, in ascending global index: a counting sort.
void GroupByLine(const std::vector<std::uint32_t>& lineOf, std::size_t lineCount,
                 std::vector<std::uint32_t>& pieces, std::vector<std::size_t>& at) {
    at.assign(lineCount + 1, 0);
    for (std::uint32_t line : lineOf)
        if (line < lineCount)
            ++at[line + 1];
    for (std::size_t line = 0; line < lineCount; ++line)
        at[line + 1] += at[line];
    pieces.resize(at[lineCount]);
    std::vector<std::size_t> next(at.begin(), at.end() - 1);
    for (std::uint32_t index = 0; index < lineOf.size(); ++index)
        if (lineOf[index] < lineCount)
            pieces[next[lineOf[index]]++] = index;
}

}  // namespace

LineSchedule ScheduleLines(const PieceBounds& refs, const std::vector<double>& lines) {
    const std::size_t lineCount = lines.size();
    if (lineCount >= kNever || refs.size() >= kNever)
        throw std::length_error("visibility sweep: more pieces or sample lines than it numbers");
    const LineLocator locate(lines);
    std::vector<std::uint32_t> enters(refs.size()), leaves(refs.size());
    // Count changes by line; a piece of zero height counts −1 on the lines at its y, where the
    // event walk meets its end before its start.
    std::vector<std::int64_t> change(lineCount + 1, 0);
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, refs.size()),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              const PieceRef ref = refs[i];
                              enters[i] = leaves[i] = kNever;
                              if (std::isnan(ref.yMin) || std::isnan(ref.yMax))
                                  continue;
                              enters[i] = static_cast<std::uint32_t>(locate.UpperBound(ref.yMin));
                              if (ref.yMin != ref.yMax)
                                  leaves[i] =
                                      static_cast<std::uint32_t>(locate.LowerBound(ref.yMax));
                          }
                      });
    for (std::size_t i = 0; i < refs.size(); ++i) {
        if (enters[i] == kNever)
            continue;
        if (leaves[i] == kNever) {
            --change[locate.LowerBound(refs[i].yMin)];
            ++change[enters[i]];
        } else if (enters[i] < leaves[i]) {
            ++change[enters[i]];
            --change[leaves[i]];
        } else {
            enters[i] = leaves[i] = kNever;  // no line inside its range
        }
    }
    LineSchedule schedule;
    GroupByLine(enters, lineCount, schedule.entering, schedule.enteringAt);
    GroupByLine(leaves, lineCount, schedule.leaving, schedule.leavingAt);
    schedule.activeCounts.resize(lineCount);
    std::int64_t active = 0;
    for (std::size_t line = 0; line < lineCount; ++line) {
        active += change[line];
        schedule.activeCounts[line] = static_cast<std::int32_t>(active);
    }
    return schedule;
}

}  // namespace visibility
