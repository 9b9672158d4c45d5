#include "mesh_builder.h"

#include "vertex_merge.h"

namespace velpick::detail {

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

void FirstUseNumbering::AddVertices(const std::int32_t* units, MStlBase& mesh) const {
    std::int32_t xyz[3 * kBuildBatch];
    for (std::size_t first = 0; first < m_numbered; first += kBuildBatch) {
        const std::size_t count = std::min(kBuildBatch, m_numbered - first);
        for (std::size_t k = 0; k < count; ++k)
            std::copy_n(units + 3 * std::size_t{m_firstUses[first + k]}, 3, xyz + 3 * k);
        mesh.AddDistinctPoints(xyz, count);
    }
}

}  // namespace velpick::detail
