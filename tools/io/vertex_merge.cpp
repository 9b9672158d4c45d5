#include "vertex_merge.h"

namespace velpick::detail {
namespace {

constexpr std::uint32_t kNone = UINT32_MAX;

std::size_t positionHash(const std::int32_t* c) {
    const std::uint64_t h = static_cast<std::uint32_t>(c[0]) * 0x9E3779B97F4A7C15ull ^
                            static_cast<std::uint32_t>(c[1]) * 0xC2B2AE3D27D4EB4Full ^
                            static_cast<std::uint32_t>(c[2]) * 0x165667B19E3779F9ull;
    return static_cast<std::size_t>(h ^ (h >> 29));
}

// For every input vertex, the first input vertex at the same position: an open-addressing
// table over the input vertices, at most half full.
std::vector<std::uint32_t> firstOfEqualVertices(const std::vector<std::int32_t>& units) {
    const std::size_t count = units.size() / 3;
    std::size_t capacity = 16;
    while (capacity < 2 * count)
        capacity *= 2;
    std::vector<std::uint32_t> table(capacity, kNone);
    std::vector<std::uint32_t> first(count);
    for (std::size_t v = 0; v < count; ++v) {
        const std::int32_t* c = units.data() + 3 * v;
        for (std::size_t s = positionHash(c) & (capacity - 1);; s = (s + 1) & (capacity - 1)) {
            if (table[s] == kNone) {
                table[s] = first[v] = static_cast<std::uint32_t>(v);
                break;
            }
            const std::int32_t* other = units.data() + 3 * std::size_t{table[s]};
            if (other[0] == c[0] && other[1] == c[1] && other[2] == c[2]) {
                first[v] = table[s];
                break;
            }
        }
    }
    return first;
}

}  // namespace

MergedVertices::MergedVertices(MStlBase& mesh, const std::vector<std::int32_t>& units)
    : m_mesh(mesh),
      m_units(units),
      m_first(firstOfEqualVertices(units)),
      m_meshVertex(m_first.size(), kNone) {}

std::uint32_t MergedVertices::NumberOf(std::uint32_t inputVertex) {
    std::uint32_t& number = m_meshVertex[m_first[inputVertex]];
    if (number == kNone) {
        const std::int32_t* c = m_units.data() + 3 * std::size_t{m_first[inputVertex]};
        number =
            static_cast<std::uint32_t>(m_mesh.AddDistinctPoint(c[0], c[1], c[2])->GetMaskIndex());
    }
    return number;
}

const MStlPoint& MergedVertices::Of(std::uint32_t inputVertex) {
    return m_mesh.GetPoint(NumberOf(inputVertex));
}

}  // namespace velpick::detail
