// Which quality settings are in force, from a shader's own and the global ones.
#include "Shaders/Kel/KelFunctions.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

using namespace oxbeam::test;

TEST(Settings, ASwitchIsOnIfTheShadersIsNonzeroOrTheGlobalOneExactlyOne) {
    TestWorld world;
    KelRenderingObject& ro = world.ro();
    KelShader& shader = world.phong();
    shader.m_ro = &ro;
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
        for (Oxint global : {0, 1, 2, -1})
            for (Oxint own : {0, 1, 5, -1}) {
                s.global = global;
                s.own = own;
                EXPECT_EQ((shader.*s.inForce)(&state), own != 0 || global == 1) << s.name << own << global;
                EXPECT_EQ(s.inForceGlobally(&state), global == 1) << s.name << global;
            }
        s.global = s.own = 0;
    }
    for (Oxint global : {0, 1, 2}) {
        ro.m_receiveShadow = global;
        EXPECT_EQ(kelReceiveShadow(&ro), global == 1);
        EXPECT_EQ(shader.receiveShadow(), global == 1);
    }
    ro.m_receiveShadow = 0;
    shader.m_receiveShadow = 5;
    EXPECT_TRUE(shader.receiveShadow());
}

TEST(Settings, TheLargerNumberOfSamplesCountsAndTheEpsilonIsCutToAnInteger) {
    TestWorld world;
    KelShader& shader = world.phong();
    OxState state;
    state.m_ro = &world.ro();
    const int samples[][3] = {{4, 1, 4}, {1, 8, 8}, {3, 3, 3}, {0, -2, 0}};
    for (const auto& [global, own, inForce] : samples) {
        world.ro().m_numFuzzySamples = global;
        shader.m_numFuzzySamples = own;
        EXPECT_EQ(shader.numFuzzySamples(&state), inForce);
        EXPECT_EQ(kelNumFuzzySamples(&state), global);
    }
    const std::pair<float, int> epsilons[] = {{0.01f, 0}, {0.99999f, 0}, {1.0f, 1}, {2.7f, 2}};
    for (const auto& [epsilon, cut] : epsilons) {
        world.ro().m_rayEpsilon = epsilon;
        EXPECT_EQ(kelRayEpsilon(&state), cut);
    }
}

// What a call that should abort the process says last. The framework's own way starts the program anew for every call,
// and this one loads many libraries.
static std::string lastWords(void (*call)(OxState*), OxState* state) {
    testing::internal::CaptureStderr();
    const pid_t child = fork();
    if (child == 0) {
        call(state);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    return testing::internal::GetCapturedStderr();
}

// Also where the standard macro is compiled out, as in release builds.
TEST(Settings, AStateWithoutRenderingObjectEndsTheProcess) {
    const struct {
        const char* signature;
        void (*call)(OxState*);
    } cases[] = {
        {"int kelNumFuzzySamples(OxState*)", [](OxState* state) { kelNumFuzzySamples(state); }},
        {"int kelRayEpsilon(OxState*)", [](OxState* state) { kelRayEpsilon(state); }},
        {"int kelRecursionLimit(OxState*)", [](OxState* state) { kelRecursionLimit(state); }},
        {"bool kelFuzzyLights(OxState*)", [](OxState* state) { kelFuzzyLights(state); }},
        {"bool kelGlossySurfaces(OxState*)", [](OxState* state) { kelGlossySurfaces(state); }},
        {"bool kelReceiveShadow(OxState*)", [](OxState* state) { kelReceiveShadow(state); }},
        {"bool kelWireframe(OxState*)", [](OxState* state) { kelWireframe(state); }},
        {"bool kelSoftShadows(OxState*)", [](OxState* state) { kelSoftShadows(state); }},
    };
    OxState state;
    for (const auto& c : cases) {
        const std::string words = lastWords(c.call, &state);
        EXPECT_NE(words.find(std::string(": ") + c.signature + ": Assertion `ro' failed"), std::string::npos) << words;
        EXPECT_NE(words.find("FastKel"), std::string::npos) << words;
    }
}
