#include "stl_binary_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <velpick/host/stl_surface.h>

#include "input_file.h"
#include "mesh_builder.h"
#include "vertex_merge.h"

namespace velpick::detail {
namespace {

constexpr std::size_t kHeaderBytes = 84;  // 80-byte comment and the 32-bit facet count
constexpr std::size_t kFacetBytes = 50;   // normal, three corners, attribute word
constexpr std::size_t kFirstCornerOffset = 12;
// The bytes a text file is inspected over: the binary header and first facet.
constexpr std::size_t kInspectedBytes = kHeaderBytes + kFacetBytes;
// Facets read at once: 200 KiB of records, small enough to stay in the cache.
constexpr std::size_t kBlockFacets = 4096;

std::uint32_t littleEndianWord(const char* bytes) {
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    return b[0] | b[1] << 8 | b[2] << 16 | std::uint32_t{b[3]} << 24;
}

float littleEndianFloat(const char* bytes) {
    const std::uint32_t word = littleEndianWord(bytes);
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

bool isTextByte(unsigned char c) {
    return c >= 0x20 || (c >= '\t' && c <= '\r');
}

bool looksLikeText(std::string_view head) {
    const std::size_t start = std::min(head.find_first_not_of(" \t\r\n"), head.size());
    return head.substr(start, 5) == "solid" &&
           std::all_of(head.begin(), head.end(), [](char c) { return isTextByte(c); });
}

// The facet count of a binary file of `size` bytes that begins with `head`; nothing for text.
std::optional<std::uint32_t> binaryFacetCount(std::string_view head, std::uint64_t size) {
    const std::optional<std::uint32_t> facets =
        head.size() >= kHeaderBytes ? std::optional(littleEndianWord(&head[80])) : std::nullopt;
    if (facets && size == kHeaderBytes + std::uint64_t{kFacetBytes} * *facets)
        return facets;
    if (looksLikeText(head))
        return std::nullopt;
    if (!facets)
        throw ImportFailure("not an STL file: " + std::to_string(size) +
                            " bytes, shorter than a binary header, and not text");
    const std::uint64_t expected = kHeaderBytes + std::uint64_t{kFacetBytes} * *facets;
    if (size < expected)
        throw ImportFailure("truncated binary STL: " + std::to_string(*facets) + " facets take " +
                            std::to_string(expected) + " bytes but the file ends at byte offset " +
                            std::to_string(size) + ", in facet " +
                            std::to_string((size - kHeaderBytes) / kFacetBytes));
    throw ImportFailure("binary STL of " + std::to_string(*facets) +
                        " facets ends at byte offset " + std::to_string(expected) + " but " +
                        std::to_string(size - expected) + " more bytes follow");
}

// A closed surface has about half as many vertices as triangles: storage is sized for that at
// once, and grows beyond it when there are more.
std::size_t expectedVertices(std::size_t facets) {
    return facets / 2 + 2;
}

// Facets in blocks: each block's corners become internal units, are numbered, and its new
// vertices then its triangles go to the mesh, so vertices are numbered in order of first use.
class FacetBlocks {
  public:
    FacetBlocks(std::ifstream& in, double unitsPerModelUnit, std::size_t facets)
        : m_in(in),
          m_unitsPerModelUnit(unitsPerModelUnit),
          m_records(new char[kBlockFacets * kFacetBytes]),
          m_coordinates(9 * kBlockFacets),
          m_units(9 * kBlockFacets),
          m_corners(3 * kBlockFacets),
          m_numbering(expectedVertices(facets)) {}

    void Add(std::size_t first, std::size_t count, MStlBase& mesh, MStlSurface& surface) {
        read(first, count);
        toUnits(first, count);
        const std::size_t known = m_numbering.Count();
        m_numbering.Number(m_units.data(), 3 * count, m_corners.data());
        mesh.AddDistinctPoints(m_numbering.Positions() + 3 * known, m_numbering.Count() - known);
        surface.AddTriangles(m_corners.data(), count);
    }

  private:
    void read(std::size_t first, std::size_t count) {
        if (!m_in.read(m_records.get(), static_cast<std::streamsize>(count * kFacetBytes)))
            throw ImportFailure("cannot read the file at byte offset " +
                                std::to_string(kHeaderBytes + first * kFacetBytes +
                                               static_cast<std::size_t>(m_in.gcount())));
    }

    void toUnits(std::size_t first, std::size_t count) {
        for (std::size_t f = 0; f < count; ++f)
            for (std::size_t c = 0; c < 9; ++c)
                m_coordinates[9 * f + c] = littleEndianFloat(m_records.get() + f * kFacetBytes +
                                                             kFirstCornerOffset + 4 * c);
        if (AllToInternalUnits(m_coordinates.data(), 9 * count, m_unitsPerModelUnit,
                               m_units.data()))
            return;
        for (std::size_t c = 0;; ++c)
            if (!ToInternalUnits(m_coordinates[c], m_unitsPerModelUnit))
                ThrowCoordinateOutOfRange(3 * first + c / 3, static_cast<int>(c % 3),
                                          m_coordinates[c]);
    }

    std::ifstream& m_in;
    double m_unitsPerModelUnit;
    std::unique_ptr<char[]> m_records;
    std::vector<float> m_coordinates;      // x, y, z of each corner of the block, as in the file
    std::vector<std::int32_t> m_units;     // the same in internal units
    std::vector<std::uint32_t> m_corners;  // the vertex numbers of those corners
    PositionNumbering m_numbering;
};

}  // namespace

std::unique_ptr<MStlBase> ReadBinaryStl(const std::filesystem::path& file,
                                        double unitsPerModelUnit) {
    std::ifstream in = OpenForReading(file);
    char head[kInspectedBytes];
    in.read(head, sizeof head);
    const std::size_t headBytes = static_cast<std::size_t>(in.gcount());
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(file, error);
    if (error)
        throw ImportFailure("cannot read the file's size");
    const std::optional<std::uint32_t> facets =
        binaryFacetCount(std::string_view(head, headBytes), size);
    if (!facets)
        return nullptr;
    if (*facets == 0)
        throw ImportFailure("the file holds no faces");
    in.clear();
    in.seekg(kHeaderBytes);

    auto mesh = std::make_unique<MStlBase>();
    mesh->Reserve(expectedVertices(*facets), *facets);
    MStlSurface& surface = *mesh->AddSurface(nullptr);
    FacetBlocks blocks(in, unitsPerModelUnit, *facets);
    for (std::size_t first = 0; first < *facets; first += kBlockFacets)
        blocks.Add(first, std::min<std::size_t>(kBlockFacets, *facets - first), *mesh, surface);
    return mesh;
}

}  // namespace velpick::detail
