// What rays hit: meshes and their placements, and what is read off a hit.
#include "Engine/Host/ThreadRecord.h"
#include "Oxbeam/OxDirectionalLight.h"
#include "Oxbeam/OxFunctions.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace oxbeam;
using namespace oxbeam::test;

namespace {

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float Infinity = std::numeric_limits<float>::infinity();
const R3 Down(0, 0, -1);

OxState rayState(TestWorld& world, const R3& origin, const R3& direction, Oxuint kind = RAY_PRIMARY) {
    OxState state = world.session().primaryState();
    oxsSetRay(&state, origin, direction, RayInfinity);
    oxsSetRayVisibility(&state, kind);
    return state;
}

// The state after shooting; the hit's triangle is TRI_NONE for a miss.
OxState shoot(TestWorld& world, const R3& origin, const R3& direction, Oxuint kind = RAY_PRIMARY) {
    OxState state = rayState(world, origin, direction, kind);
    const bool hit = oxsShootRay(&state);
    EXPECT_EQ(hit, state.hit.tri != TRI_NONE);
    return state;
}

bool hits(TestWorld& world, const R3& origin, const R3& direction) {
    return shoot(world, origin, direction).hit.tri != TRI_NONE;
}

R3 shadingNormal(const OxState& state) {
    R3 normal;
    oxsFindShadingNormal(&state, normal);
    return normal;
}

void expectNear(const R3& a, const R3& b, float tolerance) {
    EXPECT_NEAR(a.x, b.x, tolerance);
    EXPECT_NEAR(a.y, b.y, tolerance);
    EXPECT_NEAR(a.z, b.z, tolerance);
}

// A triangle in the plane z = 0 that faces +z.
MeshData triangleMesh() {
    MeshData mesh;
    mesh.positions = {R3(0, 0, 0), R3(1, 0, 0), R3(0, 1, 0)};
    mesh.indices = {0, 1, 2};
    return mesh;
}

// A world with one placement of a mesh; a movable one is instanced, the other baked.
unsigned place(TestWorld& world, MeshData mesh, const Matrix& placement, bool movable, Oxuint visibility = RAY_ALL) {
    world.phong();
    return world.geometry.addInstance(world.geometry.addMesh(std::move(mesh)), placement,
                                      static_cast<unsigned>(world.shaders.size()) - 1, visibility, movable);
}

}  // namespace

// ---- Meshes

TEST(Geometry, TrianglesThatCannotBeTracedAreDroppedAndCounted) {
    for (const bool instanced : {false, true}) {
        MeshData mesh = triangleMesh();
        mesh.positions.insert(mesh.positions.end(), {R3(NaN, 0, 0), R3(0, Infinity, 0), R3(0, 0, -2e18f), R3(3, 0, 0),
                                                     R3(4, 0, 0), R3(3, 1, 0)});
        for (unsigned bad : {3u, 4u, 5u, 9u, 0xffffffffu}) mesh.indices.insert(mesh.indices.end(), {0, bad, 1});
        mesh.indices.insert(mesh.indices.end(), {6, 7, 8});
        mesh.normals.assign(2, R3(1, 0, 0));  // of no use: not one a vertex
        TestWorld world;
        place(world, std::move(mesh), {}, instanced);
        EXPECT_TRUE(hits(world, R3(0.2f, 0.2f, 1), Down));
        const OxState last = shoot(world, R3(3.2f, 0.2f, 1), Down);
        ASSERT_EQ(last.hit.tri, 1);
        EXPECT_EQ(shadingNormal(last), R3(0, 0, 1));
        EXPECT_EQ(world.geometry.dropped()[0].badVertices, 3u);
        EXPECT_EQ(world.geometry.dropped()[0].badIndices, 2u);
        EXPECT_EQ(world.geometry.triangles(), 2u);
    }
}

TEST(Geometry, NothingToHitIsNoError) {
    {
        TestWorld world(R3(0.25f, 0.5f, 1));
        EXPECT_EQ(world.trace(R3(0, 0, 5), Down), R3(0.25f, 0.5f, 1));
        EXPECT_TRUE(world.geometry.bounds().empty);
    }
    for (const bool instanced : {false, true}) {
        MeshData vertices = triangleMesh(), flat = triangleMesh();
        vertices.indices.clear();
        flat.indices = {0, 1, 1, 2, 2, 2};
        TestWorld world;
        place(world, {}, {}, instanced);
        place(world, std::move(vertices), {}, instanced);
        place(world, std::move(flat), {}, instanced);
        EXPECT_FALSE(hits(world, R3(0.2f, 0.2f, 1), Down));
    }
}

// A placement may flatten a mesh or throw it out of every ray's reach; other meshes must not suffer.
TEST(Geometry, AbsurdPlacementsHitNothing) {
    for (const R3& scale : {R3(0, 0, 0), R3(1, 1, 0), R3(1e-30f, 1e-30f, 1e-30f), R3(1e30f, 1e30f, 1e30f),
                            R3(Infinity, 1, 1), R3(NaN, NaN, NaN)})
        for (const bool instanced : {false, true}) {
            SCOPED_TRACE(testing::Message() << "scale " << scale.x << ' ' << scale.z << " instanced " << instanced);
            TestWorld world;
            place(world, sphereMesh(8), ScaleMatrix(scale), instanced);
            place(world, triangleMesh(), TranslationMatrix(R3(5, 0, 0)), instanced);
            EXPECT_EQ(shoot(world, R3(5.2f, 0.2f, 1), Down).hit.inst, 1);
        }
}

TEST(Geometry, BarycentricWeightsAreThoseOfTheVerticesInTheirFilesOrder) {
    for (const bool instanced : {false, true}) {
        MeshData mesh = triangleMesh();
        mesh.texCoords = {R2(1, 0), R2(0, 1), R2(0, 0)};
        mesh.colors = {Red, Green, R3(0, 0, 1)};
        TestWorld world;
        place(world, std::move(mesh), {}, instanced);
        const R3 weights(0.5f, 0.3f, 0.2f);
        OxState state = shoot(world, R3(weights.y, weights.z, 1), Down);
        R3 a, b, c, color;
        oxGetTriangleVertices(oxGetObject(oxGetInstance(oxsInstanceID(&state))), oxsTriangleID(&state), &a, &b, &c);
        EXPECT_EQ(a, R3(0, 0, 0));
        EXPECT_EQ(b, R3(1, 0, 0));
        EXPECT_EQ(c, R3(0, 1, 0));
        R2 uv;
        oxsGetUV(&state, uv);
        expectNear(R3(uv.x, uv.y, state.hit.w), weights, 1e-6f);
        oxsLoadGeometry(&state);
        expectNear(R3(state.hit.txtCoord.x, state.hit.txtCoord.y, 0), R3(0.5f, 0.3f, 0), 1e-6f);
        EXPECT_TRUE(oxsHasVertexColors(&state));
        oxsInterpolateColor(&state, color);
        expectNear(color, weights, 1e-6f);
    }
}

TEST(Geometry, MeshesWithoutAttributesShowBarycentricCoordinatesAndWhite) {
    TestWorld world;
    place(world, triangleMesh(), {}, false);
    OxState state = shoot(world, R3(0.3f, 0.2f, 1), Down);
    oxsLoadGeometry(&state);
    expectNear(R3(state.hit.txtCoord.x, state.hit.txtCoord.y, 0), R3(0.5f, 0.3f, 0), 1e-6f);
    EXPECT_FALSE(oxsHasVertexColors(&state));
    R3 color;
    oxsInterpolateColor(&state, color);
    EXPECT_EQ(color, White);
}

// ---- Placements

// Whether a mesh is placed once or twice must not be seen in the picture.
TEST(Geometry, BakedAndInstancedMeshesLookAlike) {
    const Matrix turn = RotationMatrix(0, 0.3f) * RotationMatrix(1, 1.1f);
    for (const R3& scale : {R3(1, 1, 1), R3(2, 0.5f, 1.25f), R3(-1, 1, 1), R3(-3, -0.5f, -1), R3(40, 40, 2)}) {
        SCOPED_TRACE(testing::Message() << "scale " << scale.x << ' ' << scale.y << ' ' << scale.z);
        const Matrix placement = TranslationMatrix(R3(0.5f, -0.25f, 2)) * turn * ScaleMatrix(scale) * turn;
        TestWorld world;
        place(world, sphereMesh(12), placement, false);
        place(world, sphereMesh(12), TranslationMatrix(R3(1000, 0, 0)) * placement, true);
        world.session();
        ASSERT_NE(world.geometry.scene().instances[0]->hasXfm, world.geometry.scene().instances[1]->hasXfm);
        unsigned count = 0;
        for (unsigned i = 0; i < 400; ++i) {
            const R3 target(0.2f * static_cast<float>(i % 20) - 1.4f, 0.2f * static_cast<float>(i / 20) - 2.2f, 2);
            const R3 from(0.3f, 0.7f, 200), direction = Normalize(target - from);
            OxState baked = shoot(world, from, direction);
            OxState instanced = shoot(world, from + R3(1000, 0, 0), direction);
            if (baked.hit.tri != instanced.hit.tri) continue;  // at an edge
            if (baked.hit.tri == TRI_NONE) continue;
            ++count;
            EXPECT_NEAR(baked.hit.dist, instanced.hit.dist, 2e-3f);
            expectNear(R3(baked.hit.u, baked.hit.v, baked.hit.w), R3(instanced.hit.u, instanced.hit.v, instanced.hit.w),
                       2e-3f);
            expectNear(shadingNormal(baked), shadingNormal(instanced), 5e-3f);
            oxsLoadGeometry(&baked), oxsLoadGeometry(&instanced);
            EXPECT_NEAR(baked.hit.txtCoord.x, instanced.hit.txtCoord.x, 2e-3f);
            EXPECT_NEAR(baked.hit.txtCoord.y, instanced.hit.txtCoord.y, 2e-3f);
        }
        EXPECT_GT(count, 20u);
    }
}

TEST(Geometry, MovedInstancesAreHitWhereTheyAreAfterTheNextBuild) {
    TestWorld world;
    place(world, triangleMesh(), TranslationMatrix(R3(10, 0, 0)), false);
    const unsigned moving = place(world, triangleMesh(), {}, true);
    ASSERT_TRUE(hits(world, R3(0.2f, 0.2f, 1), Down));
    world.geometry.moveInstance(moving, TranslationMatrix(R3(0, 5, 0)) * RotationMatrix(2, 0.5f));
    world.geometry.build();
    EXPECT_FALSE(hits(world, R3(0.2f, 0.2f, 1), Down));
    EXPECT_EQ(shoot(world, R3(0.1f, 5.3f, 1), Down).hit.inst, static_cast<int>(moving));
    EXPECT_TRUE(hits(world, R3(10.2f, 0.2f, 1), Down));
    EXPECT_GT(world.geometry.bounds().upper.y, 5.5f);
}

TEST(Geometry, InstancesAreHitByTheKindsOfRaysTheyAreVisibleTo) {
    const Oxuint kinds[] = {RAY_PRIMARY, RAY_SHADOW, RAY_TRANSPARENCY, RAY_REFRACTION, RAY_REFLECTION};
    for (const Oxuint visible : kinds) {
        TestWorld world;
        place(world, triangleMesh(), {}, false, visible);
        place(world, triangleMesh(), TranslationMatrix(R3(5, 0, 0)), true, RAY_ALL & ~visible);
        for (const Oxuint kind : kinds) {
            EXPECT_EQ(shoot(world, R3(0.2f, 0.2f, 1), Down, kind).hit.tri != TRI_NONE, kind == visible);
            EXPECT_EQ(shoot(world, R3(5.2f, 0.2f, 1), Down, kind).hit.tri != TRI_NONE, kind != visible);
        }
    }
}

// ---- Rays

TEST(Geometry, HitsOutsideTheRaysIntervalDoNotCount) {
    TestWorld world;
    place(world, triangleMesh(), {}, false);
    for (const auto& [minHitDist, minDist, maxDist, expected] :
         {std::tuple(0.0f, 0.0f, Infinity, true), std::tuple(0.9f, 0.0f, 1.1f, true),
          std::tuple(1.1f, 0.0f, Infinity, false), std::tuple(0.0f, 1.1f, Infinity, false),
          std::tuple(0.0f, 0.0f, 0.9f, false)}) {
        OxState state = rayState(world, R3(0.2f, 0.2f, 2), R3(0, 0, -2));  // distances count in lengths of 2
        state.ray.minHitDist = minHitDist, state.ray.minDist = minDist, state.ray.maxDist = maxDist;
        ASSERT_EQ(oxsShootRay(&state), expected);
        if (!expected) continue;
        EXPECT_FLOAT_EQ(state.hit.dist, 1.0f);
    }
}

// Seam and poles of the sphere included: its vertices there are several, and lie on each other exactly.
TEST(Geometry, ClosedMeshesDoNotLeakAlongTheirEdges) {
    for (const bool instanced : {false, true}) {
        const MeshData mesh = sphereMesh(24);
        TestWorld world;
        place(world, mesh, TranslationMatrix(R3(100, 30, 0)), instanced);
        unsigned leaks = 0;
        for (std::size_t i = 0; i < mesh.indices.size(); ++i)
            for (unsigned k = 1; k < 20; ++k) {
                const std::size_t next = i % 3 == 2 ? i - 2 : i + 1;
                const R3 a = mesh.positions[mesh.indices[i]], b = mesh.positions[mesh.indices[next]];
                const R3 from(0.03f * static_cast<float>(k), 0.1f, -0.2f);
                leaks += !hits(world, R3(100, 30, 0) + from, a + static_cast<float>(k) / 20 * (b - a) - from);
            }
        EXPECT_EQ(leaks, 0u);
    }
}

TEST(Geometry, RaysThatCannotBeTracedAreCountedMisses) {
    TestWorld world;
    place(world, triangleMesh(), {}, false);
    const R3 from(0.2f, 0.2f, 1);
    struct Case {
        R3 origin, direction;
        float minHitDist, maxDist;
        bool counted;
    };
    for (const Case& c :
         {Case{R3(NaN, 0, 1), Down, 0, Infinity, true}, Case{from, R3(0, 0, NaN), 0, Infinity, true},
          Case{R3(0, Infinity, 1), Down, 0, Infinity, true}, Case{from, R3(0, 0, -Infinity), 0, Infinity, true},
          Case{R3(0, 0, 3e18f), Down, 0, Infinity, true}, Case{from, R3(0, 0, -3e38f), 0, Infinity, true},
          Case{from, Down, NaN, Infinity, true}, Case{from, Down, 0, NaN, true},
          Case{from, Down, Infinity, Infinity, true}, Case{from, R3(), 0, Infinity, false},  // goes nowhere
          Case{from, Down, 0.1f, 0.05f, false}, Case{from, Down, 0, -1, false}}) {
        OxState state = rayState(world, c.origin, c.direction);
        state.ray.minHitDist = c.minHitDist, state.ray.maxDist = c.maxDist;
        resetRayCounts();
        EXPECT_FALSE(oxsShootRay(&state));
        EXPECT_EQ(state.hit.tri, TRI_NONE);
        EXPECT_EQ(ThreadRecord::mine().refusedRays, c.counted ? 1u : 0u);
        EXPECT_EQ(raysShot(RAY_PRIMARY), 1u);
    }
    EXPECT_TRUE(hits(world, from, Down));
}

// ---- Normals

TEST(Geometry, ShadingNormalsAreInterpolatedAndFaceTheRay) {
    struct Case {
        const char* what;
        std::vector<R3> normals;
        std::vector<unsigned> indices;
        R3 expected;  // as seen from above
    };
    const R3 up(0, 0, 1), a(0.6f, 0, 0.8f), b(0, 0.6f, 0.8f);
    const R3 blend = Normalize(0.5f * a + 0.3f * b + 0.2f * up);
    for (const Case& c : {Case{"no normals", {}, {0, 1, 2}, up}, Case{"normals", {a, b, up}, {0, 1, 2}, blend},
                          Case{"any length", {5.0f * a, 5.0f * b, 5.0f * up}, {0, 1, 2}, blend},
                          Case{"reversed winding", {a, b, up}, {0, 2, 1}, blend},
                          Case{"inward normals", {-a, -b, -up}, {0, 1, 2}, blend},
                          Case{"zero normals", {R3(), R3(), R3()}, {0, 1, 2}, up},
                          Case{"normals that cancel", {R3(-0.6f, 0, 0), R3(1, 0, 0), R3()}, {0, 1, 2}, up},
                          Case{"bad normals", {R3(NaN, 0, 1), R3(0, 0, Infinity), R3(0, NaN, 0)}, {0, 1, 2}, up},
                          Case{"one bad normal", {a, R3(NaN, NaN, NaN), a}, {0, 1, 2}, a}})
        for (const bool instanced : {false, true}) {
            SCOPED_TRACE(c.what);
            MeshData mesh = triangleMesh();
            mesh.normals = c.normals;
            mesh.indices = c.indices;
            TestWorld world;
            place(world, std::move(mesh), {}, instanced);
            expectNear(shadingNormal(shoot(world, R3(0.3f, 0.2f, 1), Down)), c.expected, 1e-6f);
            expectNear(shadingNormal(shoot(world, R3(0.3f, 0.2f, -1), -Down)), -c.expected, 1e-6f);
        }
}

// Flipping would light the rim from the wrong side; a normal that leans away is laid down instead.
TEST(Geometry, SilhouettesKeepTheirNormalsOnTheViewersSide) {
    TestWorld world;
    place(world, sphereMesh(8), {}, false);
    unsigned leaning = 0;
    for (unsigned i = 0; i < 1600; ++i) {
        const R3 direction =
            Normalize(R3(0.06f * static_cast<float>(i % 40) - 1.2f, 0.06f * static_cast<float>(i / 40) - 1.2f, -10));
        const OxState state = shoot(world, R3(0, 0, 10), direction);
        if (state.hit.tri == TRI_NONE) continue;
        const R3 normal = shadingNormal(state);
        EXPECT_NEAR(Length(normal), 1.0f, 1e-5f);
        EXPECT_LE(Dot(normal, direction), 1e-5f);
        R3 position;
        oxsGetHitPosition(&state, position);
        EXPECT_GT(Dot(normal, Normalize(position)), 0.6f);
        leaning += Dot(normal, direction) > -1e-5f;
    }
    EXPECT_GT(leaning, 0u);
}

// ---- Epsilon

// A sphere above a plane, lit by parallel light: every point of the sphere's lit side has its Lambert value, and the
// shadow on the plane is where it belongs, however large the model is and wherever it stands.
TEST(Geometry, NoModelIsTooSmallOrTooLargeForItsShadows) {
    struct Case {
        float scale;
        R3 center;  // in units of the scale
    };
    for (const Case& c : {Case{1e-3f, R3()}, Case{1, R3()}, Case{1e6f, R3()}, Case{1, R3(300, 200, -100)},
                          Case{1e-3f, R3(300, 0, 0)}}) {
        SCOPED_TRACE(testing::Message() << "scale " << c.scale << " at " << c.center.x);
        TestWorld world;
        KelPhongShader& shader = world.phong();
        shader.ambientIntensity = 0.0f;
        shader.m_receiveShadow = 1;
        const Matrix placement = ScaleMatrix(R3(c.scale, c.scale, c.scale)) * TranslationMatrix(c.center);
        world.add(sphereMesh(96), placement);
        world.add(planeMesh(), placement * TranslationMatrix(R3(0, -1.5f, 0)) * ScaleMatrix(R3(4, 1, 4)));
        auto& light = world.light<OxDirectionalLight>("OxDirectionalLight");
        light.direction = R3(-0.6f, -0.8f, 0);
        const auto seen = [&](const R3& p, const R3& from) {
            return world.trace(TransformPoint(placement, from), Normalize(p - from)).x;
        };
        for (unsigned i = 0; i < 24; ++i)
            for (unsigned j = 1; j < 12; ++j) {
                const float phi = 0.27f * static_cast<float>(i), z = -1.0f + static_cast<float>(j) / 6.0f;
                const float r = std::sqrt(1.0f - z * z);
                const R3 p(r * std::cos(phi), r * std::sin(phi), z);
                const float lambert = -Dot(p, light.direction);
                SCOPED_TRACE(testing::Message() << p.x << ' ' << p.y << ' ' << p.z);
                if (lambert > 0.15f) {
                    EXPECT_NEAR(seen(p, 2.5f * p), lambert, 0.02f);
                } else if (lambert < -0.05f && p.y > -0.8f) {
                    EXPECT_EQ(seen(p, 1.4f * p), 0.0f);
                }
            }
        // The shadow is an ellipse with half-axes 1 / 0.8 and 1 about the foot of the light through the centre.
        for (unsigned i = 0; i < 40; ++i) {
            const float angle = 0.157f * static_cast<float>(i);
            const R3 foot(-1.5f * 0.75f, -1.5f, 0), rim(std::cos(angle) / 0.8f, 0, std::sin(angle));
            EXPECT_EQ(seen(foot + 0.97f * rim, foot + 0.97f * rim + R3(0, 0.2f, 0)), 0.0f) << angle;
            EXPECT_NEAR(seen(foot + 1.03f * rim, foot + 1.03f * rim + R3(0, 0.2f, 0)), 0.8f, 1e-4f) << angle;
        }
    }
}
