// What scenes share in memory, and what they are refused.
#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/System/MemoryBudget.h"
#include "Engine/System/Workers.h"
#include "Oxbeam/OxFunctions.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/SceneText.h"

#include <random>

using namespace oxbeam::test;

namespace {

class Memory : public testing::Test {
protected:
    void TearDown() override { setMemoryLimit(std::nullopt); }
};

Matrix anyTurn(std::mt19937& random) {
    std::uniform_real_distribution<float> angle(0.0f, 6.28f);
    return RotationMatrix(0, angle(random)) * RotationMatrix(1, angle(random)) * RotationMatrix(2, angle(random));
}

}  // namespace

// A sphere flattened along z and placed anywhere is an ellipse with known axes. Slanted at first, it is one too, whose
// plane is known; the flat copies that placements share must look as if each were transformed itself.
TEST_F(Memory, FlatPlacementsShareTheirMeshAndAreSeenWhereTheyAre) {
    std::mt19937 random(7);
    for (const Matrix& slant : {Matrix(), RotationMatrix(0, 0.7f)})
        for (const float thickness : {0.0f, 1e-12f, -1e-12f}) {
            SCOPED_TRACE(thickness);
            TestWorld world;
            world.phong();
            const unsigned mesh = world.geometry.addMesh(sphereMesh(64));
            std::vector<Matrix> placed;
            for (unsigned i = 0; i < 200; ++i) {
                const R3 place(8.0f * static_cast<float>(i % 20), 8.0f * static_cast<float>(i / 20), 0);
                placed.push_back(TranslationMatrix(place) * anyTurn(random) * ScaleMatrix(R3(3, 2, thickness)));
                world.geometry.addInstance(mesh, placed.back() * slant, 0);
            }
            const MeshData sphere = sphereMesh(64);
            world.geometry.prepare();
            EXPECT_LT(world.geometry.meshBytes(), 2 * (sphere.positions.size() * (2 * sizeof(R3) + sizeof(R2)) +
                                                       sphere.indices.size() * sizeof(unsigned)));
            for (unsigned i = 0; i < placed.size(); ++i) {
                const auto at = [&](float x, float y) { return TransformPoint(placed[i], R3(x, y, 0)); };
                const R3 normal = Normalize(Cross(at(1, 0) - at(0, 0), at(0, 1) - at(0, 0)));
                for (unsigned k = 0; k < 8; ++k) {
                    const float angle = 0.785f * static_cast<float>(k);
                    const auto shoot = [&](float radius) {  // from above the ellipse, no farther than 1
                        OxState state = world.session().primaryState();
                        oxsSetRay(&state, at(radius * std::cos(angle), radius * std::sin(angle)) + 0.5f * normal,
                                  -normal, 1.0f);
                        oxsShootRay(&state);
                        return state.hit;
                    };
                    const Intersection hit = shoot(0.95f);
                    ASSERT_EQ(hit.inst, static_cast<int>(i)) << k;
                    EXPECT_NEAR(hit.dist, 0.5f, 1e-4f);
                    EXPECT_NEAR(std::fabs(Dot(Normalize(hit.normal), normal)), 1.0f, 1e-5f);
                    EXPECT_EQ(shoot(1.05f).tri, TRI_NONE) << i << ' ' << k;
                }
            }
        }
}

// Placements as a line, as a point, or of what is no number show nothing, and keep nothing.
TEST_F(Memory, WhatShowsNothingKeepsNothing) {
    TestWorld world;
    world.phong();
    const unsigned mesh = world.geometry.addMesh(sphereMesh(64));
    for (unsigned i = 0; i < 100; ++i) {
        const auto x = static_cast<float>(i);
        for (const Matrix& m : {ScaleMatrix(R3(1 + x, 0, 0)), ScaleMatrix(R3()), ScaleMatrix(R3(1, NAN, x))})
            world.geometry.addInstance(mesh, TranslationMatrix(R3(x, 0, 0)) * m, 0);
    }
    const std::uint64_t before = memoryTaken(MemoryUse::Meshes);
    setMemoryLimit(memoryTaken(MemoryUse::Meshes) + 5 * before);
    world.geometry.prepare();
    EXPECT_LT(world.geometry.meshBytes(), 20'000u);
    EXPECT_LT(memoryTaken(MemoryUse::Meshes), 20'000u);
}

TEST_F(Memory, APictureIsKeptOnceUnderAllItsNames) {
    const std::vector<R3> pixels(1000 * 1000, R3(0.5f, 0.5f, 0.5f));
    writeImage(scratch() / "one.png", 1000, 1000, pixels);
    fs::create_symlink("one.png", scratch() / "link.png");
    fs::copy_file(scratch() / "one.png", scratch() / "copy.png");
    const std::uint64_t before = memoryTaken(MemoryUse::Textures);
    std::vector<std::unique_ptr<Texture>> textures;
    {
        SceneAssets assets;
        for (const fs::path& name :
             {fs::path("one.png"), ".." / scratch().filename() / "one.png", fs::path("link.png"), fs::path("copy.png")})
            for (const auto space : {std::optional<ColorSpace>(), std::optional(ColorSpace::Linear)})
                textures.push_back(assets.texture({scratch() / name, -1, space}));
    }
    EXPECT_EQ(memoryTaken(MemoryUse::Textures) - before, 3'000'000u);
    for (std::size_t i = 0; i < textures.size(); i += 2) {
        textures[i]->thresholdAlpha(0.5f);
        EXPECT_NEAR(textures[i]->lookUp(0.5f, 0.5f).r, 0.5f, 0.005f) << "as the file says";
        EXPECT_NEAR(textures[i + 1]->lookUp(0.5f, 0.5f).r, 188.0f / 255, 1.5f / 255) << "taken as linear";
    }
    textures.clear();
    EXPECT_EQ(memoryTaken(MemoryUse::Textures), before) << "given back with the last of them";
}

// Embree asks for no more than is charged for it before it is built, however the triangles lie: also where many meshes
// are small, since each placement has a price too.
TEST_F(Memory, TheStructureTakesWhatIsChargedForIt) {
    struct Case {
        unsigned segments, meshes, instances;
        bool movable;
    };
    for (const Case& c :
         {Case{1000, 1, 1, false}, {300, 10, 1, true}, {4, 3000, 1, false}, {4, 2000, 1, true}, {200, 1, 5000, true}}) {
        SCOPED_TRACE(testing::Message() << c.segments << ' ' << c.meshes << ' ' << c.instances);
        SceneGeometry geometry;
        for (unsigned i = 0; i < c.meshes; ++i) {
            const unsigned mesh = geometry.addMesh(sphereMesh(c.segments));
            for (unsigned j = 0; j < c.instances; ++j)
                geometry.addInstance(mesh, TranslationMatrix(R3(float(3 * i), float(3 * j), 0)), 0, RAY_ALL, c.movable);
        }
        geometry.prepare();
        geometry.reserveStructure();
        const std::uint64_t charged = memoryTaken(MemoryUse::Structure);
        geometry.build();
        const std::uint64_t taken = memoryTaken(MemoryUse::Structure);
        EXPECT_LT(taken, charged) << "else the limit is passed";
        EXPECT_GT(taken, charged / 8) << "else what fits is refused";
    }
    EXPECT_EQ(memoryTaken(MemoryUse::Structure), 0u);
}

TEST_F(Memory, BeyondTheLimitItIsSaidWhatTakesHowMuch) {
    setMemoryLimit(std::uint64_t{10} << 20);
    MemoryCharge meshes(MemoryUse::Meshes, 6 << 20, "these");
    const auto more = [&](std::uint64_t bytes) {
        return failure(ExitStatus::InputOutput, [&] { MemoryCharge(MemoryUse::Textures, bytes, "texture 'a.png'"); });
    };
    EXPECT_THAT(more(5 << 20),
                AllOf(HasSubstr("not enough memory: texture 'a.png' takes 5.0 MiB"), HasSubstr("meshes 6.0 MiB"),
                      HasSubstr("the limit is 10 MiB"), HasSubstr("--memory-limit")));
    EXPECT_THAT(more(~std::uint64_t{0} - 5), HasSubstr("not enough memory")) << "a sum that overflows";
    EXPECT_EQ(more(4 << 20), "nothing failed");
    MemoryCharge moved = std::move(meshes);
    moved.add({MemoryUse::Meshes, 1 << 20, "more"});
    EXPECT_EQ(memoryTaken(MemoryUse::Meshes), std::uint64_t{7} << 20);
    moved = {};
    EXPECT_EQ(memoryTaken(MemoryUse::Meshes), 0u);
    EXPECT_EQ(more(10 << 20), "nothing failed");
}
