// Phong shading, against colours worked out by hand.
#include "Tests/Support/Probe.h"

#include <functional>

using namespace oxbeam::test;

// A floor of side 20 with texture coordinates from 0 to 1.
struct FloorWorld : TestWorld {
    KelPhongShader* floor;

    explicit FloorWorld(const R3& background = Black) : TestWorld(background) {
        floor = &phong();
        floor->ambientIntensity = 0.0f;
        add(planeMesh(), ScaleMatrix(R3(10, 1, 10)));
    }

    Texture& texture(unsigned width, unsigned height, unsigned channels, std::vector<float> texels,
                     Oxuint model = OX_GL_MODULATE) {
        auto made = std::make_unique<Texture>(width, height, channels, std::move(texels), ColorSpace::Linear);
        Texture& result = *made;
        result.filterMode = OX_GL_NEAREST;
        result.textureModel = model;
        floor->texture = textures.add(std::move(made));
        return result;
    }
    // What the floor at (x, 0, z) sends straight up.
    R3 at(float x, float z) { return trace(R3(x, 1, z), R3(0, -1, 0)); }
};

TEST(Phong, HighlightsFollowTheReflectedView) {
    // From `view` degrees off the normal on the right, lit from `light` degrees on the left.
    const struct {
        float view, light, shininess;
    } cases[] = {{30, 30, 5}, {30, 50, 5}, {30, 50, 1}, {0, 60, 16}, {70, -60, 5}, {70, -60, 0}, {30, 50, 0}};
    for (const auto& c : cases) {
        FloorWorld world;
        world.floor->diffuseColor = Black;
        world.floor->specularColor = R3(0.5f, 0.25f, 1);
        world.floor->shininess = c.shininess;
        world.steadyLight(R3(-9 * std::sin(c.light * Radian), 9 * std::cos(c.light * Radian), 0), R3(1, 2, 3));
        const R3 eye(std::sin(c.view * Radian), std::cos(c.view * Radian), 0);
        // No clamp to the lit side for exponent 0: anything to the power of 0 is 1.
        const float share = std::pow(std::max(0.0f, std::cos((c.view - c.light) * Radian)), c.shininess);
        expectNear(world.trace(2.0f * eye, -eye), share * R3(0.5f, 0.5f, 3));
    }
}

TEST(Phong, SecondaryColoursAreFilteredAndAdded) {
    const R3 behind(0.5f, 1, 2), filter(0.2f, 0.4f, 0.9f);
    const float luminance = 0.3086f * filter.x + 0.6094f * filter.y + 0.082f * filter.z;
    for (R3 KelPhongShader::*color : {&KelPhongShader::reflectiveColor, &KelPhongShader::transparentColor})
        for (const bool matters : {true, false}) {
            FloorWorld world(behind);
            world.floor->*color = filter;
            world.steadyLight(R3(1, 10, 1));
            world.ro().m_reflectiveAccuracy = world.ro().m_transparentAccuracy = luminance + (matters ? -1e-4f : 1e-4f);
            // The lit colour is not weakened by what shines through.
            expectNear(world.at(1, 1), matters ? White + filter * behind : White);
        }
}

TEST(Phong, GlossySurfacesBlurByTheExponentialOfShininess) {
    const struct {
        Oxint glossy, own, global;
        unsigned rays;
    } cases[] = {{1, 2, 3, 3}, {0, 4, 3, 1}};
    for (const auto& c : cases) {
        FloorWorld world;
        world.floor->reflectiveColor = White;
        world.floor->shininess = 2.0f;
        world.floor->m_glossySurfaces = c.glossy;
        world.floor->m_numFuzzySamples = c.own;
        world.ro().m_numFuzzySamples = c.global;
        Probe& sky = world.own<Probe>();
        world.addSquare(R3(0, 5, 0), R3(0, -1, 0));
        script(world.ro(), {0.3f, 0.2f});
        expectNear(world.at(1, 1), White);
        ASSERT_EQ(sky.seen.size(), c.rays);
        const float cosine = c.glossy ? std::pow(0.2f, 1.0f / (std::exp(2.0f) + 1.0f)) : 1.0f;
        EXPECT_NEAR(sky.seen[0].ray.direction.y, cosine, 1e-5f);
    }
}

// One light reaches the point, one lies behind the surface, one is blocked.
TEST(PhongTexture, ReplacingItIsBlackOnlyWhereAllLightsAreBlocked) {
    const R3 texel(0.5f, 0.25f, 1);
    const std::pair<const char*, R3> cases[] = {{"", texel},   {"B", texel},  {"S", Black}, {"SS", Black},
                                                {"SL", texel}, {"LS", texel}, {"SB", texel}};
    for (const auto& [lights, expected] : cases) {
        SCOPED_TRACE(lights);
        FloorWorld world;
        world.floor->emissiveColor = world.floor->specularColor = White;
        world.floor->ambientIntensity = 1.0f;
        world.floor->m_receiveShadow = 1;
        world.texture(1, 1, 3, {0.5f, 0.25f, 1}, OX_GL_REPLACE);
        world.phong();
        world.addSquare(R3(5, 5, 1), R3(-1, -1, 0), 1.0f);
        unsigned shadowRays = 0;  // up to the first light that arrives
        bool arrived = false;
        for (const char* light = lights; *light; ++light) {
            world.steadyLight(*light == 'L' ? R3(-9, 10, 1) : *light == 'B' ? R3(1, -10, 1) : R3(9, 10, 1));
            shadowRays += !arrived && *light != 'B';
            arrived |= *light == 'L';
        }
        EXPECT_EQ(world.at(1, 1), expected);
        EXPECT_EQ(raysShot(RAY_SHADOW), shadowRays);
    }
}

TEST(PhongTexture, AlphaShowsWhatLiesBehind) {
    const R3 behind(1, 2, 0.5f), diffuse(0.5f, 1, 0.25f), texel(0.5f, 0.25f, 1);
    const struct {
        Oxuint model;
        float alpha;
        R3 surface;
    } cases[] = {
        {OX_GL_MODULATE, 0.0f, diffuse * texel},
        {OX_GL_REPLACE, 0.25f, texel},
        {OX_GL_MODULATE, 0.9f, diffuse * texel},  // lets too little through to be traced
        {OX_GL_MODULATE, 1.0f, diffuse * texel},  // has no alpha at all, which leaves the material in charge
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.model << ' ' << c.alpha);
        FloorWorld world(behind);
        world.floor->diffuseColor = diffuse;
        world.floor->ambientIntensity = 1.0f;
        world.floor->transparentColor = R3(0.5f, 0.5f, 0.5f);
        world.texture(1, 1, 4, {texel.x, texel.y, texel.z, c.alpha}, c.model);
        const float clear = c.alpha == 1.0f ? 0.5f : c.alpha == 0.9f ? 0.0f : 1.0f - c.alpha;
        expectNear(world.at(1, 1), c.alpha * c.surface + clear * behind);
    }
}

TEST(PhongTexture, AlphaLetsLightThrough) {
    // The left half of the pane is opaque, the right half lets three quarters through, whatever its colour says.
    for (const bool alphaTexture : {true, false}) {
        FloorWorld world;
        world.floor->transparentColor = R3(0.2f, 0.4f, 0.6f);
        world.texture(2, 1, 4, {1, 1, 1, 1, 1, 1, 1, alphaTexture ? 0.25f : 1.0f});
        world.TestWorld::floor(-5);
        world.steadyLight(R3(0, 1e4f, 0));
        const auto groundAt = [&](float x) { return world.trace(R3(x, -4, 1), R3(0, -1, 0)); };
        expectNear(groundAt(-5), alphaTexture ? Black : world.floor->transparentColor, 1e-4f);
        expectNear(groundAt(5), alphaTexture ? 0.75f * White : world.floor->transparentColor, 1e-4f);
    }
}

TEST(PhongTexture, TheBumpMapIsSampledAsTheDiffuseTexture) {
    for (const bool textured : {true, false}) {
        FloorWorld world;
        world.texture(1, 1, 3, {1, 1, 1}).m_wrapT = OX_GL_MIRRORED_REPEAT;
        Texture& bumps = world.texture(1, 1, 1, {0.5f});
        bumps.filterMode = OX_GL_LINEAR;
        world.floor->m_bumpMapTexture = 1;
        world.floor->texture = textured ? 0 : 99;
        world.session();
        EXPECT_EQ(bumps.filterMode, Oxint(textured ? OX_GL_NEAREST : OX_GL_LINEAR));
        EXPECT_EQ(bumps.m_wrapS, Oxint(OX_GL_REPEAT));
        EXPECT_EQ(bumps.m_wrapT, Oxint(textured ? OX_GL_MIRRORED_REPEAT : OX_GL_REPEAT));
    }
}

// A triangle with sides of 3 (AB), 4 (AC) and 5 (BC).
static MeshData triangle() {
    MeshData mesh;
    mesh.positions = {R3(0, 0, 0), R3(3, 0, 0), R3(0, 0, 4)};
    mesh.indices = {0, 1, 2};
    return mesh;
}

TEST(PhongWireframe, BordersAreWhereSideTimesWeightIsSmall) {
    const struct {
        float thickness, u, v;
        bool border;
    } cases[] = {
        {1, 0.5f, 0.25f, true},                                             // 4 * (1 - u - v) is the thickness
        {1, 0.375f, 0.3125f, false},      {1.25f, 0.4375f, 0.2501f, true},  // 4 * (1 - u - v) is a little less
        {1.24f, 0.4375f, 0.2501f, false}, {0, 1e-6f, 0.5f, false},         {-1, 0.5f, 0.491f, true},
    };
    TestWorld world;
    KelShader& shader = world.phong();
    world.add(triangle());
    OxState state = world.hit(R3(1, 1, 1), R3(0, -1, 0));
    for (const auto& c : cases) {
        shader.m_thickness = c.thickness;
        state.hit.u = c.u;
        state.hit.v = c.v;
        EXPECT_EQ(shader.hitBorder(&state), c.border) << c.thickness << ": " << c.u << ", " << c.v;
    }
}

TEST(PhongWireframe, HolesShowAndLightWhatLiesBehindUntilTheRuleEndsThem) {
    const struct {
        const char* name;
        std::function<void(KelRenderingObject&, KelShader&)> change;
        bool seen, lit;  // through the hole
    } cases[] = {
        {"not a wireframe", [](KelRenderingObject&, KelShader& s) { s.m_wireframe = 0; }, false, false},
        {"by the global switch", [](KelRenderingObject& ro, KelShader& s) { s.m_wireframe = 0, ro.m_wireframe = 1; },
         true, true},
        {"too deep", [](KelRenderingObject& ro, KelShader&) { ro.m_recursionLimit = 1; }, false, false},
        {"colour does not matter", [](KelRenderingObject& ro, KelShader&) { ro.m_transparentAccuracy = 1; }, false,
         true},
        {"light does not matter", [](KelRenderingObject& ro, KelShader&) { ro.m_refractiveAccuracy = 1; }, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestWorld world;
        KelPhongShader& ground = world.floor(-5);
        ground.emissiveColor = Green;
        KelPhongShader& frame = world.phong(Black);
        frame.m_wireframe = 1;
        world.add(triangle());
        world.steadyLight(R3(1, 10, 1), Red);
        c.change(world.ro(), frame);
        ground.m_thickness = 1e6f;  // no holes, where everything is a wireframe
        const R3 above = world.trace(R3(1, 1, 1.2f), R3(0, -1, 0));
        EXPECT_EQ(above.y, c.seen ? 1.0f : 0.0f);
        const R3 below = world.trace(R3(1, -4, 1), R3(0, -1, 0));
        EXPECT_NEAR(below.x, c.lit ? 1.0f : 0.0f, 1e-5f);
        EXPECT_EQ(world.ro().m_rays[0].depth, 0u);
    }
}
