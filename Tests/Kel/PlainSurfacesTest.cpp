// Surfaces that need few lights or none: diffuse, eye light, interleaved light sampling.
#include "Engine/System/ThreadRecord.h"
#include "Shaders/Kel/KelAlphaILS.h"
#include "Shaders/Kel/KelDiffuse.h"
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Shaders/Kel/KelPhongEyeLight.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam::test;

static int plainTexture(TestWorld& world, std::vector<float> texel) {
    const auto channels = static_cast<unsigned>(texel.size());
    return world.textures.add(std::make_unique<Texture>(1, 1, channels, std::move(texel), ColorSpace::Linear));
}

TEST(Diffuse, OnlyTheViewLightsIt) {
    const struct {
        float degrees, factor;
        R3 texel = White;
    } cases[] = {{60, 0.7f}, {120, 0.7f}, {180, 1.1f}, {0, 1.1f, R3(0.5f, 1, 0.25f)}};
    for (const auto& c : cases) {
        TestWorld world;
        auto& shader = world.shader<KelDiffuseShader>("KelDiffuse");
        world.addSquare(R3(), R3(0, 1, 0));
        shader.diffuseColor = R3(1, 0.5f, 0);
        shader.emissiveColor = R3(0, 0, 4);
        if (c.texel != White) shader.textureID = plainTexture(world, {c.texel.x, c.texel.y, c.texel.z});
        world.steadyLight(R3(0, 5, 0));
        expectNear(world.fromOrigin(c.degrees), c.texel * (c.factor * shader.diffuseColor + shader.emissiveColor),
                   2e-4f);
    }
}

TEST(EyeLight, LightsBothSidesFromPerspectiveCameras) {
    const R3 color(1, 2, 3);
    const struct {
        R3 eye, intensity;
        bool offset;
        R3 seen;
    } frames[] = {{R3(0, 5, 0), White, true, 5.2f / std::sqrt(0.2f * 0.2f + 5.2f * 5.2f) * White},
                  {R3(3, 4, 0), color, false, 0.8f * color},
                  {R3(0, 5, 0), White, false, 0.8f * color}};  // with another camera: as it was
    for (const float up : {1.0f, -1.0f}) {
        TestWorld world;
        auto& surface = world.shader<KelPhongEyeLightShader>("KelPhongEyeLight");
        world.addSquare(R3(), R3(0, up, 0));
        surface.ambientIntensity = 0.0f;
        for (const auto& f : frames) {
            world.view = View{f.eye, R3(), R3(0, 0, 1)};
            surface.intensity = f.intensity;
            surface.m_cameraOffset = f.offset;
            if (&f == std::end(frames) - 1) world.setCamera(*registry().find("KelDOFCamera"));
            world.session().newFrame();
            expectNear(world.fromOrigin(), f.seen);
        }
    }
}

// A floor under some lights, each 60 degrees off the normal and of a number of its own: light i has 8^i. The order of
// the lights is made once in a process, so all tests with more than one light have five.
struct ManyLights : TestWorld {
    KelAlphaILS& surface = shader<KelAlphaILS>("KelAlphaILS");

    ManyLights(unsigned count, Oxint samples, const R3& background = Black) : TestWorld(background) {
        addSquare(R3(), R3(0, 1, 0));
        surface.specularColor = Black;
        surface.ambientIntensity = 0.0f;
        for (unsigned i = 0; i < count; ++i) {
            auto& light = TestWorld::light<KelDirectionalLight>("KelDirectionalLight");
            light.direction = R3(0, -0.5f, std::sqrt(0.75f));
            light.intensity = static_cast<float>(1u << (3u * i)) * White;
        }
        surface.oldSamples = -1;  // whatever other objects have set, this one decides
        frame(samples);
    }
    // Starts a frame; what it prints.
    std::string frame(Oxint samples) {
        surface.samples = samples;
        testing::internal::CaptureStdout();
        session().newFrame();
        return testing::internal::GetCapturedStdout();
    }
    R3 pass(unsigned index) {
        ThreadRecord::mine().sampleIndex = index;
        const R3 color = fromOrigin();
        ThreadRecord::mine().sampleIndex = 0;
        return color;
    }
};

// A light's share is the number of lights but one over those of a pass, by 0.002, by the cosine.
TEST(InterleavedLights, PassesTogetherVisitAllLightsButThePreviewsEquallyOften) {
    const struct {
        Oxint samples;
        unsigned first, passes;
        float visits;  // of each light
    } cases[] = {{1, 8, 4, 1}, {3, 1, 4, 3}, {4, 5, 1, 1}, {7, 3, 4, 7}, {8, 0, 1, 2}};
    const float all = 8 + 64 + 512 + 4096;
    for (const auto& c : cases) {
        ManyLights world(5, c.samples);
        R3 sum;
        for (unsigned p = 0; p < c.passes; ++p) sum += world.pass(c.first + p);
        const float share = 4.0f / static_cast<float>(c.samples) * 0.002f * 0.5f;
        expectNear(sum / (share * all), c.visits * White, 1e-5f * c.visits);
    }
}

TEST(InterleavedLights, ThePreviewTakesTheFirstLightForAllOthers) {
    for (const Oxint samples : {1, 7}) {
        ManyLights world(5, samples);
        world.surface.specularColor = R3(1, 0, 2);
        world.surface.exponent = 3.0f;
        world.surface.emissiveColor = Green;
        world.surface.ambientIntensity = 0.25f;
        world.surface.m_receiveShadow = 1;
        expectNear(world.pass(0), 0.004f * White + 0.001f * R3(1, 0, 2) + R3(0.25f, 1.25f, 0.25f));
        EXPECT_EQ(raysShot(RAY_SHADOW), 1u);
        world.pass(1);
        EXPECT_EQ(raysShot(RAY_SHADOW), 1u + static_cast<unsigned>(samples));
    }
}

TEST(InterleavedLights, ChangedSampleNumbersAreToldOnce) {
    ManyLights world(1, 4);
    world.surface.ambientIntensity = 0.5f;
    EXPECT_EQ(world.pass(1), 0.5f * White) << "one light is none";
    EXPECT_EQ(world.frame(4), "");
    EXPECT_EQ(world.frame(9), "setting global num samles to 9\n");
    EXPECT_EQ(world.frame(9), "");
}

TEST(InterleavedLights, AlphaCutsOutAndLetsThrough) {
    const R3 sky(2, 1, 0.5f), texel(0.5f, 1, 0.25f);
    for (const float alpha : {0.015f, 0.25f, 0.995f}) {
        ManyLights world(5, 4, sky);
        world.surface.texture = plainTexture(world, {texel.x, texel.y, texel.z, alpha});
        world.surface.emissiveColor = Red;
        const R3 lit = alpha > 0.02f ? 0.004f * texel : Black;
        const float clear = alpha < 0.99f ? 1.0f - alpha : 0.0f;  // less is not worth a ray
        expectNear(world.pass(0), alpha * (lit + Red) + clear * sky);

        OxState light = world.hit(R3(0, 1, 0), R3(0, -1, 0));
        oxsReturnColor(&light, White);
        const bool passes = 1.0f - alpha > world.ro().m_refractiveAccuracy;
        EXPECT_EQ(world.surface.LightTransparency(&light), passes);
        if (passes) expectNear(light.color, (1.0f - alpha) * White);
    }
}
