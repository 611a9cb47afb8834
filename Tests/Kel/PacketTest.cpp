// Packets of four rays: every lane against the same formula for a single ray, and the lanes that must differ.
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/ABSP.h"
#include "Oxbeam/FastOxS4.h"
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Shaders/Kel/KelEnvironment.h"
#include "Tests/Support/Probe.h"

#include <cmath>

using namespace oxbeam::test;

// Four rays of a world, shot together.
struct Shot {
    ISSERay4 ray;
    ISSEIntersection4 hit;
    OxState4 state;

    Shot(TestWorld& world, const R3 (&origins)[4], const R3 (&directions)[4]) {
        world.session();
        state.intersector = &world.geometry.intersector();
        state.ray4 = &ray;
        state.hit4 = &hit;
        for (unsigned i = 0; i < 4; ++i) {
            ray.origin.setLane(i, origins[i]);
            ray.direction.setLane(i, Normalize(directions[i]));
        }
        oxs4Init(state);
        state.intersector->Intersect4(state);
        oxs4LoadGeometry(state);
    }
};

static const R3 Above[4] = {R3(0, 2, 0), R3(1, 2, 0), R3(2, 2, 0), R3(3, 2, 0)};
static const R3 Down[4] = {R3(0, -1, 0), R3(0.1f, -1, 0), R3(0.2f, -1, 0.5f), R3(0, -1, 1)};

TEST(Packets, LanesWithoutAHitAreLeftAlone) {
    TestWorld world;
    world.phong();
    world.phong();
    world.addSquare(R3(), R3(0, 1, 0), 1.5f);
    Shot shot(world, Above, {R3(0, -1, 0), R3(0, -1, 0), R3(0, -1, 0), R3(NAN, 0, 0)});
    const int hit[] = {1, 1, 0, 0};
    OxShader* shaders[4];
    oxs4GetShader(shot.state, shaders, world.environment);
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(shot.hit.tri[i] >= 0, hit[i]) << i;
        EXPECT_EQ(shot.state.object[i] != nullptr, hit[i]) << i;
        EXPECT_EQ(shaders[i], hit[i] ? world.shaders[1] : world.environment) << i;
    }
    EXPECT_EQ(raysShot(RAY_PRIMARY), 4u);
    EXPECT_EQ(ThreadRecord::mine().refusedRays, 1u);
    ISSEVec4 position;
    oxsGetHitPosition4(shot.state, position);
    expectNear(position.lane(1), R3(1, 0, 0));
}

TEST(Packets, NormalsTurnWithTheInstanceAndFaceTheRay) {
    TestWorld world;
    world.phong();
    Matrix quarter;  // about z: x becomes y
    quarter.m[0][0] = 0, quarter.m[0][1] = -1, quarter.m[1][0] = 1, quarter.m[1][1] = 0;
    const unsigned mesh = world.geometry.addMesh(planeMesh());
    for (const float x : {0.0f, 3.0f})
        world.geometry.addInstance(mesh, TranslationMatrix(R3(x, 0, 0)) * quarter, 0, RAY_ALL, true);
    const R3 from[4] = {R3(2, 0, 0), R3(-2, 0, 0), R3(2, 0.5f, 0), R3(2, 9, 0)};
    const R3 along[4] = {R3(-1, 0, 0), R3(1, 0, 0), R3(-1, 0, 0), R3(-1, 0, 0)};
    Shot shot(world, from, along);
    ASSERT_LT(shot.hit.tri[3], 0);
    ISSEVec4 normal;
    for (unsigned i = 0; i < 4; ++i) normal.setLane(i, R3(0, 5, 0));
    oxs4FindShadingNormal(shot.state, normal);
    expectNear(normal.lane(0), R3(1, 0, 0));  // turned into -x, then to the ray
    expectNear(normal.lane(1), R3(-1, 0, 0));
    expectNear(normal.lane(3), R3(0, 1, 0));  // no hit: not turned
}

TEST(Packets, TexelsAreBlendedFromWholePlacesWithinTheRange) {
    TestWorld world;
    world.phong();
    world.addSquare(R3(), R3(0, 1, 0), 1);
    // Two by two texels: red grows along s, green along t, and both repeat.
    const auto texture = static_cast<unsigned>(
        world.textures.add(painted(2, 2, [](float s, float t) { return R3(s > 0.5f, t > 0.5f, 0); })));
    const R3 down(0, -1, 0), from[4] = {R3(0.4f, 1, -0.2f), R3(-0.3f, 1, 0.6f), R3(0.2f, 1, -0.2f), R3(7, 1, 0)};
    Shot shot(world, from, {down, down, down, down});
    unsigned textures[4] = {texture, texture, ~0u, texture};
    ISSEVec4 color(R3(9, 9, 9));
    oxs4ApplyTexture(shot.state, shot.hit, textures, color);
    const auto ramp = [](float s) { return s < 0.5f ? 2 * s : 2 - 2 * s; };
    for (unsigned i = 0; i < 2; ++i) {
        const auto& mesh = static_cast<const ABSP&>(*shot.state.object[i]);
        const R2 st = mesh.interpolate(mesh.texCoords, shot.hit.tri[i], shot.hit.u[i], shot.hit.v[i]);
        expectNear(color.lane(i), R3(ramp(st.x), ramp(st.y), 0));
    }
    EXPECT_EQ(color.lane(2), R3(9, 9, 9));
    EXPECT_EQ(color.lane(3), R3(9, 9, 9));
}

// A floor under lights from straight above or from the side.
struct LitFloor : TestWorld {
    KelPhongShader& floor;

    explicit LitFloor(unsigned lamps) : floor(phong(R3(0.5f, 0.25f, 1))) {
        floor.ambientIntensity = 0.5f;
        floor.emissiveColor = R3(0.125f, 0, 0);
        floor.specularColor = R3(0, 1, 0.5f);
        floor.shininess = 3;
        floor.m_fuzzyLights = 1;  // which packets do without
        addSquare(R3(), R3(0, 1, 0), 10);
        for (unsigned i = 0; i < lamps; ++i)
            light<KelDirectionalLight>("KelDirectionalLight").direction = R3(-1, -2, 0.5f);
    }

    R3 unlit() const { return floor.emissiveColor + floor.ambientIntensity * floor.diffuseColor; }
    // What a lane gets from one light, by the packet's formula for a single ray.
    R3 oneLight(R3 D) const {
        D = Normalize(D);
        const R3 N(0, 1, 0), L = Normalize(R3(1, 2, -0.5f));
        const float DN = Dot(D, N);
        const float highlight = std::max(Dot(D - DN * DN * N, L), 0.0f);
        return floor.diffuseColor * std::fabs(Dot(N, L)) + floor.specularColor * std::pow(highlight, floor.shininess);
    }
};

TEST(PhongPackets, LanesFollowTheFormulaWithoutIntensity) {
    LitFloor world(6);
    for (OxLight* light : world.lights) static_cast<KelDirectionalLight*>(light)->intensity = R3(7, 7, 7);
    Shot shot(world, Above, Down);
    world.floor.Shade4(shot.state);
    for (unsigned i = 0; i < 4; ++i) {
        expectNear(shot.state.colors.lane(i), world.unlit() + 6.0f * world.oneLight(Down[i]), 1e-4f);
        EXPECT_NEAR(shot.ray.origin.lane(i).y, 0.0f, 1e-6f);  // at the hit
    }
    EXPECT_EQ(raysShot(RAY_SHADOW), 0u);
}

TEST(PhongPackets, TheShadowRayInTheLightsSlotSpeaksForAllLanes) {
    // A screen that shades only the place that a single lane looks at.
    for (const unsigned shaded : {0u, 1u, 3u}) {
        LitFloor world(5);
        world.floor.m_receiveShadow = 1;
        const float t = 2.0f / -Down[shaded].y;
        world.addSquare(Above[shaded] + t * Down[shaded] + 0.5f * R3(1, 2, -0.5f), R3(0, 1, 0), 0.1f, RAY_SHADOW);
        Shot shot(world, Above, Down);
        world.floor.Shade4(shot.state);
        for (unsigned i = 0; i < 4; ++i) {
            // One of the first four lights is dark everywhere; the fifth has no slot, and is dark where it is blocked.
            const float lights = i == shaded ? 3.0f : 4.0f;
            expectNear(shot.state.colors.lane(i), world.unlit() + lights * world.oneLight(Down[i]), 1e-4f);
        }
        EXPECT_EQ(raysShot(RAY_SHADOW), 20u);
    }
}

// Answers as it is told.
struct Fickle : OxLight {
    bool reaches = true;
    sse_t distances = _mm_set_ps(0, 0, 5, 5);

    bool Illuminate4(const ISSEVec4&, ISSEVec4& L, sse_t& distance, ISSEVec4&, OxState4&, void*) override {
        L = ISSEVec4(Normalize(R3(1, 2, -0.5f)));
        distance = distances;
        return reaches;
    }
};

TEST(PhongPackets, LightsThatDoNotReachALaneAddNothing) {
    LitFloor world(0);
    Shot shot(world, Above, Down);
    shot.state.colors = ISSEVec4(R3(1, 2, 3));
    world.floor.Shade4(shot.state);
    EXPECT_EQ(shot.state.colors.lane(2), R3(1, 2, 3)) << "without lights the packet is left alone";
    auto& light = world.own<Fickle>();
    world.session().newFrame();
    const ISSEVec4 origin = shot.ray.origin;
    for (const bool reaches : {true, false}) {
        light.reaches = reaches;
        shot.ray.origin = origin;
        world.floor.Shade4(shot.state);
        expectNear(shot.state.colors.lane(0), world.unlit() + (reaches ? world.oneLight(Down[0]) : Black), 1e-4f);
        expectNear(shot.state.colors.lane(3), world.unlit(), 1e-4f);
    }
}

TEST(EnvironmentPackets, LanesSeeTheMapAlongTheZAxis) {
    TestWorld world;
    auto& shader = world.surroundings<KelEnvironmentShader>("KelEnvironment");
    const R3 ways[4] = {R3(1, 0.5f, 0.25f), R3(-1, 2, -0.5f), R3(0.1f, -3, 1), R3(-0.2f, -0.1f, -0.3f)};
    Shot shot(world, Above, ways);
    shot.state.colors = ISSEVec4(R3(1, 2, 3));
    shader.Shade4(shot.state);
    EXPECT_EQ(shot.state.colors.lane(1), R3(1, 2, 3));  // no map yet

    shader.textureid = world.textures.add(painted(64, 64, [](float s, float t) { return R3(s, t, 0); }));
    shader.scale = 2;
    shader.upDirection = 0;      // of no consequence
    shader.visiblePrimary = 0;   // neither
    shader.m_receiveShadow = 1;  // nor this
    shader.NewFrame();
    shader.Shade4(shot.state);
    TestWorld other;  // the same map for single rays, with z as its pole
    auto& plain = other.surroundings<KelEnvironmentShader>("KelEnvironment");
    plain.textureid = shader.textureid;
    plain.scale = 2;
    plain.visibleMask = RAY_PRIMARY;
    for (unsigned i = 0; i < 4; ++i) {
        OxState single = world.session().primaryState();
        single.ray.direction = Normalize(ways[i]);
        plain.Shade(&single);
        expectNear(shot.state.colors.lane(i), single.color, 2e-3f);  // the reciprocal square root is an estimate
    }
}
