#pragma once

// Growing storage for the per-triangle records that depth-buffer cells point to.

#include <cstddef>
#include <memory>
#include <vector>

#include "polygon_marking/selection_raster.h"

namespace AU_MarkOperations::PolygonMarking {

/// A sequence of records stored in chunks of kChunkSize that never move once allocated, so
/// plain pointers to records stay valid while the sequence grows.
///
/// During the depth pass the sequence ends with one spare record (null triangle, no flags)
/// that the next candidate triangle is offered; when the rasterizer marks the spare covered it
/// is committed to that triangle and a fresh spare is appended, so only triangles that reach
/// the region cost a record. `Record` starts with a _TriangleRecord.
template <class Record>
class _ChunkedRecords {
  public:
    static constexpr std::size_t kChunkSize = 1024;

    std::size_t Size() const { return m_size; }
    Record& operator[](std::size_t i) { return m_chunks[i / kChunkSize][i % kChunkSize]; }

    /// Appends a record in its initial state and returns it.
    Record& Append() {
        if (m_size == m_chunks.size() * kChunkSize)
            m_chunks.push_back(std::make_unique<Record[]>(kChunkSize));
        Record& record = (*this)[m_size++];
        record = Record{};
        return record;
    }

    /// The spare record at the end of the sequence.
    Record& Spare() { return (*this)[m_size - 1]; }

    /// Keeps the spare for `triangle` when the rasterizer marked it covered, and appends a new
    /// spare in that case; an uncovered spare stays to be offered to the next triangle.
    void CommitSpareIfCovered(MStlTriangle* triangle) {
        Record& spare = Spare();
        if (!(spare.flags & kCoveredFlag))
            return;
        spare.triangle = triangle;
        Append();
    }

    /// Removes the spare at the end of the depth pass (its chunk stays allocated).
    void DropSpare() { --m_size; }

  private:
    std::vector<std::unique_ptr<Record[]>> m_chunks;
    std::size_t m_size = 0;
};

}  // namespace AU_MarkOperations::PolygonMarking
