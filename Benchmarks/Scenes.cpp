#include "Benchmarks/Scenes.h"

#include "Engine/Textures/Texture.h"
#include "Shaders/Kel/KelAlphaILS.h"
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Shaders/Kel/KelEnvironment.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace oxbeam::bench {

// A unit sphere with bumps, and the normals that go with them.
static MeshData bumpySphere(unsigned segments) {
    MeshData mesh = sphereMesh(segments);
    constexpr float height = 0.06f, waves = 9.0f;
    for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
        const R3 p = mesh.positions[i];
        const R3 s(std::sin(waves * p.x), std::sin(waves * p.y), std::sin(waves * p.z));
        const R3 c(std::cos(waves * p.x), std::cos(waves * p.y), std::cos(waves * p.z));
        const float radius = 1.0f + height * s.x * s.y * s.z;
        const R3 slope = height * waves * R3(c.x * s.y * s.z, s.x * c.y * s.z, s.x * s.y * c.z);
        mesh.positions[i] = radius * p;
        mesh.normals[i] = Normalize(radius * p - (slope - Dot(slope, p) * p));
    }
    return mesh;
}

PlainScene::PlainScene(bool packets) : TestWorld(R3(0.4f, 0.5f, 0.7f)) {
    view = View{R3(1.5f, 1.4f, 3.0f), R3(0, 0.2f, 0), R3(0, 1, 0)};
    ro().m_recursionLimit = 5;
    ro().m_receiveShadow = 1;
    KelPhongShader& ball = phong(R3(0.7f, 0.3f, 0.2f));
    ball.specularColor = R3(0.6f, 0.6f, 0.6f);
    ball.shininess = 40;
    add(bumpySphere(266), TranslationMatrix(R3(0, 1, 0)));
    KelPhongShader& floor = phong(R3(0.6f, 0.6f, 0.6f));
    if (!packets) floor.reflectiveColor = R3(0.3f, 0.3f, 0.3f);
    addSquare(R3(), R3(0, 1, 0), 10);
    for (const R3& place : {R3(4, 6, 4), R3(-5, 5, 3), R3(1, 7, -4)})
        if (packets)
            light<KelDirectionalLight>("KelDirectionalLight").direction = -place;
        else
            steadyLight(place, R3(0.4f, 0.4f, 0.4f));
}

// ---- The rich scene

// Numbers that look like none in particular, the same for the same place: the finalizer of A. Appleby's MurmurHash3 (2011).
static float grain(unsigned x, unsigned y) {
    std::uint32_t h = y << 16 | x;
    h = (h ^ h >> 16) * 0x85ebca6bu;
    h = (h ^ h >> 13) * 0xc2b2ae35u;
    return static_cast<float>((h ^ h >> 16) & 0xffff) / 65535.0f;
}

// `value` gives a number in [0, 1] for a texel's place, as a share of the picture's side, and its channel.
template <class T, class Value>
static Oxint addTexture(World& world, unsigned side, unsigned channels, T most, ColorSpace space, Value value) {
    std::vector<T> texels;
    texels.reserve(std::size_t{side} * side * channels);
    for (unsigned y = 0; y < side; ++y)
        for (unsigned x = 0; x < side; ++x)
            for (unsigned c = 0; c < channels; ++c) {
                const auto share = [&](unsigned i) { return static_cast<float>(i) / static_cast<float>(side); };
                texels.push_back(static_cast<T>(value(share(x), share(y), c, grain(x, y)) * static_cast<float>(most)));
            }
    return world.textures.add(std::make_unique<Texture>(side, side, channels, std::move(texels), space));
}

static float wave(float x) { return 0.5f + 0.5f * std::sin(6.2831853f * x); }

// Boards: every one has a tint of its own.
static Oxint boards(World& world) {
    return addTexture<std::uint8_t>(world, 1024, 3, 255, ColorSpace::SRGB, [](float s, float t, unsigned c, float g) {
        const float tint = grain(static_cast<unsigned>(s * 16), static_cast<unsigned>(t * 4));
        return (0.35f + 0.3f * tint + 0.15f * wave(s * 90 + wave(t * 3)) + 0.1f * g) *
               (1.0f - 0.25f * static_cast<float>(c));
    });
}

static Oxint grooves(World& world) {
    return addTexture<std::uint8_t>(world, 512, 1, 255, ColorSpace::Linear, [](float s, float t, unsigned, float g) {
        return 0.9f * wave(16 * s) * wave(4 * t) + 0.1f * g;
    });
}

// Normals of a hammered surface.
static Oxint hammered(World& world) {
    return addTexture<std::uint8_t>(world, 512, 3, 255, ColorSpace::Linear, [](float s, float t, unsigned c, float) {
        const R3 n = Normalize(R3(0.4f * (wave(12 * s) - 0.5f), 0.4f * (wave(12 * t) - 0.5f), 1.0f));
        return 0.5f + 0.5f * n[static_cast<int>(c)];
    });
}

// Leaves: green, and clear between them.
static Oxint leaves(World& world) {
    return addTexture<std::uint8_t>(world, 512, 4, 255, ColorSpace::SRGB, [](float s, float t, unsigned c, float g) {
        if (c == 3) return wave(5 * s) * wave(5 * t) > 0.3f ? 1.0f : 0.0f;
        return (c == 1 ? 0.6f : 0.2f) + 0.2f * g;
    });
}

static Oxint sky(World& world) {
    return addTexture<float>(world, 512, 3, 1.0f, ColorSpace::Linear, [](float s, float t, unsigned c, float) {
        const float sun = std::exp(-200.0f * ((s - 0.6f) * (s - 0.6f) + (t - 0.7f) * (t - 0.7f)));
        return 0.3f + 0.3f * t + 0.1f * static_cast<float>(c) + 8.0f * sun;
    });
}

RichScene::RichScene() {
    view = View{R3(1.2f, 2.1f, 4.4f), R3(0, 0.7f, 0), R3(0, 1, 0)};
    ro().m_recursionLimit = 6;
    ro().m_receiveShadow = ro().m_softShadows = ro().m_glossySurfaces = 1;
    surroundings<KelEnvironmentShader>("KelEnvironment").textureid = sky(*this);

    KelPhongShader& floor = phong();
    floor.texture = boards(*this);
    floor.m_bumpMapTexture = grooves(*this);
    floor.reflectiveColor = R3(0.2f, 0.2f, 0.2f);
    floor.shininess = 4;
    addSquare(R3(), R3(0, 1, 0), 4);

    KelPhongShader& painted = phong();
    painted.texture = boards(*this);
    painted.m_bumpMapTexture = hammered(*this);
    painted.specularColor = R3(0.5f, 0.5f, 0.5f);
    painted.shininess = 30;
    add(bumpySphere(266), TranslationMatrix(R3(-1.3f, 1, -0.4f)));

    KelPhongShader& metal = phong(R3(0.3f, 0.25f, 0.1f));
    metal.reflectiveColor = R3(0.7f, 0.6f, 0.3f);
    metal.m_numFuzzySamples = 2;
    metal.shininess = 6;
    add(bumpySphere(200), TranslationMatrix(R3(1.1f, 1, -0.7f)));

    KelPhongShader& clear = phong(R3(0.1f, 0.1f, 0.1f));
    clear.transparentColor = R3(0.6f, 0.7f, 0.8f);
    clear.specularColor = R3(0.8f, 0.8f, 0.8f);
    clear.shininess = 60;
    add(bumpySphere(150), TranslationMatrix(R3(0.2f, 0.5f, 0.9f)) * ScaleMatrix(R3(0.5f, 0.5f, 0.5f)));

    phong().texture = leaves(*this);
    for (const float z : {-1.8f, 0.8f}) addSquare(R3(-1.2f, 1.6f, z), R3(0.2f, 0, 1), 0.9f);

    for (const R3& place : {R3(4, 6, 4), R3(-5, 5, 3), R3(1, 7, -4)})
        steadyLight(place, R3(0.4f, 0.4f, 0.4f)).fuzzyness = 0.6f;
}

// ---- Many lights

ManyLightsScene::ManyLightsScene(unsigned count) : TestWorld(R3(0.4f, 0.5f, 0.7f)) {
    view = View{R3(1.5f, 1.4f, 3.0f), R3(0, 0.2f, 0), R3(0, 1, 0)};
    ro().m_receiveShadow = 1;
    shader<KelAlphaILS>("KelAlphaILS").diffuseColor = R3(0.7f, 0.6f, 0.5f);
    add(bumpySphere(266), TranslationMatrix(R3(0, 1, 0)));
    addSquare(R3(), R3(0, 1, 0), 10);
    for (unsigned i = 0; i < count; ++i)
        steadyLight(R3(10 * grain(i, 1) - 5, 4 + 3 * grain(i, 2), 10 * grain(i, 3) - 5), R3(0.4f, 0.4f, 0.4f));
}

}  // namespace oxbeam::bench
