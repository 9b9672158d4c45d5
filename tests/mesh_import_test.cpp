#include "mesh_import.h"
#include "assimp_reader.h"
#include "mesh_builder.h"
#include "ply_header.h"
#include "ply_triangle_mesh.h"
#include "vertex_merge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/noisy_torus.h"

namespace {

namespace fs = std::filesystem;
using velpick::ImportMesh;
using velpick::MeshImportError;
using velpick::detail::AllToInternalUnits;
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
    for (const Facet& facet : facets) {
        bytes.append(12, '\0');  // normal, unused
        for (float v : facet)
            append<float>(bytes, v);
        append<std::uint16_t>(bytes, 0);
    }
    return bytes;
}

// What a reader makes of a file: "surfaces N | x,y,z of each vertex | the vertices of each
// triangle", or "error: <reason>" without the file's name.
std::string Outcome(const fs::path& file, const std::function<std::unique_ptr<MStlBase>()>& read) {
    std::ostringstream text;
    try {
        const auto mesh = read();
        text << "surfaces " << mesh->GetTopSurfaces().size() << " |";
        for (std::size_t i = 0; i < mesh->GetNumberOfPoints(); ++i)
            text << ' ' << mesh->GetPoint(i)[0] << ',' << mesh->GetPoint(i)[1] << ','
                 << mesh->GetPoint(i)[2];
        text << " |";
        for (std::size_t t = 0; t < mesh->GetNumberOfTriangles(); ++t)
            for (std::size_t k = 0; k < 3; ++k)
                text << ' ' << mesh->GetTriangle(t).GetPointIndex(k);
    } catch (const std::exception& error) {
        const std::string message = error.what(), prefix = file.string() + ": ";
        text << "error: " << message.substr(message.rfind(prefix, 0) == 0 ? prefix.size() : 0);
    }
    return text.str();
}

std::string Imported(const fs::path& file, double unitsPerModelUnit) {
    return Outcome(file, [&] { return ImportMesh(file, unitsPerModelUnit); });
}

class MeshImportTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        m_dir = fs::temp_directory_path() / (std::string("mesh_import_test_") + test->name() + "_" +
                                             std::to_string(std::random_device()()));
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    fs::path write(const std::string& name, const std::string& bytes) {
        const fs::path path = m_dir / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    // The import fails with "<file>: ..." and the reason mentions `fragment`.
    void expectFailure(const fs::path& file, const std::string& fragment) {
        try {
            ImportMesh(file, 1000.0);
            ADD_FAILURE() << file << " imported";
        } catch (const MeshImportError& error) {
            const std::string message = error.what();
            EXPECT_EQ(message.rfind(file.string() + ": ", 0), 0u) << message;
            EXPECT_NE(message.find(fragment), std::string::npos) << message;
        }
    }

    fs::path m_dir;
};

TEST_F(MeshImportTest, ObjGroupsBecomeSurfacesAndFacesKeepFileOrder) {
    write("m.mtl", "newmtl red\nKd 1 0 0\nnewmtl blue\nKd 0 0 1\n");
    const fs::path file = write("groups.obj",
                                "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\n"
                                "g a\nusemtl red\nf 1 2 3 4\nusemtl blue\nf 1 2 5\n"
                                "g b\nf 2/1 3/1 5/1\ng a\nusemtl red\nf -5 -1 -2\n");
    // The quad is fanned in place into triangles 0 and 1.
    EXPECT_EQ(Imported(file, 1.0),
              "surfaces 2 | 0,0,0 1,0,0 1,1,0 0,1,0 0,0,1 | 0 1 2 0 2 3 0 1 4 1 2 4 0 4 3");
    const auto mesh = ImportMesh(file, 1.0);
    const MStlSurface* a = mesh->GetTopSurfaces()[0].get();
    const MStlSurface* b = mesh->GetTopSurfaces()[1].get();
    const std::vector<const MStlSurface*> expected = {a, a, a, b, a};
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(mesh->GetTriangle(i).GetSurface(), expected[i]) << "triangle " << i;
    EXPECT_EQ(a->GetNumberOfTriangles(), 4u);
}

/// One mesh of 60 vertices and 90 faces in many PLY layouts: vertex records with properties
/// around x, y, z (halves, exact in float, many repeated), faces of 3 to 2 + cornerChoices
/// corners. The ascii file is read value by value: the oracle of the binary layouts.
struct PlyLayouts {
    struct Layout {
        std::string coordinate, count, index;  // property types: x, y, z; list count; items
        bool flags = false;                    // a face property after the list
        std::string format = "binary_little_endian";
    };

    explicit PlyLayouts(unsigned cornerChoices = 3) {
        std::mt19937 random(3);
        for (double& c : coordinates)
            c = static_cast<double>(random() % 9) / 2.0;
        for (auto& face : faces) {
            face.resize(3 + random() % cornerChoices);
            for (std::int32_t& index : face)
                index = static_cast<std::int32_t>(random() % 60);
        }
    }

    std::string File(const Layout& l) const {
        const bool ascii = l.format == "ascii", big = l.format == "binary_big_endian";
        const std::string& c = l.coordinate;
        std::string bytes =
            "ply\nformat " + l.format + " 1.0\nelement vertex 60\nproperty uchar red\nproperty " +
            c + " x\nproperty " + c + " y\nproperty float confidence\nproperty " + c +
            " z\nelement face 90\nproperty list " + l.count + " " + l.index + " vertex_indices\n" +
            (l.flags ? "property uchar flags\n" : "") + "end_header\n";
        const auto put = [&](const std::string& type, double value) {
            const bool real = type == "float" || type == "double";
            if (ascii)
                bytes +=
                    (real ? std::to_string(value) : std::to_string(static_cast<long long>(value))) +
                    " ";
            else if (type == "double")
                append<double>(bytes, value, big);
            else if (type == "float")
                append<float>(bytes, static_cast<float>(value), big);
            else if (type == "uchar")
                append<std::uint8_t>(bytes, static_cast<std::uint8_t>(value));
            else if (type == "ushort")
                append<std::uint16_t>(bytes, static_cast<std::uint16_t>(value), big);
            else
                append<std::int32_t>(bytes, static_cast<std::int32_t>(value), big);
        };
        for (std::size_t v = 0; v < 60; ++v) {
            for (const auto& [type, value] : {std::pair(std::string("uchar"), 7.0),
                                              {c, coordinates[3 * v]},
                                              {c, coordinates[3 * v + 1]},
                                              {"float", 0.5},
                                              {c, coordinates[3 * v + 2]}})
                put(type, value);
            bytes += ascii ? "\n" : "";
        }
        for (const auto& face : faces) {
            put(l.count, static_cast<double>(face.size()));
            for (std::int32_t index : face)
                put(l.index, index);
            if (l.flags)
                put("uchar", 1);
            bytes += ascii ? "\n" : "";
        }
        return bytes;
    }

    // The mesh of a triangle file worked out independently, as Outcome gives it: positions in
    // internal units numbered in order of first use, corners 0, 1, 2 of each face in turn.
    std::string TriangleOutcome(double unitsPerModelUnit) const {
        std::map<std::array<long, 3>, int> numbers;
        std::string points, corners;
        for (const auto& face : faces)
            for (const std::int32_t index : face) {
                std::array<long, 3> p;
                for (int axis = 0; axis < 3; ++axis)
                    p[axis] = std::lround(coordinates[3 * index + axis] * unitsPerModelUnit);
                const auto [it, isNew] = numbers.try_emplace(p, static_cast<int>(numbers.size()));
                if (isNew)
                    points += " " + std::to_string(p[0]) + "," + std::to_string(p[1]) + "," +
                              std::to_string(p[2]);
                corners += " " + std::to_string(it->second);
            }
        return "surfaces 1 |" + points + " |" + corners;
    }

    std::array<double, 180> coordinates;
    std::vector<std::vector<std::int32_t>> faces{90};
};

TEST_F(MeshImportTest, BinaryPlyLayoutsGiveTheMeshOfTheAsciiReader) {
    // Triangle files: an ordered map of first uses is also the oracle of the ascii one, and the
    // little-endian ones without a face property are the ones read in place.
    const std::string big = "binary_big_endian";
    const PlyLayouts::Layout layouts[] = {{"float", "uchar", "int"},
                                          {"double", "uchar", "uint"},
                                          {"float", "int", "uint"},
                                          {"double", "uint", "int"},
                                          {"float", "ushort", "int"},
                                          {"double", "uchar", "int", false, big},
                                          {"float", "uint", "int", false, big},
                                          {"float", "uchar", "int", true}};
    for (const unsigned cornerChoices : {3u, 1u}) {
        const PlyLayouts file(cornerChoices);
        const bool triangles = cornerChoices == 1;
        const std::string ascii =
            Imported(write("a.ply", file.File({"float", "uchar", "int", false, "ascii"})), 2.0);
        if (triangles) {
            EXPECT_EQ(ascii, file.TriangleOutcome(2.0));
        }
        for (const PlyLayouts::Layout& l : layouts) {
            SCOPED_TRACE(l.coordinate + " " + l.count + " " + l.index +
                         (l.flags ? " flags " : " ") + l.format + (triangles ? " triangles" : ""));
            const std::string bytes = file.File(l);
            EXPECT_EQ(Imported(write("b.ply", bytes), 2.0), ascii);
            const bool inPlace = triangles && l.format != big && !l.flags && l.count != "ushort";
            const auto header = velpick::detail::ReadPlyHeader(bytes);
            std::istringstream body(bytes.substr(header.bodyOffset));
            EXPECT_EQ(velpick::detail::BuildPlyTriangleMesh(
                          header, body, bytes.size() - header.bodyOffset, 2.0) != nullptr,
                      inPlace);
        }
    }
}

TEST_F(MeshImportTest, FaultyTriangleFilesFailAsTheValueByValueReaderSays) {
    // A little-endian file is read in place until a fault; a big-endian one value by value
    // throughout. Both must end alike: the same message, or the same mesh. The polygon file
    // takes the general reader's in-place path, the triangle file the fast path.
    // A spoil changes the mesh before it is written (bytes null) or the bytes after.
    using Spoil = std::function<void(PlyLayouts&, std::string * bytes)>;
    const std::pair<const char*, Spoil> spoils[] = {
        {"truncated", [](PlyLayouts&, std::string* b) { b ? b->resize(b->size() - 2) : void(); }},
        {"bytes follow", [](PlyLayouts&, std::string* b) { b ? b->push_back('\0') : void(); }},
        {"face 7 uses vertex 60", [](PlyLayouts& p, std::string*) { p.faces[7][2] = 60; }},
        {"face 89: vertex index -1", [](PlyLayouts& p, std::string*) { p.faces[89][0] = -1; }},
        {"vertex 59: coordinate z", [](PlyLayouts& p, std::string*) { p.coordinates[179] = NAN; }},
        {"vertex 3: coordinate x", [](PlyLayouts& p, std::string*) { p.coordinates[9] = 3e6; }},
        // A quad: a valid file, but not all triangles.
        {"surfaces 1", [](PlyLayouts& p, std::string*) { p.faces[40].push_back(0); }},
        {"face 0 has 2 vertices", [](PlyLayouts& p, std::string*) { p.faces[0].pop_back(); }},
        // The last 195 bytes (15 triangles, the last polygon faces) turned to all ones.
        {"error", [](PlyLayouts&,
                     std::string* b) { b ? std::fill(b->end() - 195, b->end(), '\xff') : void(); }},
    };
    const auto outcome = [&](unsigned cornerChoices, const std::string& format,
                             const Spoil& spoil) {
        PlyLayouts ply(cornerChoices);
        spoil(ply, nullptr);
        std::string bytes = ply.File({"float", "uchar", "int", false, format});
        spoil(ply, &bytes);
        return Imported(write("f.ply", bytes), 1000.0);
    };
    for (const unsigned cornerChoices : {1u, 3u}) {
        for (const auto& [fragment, spoil] : spoils) {
            SCOPED_TRACE(fragment);
            const std::string little = outcome(cornerChoices, "binary_little_endian", spoil);
            EXPECT_EQ(little, outcome(cornerChoices, "binary_big_endian", spoil));
            EXPECT_NE(little.find(fragment), std::string::npos) << little;
        }
    }
}

TEST(VertexMergeTest, FirstOfEqualVerticesAndStreamedNumbersMatchAnOrderedMap) {
    // Counts around powers of two (where the table splits its slots differently and the
    // streamed table grows), positions drawn from a few values so that most repeat, from many
    // so that few do, and from many with every vertex of the second half a copy of any earlier
    // one, late ones included. The streamed numbering takes them in blocks of random sizes.
    std::mt19937 random(11);
    for (const std::size_t count : {0u, 1u, 2u, 3u, 7u, 8u, 255u, 256u, 257u, 70000u}) {
        for (const int mode : {0, 1, 2}) {
            const int spread = mode == 0 ? 3 : 1 << 30;
            std::vector<std::int32_t> units(3 * count);
            for (std::int32_t& u : units)
                u = static_cast<std::int32_t>(random() % spread) - spread / 2;
            for (std::size_t v = std::max<std::size_t>(1, count / 2); mode == 2 && v < count; ++v)
                std::copy_n(&units[3 * (random() % v)], 3, &units[3 * v]);
            std::vector<std::uint32_t> first(count, 12345), numbers(count, 12345);
            velpick::detail::FindFirstOfEqualVertices(units.data(), count, first.data());
            velpick::detail::PositionNumbering streamed(count / 8);
            for (std::size_t v = 0, block = 0; v < count; v += block) {
                block = std::min<std::size_t>(count - v, random() % 5000);
                streamed.Number(&units[3 * v], block, &numbers[v]);
            }
            std::map<std::array<std::int32_t, 3>, std::uint32_t> seen, numberOf;
            for (std::size_t v = 0; v < count; ++v) {
                const std::array<std::int32_t, 3> position{units[3 * v], units[3 * v + 1],
                                                           units[3 * v + 2]};
                const auto number = static_cast<std::uint32_t>(numberOf.size());
                ASSERT_EQ(first[v], seen.try_emplace(position, v).first->second) << v;
                ASSERT_EQ(numbers[v], numberOf.try_emplace(position, number).first->second) << v;
                ASSERT_TRUE(std::equal(position.begin(), position.end(),
                                       streamed.Positions() + 3 * numbers[v]));
            }
            EXPECT_EQ(streamed.Count(), numberOf.size());
        }
    }
}

TEST(InternalUnitsTest, RoundingMatchesRoundHalfAwayFromZeroAndRefusesWhatDoesNotFit) {
    // std::round and a range check on its result are the oracle, of single values and of
    // floats converted many at a time (odd and even runs).
    const auto oracle = [](double coordinate, double scale) -> std::optional<std::int32_t> {
        const double rounded = std::round(coordinate * scale);
        if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0))
            return std::nullopt;
        return static_cast<std::int32_t>(rounded);
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
    for (int i = 0; i < 20000; ++i) {
        values.push_back(wide(random));
        values.push_back(narrow(random));
        values.push_back(std::floor(narrow(random) * 8.0) / 8.0);  // exact eighths and halves
    }
    for (const double scale : {1.0, 1000.0, 0.001, 3.0}) {
        std::vector<float> floats;
        for (const double value : values) {
            ASSERT_EQ(velpick::detail::ToInternalUnits(value, scale), oracle(value, scale))
                << value << " x " << scale;
            floats.push_back(static_cast<float>(value));
        }
        for (std::size_t first = 0, count; first < floats.size(); first += count) {
            count = std::min<std::size_t>(first % 7 + 1, floats.size() - first);
            std::vector<std::int32_t> got(count), expected(count);
            bool allFit = true;
            for (std::size_t i = 0; i < count; ++i) {
                allFit = allFit && oracle(floats[first + i], scale);
                expected[i] = oracle(floats[first + i], scale).value_or(0);
            }
            const auto fit = AllToInternalUnits(&floats[first], count, scale, got.data());
            ASSERT_EQ(fit, allFit);
            ASSERT_TRUE(!fit || got == expected) << floats[first] << " x " << scale;
        }
    }
}

TEST_F(MeshImportTest, VerticesAreNumberedInOrderOfFirstUseByEveryFormat) {
    // The faces (z, x, o) and (o, x, xy, y), the quad fanned in place from o: first uses are
    // z, x, o, then xy, y, whatever order the file lists its vertices in. The OFF file lists o
    // twice (one mesh vertex), a comment and a face colour.
    const std::string files[][2] = {
        {"v.off",
         "OFF\n# two faces\n6 2 0\n0 1 0\n1 1 0\n0 0 0\n1 0 0\n0 0 1\n0 0 0\n"
         "3 4 3 2\n4 5 3 1 0 255 0 0\n"},
        {"v.ply",
         "ply\nformat ascii 1.0\nelement vertex 5\nproperty float x\nproperty float y\n"
         "property float z\nelement face 2\nproperty list uchar int vertex_indices\n"
         "end_header\n0 1 0\n1 1 0\n0 0 0\n1 0 0\n0 0 1\n3 4 3 2\n4 2 3 1 0\n"},
        {"v.obj", "v 0 1 0\nv 1 1 0\nv 0 0 0\nv 1 0 0\nv 0 0 1\nf 5 4 3\nf 3 4 2 1\n"},
        {"v.stl", binaryStl({{0, 0, 1, 1, 0, 0, 0, 0, 0},
                             {0, 0, 0, 1, 0, 0, 1, 1, 0},
                             {0, 0, 0, 1, 1, 0, 0, 1, 0}})},
        {"a.stl",
         "solid t\nfacet normal 0 0 1\nouter loop\nvertex 0 0 1\nvertex 1 0 0\nvertex 0 0 0\n"
         "endloop\nendfacet\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\n"
         "vertex 1 1 0\nendloop\nendfacet\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\n"
         "vertex 1 1 0\nvertex 0 1 0\nendloop\nendfacet\nendsolid t\n"},
    };
    for (const auto& [name, bytes] : files)
        EXPECT_EQ(Imported(write(name, bytes), 1.0),
                  "surfaces 1 | 0,0,1 1,0,0 0,0,0 1,1,0 0,1,0 | 0 1 2 2 1 3 2 3 4")
            << name;
}

TEST_F(MeshImportTest, BinaryStlGivesTheMeshOfTheGeneralReader) {
    // The general reader's polygons built by BuildMesh are the oracle, at several scales: a
    // noisy torus in face order, random soups of few positions (repeated and degenerate facets,
    // some -0) over several blocks, a soup of distinct positions that outgrows the position
    // table many times, files whose comment begins with "solid", and a coordinate out of range.
    // The torus is also the oracle of the streamed PLY reader, over several batches of faces.
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
    const fs::path plyPath = write("t.ply", ply), stlPath = write("t.stl", binaryStl(torusFacets));
    EXPECT_EQ(Imported(plyPath, 3.0), Imported(stlPath, 3.0));
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
    const std::vector<std::pair<std::string, std::vector<Facet>>> files = {
        {"", torusFacets}, {"solid torus", torusFacets},  {"", soup(9000, 5)},
        {"", soup(1, 2)},  {"solid soup", soup(9000, 3)}, {"", soup(20000, 1 << 20)},
        {"", outOfRange}};
    // The STL sample models that come with the general reader, where installed.
    std::vector<fs::path> paths;
    for (const auto& [comment, facets] : files)
        paths.push_back(
            write("s" + std::to_string(paths.size()) + ".stl", binaryStl(facets, comment)));
    const fs::path samples = "/usr/share/assimp/models/STL";
    for (const auto& sample :
         fs::exists(samples) ? fs::directory_iterator(samples) : fs::directory_iterator())
        if (sample.path().extension() == ".stl" || sample.path().extension() == ".STL")
            paths.push_back(sample.path());
    for (const fs::path& path : paths) {
        for (const double scale : {1000.0, 3.0, 0.01}) {
            SCOPED_TRACE(path.string() + " x " + std::to_string(scale));
            const std::string own = Imported(path, scale);
            EXPECT_EQ(own, Outcome(path, [&] {
                          return velpick::detail::BuildMesh(
                              velpick::detail::ReadWithAssimp(path, false), scale);
                      }));
            if (path.parent_path() != samples) {
                EXPECT_EQ(own.rfind("error", 0) == 0, path == paths[files.size() - 1]) << own;
            }
        }
    }
    EXPECT_NE(Imported(paths[files.size() - 1], 1.0).find("vertex 94: coordinate y"),
              std::string::npos);
}

TEST_F(MeshImportTest, CoordinatesAreScaledByTheGivenUnitsAndRounded) {
    const fs::path file = write("s.off",
                                "OFF\n3 1 0\n0.0015 -0.0015 1.2344\n"
                                "-2000000 2000000 0.0004\n1e-9 0.9996 -0.0006\n3 0 1 2\n");
    EXPECT_EQ(Imported(file, 1000.0),
              "surfaces 1 | 2,-2,1234 -2000000000,2000000000,0 0,1000,-1 | 0 1 2");
    EXPECT_EQ(Imported(file, 1.0), "surfaces 1 | 0,0,1 -2000000,2000000,0 0,1,0 | 0 1 2");
}

TEST_F(MeshImportTest, MalformedFilesFailNamingTheProblem) {
    const std::string objVertices = "v 0 0 0\nv 1 0 0\nv 1 1 0\n";
    const std::string plyHeader =
        "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty double x\n"
        "property double y\nproperty double z\nelement face 1\n"
        "property list uchar int vertex_indices\nend_header\n";
    std::string plyBody(72, '\0');
    plyBody += std::string("\x03\0\0\0\0\x01\0\0\0\x02\0\0\0", 13);
    const std::string stl = binaryStl({{0, 0, 0, 1, 0, 0, 0, 0, 1}, {0, 0, 0, 1, 1, 0, 1, 0, 0}});
    const std::string offTail = "1 0 0\n0 1 0\n3 0 1 2\n";
    std::string solidCut = binaryStl({{0, 0, 0, 1, 0, 0, 0, 0, 1}}, "solid cut");
    solidCut.pop_back();
    const std::string files[][3] = {
        // name, bytes, what the message mentions
        {"cut.stl", stl.substr(0, stl.size() - 57), "ends at byte offset 127, in facet 0"},
        {"solidcut.stl", solidCut, "truncated binary STL: 1 facets take 134 bytes"},
        {"long.stl", stl + "x", "ends at byte offset 184 but 1 more bytes follow"},
        {"tiny.stl", "facet", "not an STL file"},
        {"empty.stl", binaryStl({}), "no faces"},
        {"line.obj", objVertices + "f 1 2 3\nl 1 2 3\n", "face 1 has 2 vertices"},
        {"short.obj", objVertices + "f 1 2\n", "face 0 has 2 vertices"},
        {"range.obj", objVertices + "f 1 2 4\n", "range"},
        {"text.obj", "this is not a mesh at all\n", ""},
        {"noend.ply", "ply\nformat ascii 1.0\nelement vertex 0\n", "end_header"},
        {"lying.ply",
         "ply\nformat binary_little_endian 1.0\nelement vertex 1000000000000\n"
         "property double x\nproperty double y\nproperty double z\nend_header\n" +
             plyBody,
         "element 'vertex' declares 1000000000000 instances"},
        {"lying-ascii.ply",
         "ply\nformat ascii 1.0\nelement junk 9223372036854775807\nend_header\n0\n",
         "element 'junk' declares"},
        {"line.ply",
         "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
         "property float z\nelement face 1\nproperty list uchar int vertex_indices\n"
         "end_header\n0 0 0\n1 0 0\n0 1 0\n2 0 1\n",
         "face 0 has 2 vertices"},
        {"few.off", "OFF\n3 2 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", "face 1"},
        {"bad.off", "OFF\n3 1 0\n0 0 0\n1 zero 0\n0 1 0\n3 0 1 2\n", "vertex 1"},
        {"range.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n", "vertex 3"},
        {"none.off", "OFF\n0 0 0\n", "no faces"},
        {"nan.off", "OFF\n3 1 0\nnan 0 0\n" + offTail, "out of range"},
        {"mesh.xyz", "OFF\n", "unsupported"},
    };
    for (const auto& [name, bytes, fragment] : files) {
        SCOPED_TRACE(name);
        expectFailure(write(name, bytes), fragment);
    }
    expectFailure(m_dir / "missing.stl", "no such file");
    expectFailure(m_dir / "missing.ply", "no such file");
    std::mt19937 random(5);
    std::string garbage(3000, '\0');
    for (char& c : garbage)
        c = static_cast<char>(random());
    for (const char* name : {"g.stl", "g.ply", "g.off", "g.obj"})
        expectFailure(write(name, garbage), "");
    std::string none = plyHeader + plyBody.substr(0, 72);
    expectFailure(write("none.ply", none.replace(none.find("face 1"), 6, "face 0")), "no faces");
    // A binary element without properties occupies no bytes, however many it declares.
    std::string marker = plyHeader;
    marker.insert(marker.find("end_header"), "element marker 9223372036854775807\n");
    EXPECT_EQ(ImportMesh(write("marker.ply", marker + plyBody), 1.0)->GetNumberOfTriangles(), 1u);
    EXPECT_NO_THROW(
        ImportMesh(write("edge.off", "OFF\n3 1 0\n2147483647 -2147483648 0\n" + offTail), 1.0));
}

}  // namespace
