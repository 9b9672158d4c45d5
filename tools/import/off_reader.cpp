#include "off_reader.h"

#include <algorithm>
#include <string>

#include "text_cursor.h"

namespace velpick::detail {
namespace {

constexpr char kComment = '#';

[[noreturn]] void fail(const TextCursor& cursor, const std::string& what) {
    throw ImportFailure("line " + std::to_string(cursor.LineNumber()) + ": " + what);
}

// "vertex 12", built only for an error message.
std::string itemName(const char* kind, std::uint32_t index) {
    return kind + (" " + std::to_string(index));
}

// Moves to the next content line, failing at the end of the text.
void nextContent(TextCursor& cursor, const char* kind, std::uint32_t index) {
    if (!cursor.NextContentLine(kComment))
        fail(cursor, "file ends before " + itemName(kind, index));
}

void nextContent(TextCursor& cursor, const char* expected) {
    if (!cursor.NextContentLine(kComment))
        fail(cursor, std::string("file ends before ") + expected);
}

std::uint32_t readCount(TextCursor& cursor, const char* what) {
    std::int64_t value = 0;
    if (!cursor.ReadInteger(value) || value < 0 || value > UINT32_MAX)
        fail(cursor, std::string("expected the ") + what + " count");
    return static_cast<std::uint32_t>(value);
}

// The keyword, then the counts, which may follow it on the same line.
std::pair<std::uint32_t, std::uint32_t> readHeader(TextCursor& cursor) {
    nextContent(cursor, "the OFF keyword");
    const std::string_view keyword = cursor.ReadToken();
    if (keyword != "OFF" && keyword != "COFF" && keyword != "NOFF" && keyword != "CNOFF")
        fail(cursor, "not an OFF file (expected the keyword OFF)");
    if (!cursor.HasToken()) {
        cursor.NextLine();
        nextContent(cursor, "the vertex and face counts");
    }
    const std::uint32_t vertexCount = readCount(cursor, "vertex");
    const std::uint32_t faceCount = readCount(cursor, "face");
    cursor.NextLine();  // the edge count, unused
    return {vertexCount, faceCount};
}

void readVertex(TextCursor& cursor, std::uint32_t vertex, PolygonSoup& soup) {
    nextContent(cursor, "vertex", vertex);
    double x, y, z;
    if (!cursor.ReadDouble(x) || !cursor.ReadDouble(y) || !cursor.ReadDouble(z))
        fail(cursor, itemName("vertex", vertex) + ": expected three coordinates");
    soup.AddVertex(x, y, z);
    cursor.NextLine();
}

void readFace(TextCursor& cursor, std::uint32_t face, PolygonSoup& soup) {
    nextContent(cursor, "face", face);
    std::int64_t count = 0, index = 0;
    if (!cursor.ReadInteger(count) || count < 0)
        fail(cursor, itemName("face", face) + ": expected its number of vertices");
    for (std::int64_t k = 0; k < count; ++k) {
        if (!cursor.ReadInteger(index) || index < 0 || index > UINT32_MAX)
            fail(cursor, itemName("face", face) + ": expected " + std::to_string(count) +
                             " vertex indices");
        soup.corners.push_back(static_cast<std::uint32_t>(index));
    }
    soup.CloseFace();
    cursor.NextLine();
}

}  // namespace

PolygonSoup ReadOff(std::string_view text) {
    TextCursor cursor(text);
    const auto [vertexCount, faceCount] = readHeader(cursor);
    PolygonSoup soup;
    // Every vertex or face takes at least two characters, which bounds what a lying header
    // can make us reserve.
    soup.coordinates.reserve(3 * std::min<std::size_t>(vertexCount, text.size() / 2));
    soup.faceStarts.reserve(1 + std::min<std::size_t>(faceCount, text.size() / 2));
    for (std::uint32_t v = 0; v < vertexCount; ++v)
        readVertex(cursor, v, soup);
    for (std::uint32_t f = 0; f < faceCount; ++f)
        readFace(cursor, f, soup);
    return soup;
}

}  // namespace velpick::detail
