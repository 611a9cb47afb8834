// Polygon files, in all the ways that they can be written, and broken ones.
#include "Engine/Import/Helper/PlyFile.h"
#include "Engine/Import/Helper/Polygon.h"
#include "Engine/Import/ModelFile.h"
#include "Tests/Support/Gltf.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <random>

using namespace oxbeam::test;

namespace {

// Writes numbers as text or as bytes of either order.
class PlyText {
public:
    explicit PlyText(std::string format) : m_format(std::move(format)) {}

    template <class T>
    void put(double number) {
        if (m_format == "ascii") {
            m_text += fmt::format("{} ", number);
            return;
        }
        const T value = static_cast<T>(number);
        char bytes[sizeof value];
        std::memcpy(bytes, &value, sizeof value);
        if ((m_format == "binary_little_endian") != (std::endian::native == std::endian::little))
            std::reverse(bytes, bytes + sizeof value);
        m_text.append(bytes, sizeof value);
    }
    std::string file(const std::string& elements) const {
        return "ply\nformat " + m_format + " 1.0\ncomment made up\n" + elements + "end_header\n" + m_text;
    }

private:
    std::string m_format, m_text;
};

// A square in two triangles or in one polygon, with an element before and a property between that nobody knows.
template <class Coordinate, class Index, class Length>
std::string square(const char* format, const char* coordinate, const char* index, const char* length, bool polygon) {
    PlyText text(format);
    text.put<std::int16_t>(7), text.put<std::uint8_t>(1), text.put<std::int8_t>(-3);
    const std::array<std::array<double, 2>, 4> corners = {{{0, 0}, {1, 0}, {1, 1}, {0, 1}}};
    for (const auto& [x, y] : corners) {
        text.put<Coordinate>(x), text.put<Coordinate>(y), text.put<std::uint16_t>(999), text.put<Coordinate>(5);
        text.put<std::uint8_t>(255 * x), text.put<std::uint8_t>(51), text.put<std::uint8_t>(0);
        text.put<float>(x), text.put<float>(y);
    }
    for (const std::vector<double>& face : polygon ? std::vector<std::vector<double>>{{0, 1, 2, 3}}
                                                   : std::vector<std::vector<double>>{{0, 1, 2}, {0, 2, 3}}) {
        text.put<Length>(static_cast<double>(face.size()));
        for (const double i : face) text.put<Index>(i);
    }
    return text.file(
        fmt::format("element camera 1\nproperty short id\nproperty list uchar char codes\n"
                    "element vertex 4\nproperty {0} x\nproperty {0} y\nproperty ushort quality\n"
                    "property {0} z\nproperty uchar red\nproperty uint8 green\nproperty uchar blue\n"
                    "property float s\nproperty float t\nelement face {1}\n"
                    "property list {2} {3} vertex_indices\n",
                    coordinate, polygon ? 1 : 2, length, index));
}

std::string strips(const std::string& body, unsigned vertices = 6) {
    std::string text = plyHead(vertices, "element tristrips 1\nproperty list int int vertex_indices\nend_header\n");
    for (unsigned i = 0; i < vertices; ++i) text += fmt::format("{} {} 0\n", i / 2, i % 2);
    return text + body;
}

// Of a triangle in a plane z = constant.
double areaOf(const R3& a, const R3& b, const R3& c) { return 0.5 * static_cast<double>(Cross(b - a, c - a).z); }

double areaOf(const MeshData& mesh) {
    double area = 0.0;
    const auto corner = [&](std::size_t i) { return mesh.positions.at(mesh.indices[i]); };
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
        area += areaOf(corner(i), corner(i + 1), corner(i + 2));
    return area;
}

const std::string Head = plyHead(3), Face = "property list uchar int vertex_index\nend_header\n0 0 0\n1 0 0\n0 1 0\n";

}  // namespace

TEST(Ply, IsReadInEveryFormatAndType) {
    for (const char* format : {"ascii", "binary_little_endian", "binary_big_endian"})
        for (const bool polygon : {false, true})
            for (const std::string& file :
                 {square<float, std::int32_t, std::uint8_t>(format, "float", "int", "uchar", polygon),
                  square<double, std::uint32_t, std::int32_t>(format, "float64", "uint32", "int32", polygon),
                  square<std::int16_t, std::uint8_t, std::uint16_t>(format, "short", "uchar", "ushort", polygon),
                  square<std::int8_t, std::int16_t, std::uint32_t>(format, "int8", "int16", "uint", polygon)}) {
                const auto ply = parsePly(file);
                ASSERT_TRUE(ply) << format;
                const MeshData& mesh = ply->mesh;
                ASSERT_EQ(mesh.positions.size(), 4u);
                EXPECT_EQ(mesh.positions[2], R3(1, 1, 5));
                EXPECT_EQ(mesh.texCoords.at(3).y, 1.0f);
                EXPECT_NEAR(Length(mesh.colors.at(1) - R3(1, 0.2f, 0)), 0.0f, 1e-6f);
                EXPECT_EQ(mesh.indices.size(), 6u);
                EXPECT_DOUBLE_EQ(areaOf(mesh), 1.0);
                EXPECT_THAT(ply->warnings, ElementsAre(HasSubstr("the element 'camera'"))) << format;
            }
}

TEST(Ply, StripsAreTakenApart) {
    const auto one = parsePly(strips("6 0 2 1 3 5 4\n"));
    ASSERT_TRUE(one);
    EXPECT_EQ(one->mesh.indices.size(), 12u);
    const Model several = loadModel(writeFile("strips.ply", strips("10 0 2 1 3 -1 -1 2 4 3 5\n")));
    EXPECT_EQ(several.meshes.at(0).indices.size(), 12u);
    EXPECT_DOUBLE_EQ(areaOf(several.meshes[0]), 2.0) << "each turns the same way";
    EXPECT_THAT(several.warnings, IsEmpty());
}

TEST(Ply, TextureCoordinatesOfFacesCutVerticesApart) {
    const auto ply =
        parsePly(plyHead(4,
                         "comment TextureFile wood.png\nelement face 2\nproperty list uchar int vertex_indices\n"
                         "property list uchar float texcoord\nend_header\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n"
                         "3 0 1 2 6 0 0 1 0 1 1\n3 0 2 3 6 0.5 0.5 1 1 0 1\n"));
    ASSERT_TRUE(ply);
    EXPECT_EQ(ply->mesh.positions.size(), 5u) << "one of them is two";
    EXPECT_DOUBLE_EQ(areaOf(ply->mesh), 1.0);
    EXPECT_EQ(ply->mesh.texCoords.at(ply->mesh.indices[3]).x, 0.5f);
    EXPECT_THAT(ply->sample, HasSubstr("TextureFile wood.png"));
}

TEST(Ply, WhatIsDeclaredAndDoesNotComeIsTold) {
    const struct {
        const char* name;
        std::string text;
        std::size_t triangles;
        const char* message;
    } cases[] = {
        {"cut off", Head + "element face 9\n" + Face + "3 0 1 2\n3 0 1", 1,
         "missing: 8 of 9 faces, since the file ends early"},
        {"beyond", Head + "element face 2\n" + Face + "3 0 1 2\n3 0 1 3\n", 1,
         "missing: 1 triangle with vertices that the file does not have"},
        {"negative", Head + "element face 2\n" + Face + "3 0 1 2\n3 0 1 -1\n", 1, "1 triangle with vertices"},
        {"small", Head + "element face 2\n" + Face + "2 0 1\n3 0 1 2\n", 1, "1 face of fewer than three corners"},
        {"fans",
         Head + "element fan 1\nproperty list int int corners\nelement face 1\n" +
             "property list uchar int vertex_index\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n3 0 1 2\n",
         1, "the element 'fan', which is not known here"},
        {"unused", strips("3 0 1 2\n", 30), 1, "27 of 30 vertices, which no face uses"},
    };
    for (const auto& c : cases) {
        const auto ply = parsePly(c.text);
        ASSERT_TRUE(ply) << c.name;
        EXPECT_EQ(ply->mesh.indices.size(), 3 * c.triangles) << c.name;
        EXPECT_THAT(ply->warnings,
                    ElementsAre(AllOf(HasSubstr("the file holds more than is shown"), HasSubstr(c.message))));
    }
    EXPECT_FALSE(parsePly("solid cube")) << "which is left to the importer, as the next two";
    EXPECT_FALSE(parsePly(Head + "end_header\n0 0 0\n1 0 0\n0 1 0\n"));
    EXPECT_FALSE(parsePly(Head + "element face 1\nproperty list uchar huge vertex_index\nend_header\n"));
}

// Whatever bytes are changed, the mesh is one, and no larger than the file gives reason for.
TEST(Ply, BrokenFilesGiveSoundMeshes) {
    std::mt19937 dice(1);
    const auto random = [&](std::size_t below) { return dice() % below; };
    const std::string sources[] = {
        square<float, std::int32_t, std::uint8_t>("ascii", "float", "int", "uchar", true),
        square<double, std::int32_t, std::int32_t>("binary_big_endian", "double", "int", "int", false),
        square<float, std::uint32_t, std::uint32_t>("binary_little_endian", "float", "uint", "uint", true),
        strips("9 0 2 1 3 -1 2 4 3 5\n")};
    const char* const pieces[] = {"99999999999", "-1", "\xff\xff\xff\xff", "nan", "4294967295", "list", "\n", "1e999"};
    unsigned read = 0;
    for (unsigned i = 0; i < 20'000; ++i) {
        std::string bytes = sources[random(std::size(sources))];
        for (std::size_t changes = 1 + random(4); changes > 0; --changes) {
            const std::size_t at = random(bytes.size());
            switch (random(4)) {
            case 0: bytes[at] = static_cast<char>(random(256)); break;
            case 1: bytes.erase(at, random(8)); break;
            case 2: bytes.insert(at, pieces[random(std::size(pieces))]); break;
            default: bytes.replace(at, 4, pieces[random(std::size(pieces))]);
            }
        }
        const auto ply = parsePly(bytes);
        if (!ply) continue;
        ++read;
        const MeshData& mesh = ply->mesh;
        const std::size_t vertices = mesh.positions.size();
        for (const unsigned index : mesh.indices) ASSERT_LT(index, vertices) << i;
        ASSERT_LE(mesh.indices.capacity() + vertices, 8 * bytes.size()) << i;
        for (const std::size_t size : {mesh.normals.size(), mesh.texCoords.size(), mesh.colors.size()})
            ASSERT_TRUE(size == 0 || size == vertices) << i;
    }
    EXPECT_GT(read, 5'000u);
}

// Corners that turn inwards are no reason to cover what is outside.
TEST(Polygon, IsCoveredOnce) {
    const std::vector<std::vector<R3>> polygons = {
        {R3(0, 0, 0), R3(4, 0, 0), R3(4, 4, 0), R3(3, 1, 0)},  // an arrowhead
        {R3(0, 0, 0), R3(6, 0, 0), R3(6, 3, 0), R3(5, 3, 0), R3(5, 1, 0), R3(1, 1, 0), R3(1, 3, 0),
         R3(0, 3, 0)},                                                       // a U
        {R3(0, 0, 0), R3(1, 0, 0), R3(2, 0, 0), R3(2, 1, 0), R3(0, 1, 0)}};  // a straight corner
    const double areas[] = {4.0, 10.0, 2.0};
    for (std::size_t p = 0; p < polygons.size(); ++p)
        for (const bool turned : {false, true}) {
            std::vector<R3> polygon = polygons[p];
            if (turned) std::reverse(polygon.begin(), polygon.end());
            std::vector<std::array<unsigned, 3>> triangles;
            triangulate(polygon, triangles);
            EXPECT_EQ(triangles.size(), polygon.size() - 2);
            double sum = 0.0;
            for (const auto& [a, b, c] : triangles) {
                const double area = areaOf(polygon[a], polygon[b], polygon[c]);
                EXPECT_GE(turned ? -area : area, 0.0) << p;
                sum += area;
            }
            EXPECT_DOUBLE_EQ(sum, turned ? -areas[p] : areas[p]);
        }
}
