#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velpick::detail {

enum class PlyFormat { kAscii, kBinaryLittleEndian, kBinaryBigEndian };

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr bool kLittleEndianHost = true;
#else
constexpr bool kLittleEndianHost = false;  // the in-place paths stay off
#endif
/// A scalar type of the PLY format; list counts and items are scalars too.
enum class PlyType { kInt8, kUInt8, kInt16, kUInt16, kInt32, kUInt32, kFloat32, kFloat64 };

struct PlyProperty {
    std::string name;
    PlyType type = PlyType::kFloat32;  // the item type of a list
    bool isList = false;
    PlyType countType = PlyType::kUInt8;
};

struct PlyElement {
    std::string name;
    std::uint64_t count = 0;
    std::vector<PlyProperty> properties;
};

/// The header of a PLY file: its format, its elements in file order, where the body starts.
struct PlyHeader {
    PlyFormat format = PlyFormat::kAscii;
    std::vector<PlyElement> elements;
    std::size_t bodyOffset = 0;
};

bool IsInteger(PlyType type);
/// Bytes a value of this type takes in a binary body.
std::size_t BinarySize(PlyType type);

/// Reads the header up to and including its end_header line. Throws ImportFailure naming the
/// header line for a malformed header, and for a file with more than one element "vertex" or
/// "face".
PlyHeader ReadPlyHeader(std::string_view bytes);

}  // namespace velpick::detail
