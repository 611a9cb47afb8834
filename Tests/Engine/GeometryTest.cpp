// What rays hit: meshes and their placements, and what is read off a hit.
#include "Engine/Scene/RayStream.h"
#include "Engine/System/Interruption.h"
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/OxDirectionalLight.h"
#include "Oxbeam/OxFunctions.h"
#include "Tests/Support/Probe.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <random>

using namespace oxbeam::test;

namespace {

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float Infinity = std::numeric_limits<float>::infinity();
const R3 Down(0, 0, -1), Inside(0.2f, 0.2f, 1);  // a point above the triangle

// A primary ray's state after shooting; the hit's triangle is TRI_NONE for a miss.
OxState shoot(TestWorld& world, const R3& origin, const R3& direction, Oxuint kind = RAY_PRIMARY) {
    OxState state = world.session().primaryState();
    oxsSetRay(&state, origin, direction, RayInfinity);
    oxsSetRayVisibility(&state, kind);
    const bool hit = oxsShootRay(&state);
    EXPECT_EQ(hit, state.hit.tri != TRI_NONE);
    return state;
}

bool hits(TestWorld& world, const R3& origin, const R3& direction = Down, Oxuint kind = RAY_PRIMARY) {
    return shoot(world, origin, direction, kind).hit.tri != TRI_NONE;
}

R3 shadingNormal(const OxState& state) {
    R3 normal;
    oxsFindShadingNormal(&state, normal);
    return normal;
}

// In the plane z = 0, facing up.
MeshData triangleMesh() {
    MeshData mesh;
    mesh.positions = {R3(0, 0, 0), R3(1, 0, 0), R3(0, 1, 0)};
    mesh.indices = {0, 1, 2};
    return mesh;
}

// A mesh that is placed once gets its placement baked in, unless it is to move.
unsigned place(TestWorld& world, MeshData mesh, bool instanced, const Matrix& placement = {}, Oxuint mask = RAY_ALL) {
    if (world.shaders.empty()) world.phong();
    return world.geometry.addInstance(world.geometry.addMesh(std::move(mesh)), placement, 0, mask, instanced);
}

// Processor seconds of preparing that many meshes, each placed once: the least of a few tries.
double preparing(unsigned meshes) {
    double least = Infinity;
    for (int attempt = 0; attempt < 3; ++attempt) {
        SceneGeometry geometry;
        for (unsigned i = 0; i < meshes; ++i) geometry.addInstance(geometry.addMesh(triangleMesh()), Matrix(), 0);
        const std::clock_t start = std::clock();
        geometry.prepare();
        least = std::min(least, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    return least;
}

}  // namespace

// Four times as many take four times as long; they would take sixteen if each were looked for among all.
TEST(Geometry, MeshesArePreparedInTimeProportionalToTheirNumber) {
    EXPECT_LT(preparing(80'000), 9 * preparing(20'000));
}

TEST(Geometry, TrianglesThatCannotBeTracedAreDroppedAndCounted) {
    for (const bool instanced : {false, true}) {
        MeshData mesh = triangleMesh();
        for (const R3& p : {R3(NaN, 0, 0), R3(0, Infinity, 0), R3(0, 0, -2e18f), R3(3, 0, 0), R3(4, 0, 0), R3(3, 1, 0)})
            mesh.positions.push_back(p);
        for (unsigned bad : {3u, 4u, 5u, 9u, 0xffffffffu}) mesh.indices.insert(mesh.indices.end(), {0, bad, 1});
        mesh.indices.insert(mesh.indices.end(), {6, 7, 8});
        mesh.normals.assign(20, R3(1, 0, 0));  // of no use: not one a vertex
        TestWorld world;
        place(world, std::move(mesh), instanced);
        EXPECT_TRUE(hits(world, Inside));
        const OxState last = shoot(world, R3(3.2f, 0.2f, 1), Down);
        ASSERT_EQ(last.hit.tri, 1);
        EXPECT_EQ(shadingNormal(last), R3(0, 0, 1));
        EXPECT_EQ(world.geometry.dropped()[0].badVertices, 3u);
        EXPECT_EQ(world.geometry.dropped()[0].badIndices, 2u);
        EXPECT_EQ(world.geometry.triangles(), 2u);
    }
}

// Empty meshes, and placements that flatten a mesh or throw it out of every ray's reach; other meshes must not suffer.
TEST(Geometry, WhatCannotBeHitDoesNoHarm) {
    EXPECT_EQ(TestWorld(Green).trace(Inside, Down), Green);
    for (const bool instanced : {false, true}) {
        MeshData points = triangleMesh(), lines = triangleMesh();
        points.indices.clear();
        lines.indices = {0, 1, 1, 2, 2, 2};
        TestWorld world;
        for (const MeshData& mesh : {MeshData(), points, lines}) place(world, mesh, instanced);
        const Matrix aside = TranslationMatrix(R3(-9, 0, 0));
        for (const R3& scale :
             {R3(0, 0, 0), R3(1e-30f, 1e-30f, 1e-30f), R3(1e30f, 1e30f, 1e30f), R3(Infinity, 1, 1), R3(NaN, NaN, NaN)})
            place(world, sphereMesh(8), instanced, aside * ScaleMatrix(scale));
        const Matrix flat = aside * ScaleMatrix(R3(1, 1, 0));
        const auto shared = place(world, sphereMesh(8), instanced, flat);  // by one that is not flat
        world.geometry.addInstance(world.geometry.scene().instances[shared]->object, aside * aside, 0);
        const auto last = place(world, triangleMesh(), instanced, TranslationMatrix(R3(5, 0, 0)));
        EXPECT_EQ(shoot(world, R3(5.2f, 0.2f, 1), Down).hit.inst, static_cast<int>(last));
        // One that may move on is not seen while it is flat; others are.
        EXPECT_EQ(shoot(world, R3(-8.8f, 0.3f, 5), Down).hit.inst, instanced ? -1 : static_cast<int>(shared));
        EXPECT_FALSE(hits(world, Inside));
    }
}

// In the world, however often a mesh is placed: or the width of a wireframe's borders, which is a length, would change.
TEST(Geometry, BarycentricWeightsAreThoseOfTheVerticesInTheirFilesOrder) {
    const Matrix placement = TranslationMatrix(R3(0.1f, 0.2f, 0.3f)) * ScaleMatrix(R3(3, 3, 3));
    for (const bool instanced : {false, true}) {
        MeshData mesh = triangleMesh();
        mesh.texCoords = {R2(1, 0), R2(0, 1), R2(0, 0)};
        mesh.colors = {Red, Green, R3(0, 0, 1)};
        TestWorld world;
        place(world, std::move(mesh), instanced, placement);
        const R3 weights(0.5f, 0.3f, 0.2f);
        OxState state = shoot(world, TransformPoint(placement, R3(weights.y, weights.z, 1)), Down);
        const GeometryObject* object = oxGetObject(oxGetInstance(oxsInstanceID(&state)));
        R3 corners[3], color;
        oxGetTriangleVertices(object, oxsTriangleID(&state), &corners[0], &corners[1], &corners[2]);
        for (unsigned i = 0; i < 3; ++i)
            EXPECT_EQ(corners[i], TransformPoint(placement, triangleMesh().positions[i])) << instanced;
        EXPECT_EQ(object->id, world.geometry.scene().objects[0]->id);
        expectNear(Normalize(object->GetNormal(0, 0, 0)), R3(0, 0, 1));
        R2 uv;
        oxsGetUV(&state, uv);
        expectNear(R3(uv.x, uv.y, state.hit.w), weights);
        oxsLoadGeometry(&state);
        expectNear(R3(state.hit.txtCoord.x, state.hit.txtCoord.y, 0), R3(0.5f, 0.3f, 0));
        oxsInterpolateColor(&state, color);
        expectNear(color, weights);
    }
}

// Whether a mesh is placed once or twice must not be seen in the picture: the kernel turns rays into an instance's space
// with estimated reciprocals, and the points of hits have the same bits all the same.
TEST(Geometry, BakedAndInstancedMeshesLookAlike) {
    const Matrix turn = RotationMatrix(0, 0.3f) * RotationMatrix(1, 1.1f);
    const R3 from(0.3f, 0.7f, 20);
    for (const R3& scale : {R3(2, 0.5f, 1.25f), R3(2, 1, 3), R3(-1, 1, 1), R3(-3, -0.5f, -1)}) {
        SCOPED_TRACE(testing::PrintToString(scale));
        const auto states = [&](bool instanced) {
            TestWorld world;
            place(world, sphereMesh(12), instanced,
                  TranslationMatrix(R3(0.5f, -0.25f, 2)) * turn * ScaleMatrix(scale) * turn);
            std::vector<std::pair<Intersection, R3>> all;  // with the shading normals
            for (unsigned i = 0; i < 400; ++i) {
                const R3 target(0.2f * static_cast<float>(i % 20) - 1.4f, 0.2f * static_cast<float>(i / 20) - 2.2f, 2);
                const OxState state = shoot(world, from, Normalize(target - from));
                all.emplace_back(state.hit, state.hit.tri == TRI_NONE ? R3() : shadingNormal(state));
            }
            return all;
        };
        const auto baked = states(false), instanced = states(true);
        unsigned same = 0, hits = 0;
        for (std::size_t i = 0; i < baked.size(); ++i) {
            const Intersection &one = baked[i].first, &other = instanced[i].first;
            hits += one.tri != TRI_NONE;
            if (one.tri == TRI_NONE || one.tri != other.tri) continue;  // beside it, or at an edge
            same += one.dist == other.dist && one.u == other.u && one.v == other.v &&
                    (one.normal == other.normal || one.normal == -other.normal);  // mirrored
            expectNear(baked[i].second, instanced[i].second, 1e-5f);
        }
        EXPECT_GT(same, 60u);
        EXPECT_GE(same + 2, hits) << "two may go through an edge";
    }
}

// Rays by themselves find what single rays find, in every lane: on baked meshes, on mirrored instances, and after a move.
TEST(Geometry, StreamsOfRaysHitWhatSingleRaysHit) {
    TestWorld world;
    place(world, sphereMesh(16), false);
    Matrix mirrored = ScaleMatrix(R3(-0.5f, 1, 2));
    mirrored.m[0][3] = 2.5f;
    place(world, boxMesh(), true, mirrored);
    const unsigned moved = place(world, triangleMesh(), true, TranslationMatrix(R3(0, 0, 3)));
    std::mt19937 random(1);
    std::uniform_real_distribution<float> place(-3, 3), way(-1, 1);
    std::vector<R3> origins, directions;
    for (unsigned i = 0; i < 1003; ++i) {
        origins.emplace_back(place(random), place(random), place(random));
        directions.emplace_back(way(random), way(random), i % 13 ? way(random) : NaN);
    }
    const std::size_t count = origins.size();
    Workers workers(2);
    for (const float to : {3.0f, -2.0f}) {
        world.geometry.moveInstance(moved, TranslationMatrix(R3(0, 0, to)));
        world.geometry.build();
        std::vector<float> distance(count);
        std::vector<unsigned> object(count);
        std::vector<int> triangle(count);
        std::vector<R3> normal(count);
        intersect(world.geometry, workers, {origins, directions},
                  {distance.data(), object.data(), triangle.data(), normal.data()});
        for (unsigned i = 0; i < count; ++i) {
            const OxState state = shoot(world, origins[i], directions[i]);
            const bool hit = state.hit.tri != TRI_NONE;
            ASSERT_EQ(triangle[i], state.hit.tri) << i;
            ASSERT_EQ(object[i], hit ? static_cast<unsigned>(state.hit.inst) + 1 : 0) << i;
            if (!hit) continue;
            EXPECT_NEAR(distance[i], state.hit.dist, 1e-5f * (1 + state.hit.dist)) << i;
            EXPECT_NEAR(Dot(normal[i], Normalize(state.hit.normal)), 1.0f, 1e-5f) << i;
        }
    }
}

TEST(Geometry, InstancesAreHitByTheKindsOfRaysTheyAreVisibleTo) {
    const Oxuint kinds[] = {RAY_PRIMARY, RAY_SHADOW, RAY_TRANSPARENCY, RAY_REFRACTION, RAY_REFLECTION};
    for (const Oxuint visible : kinds) {
        TestWorld world;
        place(world, triangleMesh(), false, {}, visible);
        place(world, triangleMesh(), true, TranslationMatrix(R3(5, 0, 0)), RAY_ALL & ~visible);
        for (const Oxuint kind : kinds) {
            EXPECT_EQ(hits(world, Inside, Down, kind), kind == visible);
            EXPECT_EQ(hits(world, R3(5.2f, 0.2f, 1), Down, kind), kind != visible);
        }
    }
}

TEST(Geometry, HitsOutsideTheIntervalDoNotCountAndRaysThatCannotBeTracedAreCountedMisses) {
    TestWorld world;
    place(world, triangleMesh(), false);
    struct Case {
        R3 origin, direction;
        float minHitDist, minDist, maxDist;
        bool hit, refused;
    };
    const R3 twice(0, 0, -0.5f);  // distances count in lengths of the direction
    const Case cases[] = {
        {Inside, twice, 1.9f, 0, 2.1f, true, false},
        {Inside, twice, 2.1f, 0, Infinity, false, false},
        {Inside, twice, 0, 2.1f, Infinity, false, false},
        {Inside, twice, 0, 0, 1.9f, false, false},
        {Inside, Down, 0.1f, 0, 0.05f, false, false},  // merely empty
        {Inside, R3(), 0, 0, Infinity, false, false},
        {R3(NaN, 0, 1), Down, 0, 0, Infinity, false, true},
        {R3(0, 0, 3e18f), Down, 0, 0, Infinity, false, true},
        {Inside, R3(0, 0, NaN), 0, 0, Infinity, false, true},
        {Inside, R3(0, 0, -3e38f), 0, 0, Infinity, false, true},
        {Inside, Down, NaN, 0, Infinity, false, true},
        {Inside, Down, 0, 0, NaN, false, true},
    };
    for (const Case& c : cases) {
        OxState state = world.session().primaryState();
        oxsSetRay(&state, c.origin, c.direction, c.maxDist);
        state.ray.minHitDist = c.minHitDist, state.ray.minDist = c.minDist;
        resetRayCounts();
        EXPECT_EQ(oxsShootRay(&state), c.hit) << &c - cases;
        EXPECT_FLOAT_EQ(state.hit.dist, c.hit ? 2.0f : 0.0f);
        EXPECT_EQ(ThreadRecord::mine().refusedRays, c.refused ? 1u : 0u) << &c - cases;
    }
}

// Seam and poles of the sphere included: its vertices there are several, and lie on each other exactly.
TEST(Geometry, ClosedMeshesDoNotLeakAlongTheirEdges) {
    for (const bool instanced : {false, true}) {
        const MeshData mesh = sphereMesh(24);
        TestWorld world;
        place(world, mesh, instanced, TranslationMatrix(R3(100, 30, 0)));
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

TEST(Geometry, ShadingNormalsAreInterpolatedAndFaceTheRay) {
    struct Case {
        const char* what;
        std::vector<R3> normals;
        std::vector<unsigned> indices;
        R3 expected;  // as seen from above
    };
    const R3 up(0, 0, 1), a(0.6f, 0, 0.8f), b(0, 0.6f, 0.8f), blend = Normalize(0.5f * a + 0.3f * b + 0.2f * up);
    const Case cases[] = {
        {"any length", {5 * a, 5 * b, 5 * up}, {0, 1, 2}, blend},
        {"reversed winding", {a, b, up}, {0, 2, 1}, blend},
        {"inward normals", {-a, -b, -up}, {0, 1, 2}, blend},
        {"normals that cancel", {R3(-0.6f, 0, 0), R3(1, 0, 0), R3()}, {0, 1, 2}, up},
        {"bad normals", {R3(NaN, 0, 1), R3(0, 0, Infinity), R3(0, NaN, 0)}, {0, 1, 2}, up},
    };
    for (const Case& c : cases)
        for (const bool instanced : {false, true}) {
            SCOPED_TRACE(c.what);
            MeshData mesh = triangleMesh();
            mesh.normals = c.normals, mesh.indices = c.indices;
            TestWorld world;
            place(world, std::move(mesh), instanced);
            expectNear(shadingNormal(shoot(world, R3(0.3f, 0.2f, 1), Down)), c.expected);
            expectNear(shadingNormal(shoot(world, R3(0.3f, 0.2f, -1), -Down)), -c.expected);
        }
}

// Flipping would light the rim from the wrong side; a normal that leans away is laid down instead.
TEST(Geometry, SilhouettesKeepTheirNormalsOnTheViewersSide) {
    TestWorld world;
    place(world, sphereMesh(8), false);
    for (unsigned i = 0; i < 1600; ++i) {
        const R3 aim(0.06f * static_cast<float>(i % 40) - 1.2f, 0.06f * static_cast<float>(i / 40) - 1.2f, -10);
        const OxState state = shoot(world, R3(0, 0, 10), Normalize(aim));
        if (state.hit.tri == TRI_NONE) continue;
        R3 position;
        oxsGetHitPosition(&state, position);
        EXPECT_GT(Dot(shadingNormal(state), Normalize(position)), 0.6f);
        EXPECT_LE(Dot(shadingNormal(state), state.ray.direction), 1e-5f);
    }
}

// A sphere above a plane, lit by parallel light: every point of the sphere's lit side has its Lambert value, and the
// other side is dark, however large the model is and wherever it stands.
TEST(Geometry, NoModelIsTooSmallOrTooLargeForItsShadows) {
    using Case = std::pair<float, R3>;  // scale; centre, in units of the scale
    for (const auto& [scale, center] : {Case(1e-3f, {}), Case(1, {}), Case(1e6f, {}), Case(1, {3000, 2000, -1000})}) {
        SCOPED_TRACE(testing::Message() << "scale " << scale << " at " << center.x);
        TestWorld world;
        KelPhongShader& shader = world.phong();
        shader.ambientIntensity = 0.0f;
        shader.m_receiveShadow = 1;
        const Matrix placement = ScaleMatrix(R3(scale, scale, scale)) * TranslationMatrix(center);
        world.add(sphereMesh(96), placement);
        world.add(planeMesh(), placement * TranslationMatrix(R3(0, -1.5f, 0)) * ScaleMatrix(R3(4, 1, 4)));
        const R3 light(-0.6f, -0.8f, 0);
        world.light<OxDirectionalLight>("OxDirectionalLight").direction = light;
        const auto seen = [&](const R3& p, const R3& from) {
            return world.trace(TransformPoint(placement, from), Normalize(p - from)).x;
        };
        for (unsigned i = 0; i < 24 * 11; ++i) {
            const float phi = 0.27f * static_cast<float>(i % 24), z = static_cast<float>(i / 24) / 6.0f - 5.0f / 6.0f;
            const R3 p(std::sqrt(1.0f - z * z) * std::cos(phi), std::sqrt(1.0f - z * z) * std::sin(phi), z);
            SCOPED_TRACE(testing::PrintToString(p));
            const float lambert = -Dot(p, light);
            if (lambert > 0.15f) {
                EXPECT_NEAR(seen(p, 2.5f * p), lambert, 0.02f);
            } else if (lambert < -0.05f && p.y > -0.8f) {
                EXPECT_EQ(seen(p, 1.4f * p), 0.0f);
            }
        }
    }
}

namespace {

// So many triangles in the plane z = 0 about the origin that building their structure takes time.
MeshData gridMesh() {
    MeshData grid;
    constexpr unsigned side = 200;
    for (unsigned i = 0; i <= side; ++i)
        for (unsigned j = 0; j <= side; ++j)
            grid.positions.emplace_back(static_cast<float>(i) - 100.0f, static_cast<float>(j) - 100.0f, 0.0f);
    for (unsigned i = 0; i < side; ++i)
        for (unsigned j = 0; j < side; ++j) {
            const unsigned a = i * (side + 1) + j;
            grid.indices.insert(grid.indices.end(), {a, a + 1, a + side + 2, a, a + side + 2, a + side + 1});
        }
    return grid;
}

float depthOf(TestWorld& world) { return shoot(world, R3(0.3f, 0.2f, 5), R3(0, 0, -1)).hit.dist; }

}  // namespace

TEST(SceneGeometry, ABuildThatIsStoppedCanBeDoneLater) {
    TestWorld world;
    place(world, gridMesh(), true);
    place(world, gridMesh(), false, TranslationMatrix(R3(0, 0, -1)));
    std::atomic<bool> stop{true};
    for (unsigned i = 0; i < 2; ++i)
        EXPECT_THROW(world.geometry.build(SceneGeometry::defaultIsa(), &stop), Interruption);
    stop = false;
    world.geometry.build(SceneGeometry::defaultIsa(), &stop);
    stop = true;  // nobody asks for it any more
    EXPECT_FLOAT_EQ(depthOf(world), 5.0f);
    world.geometry.moveInstance(0, TranslationMatrix(R3(0, 0, 2)));
    world.geometry.build();
    EXPECT_FLOAT_EQ(depthOf(world), 3.0f);
}

// Of what was built as one, what has moved gets a structure of its own, and what is new too.
TEST(SceneGeometry, AChangeThatIsStoppedCanBeDoneLaterOrTakenBack) {
    TestWorld world;
    const unsigned first = place(world, gridMesh(), false);
    place(world, gridMesh(), false, TranslationMatrix(R3(0, 0, -1)));
    world.geometry.build();
    const auto stopped = [&world] {
        const std::atomic<bool> stop{true};
        for (unsigned i = 0; i < 2; ++i)
            EXPECT_THROW(world.geometry.build(SceneGeometry::defaultIsa(), &stop), Interruption);
    };
    world.geometry.moveInstance(first, TranslationMatrix(R3(0, 0, 2)));
    stopped();
    const unsigned added = place(world, gridMesh(), false, TranslationMatrix(R3(0, 0, 3)));
    stopped();
    world.geometry.build();
    EXPECT_FLOAT_EQ(depthOf(world), 2.0f);

    place(world, gridMesh(), true, TranslationMatrix(R3(0, 0, 4)));
    stopped();
    world.geometry.removeInstance(added + 1);
    world.geometry.build();
    EXPECT_FLOAT_EQ(depthOf(world), 2.0f);
    world.geometry.removeInstance(added);
    world.geometry.build();
    EXPECT_FLOAT_EQ(depthOf(world), 3.0f);
}
