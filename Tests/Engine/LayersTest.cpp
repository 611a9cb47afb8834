// What layers tell of a hit, and what surfaces are told of it again: the bits of a hit that is looked at by itself.
#include "Engine/Host/KnownHit.h"
#include "Engine/Host/Texels.h"
#include "Engine/Render/Aovs.h"
#include "Engine/Render/PixelBlocks.h"
#include "Oxbeam/OxPerspectiveCamera.h"
#include "Tests/Support/Probe.h"

#include <cstring>
#include <functional>

using namespace oxbeam::test;

namespace {

// Asks about its hit, and about others in the same state.
struct Wanderer : OxShader {
    Oxuint texture = 0;

    R3 told(const OxState& state) const {
        R3 normal, color = White;
        oxsFindShadingNormal(&state, normal);
        oxsApplyTexture(&state, texture, color);
        return 0.5f * (normal + White) + color;
    }
    Oxvoid Shade(OxState* state) override {
        R3 sum = told(*state);
        state->ray.direction = -state->ray.direction;
        sum += 2.0f * told(*state);
        state->ray.direction = -state->ray.direction;
        std::swap(state->hit.u, state->hit.v);
        sum += 4.0f * told(*state);
        oxsReturnColor(state, sum);
    }
};

// Balls before a card, with gaps between them: textures, vertex colours, stretched placements, and a camera of choice.
struct Gallery : TestWorld {
    explicit Gallery(bool wandering = false) : TestWorld(R3(0.25f, 0.5f, 1)) {
        faceTheCards(53, 37);
        steadyLight(R3(2, 3, 4));
        const auto id = textures.add(painted(16, 16, [](float s, float t) { return R3(s, t, 0.5f); }));
        auto coloured = painted(8, 8, [](float s, float t) { return R3(t, 1, s); });
        coloured->withVertexColors = true;
        const auto colouredId = textures.add(std::move(coloured));
        phong(R3(0.5f, 0.7f, 1)).texture = static_cast<Oxint>(id);
        add(sphereMesh(24), TranslationMatrix(R3(-0.8f, 0.3f, 0.2f)) * ScaleMatrix(R3(0.4f, 0.6f, 0.3f)));
        if (wandering)
            own<Wanderer>().texture = static_cast<Oxuint>(colouredId);
        else
            phong().texture = static_cast<Oxint>(colouredId);
        MeshData ball = sphereMesh(24);
        for (const R3& p : ball.positions) ball.colors.push_back(0.5f * (p + White));
        add(std::move(ball), ScaleMatrix(R3(0.5f, 0.5f, 0.5f)));
        phong(R3(1, 0.5f, 0.25f));
        addSquare(R3(0.9f, -0.2f, -1), R3(0, 0, 1), 0.8f);
    }
};

bool same(const AovSample& a, const AovSample& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

TEST(Layers, ARowTellsWhatEachOfItTellsAlone) {
    Gallery world;
    const Session& session = world.session();
    const PixelBlocks blocks(static_cast<const OxPerspectiveCamera&>(*world.camera), session);
    const AovSampler sampler(world);
    unsigned hits = 0, textured = 0;
    for (unsigned y = 0; y < 37; y += 2)
        for (unsigned x = 0; x < 53; x += 16) {
            const Window tile{x, y & ~15u, std::min(x + 16, 53u), std::min((y & ~15u) + 16, 37u)};
            PixelBlocks::Rows rows;
            blocks.shoot({0.3f, 0.6f}, tile, y, rows);
            std::array<AovSample, 16> row;
            std::array<KnownHit, 16> known;
            sampler.sample(std::span(rows[0]).first(tile.width()), row.data(), known.data());
            for (unsigned i = 0; i < tile.width(); ++i) {
                const OxState& state = rows[0][i];
                AovSample alone;
                KnownHit knownAlone;
                sampler.sample(state, alone, knownAlone);
                EXPECT_TRUE(same(row[i], alone)) << x + i << ' ' << y;
                if (state.hit.tri < 0) continue;
                ++hits;
                EXPECT_TRUE(known[i].knows(state));
                EXPECT_EQ(known[i].normal, shadingNormal(state));
                if (!known[i].texture) continue;
                ++textured;
                EXPECT_EQ(known[i].texel.rgb(), texelAt(state, *known[i].texture).rgb());
            }
        }
    EXPECT_GT(textured, 100u);
    EXPECT_GT(hits, textured + 20);
}

TEST(Layers, AHitIsKnownAsLongAsNothingOfItIsAnother) {
    Gallery world;
    const OxState state = world.hit(R3(0, 0, 4), R3(0.01f, 0.02f, -1));
    const GeometryObject* other = OxContext::current->scene->objects[0];
    const Instance* otherInstance = OxContext::current->scene->instances[0];
    const std::pair<const char*, std::function<void(OxState&)>> changes[] = {
        {"triangle", [](OxState& s) { ++s.hit.tri; }},
        {"u", [](OxState& s) { s.hit.u += 0.125f; }},
        {"v", [](OxState& s) { s.hit.v += 0.125f; }},
        {"geometric normal", [](OxState& s) { s.hit.normal.z = -s.hit.normal.z; }},
        {"direction", [](OxState& s) { s.ray.direction.y = -0.02f; }},
        {"object", [&](OxState& s) { s.object = other; }},
        {"instance", [&](OxState& s) { s.instance = otherInstance; }}};
    KnownHit known;
    known.noteHit(state);
    EXPECT_TRUE(known.knows(state));
    OxState moved = state;
    moved.ray.origin = R3(1, 2, 3);
    moved.ray.depth = 2;
    EXPECT_TRUE(known.knows(moved)) << "surfaces put the origin elsewhere";
    for (const auto& [what, change] : changes) {
        OxState changed = state;
        change(changed);
        EXPECT_FALSE(known.knows(changed)) << what;
    }
}

TEST(Layers, LeaveThePictureAsItIsWhateverASurfaceAsks) {
    for (const bool wandering : {false, true})
        for (const bool packets : {false, true})
            for (const bool lens : {false, true}) {
                const auto picture = [&](bool layers) {
                    Gallery world(wandering);
                    if (lens) world.setCamera(*registry().find("KelDOFCamera"));
                    RenderOptions options;
                    options.samples = 2;
                    options.packets = packets;
                    options.aovs = layers;
                    return renderWorld(world, options).film.pixels();
                };
                EXPECT_TRUE(picture(true) == picture(false)) << wandering << packets << lens;
            }
}
