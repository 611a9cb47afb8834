// What the rendering object keeps: the settings in force, and a record of the ray for every thread.
#include "Engine/System/ThreadRecord.h"
#include "Shaders/Kel/KelFunctions.h"
#include "Tests/Support/Probe.h"

#include <set>

using namespace oxbeam::test;

TEST(Settings, ASwitchIsOnIfTheShadersIsNonzeroOrTheGlobalOneExactlyOne) {
    TestWorld world;
    KelRenderingObject& ro = world.ro();
    KelShader& shader = world.phong();
    OxState state;
    state.m_ro = &ro;
    const struct {
        const char* name;
        Oxint& own;
        Oxint& global;
        bool (KelShader::*inForce)(OxState*);
        bool (*inForceGlobally)(OxState*);
    } switches[] = {
        {"wireframe", shader.m_wireframe, ro.m_wireframe, &KelShader::wireframe, &kelWireframe},
        {"glossy", shader.m_glossySurfaces, ro.m_glossySurfaces, &KelShader::glossySurfaces, &kelGlossySurfaces},
        {"fuzzy", shader.m_fuzzyLights, ro.m_fuzzyLights, &KelShader::fuzzyLights, &kelFuzzyLights},
        {"soft", shader.m_softShadows, ro.m_softShadows, &KelShader::softShadows, &kelSoftShadows},
        {"receive", shader.m_receiveShadow, ro.m_receiveShadow, &KelShader::receiveShadow, &kelReceiveShadow},
    };
    for (const auto& s : switches) {
        for (const Oxint global : {0, 1, 2})
            for (const Oxint own : {0, 1, 5}) {
                s.global = global;
                s.own = own;
                EXPECT_EQ((shader.*s.inForce)(&state), own != 0 || global == 1) << s.name << own << global;
                EXPECT_EQ(s.inForceGlobally(&state), global == 1) << s.name << global;
            }
        s.global = s.own = 0;
    }
}

// Also where the standard macro is compiled out, as in release builds.
TEST(Settings, AStateWithoutRenderingObjectEndsTheProcess) {
    OxState state;
    EXPECT_DEATH(kelNumFuzzySamples(&state),
                 "FastKel.*: int kelNumFuzzySamples\\(OxState\\*\\): Assertion `ro' failed");
    EXPECT_DEATH(kelSoftShadows(&state), "FastKel.*: bool kelSoftShadows\\(OxState\\*\\): Assertion `ro' failed");
}

TEST(Record, OnlyTheOwnerDeletesTheSampler) {
    int first = 0, second = 0;
    {
        KelRay owner(new ScriptedSampler({0.5f}, &first)), other(new ScriptedSampler({0.5f}, &second));
        {
            const KelRay copy(owner);
            KelRay assigned;
            assigned = copy;
            EXPECT_EQ(assigned.getSample(0), 0.5f);
        }
        EXPECT_EQ(first, 0);
        const KelRay& same = owner;
        owner = same;
        other = owner;
        EXPECT_EQ(second, 1) << "an assigned record lets go of its former sampler";
    }
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
}

static std::vector<float> draws(KelRenderingObject& ro, unsigned thread, unsigned pass, unsigned tile) {
    ThreadRecord::mine().sampleIndex = pass;
    ro.initTile(thread, tile);
    std::vector<float> numbers;
    for (int i = 0; i < 8; ++i) numbers.push_back(ro.m_rays[thread].getSample(i % 2));
    ThreadRecord::mine().sampleIndex = 0;
    return numbers;
}

TEST(Record, RandomNumbersBelongToPassAndTileNotToTheThread) {
    TestWorld world;
    KelRenderingObject& ro = world.ro();
    ro.m_tilesPerFrame = 12;
    EXPECT_EQ(ro.m_rays[47].getSample(0), 0.0f) << "nothing to draw from before the first tile";
    std::set<std::vector<float>> sequences;
    for (unsigned pass = 0; pass < 3; ++pass)
        for (unsigned tile = 0; tile < 12; ++tile) {
            const std::vector<float> numbers = draws(ro, tile % 5, pass, tile);
            sequences.insert(numbers);
            EXPECT_EQ(numbers, draws(ro, 47 - tile, pass, tile));
            for (float number : numbers) EXPECT_TRUE(number >= 0.0f && number < 1.0f) << number;
        }
    EXPECT_EQ(sequences.size(), 36u);
}
