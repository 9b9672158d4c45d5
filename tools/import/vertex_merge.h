#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace velpick::detail {

/// For each of `count` input vertices given in internal units (x, y, z of input vertex i at
/// units[3i], [3i + 1], [3i + 2]), the first input vertex at the same position, written to
/// first[i]: i itself for the first vertex at a position.
void FindFirstOfEqualVertices(const std::int32_t* units, std::size_t count, std::uint32_t* first);

/// Numbers positions in order of first appearance as they arrive, for readers that never hold
/// all their input vertices at once: equal positions get equal numbers, a new position the
/// count of distinct positions before it. Holds each distinct position once (12 bytes) and a
/// table of at most 8 bytes per distinct position.
class PositionNumbering {
  public:
    /// `expectedCount`: the distinct positions expected, so that storage is sized once for them;
    /// more are taken all the same.
    explicit PositionNumbering(std::size_t expectedCount);
    ~PositionNumbering();
    PositionNumbering(const PositionNumbering&) = delete;
    PositionNumbering& operator=(const PositionNumbering&) = delete;

    /// Writes to numbers[i] the number of position i of `count` positions (x, y, z of position i
    /// at units[3i], [3i + 1], [3i + 2]). Throws ImportFailure when the distinct positions would
    /// exceed 2^31 - 1.
    void Number(const std::int32_t* units, std::size_t count, std::uint32_t* numbers);
    std::size_t Count() const { return m_count; }
    /// x, y, z of the position numbered n at 3n, 3n + 1, 3n + 2.
    const std::int32_t* Positions() const { return m_positions.data(); }

  private:
    class Table;
    void grow();

    std::vector<std::int32_t> m_positions;  // the numbered positions, then room for a block
    std::size_t m_count = 0;
    std::vector<std::uint64_t> m_hashes;  // of the positions being numbered
    // Recently numbered positions by hash, x, y, z and number each: in a file whose faces
    // follow one another over the surface, most corners were seen a few faces before.
    std::vector<std::array<std::int32_t, 4>> m_recent;
    std::unique_ptr<Table> m_table;
    std::size_t m_tableRoom = 0;  // positions the table takes before it must grow
};

}  // namespace velpick::detail
