#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace AU_MarkOperations::PolygonMarking {

/// One bit per triangle of a mesh, with the lowest and highest index set since the last drain,
/// so that draining walks only the words between them.
class TriangleBitmap {
  public:
    explicit TriangleBitmap(std::size_t triangles) : m_words((triangles + 63) / 64, 0) {}

    /// Sets the bit; true when it was clear.
    bool Set(std::uint32_t triangle) {
        std::uint64_t& word = m_words[triangle >> 6];
        const std::uint64_t bit = std::uint64_t{1} << (triangle & 63);
        if (word & bit)
            return false;
        word |= bit;
        m_low = triangle < m_low ? triangle : m_low;
        m_high = triangle > m_high ? triangle : m_high;
        return true;
    }
    bool Test(std::uint32_t triangle) const {
        return (m_words[triangle >> 6] >> (triangle & 63)) & 1;
    }
    /// Appends the set triangles to `out` in ascending order and clears them.
    void Drain(std::vector<std::uint32_t>& out) {
        if (m_low > m_high)
            return;
        for (std::size_t w = m_low >> 6; w <= (m_high >> 6); ++w) {
            for (std::uint64_t word = m_words[w]; word != 0; word &= word - 1)
                out.push_back(static_cast<std::uint32_t>(w * 64 + __builtin_ctzll(word)));
            m_words[w] = 0;
        }
        Reset();
    }
    /// Clears every bit.
    void Clear() {
        if (m_low <= m_high)
            std::fill(m_words.begin() + (m_low >> 6), m_words.begin() + (m_high >> 6) + 1, 0);
        Reset();
    }
    std::size_t MemoryBytes() const { return m_words.capacity() * sizeof(std::uint64_t); }

  private:
    void Reset() {
        m_low = UINT32_MAX;
        m_high = 0;
    }

    std::vector<std::uint64_t> m_words;
    std::uint32_t m_low = UINT32_MAX, m_high = 0;
};

}  // namespace AU_MarkOperations::PolygonMarking
