#include "ply_header.h"

#include <algorithm>
#include <utility>

#include "polygon_soup.h"
#include "text_cursor.h"

namespace velpick::detail {
namespace {

[[noreturn]] void failAtLine(const TextCursor& cursor, const std::string& what) {
    throw ImportFailure("header line " + std::to_string(cursor.LineNumber()) + ": " + what);
}

PlyType readType(TextCursor& cursor) {
    static const std::pair<const char*, PlyType> kNames[] = {
        {"char", PlyType::kInt8},      {"int8", PlyType::kInt8},
        {"uchar", PlyType::kUInt8},    {"uint8", PlyType::kUInt8},
        {"short", PlyType::kInt16},    {"int16", PlyType::kInt16},
        {"ushort", PlyType::kUInt16},  {"uint16", PlyType::kUInt16},
        {"int", PlyType::kInt32},      {"int32", PlyType::kInt32},
        {"uint", PlyType::kUInt32},    {"uint32", PlyType::kUInt32},
        {"float", PlyType::kFloat32},  {"float32", PlyType::kFloat32},
        {"double", PlyType::kFloat64}, {"float64", PlyType::kFloat64}};
    const std::string_view word = cursor.ReadToken();
    for (const auto& [name, type] : kNames)
        if (word == name)
            return type;
    failAtLine(cursor, "unknown property type '" + std::string(word) + "'");
}

PlyFormat readFormat(TextCursor& cursor) {
    const std::string_view word = cursor.ReadToken();
    if (word == "ascii")
        return PlyFormat::kAscii;
    if (word == "binary_little_endian")
        return PlyFormat::kBinaryLittleEndian;
    if (word == "binary_big_endian")
        return PlyFormat::kBinaryBigEndian;
    failAtLine(cursor, "unknown format '" + std::string(word) + "'");
}

PlyElement readElement(TextCursor& cursor) {
    PlyElement element;
    element.name = cursor.ReadToken();
    std::int64_t count = -1;
    if (element.name.empty() || !cursor.ReadInteger(count) || count < 0)
        failAtLine(cursor, "expected an element name and count");
    element.count = static_cast<std::uint64_t>(count);
    return element;
}

// "property <type> <name>" or "property list <count type> <item type> <name>".
PlyProperty readProperty(TextCursor& cursor) {
    PlyProperty property;
    TextCursor lookAhead = cursor;
    if (lookAhead.ReadToken() == "list") {
        cursor = lookAhead;
        property.isList = true;
        property.countType = readType(cursor);
        if (!IsInteger(property.countType))
            failAtLine(cursor, "a list count must be an integer");
    }
    property.type = readType(cursor);
    property.name = cursor.ReadToken();
    if (property.name.empty())
        failAtLine(cursor, "expected a property name");
    return property;
}

PlyHeader readHeader(std::string_view bytes) {
    TextCursor cursor(bytes);
    if (cursor.ReadToken() != "ply")
        failAtLine(cursor, "not a PLY file (expected 'ply')");
    PlyHeader header;
    bool hasFormat = false;
    for (cursor.NextLine(); !cursor.AtEnd(); cursor.NextLine()) {
        const std::string_view keyword = cursor.ReadToken();
        if (keyword == "format") {
            header.format = readFormat(cursor);
            hasFormat = true;
        } else if (keyword == "element") {
            header.elements.push_back(readElement(cursor));
        } else if (keyword == "property") {
            if (header.elements.empty())
                failAtLine(cursor, "property before any element");
            header.elements.back().properties.push_back(readProperty(cursor));
        } else if (keyword == "end_header") {
            if (!hasFormat)
                failAtLine(cursor, "the header has no format line");
            cursor.NextLine();
            header.bodyOffset = cursor.Position();
            return header;
        } else if (keyword != "comment" && keyword != "obj_info" && !keyword.empty()) {
            failAtLine(cursor, "unknown keyword '" + std::string(keyword) + "'");
        }
    }
    failAtLine(cursor, "the header has no end_header line");
}

void checkElements(const PlyHeader& header) {
    for (const char* name : {"vertex", "face"})
        if (std::count_if(header.elements.begin(), header.elements.end(),
                          [&](const PlyElement& e) { return e.name == name; }) > 1)
            throw ImportFailure(std::string("more than one element '") + name + "'");
}

}  // namespace

bool IsInteger(PlyType type) {
    return type != PlyType::kFloat32 && type != PlyType::kFloat64;
}

std::size_t BinarySize(PlyType type) {
    switch (type) {
        case PlyType::kInt8:
        case PlyType::kUInt8:
            return 1;
        case PlyType::kInt16:
        case PlyType::kUInt16:
            return 2;
        case PlyType::kFloat64:
            return 8;
        default:
            return 4;
    }
}

PlyHeader ReadPlyHeader(std::string_view bytes) {
    PlyHeader header = readHeader(bytes);
    checkElements(header);
    return header;
}

}  // namespace velpick::detail
