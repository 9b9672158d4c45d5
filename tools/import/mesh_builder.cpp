#include "mesh_builder.h"

#include "vertex_merge.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace velpick::detail {
namespace {

// The bounds of ToInternalUnits: a scaled value strictly between them rounds to a 32-bit value,
// and so does its truncation.
constexpr double kLowestScaled = -2147483648.5, kHighestScaled = 2147483647.5;

// One value as ToInternalUnits rounds it, without branches; `fits` false leaves 0.
std::int32_t toUnitsBranchFree(double scaled, bool& fits) {
    fits = (scaled > kLowestScaled) & (scaled < kHighestScaled);
    const double kept = fits ? scaled : 0.0;
    const auto truncated = static_cast<std::int32_t>(kept);
    const double fraction = kept - static_cast<double>(truncated);
    return truncated + (fraction >= 0.5) - (fraction <= -0.5);
}

}  // namespace

// Two values per step on SSE2, which the compiler does not do by itself for this mix of widths:
// the same products, truncations and comparisons as the scalar rounding.
bool AllToInternalUnits(const float* values, std::size_t count, double unitsPerModelUnit,
                        std::int32_t* units) {
    std::size_t i = 0;
    bool allFit = true;
#ifdef __SSE2__
    const __m128d scale = _mm_set1_pd(unitsPerModelUnit), lowest = _mm_set1_pd(kLowestScaled),
                  highest = _mm_set1_pd(kHighestScaled), half = _mm_set1_pd(0.5),
                  minusHalf = _mm_set1_pd(-0.5);
    __m128d fitting = _mm_castsi128_pd(_mm_set1_epi32(-1));
    for (; i + 2 <= count; i += 2) {
        const __m128 pair =
            _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(values + i)));
        const __m128d scaled = _mm_mul_pd(_mm_cvtps_pd(pair), scale);
        const __m128d fits =
            _mm_and_pd(_mm_cmpgt_pd(scaled, lowest), _mm_cmplt_pd(scaled, highest));
        fitting = _mm_and_pd(fitting, fits);
        const __m128d kept = _mm_and_pd(scaled, fits);
        const __m128i truncated = _mm_cvttpd_epi32(kept);
        const __m128d fraction = _mm_sub_pd(kept, _mm_cvtepi32_pd(truncated));
        // All-ones lanes (-1) where the value rounds away from its truncation, as two 32-bit lanes.
        const __m128i up = _mm_shuffle_epi32(_mm_castpd_si128(_mm_cmpge_pd(fraction, half)),
                                             _MM_SHUFFLE(2, 0, 2, 0));
        const __m128i down = _mm_shuffle_epi32(_mm_castpd_si128(_mm_cmple_pd(fraction, minusHalf)),
                                               _MM_SHUFFLE(2, 0, 2, 0));
        const __m128i rounded = _mm_add_epi32(_mm_sub_epi32(truncated, up), down);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(units + i), rounded);
    }
    allFit = _mm_movemask_pd(fitting) == 3;
#endif
    for (; i < count; ++i) {
        bool fits;
        units[i] = toUnitsBranchFree(static_cast<double>(values[i]) * unitsPerModelUnit, fits);
        allFit &= fits;
    }
    return allFit;
}

void ThrowCoordinateOutOfRange(std::size_t vertex, int axis, double value) {
    const char* const axisNames[3] = {"x", "y", "z"};
    throw ImportFailure("vertex " + std::to_string(vertex) + ": coordinate " + axisNames[axis] +
                        " = " + std::to_string(value) + " is out of range in internal units");
}

FirstUseNumbering::FirstUseNumbering(const std::int32_t* units, std::size_t count)
    : m_entries(new std::uint32_t[count]), m_firstUses(new std::uint32_t[count]) {
    FindFirstOfEqualVertices(units, count, m_entries.get());
    for (std::size_t v = 0; v < count; ++v) {
        m_positionCount += m_entries[v] == v;
        m_entries[v] |= kUnnumbered;
    }
}

std::uint32_t FirstUseNumbering::NumberFirstUse(std::uint32_t v, std::uint32_t first) {
    std::uint32_t number = m_entries[first];
    if (number & kUnnumbered) {
        number = static_cast<std::uint32_t>(m_numbered);
        m_firstUses[m_numbered++] = first;
        m_entries[first] = number;
    }
    m_entries[v] = number;
    return number;
}

void FirstUseNumbering::AddVertices(const std::int32_t* units, MStlBase& mesh,
                                    std::size_t first) const {
    std::int32_t xyz[3 * kBuildBatch];
    for (std::size_t batch = first; batch < m_numbered; batch += kBuildBatch) {
        const std::size_t count = std::min(kBuildBatch, m_numbered - batch);
        for (std::size_t k = 0; k < count; ++k)
            std::copy_n(units + 3 * std::size_t{m_firstUses[batch + k]}, 3, xyz + 3 * k);
        mesh.AddDistinctPoints(xyz, count);
    }
}

}  // namespace velpick::detail
