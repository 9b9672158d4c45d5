#include "mesh_import.h"
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
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using velpick::ImportMesh;
using velpick::MeshImportError;
using Corner = std::array<int, 3>;
using Triangle = std::array<Corner, 3>;

template <class T>
void append(std::string& bytes, T value, bool bigEndian = false) {
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    if (bigEndian)
        std::reverse(raw, raw + sizeof(T));
    bytes.append(raw, sizeof(T));
}

std::string binaryStl(const std::vector<std::array<float, 9>>& facets) {
    std::string bytes(80, ' ');
    append<std::uint32_t>(bytes, static_cast<std::uint32_t>(facets.size()));
    for (const auto& facet : facets) {
        for (int i = 0; i < 3; ++i)
            append<float>(bytes, 0.0f);  // normal, unused
        for (float v : facet)
            append<float>(bytes, v);
        append<std::uint16_t>(bytes, 0);
    }
    return bytes;
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

    static void expectTriangles(const MStlBase& mesh, const std::vector<Triangle>& expected) {
        ASSERT_EQ(mesh.GetNumberOfTriangles(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i)
            for (std::size_t k = 0; k < 3; ++k) {
                const MStlPoint& p = *mesh.GetTriangle(i).GetPoint(k);
                EXPECT_EQ((Corner{p[0], p[1], p[2]}), expected[i][k]) << "triangle " << i;
            }
    }

    // The import fails with "<file>: ..." and the reason mentions `fragment`.
    void expectFailure(const fs::path& file, const std::string& fragment, double units = 1000.0) {
        try {
            ImportMesh(file, units);
            ADD_FAILURE() << file << " imported";
        } catch (const MeshImportError& error) {
            const std::string message = error.what();
            EXPECT_EQ(message.rfind(file.string() + ": ", 0), 0u) << message;
            EXPECT_NE(message.find(fragment), std::string::npos) << message;
        }
    }

    fs::path m_dir;
};

const Corner o{0, 0, 0}, x{1, 0, 0}, xy{1, 1, 0}, y{0, 1, 0}, z{0, 0, 1};

TEST_F(MeshImportTest, ObjGroupsBecomeSurfacesAndFacesKeepFileOrder) {
    write("m.mtl", "newmtl red\nKd 1 0 0\nnewmtl blue\nKd 0 0 1\n");
    const auto mesh = ImportMesh(write("groups.obj",
                                       "mtllib m.mtl\n"
                                       "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\n"
                                       "g a\nusemtl red\nf 1 2 3 4\n"
                                       "usemtl blue\nf 1 2 5\n"
                                       "g b\nf 2/1 3/1 5/1\n"
                                       "g a\nusemtl red\nf -5 -1 -2\n"),
                                 1.0);
    // The quad is fanned in place into triangles 0 and 1.
    expectTriangles(*mesh, {{o, x, xy}, {o, xy, y}, {o, x, z}, {x, xy, z}, {o, z, y}});
    ASSERT_EQ(mesh->GetTopSurfaces().size(), 2u);
    const MStlSurface* a = mesh->GetTopSurfaces()[0].get();
    const MStlSurface* b = mesh->GetTopSurfaces()[1].get();
    const std::vector<const MStlSurface*> expected = {a, a, a, b, a};
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(mesh->GetTriangle(i).GetSurface(), expected[i]) << "triangle " << i;
    EXPECT_EQ(a->GetNumberOfTriangles(), 4u);
}

std::string binaryPlyBody(bool bigEndian) {
    std::string body;
    const double coordinates[5][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}};
    for (const auto& v : coordinates)
        for (double c : v)
            append<double>(body, c, bigEndian);
    const std::vector<std::vector<std::int32_t>> faces = {{4, 1, 0}, {0, 1, 2, 3}};
    for (const auto& face : faces) {
        append<std::uint8_t>(body, static_cast<std::uint8_t>(face.size()));
        for (std::int32_t index : face)
            append<std::int32_t>(body, index, bigEndian);
    }
    return body;
}

/// One mesh in many PLY layouts: vertex records with extra properties around x, y, z, and
/// faces of 3 to 5 corners with repeated positions. The ascii file is read value by value, so
/// it is the oracle for the binary layouts that are read in place.
class PlyLayouts {
  public:
    struct Layout {
        const char* coordinate;  // "float" or "double"
        const char* count;       // list count type
        const char* index;       // list item type
        bool extraFaceProperty;  // a face property besides the list
        bool bigEndian;
    };

    /// Faces of 3 to 2 + cornerChoices corners: 1 gives a triangle mesh.
    explicit PlyLayouts(unsigned cornerChoices = 3) {
        std::mt19937 random(3);
        for (int v = 0; v < 60; ++v)  // halves: exact in float, and repeated positions
            for (int axis = 0; axis < 3; ++axis)
                m_coordinates.push_back(static_cast<double>(random() % 9) / 2.0);
        for (int f = 0; f < 90; ++f) {
            std::vector<std::int32_t> face(3 + random() % cornerChoices);
            for (std::int32_t& index : face)
                index = static_cast<std::int32_t>(random() % 60);
            m_faces.push_back(face);
        }
    }

    std::string Ascii() const {
        std::string text = header("ascii 1.0", "float", "uchar", "int", false);
        for (std::size_t v = 0; v < m_coordinates.size() / 3; ++v)
            text += "7 " + std::to_string(m_coordinates[3 * v]) + " " +
                    std::to_string(m_coordinates[3 * v + 1]) + " 0.5 " +
                    std::to_string(m_coordinates[3 * v + 2]) + "\n";
        for (const auto& face : m_faces) {
            text += std::to_string(face.size());
            for (std::int32_t index : face)
                text += " " + std::to_string(index);
            text += "\n";
        }
        return text;
    }

    std::string Binary(const Layout& layout) const {
        std::string bytes =
            header(layout.bigEndian ? "binary_big_endian 1.0" : "binary_little_endian 1.0",
                   layout.coordinate, layout.count, layout.index, layout.extraFaceProperty);
        const bool isDouble = std::string(layout.coordinate) == "double";
        const auto coordinate = [&](double value) {
            isDouble ? append<double>(bytes, value, layout.bigEndian)
                     : append<float>(bytes, static_cast<float>(value), layout.bigEndian);
        };
        for (std::size_t v = 0; v < m_coordinates.size() / 3; ++v) {
            append<std::uint8_t>(bytes, 7);
            coordinate(m_coordinates[3 * v]);
            coordinate(m_coordinates[3 * v + 1]);
            append<float>(bytes, 0.5f, layout.bigEndian);
            coordinate(m_coordinates[3 * v + 2]);
        }
        const std::string count = layout.count;
        for (const auto& face : m_faces) {
            if (count == "uchar")
                append<std::uint8_t>(bytes, static_cast<std::uint8_t>(face.size()));
            else if (count == "ushort")
                append<std::uint16_t>(bytes, static_cast<std::uint16_t>(face.size()),
                                      layout.bigEndian);
            else
                append<std::int32_t>(bytes, static_cast<std::int32_t>(face.size()),
                                     layout.bigEndian);
            for (std::int32_t index : face)
                append<std::int32_t>(bytes, index, layout.bigEndian);
            if (layout.extraFaceProperty)
                append<std::uint8_t>(bytes, 1);
        }
        return bytes;
    }

    const std::vector<double>& Coordinates() const { return m_coordinates; }
    const std::vector<std::vector<std::int32_t>>& Faces() const { return m_faces; }

  private:
    static std::string header(const std::string& format, const std::string& coordinate,
                              const std::string& count, const std::string& index,
                              bool extraFaceProperty) {
        return "ply\nformat " + format + "\nelement vertex 60\nproperty uchar red\n" + "property " +
               coordinate + " x\nproperty " + coordinate + " y\n" +
               "property float confidence\nproperty " + coordinate + " z\n" +
               "element face 90\nproperty list " + count + " " + index + " vertex_indices\n" +
               (extraFaceProperty ? "property uchar flags\n" : "") + "end_header\n";
    }

    std::vector<double> m_coordinates;
    std::vector<std::vector<std::int32_t>> m_faces;
};

// Every vertex and triangle of the mesh, as coordinates in storage order.
std::vector<Corner> Contents(const MStlBase& mesh) {
    std::vector<Corner> contents;
    for (std::size_t i = 0; i < mesh.GetNumberOfPoints(); ++i) {
        const MStlPoint& p = mesh.GetPoint(i);
        contents.push_back({p[0], p[1], p[2]});
    }
    for (std::size_t t = 0; t < mesh.GetNumberOfTriangles(); ++t)
        for (std::size_t k = 0; k < 3; ++k)
            contents.push_back({static_cast<int>(mesh.GetTriangle(t).GetPointIndex(k)), -1, -1});
    return contents;
}

// The mesh of a triangle file worked out independently: positions in internal units numbered
// in order of first use, corners 0, 1, 2 of each face in turn, in the layout of Contents.
std::vector<Corner> expectedTriangleContents(const PlyLayouts& file, double unitsPerModelUnit) {
    std::map<Corner, int> numbers;
    std::vector<Corner> points, corners;
    for (const auto& face : file.Faces())
        for (const std::int32_t index : face) {
            Corner position;
            for (int axis = 0; axis < 3; ++axis)
                position[axis] = static_cast<int>(
                    std::lround(file.Coordinates()[3 * index + axis] * unitsPerModelUnit));
            const auto [it, isNew] = numbers.try_emplace(position, static_cast<int>(points.size()));
            if (isNew)
                points.push_back(position);
            corners.push_back({it->second, -1, -1});
        }
    points.insert(points.end(), corners.begin(), corners.end());
    return points;
}

TEST_F(MeshImportTest, BinaryPlyLayoutsGiveTheMeshOfTheAsciiReader) {
    // Polygon files: the ascii reader, value by value, is the oracle of every binary layout.
    // Triangle files: an ordered map of first uses is the oracle of all of them, and the
    // little-endian ones without a face property are the ones read in place.
    const PlyLayouts::Layout layouts[] = {
        {"float", "uchar", "int", false, false},  {"double", "uchar", "uint", false, false},
        {"float", "int", "uint", false, false},   {"double", "uint", "int", false, false},
        {"float", "ushort", "int", false, false}, {"double", "uchar", "int", false, true},
        {"float", "uint", "int", false, true},    {"float", "uchar", "int", true, false},
    };
    for (const unsigned cornerChoices : {3u, 1u}) {
        const PlyLayouts file(cornerChoices);
        const bool triangles = cornerChoices == 1;
        const std::vector<Corner> ascii = Contents(*ImportMesh(write("a.ply", file.Ascii()), 2.0));
        if (triangles) {
            EXPECT_EQ(ascii, expectedTriangleContents(file, 2.0));
        }
        for (const PlyLayouts::Layout& layout : layouts) {
            SCOPED_TRACE(std::string(layout.coordinate) + " " + layout.count + " " + layout.index +
                         (layout.extraFaceProperty ? " flags" : "") +
                         (layout.bigEndian ? " big-endian" : "") + (triangles ? " triangles" : ""));
            const std::string bytes = file.Binary(layout);
            const auto mesh = ImportMesh(write("b.ply", bytes), 2.0);
            EXPECT_EQ(Contents(*mesh), ascii);
            EXPECT_EQ(mesh->GetTopSurfaces().size(), 1u);
            const bool inPlace = triangles && !layout.bigEndian && !layout.extraFaceProperty &&
                                 std::string(layout.count) != "ushort";
            const auto header = velpick::detail::ReadPlyHeader(bytes);
            EXPECT_EQ(velpick::detail::BuildPlyTriangleMesh(header, bytes, 2.0) != nullptr,
                      inPlace);
        }
    }
}

TEST_F(MeshImportTest, FaultyTriangleFilesFailAsTheValueByValueReaderSays) {
    // A little-endian file is read in place until a fault; a big-endian one value by value
    // throughout. Both must end alike: the same message, or the same mesh. The polygon file
    // takes the general reader's in-place path, the triangle file the fast path.
    const PlyLayouts polygons, file(1);
    constexpr std::size_t kVertexBytes = 17, kFaceBytes = 13;  // float layout, uchar counts
    using Spoil = std::function<void(std::string&, std::size_t body, bool bigEndian)>;
    const auto put = [](std::string& bytes, std::size_t at, auto value, bool bigEndian) {
        std::string raw;
        append(raw, value, bigEndian);
        bytes.replace(at, raw.size(), raw);
    };
    const auto corner = [&](std::size_t face, std::size_t k) {
        return 60 * kVertexBytes + face * kFaceBytes + 1 + 4 * k;
    };
    const std::pair<const char*, Spoil> spoils[] = {
        {"truncated", [](std::string& b, std::size_t, bool) { b.resize(b.size() - 2); }},
        {"bytes follow", [](std::string& b, std::size_t, bool) { b.push_back('\0'); }},
        {"face 7 uses vertex 60",
         [&](std::string& b, std::size_t body, bool be) {
             put(b, body + corner(7, 2), std::int32_t{60}, be);
         }},
        {"face 89: vertex index -1",
         [&](std::string& b, std::size_t body, bool be) {
             put(b, body + corner(89, 0), std::int32_t{-1}, be);
         }},
        {"vertex 59: coordinate z",
         [&](std::string& b, std::size_t body, bool be) {
             put(b, body + 59 * kVertexBytes + 13, std::numeric_limits<float>::quiet_NaN(), be);
         }},
        {"vertex 3: coordinate x", [&](std::string& b, std::size_t body,
                                       bool be) { put(b, body + 3 * kVertexBytes + 1, 3e6f, be); }},
        // Face 40 becomes a quad: a valid file, but not all triangles.
        {"imported",
         [&](std::string& b, std::size_t body, bool) {
             b[body + 60 * kVertexBytes + 40 * kFaceBytes] = 4;
             b.insert(body + corner(40, 3), 4, '\0');
         }},
        {"face 0 has 2 vertices",
         [&](std::string& b, std::size_t body, bool) {
             b[body + 60 * kVertexBytes] = 2;
             b.erase(body + corner(0, 2), 4);
         }},
    };
    const auto outcome = [&](const PlyLayouts& ply, bool bigEndian, const Spoil& spoil) {
        std::string bytes = ply.Binary({"float", "uchar", "int", false, bigEndian});
        spoil(bytes, bytes.find("end_header\n") + 11, bigEndian);
        try {
            const auto mesh = ImportMesh(write("f.ply", bytes), 1000.0);
            std::string contents = "imported";
            for (const Corner& c : Contents(*mesh))
                contents += " " + std::to_string(c[0]) + "," + std::to_string(c[1]) + "," +
                            std::to_string(c[2]);
            return contents;
        } catch (const MeshImportError& error) {
            return std::string(error.what());
        }
    };
    for (const auto& [fragment, spoil] : spoils) {
        SCOPED_TRACE(fragment);
        const std::string little = outcome(file, false, spoil);
        EXPECT_EQ(little, outcome(file, true, spoil));
        EXPECT_NE(little.find(fragment), std::string::npos) << little;
    }
    // The last polygon faces (over 1000 bytes in all) turned to all ones.
    const Spoil ones = [](std::string& b, std::size_t, bool) {
        std::fill(b.end() - 200, b.end(), '\xff');
    };
    for (const Spoil& spoil : {spoils[0].second, spoils[1].second, ones}) {
        const std::string little = outcome(polygons, false, spoil);
        EXPECT_EQ(little, outcome(polygons, true, spoil));
        EXPECT_EQ(little.find("imported"), std::string::npos) << little;
    }
    std::string none =
        "ply\nformat binary_little_endian 1.0\nelement vertex 1\nproperty float x\n"
        "property float y\nproperty float z\nelement face 0\n"
        "property list uchar int vertex_indices\nend_header\n";
    none.append(12, '\0');
    expectFailure(write("none.ply", none), "no faces");
}

TEST(VertexMergeTest, FirstOfEqualVerticesMatchesAnOrderedMap) {
    // Counts around powers of two (where the table splits its slots differently), positions
    // drawn from a few values so that most repeat, from many so that few do, and from many
    // with every vertex of the second half a copy of any earlier one, late ones included.
    std::mt19937 random(11);
    for (const std::size_t count : {0u, 1u, 2u, 3u, 7u, 8u, 255u, 256u, 257u, 70000u}) {
        for (const int mode : {0, 1, 2}) {
            const int spread = mode == 0 ? 3 : 1 << 30;
            std::vector<std::int32_t> units(3 * count);
            for (std::int32_t& u : units)
                u = static_cast<std::int32_t>(random() % spread) - spread / 2;
            for (std::size_t v = std::max<std::size_t>(1, count / 2); mode == 2 && v < count; ++v)
                std::copy_n(&units[3 * (random() % v)], 3, &units[3 * v]);
            std::vector<std::uint32_t> first(count, 12345);
            velpick::detail::FindFirstOfEqualVertices(units.data(), count, first.data());
            std::map<Corner, std::uint32_t> seen;
            for (std::size_t v = 0; v < count; ++v) {
                const Corner position{units[3 * v], units[3 * v + 1], units[3 * v + 2]};
                const auto it = seen.try_emplace(position, static_cast<std::uint32_t>(v)).first;
                ASSERT_EQ(first[v], it->second) << "count " << count << ", vertex " << v;
            }
        }
    }
}

TEST(InternalUnitsTest, RoundingMatchesRoundHalfAwayFromZeroAndRefusesWhatDoesNotFit) {
    // std::round and a range check on its result are the oracle.
    const auto oracle = [](double coordinate, double scale) -> std::optional<std::int32_t> {
        const double rounded = std::round(coordinate * scale);
        if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0))
            return std::nullopt;
        return static_cast<std::int32_t>(rounded);
    };
    std::vector<double> values = {0.0,
                                  -0.0,
                                  0.5,
                                  -0.5,
                                  1.5,
                                  -2.5,
                                  2147483647.0,
                                  -2147483648.0,
                                  2147483647.5,
                                  -2147483648.5,
                                  1e300,
                                  -1e300,
                                  INFINITY,
                                  -INFINITY,
                                  NAN,
                                  0.49999999999999994,
                                  4503599627370497.0};
    for (const double edge :
         {0.5, 1.5, 1e6 + 0.5, 2147483646.5, -2147483647.5, 2147483647.5, -2147483648.5}) {
        values.push_back(std::nextafter(edge, 0.0));
        values.push_back(std::nextafter(edge, edge * 2));
    }
    std::mt19937_64 random(17);
    std::uniform_real_distribution<double> wide(-3e9, 3e9), narrow(-4.0, 4.0);
    for (int i = 0; i < 20000; ++i) {
        values.push_back(wide(random));
        values.push_back(narrow(random));
        values.push_back(std::floor(narrow(random) * 8.0) / 8.0);  // exact eighths and halves
    }
    for (const double scale : {1.0, 1000.0, 0.001, 3.0}) {
        for (const double value : values) {
            const std::optional<std::int32_t> expected = oracle(value, scale);
            ASSERT_EQ(velpick::detail::ToInternalUnits(value, scale), expected)
                << value << " x " << scale;
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
    for (const auto& [name, bytes] : files) {
        const auto mesh = ImportMesh(write(name, bytes), 1.0);
        expectTriangles(*mesh, {{z, x, o}, {o, x, xy}, {o, xy, y}});
        const Corner expected[] = {z, x, o, xy, y};
        ASSERT_EQ(mesh->GetNumberOfPoints(), 5u) << name;
        for (std::size_t i = 0; i < 5; ++i) {
            const MStlPoint& p = mesh->GetPoint(i);
            EXPECT_EQ((Corner{p[0], p[1], p[2]}), expected[i]) << name << ", vertex " << i;
        }
    }
}

TEST_F(MeshImportTest, CoordinatesAreScaledByTheGivenUnitsAndRounded) {
    const fs::path file = write("s.off",
                                "OFF\n3 1 0\n0.0015 -0.0015 1.2344\n"
                                "-2000000 2000000 0.0004\n1e-9 0.9996 -0.0006\n3 0 1 2\n");
    expectTriangles(
        *ImportMesh(file, 1000.0),
        {{Corner{2, -2, 1234}, Corner{-2000000000, 2000000000, 0}, Corner{0, 1000, -1}}});
    expectTriangles(*ImportMesh(file, 1.0), {{z, Corner{-2000000, 2000000, 0}, y}});
}

TEST_F(MeshImportTest, MalformedFilesFailNamingTheProblem) {
    const std::string objVertices = "v 0 0 0\nv 1 0 0\nv 1 1 0\n";
    const std::string plyHeader =
        "ply\nformat binary_little_endian 1.0\nelement vertex 5\nproperty double x\n"
        "property double y\nproperty double z\nelement face 2\n"
        "property list uchar int vertex_indices\nend_header\n";
    const std::string plyBody = binaryPlyBody(false);
    std::string negative = plyBody;
    negative[negative.size() - 4] = '\xff';  // last index becomes negative
    negative[negative.size() - 1] = '\xff';
    std::string cutStl = binaryStl({{0, 0, 0, 1, 0, 0, 0, 0, 1}, {0, 0, 0, 1, 1, 0, 1, 0, 0}});
    cutStl.resize(cutStl.size() - 7);
    const std::string offTail = "1 0 0\n0 1 0\n3 0 1 2\n";
    const struct {
        const char* name;
        std::string bytes;
        const char* fragment;
    } cases[] = {
        {"cut.stl", cutStl, "bytes"},
        {"inf.stl", binaryStl({{INFINITY, 0, 0, 1, 0, 0, 0, 0, 1}}), "out of range"},
        {"line.obj", objVertices + "f 1 2 3\nl 1 2 3\n", "face 1 has 2 vertices"},
        {"short.obj", objVertices + "f 1 2\n", "face 0 has 2 vertices"},
        {"range.obj", objVertices + "f 1 2 4\n", "range"},
        {"text.obj", "this is not a mesh at all\n", ""},
        {"cut.ply", plyHeader + plyBody.substr(0, plyBody.size() - 3), "truncated"},
        {"long.ply", plyHeader + plyBody + "xx", "bytes follow"},
        {"negative.ply", plyHeader + negative, "face 1"},
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
        {"big.off", "OFF\n3 1 0\n2147484 0 0\n" + offTail, "out of range"},
        {"nan.off", "OFF\n3 1 0\nnan 0 0\n" + offTail, "out of range"},
        {"mesh.xyz", "OFF\n", "unsupported"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        expectFailure(write(c.name, c.bytes), c.fragment);
    }
    expectFailure(m_dir / "missing.stl", "no such file");
    expectFailure(m_dir / "missing.ply", "no such file");
    std::mt19937 random(5);
    std::string garbage(3000, '\0');
    for (char& c : garbage)
        c = static_cast<char>(random());
    for (const char* name : {"g.stl", "g.ply", "g.off", "g.obj"})
        expectFailure(write(name, garbage), "");
    // A binary element without properties occupies no bytes, however many it declares.
    std::string marker = plyHeader;
    marker.insert(marker.find("end_header"), "element marker 9223372036854775807\n");
    EXPECT_EQ(ImportMesh(write("marker.ply", marker + plyBody), 1.0)->GetNumberOfTriangles(), 3u);
    EXPECT_NO_THROW(
        ImportMesh(write("edge.off", "OFF\n3 1 0\n2147483647 -2147483648 0\n" + offTail), 1.0));
}

}  // namespace
