// Normals that are made for meshes without: known answers for simple solids, and the time that large ones take.
#include "Engine/Import/Helper/Normals.h"
#include "Engine/Import/Helper/Vertices.h"
#include "Engine/Import/ModelFile.h"
#include "Engine/Scene/Shapes.h"
#include "Tests/Support/Gltf.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <map>

using namespace oxbeam::test;

namespace {

MeshData bare(std::vector<R3> positions, std::vector<unsigned> indices) {
    return {"mesh", std::move(positions), {}, {}, {}, std::move(indices)};
}

MeshData withNormals(MeshData mesh) {
    mesh.normals.clear();
    makeNormals(mesh);
    EXPECT_EQ(mesh.normals.size(), mesh.positions.size());
    return mesh;
}

R3 faceNormal(const MeshData& mesh, std::size_t triangle) {
    const unsigned* i = &mesh.indices[3 * triangle];
    return Normalize(Cross(mesh.positions[i[1]] - mesh.positions[i[0]], mesh.positions[i[2]] - mesh.positions[i[0]]));
}

// The least cosine between a triangle's own normal and those at its corners.
float flattest(const MeshData& mesh) {
    float least = 1.0f;
    for (std::size_t i = 0; i < mesh.indices.size(); ++i)
        least = std::min(least, Dot(faceNormal(mesh, i / 3), mesh.normals[mesh.indices[i]]));
    return least;
}

MeshData cube() {
    std::vector<R3> corners;
    for (unsigned i = 0; i < 8; ++i)
        corners.emplace_back(static_cast<float>(i & 1), static_cast<float>(i >> 1 & 1), static_cast<float>(i >> 2));
    return bare(corners, {0, 2, 3, 0, 3, 1, 4, 5, 7, 4, 7, 6, 0, 1, 5, 0, 5, 4,
                          2, 6, 7, 2, 7, 3, 0, 4, 6, 0, 6, 2, 1, 3, 7, 1, 7, 5});
}

// Two squares that share an edge along y and turn so many degrees there.
MeshData wedge(float degrees) {
    const float a = degrees * 3.14159265f / 180.0f, x = std::cos(a), z = -std::sin(a);
    return bare({R3(-1, 0, 0), R3(-1, 1, 0), R3(0, 0, 0), R3(0, 1, 0), R3(x, 0, z), R3(x, 1, z)},
                {0, 2, 3, 0, 3, 1, 2, 4, 5, 2, 5, 3});
}

// A bumpy sheet of n by n squares.
MeshData sheet(unsigned n) {
    MeshData mesh;
    for (unsigned y = 0; y <= n; ++y)
        for (unsigned x = 0; x <= n; ++x)
            mesh.positions.emplace_back(static_cast<float>(x), static_cast<float>(y),
                                        std::sin(0.1f * static_cast<float>(x * y % 97)));
    for (unsigned y = 0; y < n; ++y)
        for (unsigned x = 0; x < n; ++x) {
            const unsigned i = y * (n + 1) + x;
            mesh.indices.insert(mesh.indices.end(), {i, i + 1, i + n + 2, i, i + n + 2, i + n + 1});
        }
    return mesh;
}

}  // namespace

TEST(Normals, AreFlatOnACubeHoweverItsVerticesAreShared) {
    const MeshData shared = withNormals(cube());
    EXPECT_EQ(shared.positions.size(), 24u) << "three for each corner";
    EXPECT_GT(flattest(shared), 0.999999f);

    const MeshData whole = cube();
    MeshData soup;
    for (unsigned i = 0; i < whole.indices.size(); ++i) {
        soup.positions.push_back(whole.positions[whole.indices[i]]);
        soup.indices.push_back(i);
    }
    EXPECT_GT(flattest(withNormals(soup)), 0.999999f);
    joinVertices(soup);
    EXPECT_EQ(soup.positions.size(), 8u);
    EXPECT_EQ(withNormals(soup).positions.size(), 24u);
}

// Whatever texture coordinates cut the surface apart, its normals go on.
TEST(Normals, AreRadialOnASphere) {
    const MeshData mesh = withNormals(sphereMesh(64));
    const auto place = [&](std::size_t i) { return mesh.positions[mesh.indices[i]]; };
    for (std::size_t i = 0; i < mesh.indices.size(); ++i) {
        if (!hasArea(place(i / 3 * 3), place(i / 3 * 3 + 1), place(i / 3 * 3 + 2))) continue;
        EXPECT_GT(Dot(mesh.normals[mesh.indices[i]], Normalize(place(i))), 0.9999f) << i;
    }
    EXPECT_EQ(mesh.texCoords.size(), mesh.positions.size());
}

TEST(Normals, BreakAtEdgesSharperThanTheCrease) {
    for (const float degrees : {-80.0f, -39.0f, 0.0f, 39.0f, 41.0f, 179.0f}) {
        const bool smooth = std::fabs(degrees) < Crease;
        const MeshData mesh = withNormals(wedge(degrees));
        EXPECT_EQ(mesh.positions.size(), smooth ? 6u : 8u) << degrees;
        const float between = smooth ? std::cos(0.5f * degrees * 3.14159265f / 180.0f) : 1.0f;
        EXPECT_NEAR(flattest(mesh), between, 1e-5f) << degrees;
    }
}

// Of two triangles in one plane and one in another, the two count as the one square that they make up.
TEST(Normals, WeighTrianglesByTheirAngles) {
    const MeshData mesh = withNormals(wedge(30.0f));
    const R3 expected = Normalize(R3(0, 0, 1) + R3(0.5f, 0.0f, std::sqrt(0.75f)));
    EXPECT_NEAR(Dot(mesh.normals[2], expected), 1.0f, 1e-6f) << "one triangle there, two here";
    EXPECT_NEAR(Dot(mesh.normals[3], expected), 1.0f, 1e-6f);
}

// A material for each half of a sphere, or for each square of a wedge.
TEST(Normals, GoOnAcrossTheMeshesOfOneThing) {
    const MeshData whole = sphereMesh(32), sharp = wedge(60.0f);
    for (const MeshData& mesh : {whole, sharp}) {
        MeshData halves[2] = {mesh, mesh};
        const auto middle = static_cast<std::ptrdiff_t>(mesh.indices.size() / 6 * 3);
        halves[0].indices.assign(mesh.indices.begin(), mesh.indices.begin() + middle);
        halves[1].indices.assign(mesh.indices.begin() + middle, mesh.indices.end());
        makeNormals({&halves[0], &halves[1]});
        const MeshData one = withNormals(mesh);
        for (std::size_t i = 0; i < mesh.indices.size(); ++i) {
            const bool second = static_cast<std::ptrdiff_t>(i) >= middle;
            const MeshData& half = halves[second];
            const unsigned index = half.indices[i - (second ? static_cast<std::size_t>(middle) : 0)];
            EXPECT_EQ(half.positions.at(index), one.positions[one.indices[i]]);
            EXPECT_EQ(half.normals.at(index), one.normals[one.indices[i]]);
            EXPECT_EQ(half.texCoords.size(), mesh.texCoords.empty() ? 0u : half.positions.size());
        }
    }
}

TEST(Normals, StandWhateverTheMeshIs) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    MeshData mesh = cube();
    for (const float far : {nan, 1e38f, -0.0f, 1e-40f}) mesh.positions.emplace_back(far, far, nan);
    mesh.indices.insert(mesh.indices.end(), {8, 9, 10, 0, 1, 8, 0, 0, 0, 0, 1, 1000, 0xffffffffu, 2, 3});
    mesh = withNormals(mesh);
    mesh.indices.resize(36);
    EXPECT_GT(flattest(mesh), 0.999999f);
    for (const float size : {1e-18f, 1e18f}) {
        MeshData extreme = cube();
        for (R3& p : extreme.positions) p = size * p;
        extreme = withNormals(extreme);
        EXPECT_NEAR(extreme.normals[extreme.indices[0]].z, -1.0f, 1e-6f) << size;
    }
    // Both sides of a sheet, and one triangle many times over.
    MeshData twice = wedge(10.0f);
    for (const unsigned i : {0, 3, 2, 0, 1, 3, 2, 5, 4, 2, 3, 5}) twice.indices.push_back(i);
    for (unsigned i = 0; i < 3000; ++i) twice.indices.push_back(i % 3);
    EXPECT_GT(flattest(withNormals(twice)), 0.9848f) << "no further off than the two squares, 10 degrees, are";
    EXPECT_TRUE(withNormals({}).normals.empty());
}

// A pole where all triangles meet, or all vertices at a few places, must cost no more than other meshes.
TEST(Normals, TakeTimeInProportionToTheMesh) {
    MeshData (*const pole)(unsigned) = [](unsigned n) {
        MeshData mesh = bare({R3(0, 0, 1)}, {});
        for (unsigned i = 0; i < n; ++i) {
            const float a = 6.2831853f * static_cast<float>(i) / static_cast<float>(n);
            mesh.positions.emplace_back(std::cos(a), std::sin(a), 0.0f);
            mesh.indices.insert(mesh.indices.end(), {0, 1 + i, 1 + (i + 1) % n});
        }
        return mesh;
    };
    MeshData (*const pile)(unsigned) = [](unsigned n) {
        MeshData mesh;
        for (unsigned i = 0; i < 3 * n; ++i)
            mesh.indices.push_back(i), mesh.positions.emplace_back(i % 3 == 0, i % 3 == 1, 0);
        return mesh;
    };
    MeshData (*const square)(unsigned) = [](unsigned n) {
        return sheet(static_cast<unsigned>(std::sqrt(0.5f * static_cast<float>(n))));
    };
    const auto seconds = [](const MeshData& mesh) {
        double least = 1e9;
        for (int i = 0; i < 3; ++i) {
            MeshData own = mesh;
            const std::clock_t begin = std::clock();  // of all threads
            makeNormals(own);
            least = std::min(least, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
        }
        return least;
    };
    for (MeshData (*make)(unsigned) : {square, pole, pile})
        EXPECT_LT(seconds(make(400'000)), 24.0 * seconds(make(50'000))) << "eight times as large";
}

TEST(Normals, AreTheSameEveryTime) {
    const MeshData first = withNormals(sheet(400)), second = withNormals(sheet(400));
    EXPECT_GT(first.positions.size(), std::size_t{401} * 401) << "it has creases";
    EXPECT_TRUE(first.normals == second.normals && first.indices == second.indices);
}

// The same square pyramid in formats that share vertices and have no normals. A glTF's standard asks for flat faces,
// which is what a mesh without normals gets.
TEST(ModelNormals, AreMadeWhereTheFileHasNone) {
    const std::string vertices = "0 0 0\n1 0 0\n1 1 0\n0 1 0\n0.5 0.5 2\n";
    const std::string faces = "3 0 1 4\n3 1 2 4\n3 2 3 4\n3 3 0 4\n4 3 2 1 0\n";
    const std::filesystem::path files[] = {
        writeFile("pyramid.off", "OFF\n5 5 0\n" + vertices + faces),
        writeFile("pyramid.ply", plyHead(5, "element face 5\nproperty list uchar int vertex_indices\nend_header\n") +
                                     vertices + faces),
        writeFile("pyramid.obj",
                  "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0.5 0.5 2\nf 1 2 5\nf 2 3 5\nf 3 4 5\nf 4 1 5\n"
                  "f 4 3 2 1\n")};
    for (const auto& file : files) {
        const Model model = loadModel(file);
        EXPECT_EQ(model.meshes.at(0).indices.size(), 18u) << file;
        ASSERT_EQ(model.meshes[0].normals.size(), model.meshes[0].positions.size()) << file;
        EXPECT_GT(flattest(model.meshes[0]), 0.999999f) << file;
    }
    const Model flat = loadModel(writeGltf("flat.gltf", R"("pbrMetallicRoughness": {"metallicFactor": 0})"));
    EXPECT_TRUE(flat.meshes.at(0).normals.empty());
    EXPECT_EQ(flat.meshes[0].positions.size(), 4u);
}
