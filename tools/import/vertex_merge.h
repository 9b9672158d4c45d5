#pragma once

#include <cstddef>
#include <cstdint>

namespace velpick::detail {

/// For each of `count` input vertices given in internal units (x, y, z of input vertex i at
/// units[3i], [3i + 1], [3i + 2]), the first input vertex at the same position, written to
/// first[i]: i itself for the first vertex at a position.
void FindFirstOfEqualVertices(const std::int32_t* units, std::size_t count, std::uint32_t* first);

}  // namespace velpick::detail
