#include "mesh_import.h"
#include "assimp_reader.h"
#include "mesh_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/noisy_torus.h"

namespace {

namespace fs = std::filesystem;
using velpick::ImportMesh;
using velpick::detail::BuildMesh;
using velpick::detail::ReadWithAssimp;
using Facet = std::array<float, 9>;

template <class T>
void append(std::string& bytes, T value, bool bigEndian = false) {
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    if (bigEndian)
        std::reverse(raw, raw + sizeof(T));
    bytes.append(raw, sizeof(T));
}

std::string binaryStl(const std::vector<Facet>& facets, const std::string& comment = "") {
    std::string bytes = comment + std::string(80 - comment.size(), ' ');
    append<std::uint32_t>(bytes, static_cast<std::uint32_t>(facets.size()));
    for (const Facet& facet : facets) {  // a zero normal, the corners, no attribute bytes
        bytes.append(12, '\0').append(reinterpret_cast<const char*>(facet.data()), sizeof facet);
        bytes.append(2, '\0');
    }
    return bytes;
}

// What a reader makes of a file: "surfaces N | x,y,z of each vertex | the vertices of each
// triangle (and its surface sK, when there are several)", or "error: <reason>" when the message
// names the file first ("unnamed error: ..." if not). `read` is the importer unless given.
std::string Outcome(const fs::path& file, double unitsPerModelUnit,
                    const std::function<std::unique_ptr<MStlBase>()>& read = {}) {
    std::ostringstream text;
    try {
        const auto mesh = read ? read() : ImportMesh(file, unitsPerModelUnit);
        text << "surfaces " << mesh->GetTopSurfaces().size() << " |";
        for (std::size_t i = 0; i < mesh->GetNumberOfPoints(); ++i)
            text << ' ' << mesh->GetPoint(i)[0] << ',' << mesh->GetPoint(i)[1] << ','
                 << mesh->GetPoint(i)[2];
        text << " |";
        const auto& surfaces = mesh->GetTopSurfaces();
        for (std::size_t t = 0; t < mesh->GetNumberOfTriangles(); ++t) {
            for (std::size_t k = 0; k < 3; ++k)
                text << ' ' << mesh->GetTriangle(t).GetPointIndex(k);
            for (std::size_t k = 0; k < surfaces.size() && surfaces.size() > 1; ++k)
                if (mesh->GetTriangle(t).GetSurface() == surfaces[k].get())
                    text << " s" << k;
        }
    } catch (const std::exception& error) {
        const std::string message = error.what(), prefix = file.string() + ": ";
        text << (message.rfind(prefix, 0) == 0 ? "error: " + message.substr(prefix.size())
                                               : "unnamed error: " + message);
    }
    return text.str();
}

class MeshImportTest : public ::testing::Test {
  protected:
    void TearDown() override { fs::remove_all(m_dir); }

    fs::path write(const std::string& name, const std::string& bytes) {
        fs::create_directories(m_dir);
        std::ofstream(m_dir / name, std::ios::binary) << bytes;
        return m_dir / name;
    }

    const fs::path m_dir =
        fs::temp_directory_path() / ("mesh_import_test_" + std::to_string(std::random_device()()));
};

// The faces (z, x, o) and (o, x, xy, y), the quad fanned in place from o: every format numbers
// its vertices in order of first use, z, x, o, then xy, y, whatever order the file lists them
// in (the OFF file lists o twice, one mesh vertex, with a comment and a face colour).
// Coordinates are scaled and rounded half away from zero, in double. Malformed files fail with
// a message that names the file first, then the problem.
TEST_F(MeshImportTest, EachFileGivesItsMeshOrNamesItsProblem) {
    const std::string numbered =
        "surfaces 1 | 0,0,1000 1000,0,0 0,0,0 1000,1000,0 0,1000,0 | 0 1 2 2 1 3 2 3 4";
    const std::string objVertices = "v 0 0 0\nv 1 0 0\nv 1 1 0\n";
    const std::string plyHeader =
        "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty double x\n"
        "property double y\nproperty double z\nelement face 1\n"
        "property list uchar int vertex_indices\nend_header\n";
    const std::string plyBody =
        std::string(72, '\0') + std::string("\x03\0\0\0\0\x01\0\0\0\x02\0\0\0", 13);
    std::string marker = plyHeader, noFaces = plyHeader + plyBody.substr(0, 72);
    marker.insert(marker.find("end_header"), "element marker 9223372036854775807\n");
    noFaces.replace(noFaces.find("face 1"), 6, "face 0");
    std::string lying = plyHeader.substr(0, plyHeader.find("element face")) + "end_header\n";
    lying.replace(lying.find("vertex 3"), 8, "vertex 1000000000000");
    const std::string stl = binaryStl({{0, 0, 0, 1, 0, 0, 0, 0, 1}, {0, 0, 0, 1, 1, 0, 1, 0, 0}});
    std::string solidCut = binaryStl({{0, 0, 0, 1, 0, 0, 0, 0, 1}}, "solid cut");
    solidCut.pop_back();
    std::string garbage(3000, '\0');
    std::generate(garbage.begin(), garbage.end(), std::mt19937(5));
    // Name, bytes (none: the file is missing), outcome (of an error, what the message mentions).
    const std::tuple<const char*, std::optional<std::string>, std::string> files[] = {
        {"v.off",
         "OFF\n# two faces\n6 2 0\n0 1 0\n1 1 0\n0 0 0\n1 0 0\n0 0 1\n0 0 0\n"
         "3 4 3 2\n4 5 3 1 0 255 0 0\n",
         numbered},
        {"v.ply",
         "ply\nformat ascii 1.0\nelement vertex 5\nproperty float x\nproperty float y\n"
         "property float z\nelement face 2\nproperty list uchar int vertex_indices\n"
         "end_header\n0 1 0\n1 1 0\n0 0 0\n1 0 0\n0 0 1\n3 4 3 2\n4 2 3 1 0\n",
         numbered},
        {"v.obj", "v 0 1 0\nv 1 1 0\nv 0 0 0\nv 1 0 0\nv 0 0 1\nf 5 4 3\nf 3 4 2 1\n", numbered},
        {"s.off",
         "OFF\n3 1 0\n0.0015 -0.0015 1.2344\n-2000000 2000000 0.0004\n1e-9 0.9996 -0.0006\n3 0 1 "
         "2\n",
         "surfaces 1 | 2,-2,1234 -2000000000,2000000000,0 0,1000,-1 | 0 1 2"},
        // Groups become surfaces in order of first use; the quad is fanned in place.
        {"groups.obj",
         "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\ng a\nusemtl red\nf 1 2 3 4\n"
         "usemtl blue\nf 1 2 5\ng b\nf 2/1 3/1 5/1\ng a\nusemtl red\nf -5 -1 -2\n",
         "surfaces 2 | 0,0,0 1000,0,0 1000,1000,0 0,1000,0 0,0,1000 | 0 1 2 s0 0 2 3 s0 0 1 4 s0 1 "
         "2 4 "
         "s1 0 4 3 s0"},
        // A binary element without properties occupies no bytes, however many it declares.
        {"marker.ply", marker + plyBody, "surfaces 1 | 0,0,0 | 0 0 0"},
        {"cut.stl", stl.substr(0, stl.size() - 57), "error: ends at byte offset 127, in facet 0"},
        {"solidcut.stl", solidCut, "error: truncated binary STL: 1 facets take 134 bytes"},
        {"long.stl", stl + "x", "error: ends at byte offset 184 but 1 more bytes follow"},
        {"tiny.stl", "facet", "error: not an STL file"},
        {"empty.stl", binaryStl({}), "error: no faces"},
        {"line.obj", objVertices + "f 1 2 3\nl 1 2 3\n", "error: face 1 has 2 vertices"},
        {"range.obj", objVertices + "f 1 2 4\n", "error: range"},
        {"noend.ply", "ply\nformat ascii 1.0\nelement vertex 0\n", "error: end_header"},
        {"lying.ply", lying + plyBody, "error: element 'vertex' declares 1000000000000 instances"},
        {"lying-ascii.ply",
         "ply\nformat ascii 1.0\nelement junk 9223372036854775807\nend_header\n0\n",
         "error: element 'junk' declares"},
        {"none.ply", noFaces, "error: no faces"},
        {"few.off", "OFF\n3 2 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", "error: face 1"},
        {"bad.off", "OFF\n3 1 0\n0 0 0\n1 zero 0\n0 1 0\n3 0 1 2\n", "error: vertex 1"},
        {"range.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n", "error: vertex 3"},
        {"mesh.xyz", "OFF\n", "error: unsupported"},
        {"missing.stl", std::nullopt, "error: no such file"},
        {"g.ply", garbage, "error: "},
        {"g.obj", garbage, "error: "},
    };
    write("m.mtl", "newmtl red\nKd 1 0 0\nnewmtl blue\nKd 0 0 1\n");
    for (const auto& [name, bytes, expected] : files) {
        const std::string outcome = Outcome(bytes ? write(name, *bytes) : m_dir / name, 1000.0);
        const bool error = expected.rfind("error: ", 0) == 0;
        EXPECT_TRUE(error ? outcome.rfind("error: ", 0) == 0 &&
                                outcome.find(expected.substr(7)) != std::string::npos
                          : outcome == expected)
            << name << ": " << outcome;
    }
}

/// One mesh of 60 vertices and 90 faces in many binary PLY layouts: vertex records with
/// properties around x, y, z (halves, exact in float, many repeated), faces of 3 to
/// 2 + cornerChoices corners.
struct PlyLayouts {
    struct Layout {
        std::string coordinate, count, index;  // property types: x, y, z; list count; items
        bool flags = false;                    // a face property after the list
        bool big = false;                      // big-endian
    };

    explicit PlyLayouts(unsigned cornerChoices) {
        std::mt19937 random(3);
        std::generate(coordinates.begin(), coordinates.end(), [&] { return random() % 9 / 2.0; });
        for (auto& face : faces) {
            face.resize(3 + random() % cornerChoices);
            std::generate(face.begin(), face.end(), [&] { return std::int32_t(random() % 60); });
        }
    }

    /// The file in layout `l`, after `spoil` changed the mesh (bytes null) or the bytes.
    std::string File(const Layout& l, const std::function<void(PlyLayouts&, std::string*)>& spoil) {
        spoil(*this, nullptr);
        const std::string& c = l.coordinate;
        std::string bytes = "ply\nformat binary_" + std::string(l.big ? "big" : "little") +
                            "_endian 1.0\nelement vertex 60\nproperty uchar red\nproperty " + c +
                            " x\nproperty " + c + " y\nproperty float confidence\nproperty " + c +
                            " z\nelement face 90\nproperty list " + l.count + " " + l.index +
                            " vertex_indices\n" + (l.flags ? "property uchar flags\n" : "") +
                            "end_header\n";
        const auto put = [&](const std::string& type, double value) {
            if (type == "double")
                append<double>(bytes, value, l.big);
            else if (type == "float")
                append<float>(bytes, static_cast<float>(value), l.big);
            else if (type == "uchar")
                append<std::uint8_t>(bytes, static_cast<std::uint8_t>(value));
            else
                append<std::int32_t>(bytes, static_cast<std::int32_t>(value), l.big);
        };
        for (std::size_t v = 0; v < 60; ++v) {
            put("uchar", 7), put(c, coordinates[3 * v]), put(c, coordinates[3 * v + 1]);
            put("float", 0.5), put(c, coordinates[3 * v + 2]);
        }
        for (const auto& face : faces) {
            put(l.count, static_cast<double>(face.size()));
            for (std::int32_t index : face)
                put(l.index, index);
            if (l.flags)
                put("uchar", 1);
        }
        spoil(*this, &bytes);
        return bytes;
    }

    std::array<double, 180> coordinates;
    std::vector<std::vector<std::int32_t>> faces{90};
};

// Every layout of a triangle file and of a polygon file, sound or spoiled, reads as the
// big-endian file of the same mesh read value by value: the same mesh, or the same message.
// Little-endian triangle files without a face property are read in place by the fast path, the
// others by the general reader, in place until a fault. A spoil changes the mesh before it is
// written (bytes null) or the bytes after.
TEST_F(MeshImportTest, PlyLayoutsReadAsTheValueByValueReaderReads) {
    using Spoil = std::function<void(PlyLayouts&, std::string * bytes)>;
    const std::pair<const char*, Spoil> spoils[] = {
        {"surfaces 1", [](PlyLayouts&, std::string*) {}},
        {"face 7 uses vertex 60", [](PlyLayouts& p, std::string*) { p.faces[7][2] = 60; }},
        {"face 89: vertex index -1", [](PlyLayouts& p, std::string*) { p.faces[89][0] = -1; }},
        {"vertex 59: coordinate z", [](PlyLayouts& p, std::string*) { p.coordinates[179] = NAN; }},
        {"surfaces 1", [](PlyLayouts& p, std::string*) { p.faces[40].push_back(0); }},  // a quad
        {"face 0 has 2 vertices", [](PlyLayouts& p, std::string*) { p.faces[0].pop_back(); }},
        {"truncated", [](PlyLayouts&, std::string* b) { b ? b->resize(b->size() - 2) : void(); }},
        {"bytes follow", [](PlyLayouts&, std::string* b) { b ? b->push_back('\0') : void(); }},
    };
    const PlyLayouts::Layout layouts[] = {{"float", "uchar", "int", false, true},
                                          {"float", "uchar", "int"},
                                          {"double", "uint", "int"},
                                          {"float", "uchar", "int", true}};
    for (const unsigned cornerChoices : {1u, 3u})
        for (const auto& [fragment, spoil] : spoils) {
            const auto outcome = [&](const PlyLayouts::Layout& l) {
                return Outcome(write("f.ply", PlyLayouts(cornerChoices).File(l, spoil)), 1000.0);
            };
            const std::string expected = outcome(layouts[0]);
            EXPECT_NE(expected.find(fragment), std::string::npos) << expected;
            for (const PlyLayouts::Layout& l : layouts)
                EXPECT_EQ(outcome(l), expected) << fragment << ", layout " << &l - layouts;
        }
}

TEST(InternalUnitsTest, RoundingMatchesRoundHalfAwayFromZeroAndRefusesWhatDoesNotFit) {
    const auto oracle = [](double coordinate, double scale) -> std::optional<std::int32_t> {
        const double rounded = std::round(coordinate * scale);
        return rounded >= -2147483648.0 && rounded <= 2147483647.0
                   ? std::optional(std::int32_t(rounded))
                   : std::nullopt;
    };
    std::vector<double> values;
    for (const double edge :
         {0.0, 0.5, 1.5, 2.5, 1e6 + 0.5, 2147483520.5, 2147483646.5, 2147483647.0, 2147483647.5,
          2147483648.0, 2147483648.5, 0.49999999999999994, 4503599627370497.0, 1e300,
          double(INFINITY), double(NAN)})
        for (const double v : {edge, -edge})
            values.insert(values.end(), {v, std::nextafter(v, 0.0), std::nextafter(v, 2 * v),
                                         std::nextafter(static_cast<float>(v), 0.0f)});
    std::mt19937_64 random(17);
    std::uniform_real_distribution<double> wide(-3e9, 3e9), narrow(-4.0, 4.0);
    for (int i = 0; i < 20000; ++i)
        values.insert(values.end(), {wide(random), narrow(random),
                                     std::floor(narrow(random) * 8.0) / 8.0});  // exact eighths
    for (const double scale : {1.0, 1000.0, 0.001, 3.0}) {
        const std::vector<float> floats(values.begin(), values.end());
        for (const double value : values)
            ASSERT_EQ(velpick::detail::ToInternalUnits(value, scale), oracle(value, scale))
                << value << " x " << scale;
        for (std::size_t first = 0, count; first < floats.size(); first += count) {
            count = std::min<std::size_t>(first % 7 + 1, floats.size() - first);
            std::vector<std::int32_t> got(count), expected(count);
            bool allFit = true;
            for (std::size_t i = 0; i < count; ++i)
                allFit &= oracle(floats[first + i], scale).has_value(),
                    expected[i] = oracle(floats[first + i], scale).value_or(0);
            const bool fit =
                velpick::detail::AllToInternalUnits(&floats[first], count, scale, got.data());
            ASSERT_TRUE(fit == allFit && (!fit || got == expected))
                << floats[first] << " x " << scale;
        }
    }
}

// The general reader's polygons built by BuildMesh are the oracle of the binary STL reader, at
// several scales: a noisy torus in face order, random soups of few positions (repeated and
// degenerate facets, some -0) over several blocks, a soup of distinct positions that outgrows
// the position table many times, files whose comment begins with "solid", a coordinate out of
// range. The torus is also the oracle of the streamed PLY reader, over several batches of faces.
TEST_F(MeshImportTest, BinaryStlGivesTheMeshOfTheGeneralReader) {
    const scene::IndexedMesh torus = scene::NoisyTorus(70, 60, 60000.0, 25000.0, 0.04);
    std::vector<Facet> torusFacets;
    std::string ply =
        "ply\nformat binary_little_endian 1.0\nelement vertex 4200\nproperty float x\n"
        "property float y\nproperty float z\nelement face 8400\n"
        "property list uchar int vertex_indices\nend_header\n";
    for (const auto& vertex : torus.vertices)
        for (const std::int32_t c : vertex)
            append<float>(ply, static_cast<float>(c / 1000.0));
    for (const auto& face : torus.faces) {
        Facet& facet = torusFacets.emplace_back();
        for (int k = 0; k < 9; ++k)
            facet[k] = static_cast<float>(torus.vertices[face[k / 3]][k % 3] / 1000.0);
        append<std::uint8_t>(ply, 3);
        for (const std::uint32_t index : face)
            append<std::uint32_t>(ply, index);
    }
    EXPECT_EQ(Outcome(write("t.ply", ply), 3.0),
              Outcome(write("t.stl", binaryStl(torusFacets)), 3.0));
    std::mt19937 random(23);
    const auto soup = [&](std::size_t facets, std::uint32_t spread) {
        std::vector<Facet> soup(facets);
        for (Facet& facet : soup)
            for (float& c : facet)
                c = static_cast<float>(static_cast<int>(random() % spread) - 2) * 0.37f;
        for (std::size_t f = 0; f < facets; f += 7)
            std::copy_n(&soup[f][0], 3, &soup[f][3 + 3 * (f % 2)]);  // degenerate facets
        return soup;
    };
    std::vector<Facet> outOfRange = soup(50, 5);
    outOfRange[31][4] = 1e30f;
    const std::pair<std::string, std::vector<Facet>> files[] = {
        {"", torusFacets},    {"solid torus", torusFacets},  {"a", soup(9000, 5)},
        {"b", soup(1, 2)},    {"solid soup", soup(9000, 3)}, {"c", soup(20000, 1 << 20)},
        {"range", outOfRange}};
    for (const auto& [comment, facets] : files) {
        const fs::path path = write("s" + comment + ".stl", binaryStl(facets, comment));
        for (const double scale : {1000.0, 3.0, 0.01}) {
            const std::string own = Outcome(path, scale),
                              general = Outcome(path, scale, [&] {
                                  return BuildMesh(ReadWithAssimp(path, false), scale);
                              });
            EXPECT_EQ(own, general.substr(general.rfind("unnamed ", 0) == 0 ? 8 : 0))
                << path << " x " << scale;
            EXPECT_EQ(own.rfind("error: vertex 94: coordinate y", 0) == 0, comment == "range")
                << own;
        }
    }
}

}  // namespace
