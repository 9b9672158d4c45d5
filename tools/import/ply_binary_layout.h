#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "ply_header.h"

namespace velpick::detail {

/// A value stored in a binary body in the host's byte order, read from any alignment.
template <class T>
T ValueAt(const char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

/// The vertex records of a binary body that can be read where they lie: every property a
/// scalar, so every record has the same size, and x, y and z stored as float or double.
struct PlyVertexRecord {
    std::size_t stride = 0;
    std::size_t axisOffset[3] = {0, 0, 0};
    bool axisIsDouble[3] = {false, false, false};

    /// Coordinate `axis` of the record at `record`.
    double Coordinate(const char* record, int axis) const {
        const char* at = record + axisOffset[axis];
        return axisIsDouble[axis] ? ValueAt<double>(at) : ValueAt<float>(at);
    }
};

/// The record layout of element "vertex", or nothing when a property is a list or x, y or z
/// is missing or stored as an integer. The first scalar property of each axis name counts.
std::optional<PlyVertexRecord> InPlaceVertexRecord(const PlyElement& vertices);

/// The faces of a binary body that can be read where they lie: the index list is the element's
/// only property, its count a uchar, int or uint and its items int or uint.
struct PlyFaceRecord {
    static constexpr std::size_t kIndexBytes = 4;
    std::size_t countBytes = 1;
    bool signedCount = false;
    bool signedItems = false;

    /// The corner count of the face at `face`; nothing when a signed count is negative.
    std::optional<std::uint64_t> CornerCount(const char* face) const {
        if (countBytes == 1)
            return static_cast<std::uint8_t>(*face);
        if (!signedCount)
            return ValueAt<std::uint32_t>(face);
        const std::int32_t count = ValueAt<std::int32_t>(face);
        if (count < 0)
            return std::nullopt;
        return static_cast<std::uint64_t>(count);
    }
    /// Index k of the face at `face`; nothing when a signed index is negative.
    std::optional<std::uint32_t> Index(const char* face, std::size_t k) const {
        const auto index = ValueAt<std::uint32_t>(face + countBytes + kIndexBytes * k);
        if (signedItems && index > static_cast<std::uint32_t>(INT32_MAX))
            return std::nullopt;
        return index;
    }
};

/// The face layout of element "face", or nothing for any other layout.
std::optional<PlyFaceRecord> InPlaceFaceRecord(const PlyElement& faces);

/// Whether a binary body in `format` is in the host's byte order, so records can be read as
/// they lie.
bool InHostByteOrder(PlyFormat format);

}  // namespace velpick::detail
