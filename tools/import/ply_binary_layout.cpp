#include "ply_binary_layout.h"

namespace velpick::detail {

std::optional<PlyVertexRecord> InPlaceVertexRecord(const PlyElement& vertices) {
    const char* const axisNames[3] = {"x", "y", "z"};
    PlyVertexRecord record;
    bool found[3] = {false, false, false};
    for (const PlyProperty& property : vertices.properties) {
        if (property.isList)
            return std::nullopt;
        for (int axis = 0; axis < 3; ++axis) {
            if (found[axis] || property.name != axisNames[axis])
                continue;
            if (IsInteger(property.type))
                return std::nullopt;
            found[axis] = true;
            record.axisOffset[axis] = record.stride;
            record.axisIsDouble[axis] = property.type == PlyType::kFloat64;
        }
        record.stride += BinarySize(property.type);
    }
    if (!(found[0] && found[1] && found[2]))
        return std::nullopt;
    return record;
}

std::optional<PlyFaceRecord> InPlaceFaceRecord(const PlyElement& faces) {
    if (faces.properties.size() != 1)
        return std::nullopt;
    const PlyProperty& list = faces.properties.front();
    if (!list.isList || (list.name != "vertex_indices" && list.name != "vertex_index"))
        return std::nullopt;
    if (list.type != PlyType::kInt32 && list.type != PlyType::kUInt32)
        return std::nullopt;
    if (list.countType != PlyType::kUInt8 && list.countType != PlyType::kInt32 &&
        list.countType != PlyType::kUInt32)
        return std::nullopt;
    PlyFaceRecord record;
    record.countBytes = BinarySize(list.countType);
    record.signedCount = list.countType == PlyType::kInt32;
    record.signedItems = list.type == PlyType::kInt32;
    return record;
}

bool InHostByteOrder(PlyFormat format) {
    return format ==
           (kLittleEndianHost ? PlyFormat::kBinaryLittleEndian : PlyFormat::kBinaryBigEndian);
}

}  // namespace velpick::detail
