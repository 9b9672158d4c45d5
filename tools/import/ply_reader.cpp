#include "ply_reader.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "ply_binary_layout.h"
#include "text_cursor.h"

namespace velpick::detail {
namespace {

// ---- Body sources: one value at a time, as a double or as an exact integer ----

std::string instanceName(const PlyElement& element, std::uint64_t instance) {
    return "element '" + element.name + "' " + std::to_string(instance);
}

class AsciiSource {
  public:
    explicit AsciiSource(std::string_view body) : m_cursor(body), m_size(body.size()) {}

    void BeginInstance(const PlyElement& element, std::uint64_t instance) {
        m_element = &element;
        m_instance = instance;
        if (!m_cursor.NextContentLine('\0'))
            fail("the file ends before it");
    }
    void EndInstance() { m_cursor.NextLine(); }
    // Every value is a token of at least one character, and an instance is at least a line.
    static std::uint64_t LeastInstanceBytes(const PlyElement& element) {
        return std::max<std::uint64_t>(1, element.properties.size());
    }
    std::uint64_t BytesLeft() const { return m_size - m_cursor.Position(); }
    double Real(PlyType) {
        double value = 0.0;
        if (!m_cursor.ReadDouble(value))
            fail("expected a number");
        return value;
    }
    std::int64_t Integer(PlyType) {
        std::int64_t value = 0;
        if (!m_cursor.ReadInteger(value))
            fail("expected an integer");
        return value;
    }
    void EndBody() {
        if (m_cursor.NextContentLine('\0'))
            throw ImportFailure("text follows the last element");
    }

  private:
    [[noreturn]] void fail(const char* what) const {
        throw ImportFailure(instanceName(*m_element, m_instance) + " (body line " +
                            std::to_string(m_cursor.LineNumber()) + "): " + what);
    }

    TextCursor m_cursor;
    std::size_t m_size;
    const PlyElement* m_element = nullptr;
    std::uint64_t m_instance = 0;
};

class BinarySource {
  public:
    BinarySource(std::string_view body, bool bigEndian)
        : m_next(body.data()), m_end(body.data() + body.size()), m_bigEndian(bigEndian) {}

    void BeginInstance(const PlyElement& element, std::uint64_t instance) {
        m_element = &element;
        m_instance = instance;
    }
    void EndInstance() {}
    // Scalars and list counts are always stored; a list may be empty.
    static std::uint64_t LeastInstanceBytes(const PlyElement& element) {
        std::uint64_t bytes = 0;
        for (const PlyProperty& property : element.properties)
            bytes += BinarySize(property.isList ? property.countType : property.type);
        return bytes;
    }
    std::uint64_t BytesLeft() const { return static_cast<std::uint64_t>(m_end - m_next); }
    double Real(PlyType type) {
        switch (type) {
            case PlyType::kFloat32:
                return read<float>();
            case PlyType::kFloat64:
                return read<double>();
            default:
                return static_cast<double>(Integer(type));
        }
    }
    std::int64_t Integer(PlyType type) {
        switch (type) {
            case PlyType::kInt8:
                return read<std::int8_t>();
            case PlyType::kUInt8:
                return read<std::uint8_t>();
            case PlyType::kInt16:
                return read<std::int16_t>();
            case PlyType::kUInt16:
                return read<std::uint16_t>();
            case PlyType::kInt32:
                return read<std::int32_t>();
            case PlyType::kUInt32:
                return read<std::uint32_t>();
            default:
                throw ImportFailure(instanceName(*m_element, m_instance) + ": not an integer");
        }
    }
    void EndBody() {
        if (m_next != m_end)
            throw ImportFailure(std::to_string(m_end - m_next) + " bytes follow the last element");
    }

    // For the in-place paths: values can be copied as they lie, the unread bytes, and a way to
    // step past what was read there.
    bool InHostByteOrder() const { return m_bigEndian != kLittleEndianHost; }
    const char* Next() const { return m_next; }
    const char* End() const { return m_end; }
    void Skip(std::size_t bytes) { m_next += bytes; }

  private:
    template <class T>
    T read() {
        if (static_cast<std::size_t>(m_end - m_next) < sizeof(T))
            throw ImportFailure(instanceName(*m_element, m_instance) + ": the file is truncated");
        char raw[sizeof(T)];
        std::memcpy(raw, m_next, sizeof(T));
        if (m_bigEndian)
            std::reverse(raw, raw + sizeof(T));
        m_next += sizeof(T);
        T value;
        std::memcpy(&value, raw, sizeof(T));
        return value;
    }

    const char* m_next;
    const char* m_end;
    bool m_bigEndian;
    const PlyElement* m_element = nullptr;
    std::uint64_t m_instance = 0;
};

// ---- Elements ----

template <class Source>
void skipProperty(Source& source, const PlyProperty& property) {
    if (!property.isList) {
        source.Real(property.type);
        return;
    }
    const std::int64_t count = source.Integer(property.countType);
    for (std::int64_t k = 0; k < count; ++k)
        source.Real(property.type);
}

// For each property of element "vertex": the axis it holds (0, 1, 2) or -1.
std::vector<int> axisOfProperties(const PlyElement& element) {
    std::vector<int> axisOf(element.properties.size(), -1);
    const char* const axisNames[3] = {"x", "y", "z"};
    for (int axis = 0; axis < 3; ++axis) {
        const auto it = std::find_if(
            element.properties.begin(), element.properties.end(),
            [&](const PlyProperty& p) { return p.name == axisNames[axis] && !p.isList; });
        if (it == element.properties.end())
            throw ImportFailure(std::string("element 'vertex' has no scalar property '") +
                                axisNames[axis] + "'");
        axisOf[it - element.properties.begin()] = axis;
    }
    return axisOf;
}

// The common binary layout read in place: scalar properties only, x, y and z stored as float
// or double in the host's byte order, so every vertex is a fixed-size record. False, having
// read nothing, for any other layout.
bool readVerticesInPlace(BinarySource& source, const PlyElement& element, PolygonSoup& soup) {
    const std::optional<PlyVertexRecord> layout = InPlaceVertexRecord(element);
    if (!source.InHostByteOrder() || !layout)
        return false;
    // The declared count was checked against the bytes left, so the records are all there.
    const char* record = source.Next();
    const std::size_t first = soup.coordinates.size();
    soup.coordinates.resize(first + 3 * element.count);
    double* xyz = soup.coordinates.data() + first;
    for (std::uint64_t v = 0; v < element.count; ++v, record += layout->stride, xyz += 3) {
        for (int axis = 0; axis < 3; ++axis)
            xyz[axis] = layout->Coordinate(record, axis);
    }
    source.Skip(layout->stride * element.count);
    return true;
}

template <class Source>
void readVertices(Source& source, const PlyElement& element, PolygonSoup& soup) {
    const std::vector<int> axisOf = axisOfProperties(element);
    if constexpr (std::is_same_v<Source, BinarySource>) {
        if (readVerticesInPlace(source, element, soup))
            return;
    }
    for (std::uint64_t v = 0; v < element.count; ++v) {
        source.BeginInstance(element, v);
        double xyz[3] = {0.0, 0.0, 0.0};
        for (std::size_t p = 0; p < element.properties.size(); ++p) {
            if (axisOf[p] >= 0)
                xyz[axisOf[p]] = source.Real(element.properties[p].type);
            else
                skipProperty(source, element.properties[p]);
        }
        soup.AddVertex(xyz[0], xyz[1], xyz[2]);
        source.EndInstance();
    }
}

int findIndexList(const PlyElement& element) {
    for (std::size_t i = 0; i < element.properties.size(); ++i) {
        const PlyProperty& property = element.properties[i];
        if (property.isList &&
            (property.name == "vertex_indices" || property.name == "vertex_index")) {
            if (!IsInteger(property.type))
                throw ImportFailure("face vertex indices must be integers");
            return static_cast<int>(i);
        }
    }
    throw ImportFailure("element 'face' has no list property 'vertex_indices'");
}

template <class Source>
void readFaceCorners(Source& source, const PlyProperty& list, std::uint64_t face,
                     PolygonSoup& soup) {
    const std::int64_t count = source.Integer(list.countType);
    for (std::int64_t k = 0; k < count; ++k) {
        const std::int64_t index = source.Integer(list.type);
        if (index < 0 || index > UINT32_MAX)
            throw ImportFailure("face " + std::to_string(face) + ": vertex index " +
                                std::to_string(index) + " is out of range");
        soup.corners.push_back(static_cast<std::uint32_t>(index));
    }
}

// The common binary face read in place: the index list is the only property, its count a
// uchar, int or uint and its items int or uint, in the host's byte order. Reads faces while
// each is whole and its indices are not negative, and returns how many it read; the general
// reader takes over at the first face it leaves, so that face fails with the general message.
std::uint64_t readFacesInPlace(BinarySource& source, const PlyElement& element, PolygonSoup& soup) {
    const std::optional<PlyFaceRecord> layout = InPlaceFaceRecord(element);
    if (!source.InHostByteOrder() || !layout)
        return 0;
    const char* const start = source.Next();
    const char* next = start;
    const char* const end = source.End();
    std::uint64_t f = 0;
    for (; f < element.count; ++f) {
        if (static_cast<std::size_t>(end - next) < layout->countBytes)
            break;
        const std::optional<std::uint64_t> count = layout->CornerCount(next);
        if (!count || *count > static_cast<std::size_t>(end - next - layout->countBytes) /
                                   PlyFaceRecord::kIndexBytes)
            break;
        const std::size_t firstCorner = soup.corners.size();
        bool negative = false;
        for (std::uint64_t k = 0; k < *count; ++k) {
            const std::optional<std::uint32_t> index = layout->Index(next, k);
            negative |= !index;
            soup.corners.push_back(index.value_or(0));
        }
        if (negative) {
            soup.corners.resize(firstCorner);
            break;
        }
        soup.CloseFace();
        next += layout->countBytes + PlyFaceRecord::kIndexBytes * *count;
    }
    source.Skip(static_cast<std::size_t>(next - start));
    return f;
}

template <class Source>
void readFaces(Source& source, const PlyElement& element, PolygonSoup& soup) {
    const int indexList = findIndexList(element);
    std::uint64_t f = 0;
    if constexpr (std::is_same_v<Source, BinarySource>)
        f = readFacesInPlace(source, element, soup);
    for (; f < element.count; ++f) {
        source.BeginInstance(element, f);
        for (std::size_t p = 0; p < element.properties.size(); ++p) {
            if (static_cast<int>(p) == indexList)
                readFaceCorners(source, element.properties[p], f, soup);
            else
                skipProperty(source, element.properties[p]);
        }
        soup.CloseFace();
        source.EndInstance();
    }
}

template <class Source>
void skipElement(Source& source, const PlyElement& element) {
    // Instances of a binary element without properties occupy no bytes: nothing to skip.
    if (Source::LeastInstanceBytes(element) == 0)
        return;
    for (std::uint64_t i = 0; i < element.count; ++i) {
        source.BeginInstance(element, i);
        for (const PlyProperty& property : element.properties)
            skipProperty(source, property);
        source.EndInstance();
    }
}

// A header that declares more instances than the remaining bytes can hold fails before the
// element is read, so a lying count can neither loop long nor reserve much.
template <class Source>
void checkDeclaredSize(const Source& source, const PlyElement& element) {
    const std::uint64_t least = Source::LeastInstanceBytes(element);
    if (least > 0 && element.count > source.BytesLeft() / least)
        throw ImportFailure("element '" + element.name + "' declares " +
                            std::to_string(element.count) + " instances, more than the " +
                            std::to_string(source.BytesLeft()) + " bytes left can hold");
}

// Every element, in header order, into the soup.
template <class Source>
void readBody(Source& source, const PlyHeader& header, std::size_t byteCount, PolygonSoup& soup) {
    for (const PlyElement& element : header.elements) {
        checkDeclaredSize(source, element);
        // Each instance takes at least one byte, which bounds what a lying header can reserve.
        const std::size_t plausible = std::min<std::uint64_t>(element.count, byteCount);
        if (element.name == "vertex") {
            soup.coordinates.reserve(3 * plausible);
            readVertices(source, element, soup);
        } else if (element.name == "face") {
            soup.faceStarts.reserve(plausible + 1);
            soup.corners.reserve(3 * plausible);
            readFaces(source, element, soup);
        } else {
            skipElement(source, element);
        }
    }
    source.EndBody();
}

}  // namespace

PolygonSoup ReadPlyBody(const PlyHeader& header, std::string_view bytes) {
    const std::string_view body = bytes.substr(header.bodyOffset);
    PolygonSoup soup;
    if (header.format == PlyFormat::kAscii) {
        AsciiSource source(body);
        readBody(source, header, body.size(), soup);
    } else {
        BinarySource source(body, header.format == PlyFormat::kBinaryBigEndian);
        readBody(source, header, body.size(), soup);
    }
    return soup;
}

}  // namespace velpick::detail
