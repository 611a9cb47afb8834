// Shadow rays: which lights are asked, where rays begin and end, and how light gets through transparent surfaces.
#include "Oxbeam/OxPointLight.h"
#include "Shaders/Kel/KelFunctions.h"
#include "Tests/Support/Probe.h"

#include <functional>

using namespace oxbeam::test;

// A floor that receives shadows, lit from straight above with intensity 1.
struct ShadowWorld : TestWorld {
    KelPhongShader* floor = &TestWorld::floor();
    KelPointLight* light = &steadyLight(R3(0, 10, 0));

    // A level pane above the floor.
    KelPhongShader& pane(float y, const R3& transparency = Black, float x = 0.0f, Oxuint visibility = RAY_ALL) {
        KelPhongShader& made = phong();
        made.transparentColor = transparency;
        addSquare(R3(x, y, 0), R3(0, -1, 0), 1.0f, visibility);
        return made;
    }
    // What arrives at the origin.
    R3 arriving() { return trace(R3(0.6f, 0.3f, 0.1f), R3(-0.6f, -0.3f, -0.1f)); }
};

TEST(Shadow, AnOccluderBlocksTheLightUnlessShadowsAreOff) {
    const struct {
        const char* name;
        std::function<void(ShadowWorld&)> change;
        float expected;
    } cases[] = {
        {"between", [](ShadowWorld& w) { w.pane(5); }, 0},
        {"beyond the light", [](ShadowWorld& w) { w.pane(11); }, 1},
        {"unseen by shadow rays", [](ShadowWorld& w) { w.pane(5, Black, 0, RAY_ALL & ~RAY_SHADOW); }, 1},
        {"the light casts none", [](ShadowWorld& w) { w.pane(5), w.light->castShadow = 0; }, 1},
        {"the floor receives none", [](ShadowWorld& w) { w.pane(5), w.floor->m_receiveShadow = 0; }, 1},
        {"everything receives them",
         [](ShadowWorld& w) { w.pane(5), w.floor->m_receiveShadow = 0, w.ro().m_receiveShadow = 1; }, 0},
        {"a host's light casts",
         [](ShadowWorld& w) {
             w.pane(5), w.lights.clear();
             w.light->castShadow = 0;
             w.TestWorld::light<OxPointLight>("OxPointLight").position = R3(0, 10, 0);
         },
         0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ShadowWorld world;
        c.change(world);
        expectNear(world.arriving(), c.expected * White);
    }
}

struct Silent : OxShader {};

TEST(Shadow, AnyHitWillDoWhereAllThatCastsShadowsBlocksLight) {
    const auto holes = [](ShadowWorld& w) {
        auto clear = std::make_unique<Texture>(1, 1, 4, std::vector<float>{1, 1, 1, 0}, ColorSpace::Linear);
        w.pane(5).texture = w.textures.add(std::move(clear));
    };
    const struct {
        const char* name;
        std::function<void(ShadowWorld&)> change;
        bool any, lit;
    } cases[] = {
        {"opaque", [](ShadowWorld& w) { w.pane(5); }, true, false},
        {"transparent", [](ShadowWorld& w) { w.pane(5, White); }, false, true},
        {"opaque below a transparent one", [](ShadowWorld& w) { w.pane(5, White), w.pane(4); }, false, false},
        {"transparent, but unseen", [](ShadowWorld& w) { w.pane(5, White, 0, RAY_ALL & ~RAY_SHADOW); }, true, true},
        {"with holes in its texture", holes, false, true},
        {"a wireframe", [](ShadowWorld& w) { w.pane(5, Black, 0.3f).m_wireframe = 1; }, false, true},
        {"all wireframes", [](ShadowWorld& w) { w.pane(5, Black, 0.3f), w.ro().m_wireframe = 1; }, false, true},
        {"of a class derived from one that promises",
         [](ShadowWorld& w) { w.shader("KelWallThickness"), w.addSquare(R3(0, 5, 0), R3(0, -1, 0)); }, false, false},
        {"of a class that lets no light through by itself",
         [](ShadowWorld& w) { w.own<Silent>(), w.addSquare(R3(0, 5, 0), R3(0, -1, 0)); }, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ShadowWorld world;
        c.change(world);
        EXPECT_EQ(world.arriving() != Black, c.lit);
        OxState shadow = world.session().primaryState();
        oxsSetRay(&shadow, R3(0.2f, 0.1f, 0.3f), R3(0, 1, 0), 9.0f);
        oxsSetRayVisibility(&shadow, RAY_SHADOW);
        bool blocks = !c.any;
        oxsShootShadowRay(&shadow, blocks);
        EXPECT_EQ(blocks, c.any);
    }
}

TEST(Shadow, TransparentOccludersFilterUntilTheChainEnds) {
    const R3 grey(0.5f, 0.5f, 0.5f), rose(0.9f, 0.6f, 0.5f), sky(0.2f, 0.5f, 1.0f);
    const struct {
        std::vector<R3> panes;
        float accuracy;
        unsigned limit;
    } cases[] = {
        {{grey, rose, Black}, 0.15f, 25},    {{rose, grey, sky}, 0.48f, 25},  // each pane is weighed by itself
        {{rose, grey, sky}, 0.49f, 25},      {{grey, rose, sky, rose}, 0.15f, 5},
        {{grey, rose, sky, rose}, 0.15f, 4}, {{White}, 0.15f, 1},
    };
    for (const auto& c : cases) {
        ShadowWorld world;
        R3 expected = White;
        for (std::size_t i = 0; i < c.panes.size(); ++i) {
            const R3& pane = c.panes[i];
            world.pane(1.0f + static_cast<float>(i), pane);
            const float luminance = 0.3086f * pane.x + 0.6094f * pane.y + 0.082f * pane.z;
            expected *= luminance > c.accuracy && i + 1 < c.limit ? pane : Black;
        }
        world.ro().m_refractiveAccuracy = c.accuracy;
        world.ro().m_transparentAccuracy = world.ro().m_reflectiveAccuracy = 100.0f;  // do not matter here
        world.ro().m_recursionLimit = c.limit;
        expectNear(world.arriving(), expected);
        EXPECT_EQ(world.ro().m_rays[0].depth, 0u);
    }
}

TEST(Shadow, RaysEndAtTheLight) {
    for (const float epsilon : {0.5f, 2.5f}) {
        ShadowWorld world;
        world.rayEpsilon = epsilon;
        world.light->position = R3(3, 4, 0);
        OxState state = world.hit(R3(0, 2, 0), R3(0, -1, 0)), shadow;
        ASSERT_TRUE(kelShadowRay(&state, &shadow, R3(0, 1, 0), static_cast<OxLight*>(world.light), world.floor));
        const float whole = std::trunc(epsilon);
        expectNear(shadow.ray.direction, R3(0.6f, 0.8f, 0));
        expectNear(shadow.ray.origin, whole * R3(0.6f, 0.8f, 0));
        EXPECT_FLOAT_EQ(shadow.ray.maxDist, 5.0f - 2.0f * whole);
    }
}

// Four samples, one lane each.
struct FourWays : OxLight {
    ISSEVec4 ways;

    bool Illuminate4(const ISSEVec4&, ISSEVec4& direction, sse_t& distance, ISSEVec4&, OxState4&, void*) override {
        direction = ways;
        distance = _mm_set1_ps(9.0f);
        return true;
    }
};

TEST(Shadow, PacketsMarkTheLanesThatSeeTheLight) {
    FourWays light;
    const R3 ways[] = {R3(0, 0.5f, 1), R3(1, 0, 0), R3(0, -1, 0), R3(0, std::nanf(""), 0)};
    ISSERay4 ray, shadowRay;
    for (unsigned i = 0; i < 4; ++i) {
        light.ways.setLane(i, ways[i]);
        ray.origin.setLane(i, R3(static_cast<float>(i), 2, 3));
    }
    OxState4 state, shadow;
    state.ray4 = &ray;
    shadow.ray4 = &shadowRay;
    const sse_t mask = kelShadowRay4(state, shadow, ISSEVec4(R3(0, 1, 0)), static_cast<OxLight*>(&light), nullptr);
    EXPECT_EQ((std::vector<float>{mask[0], mask[1], mask[2], mask[3]}), (std::vector<float>{1, 0, 0, 0}));
    for (unsigned i = 0; i < 3; ++i) {
        expectNear(shadowRay.origin.lane(i), R3(static_cast<float>(i), 2, 3) + 0.001f * ways[i], 1e-6f);
        EXPECT_EQ(shadowRay.maxDist[i], 9.0f);
    }
}

TEST(Shadow, SoftShadowsJitterTheRayUnlessTheLightIsFuzzy) {
    ShadowWorld world;
    world.pane(5, Black, 2);  // beside the straight way; across the one to the jittered light
    world.light->fuzzyness = 8.0f;
    script(world.ro(), {0.99f, 0.5f, 0.5f});
    OxPointLight host;
    const struct {
        Oxint soft, fuzzy;
        OxLight* light;
        bool deflected;
    } cases[] = {
        {1, 0, world.light, true}, {0, 0, world.light, false}, {1, 1, world.light, false},
        {1, 0, &host, false},      {1, 0, nullptr, false},
    };
    OxState state = world.hit(R3(0, 2, 0), R3(0, -1, 0)), shadow;
    ASSERT_TRUE(kelShadowRay(&state, &shadow, R3(0, 1, 0), static_cast<OxLight*>(world.light), world.floor));
    const R3 straight = shadow.ray.direction;
    for (const auto& c : cases) {
        world.floor->m_softShadows = c.soft;
        world.floor->m_fuzzyLights = c.fuzzy;
        EXPECT_EQ(kelShootShadowRay(&shadow, c.light, world.floor), c.deflected) << c.soft << c.fuzzy;
        EXPECT_EQ(shadow.ray.direction, straight);
    }
}

TEST(Shadow, LightTransparencyGoesOnFromTheOccluder) {
    enum Next { Nothing, Transparent, Opaque };
    const struct {
        Next next;
        float epsilon, alpha, opacity;
        bool passes;
        float distance;
    } cases[] = {
        {Transparent, 0.01f, 1, 1, true, 2},
        {Transparent, 1.0f, 1, 1, true, 1},
        {Opaque, 0.01f, 1, 1, false, 0},
        {Nothing, 0.01f, 0, 1, false, 0},
        {Nothing, 0.01f, 0.5f, 0.5f, false, 0},  // just the accuracy
        {Nothing, 0.01f, 0.5f, 0.51f, true, RayInfinity},
    };
    for (const auto& c : cases) {
        TestWorld world;
        Probe& probe = world.own<Probe>();
        probe.transparent = c.next == Transparent;
        world.addSquare(R3(0, 2, 0), R3(0, -1, 0));
        if (c.next != Nothing) world.addSquare(R3(0, 6, 0), R3(0, -1, 0));
        world.rayEpsilon = c.epsilon;
        world.ro().m_refractiveAccuracy = 0.25f;
        OxState state = world.session().primaryState();
        state.color = R3(0.5f, 0.25f, 1);
        state.ray.minHitDist = 0.01f;
        oxsSetRay(&state, R3(0.3f, 0, 0.2f), R3(0, 2, 0), 5.0f);  // distances count in lengths of 2
        oxsSetRayVisibility(&state, RAY_SHADOW);
        ASSERT_TRUE(oxsShootRay(&state));
        world.ro().m_rays[0].opacity = c.opacity;
        resetRayCounts();
        R3 color = White;
        float distance = -1.0f;
        EXPECT_EQ(kelLightTransparency(&state, color, c.alpha, distance), c.passes);
        EXPECT_EQ(color, c.passes ? R3(0.5f, 0.25f, 1) : Black);
        EXPECT_FLOAT_EQ(distance, c.distance);
        EXPECT_EQ(raysShot(RAY_SHADOW), c.passes || c.next == Opaque ? 1u : 0u);
        if (c.passes) expectNear(state.ray.origin, R3(0.3f, 2 + 2 * std::trunc(c.epsilon), 0.2f));
    }
}
