// Shadow rays that are traced before they are asked for: they are those that are asked for, and change no picture.
#include "Engine/Render/ShadowsAhead.h"
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxPerspectiveCamera.h"
#include "Oxbeam/OxPointLight.h"
#include "Oxbeam/OxShader.h"
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Shaders/Kel/KelSpotLight.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <utility>

using namespace oxbeam::test;

// Balls in the air over a floor, which mirrors them.
struct Balls : TestWorld {
    explicit Balls(const std::string& surface = "KelPhong") : TestWorld(R3(0.25f, 0.5f, 1)) {
        image = {57, 41};
        view = View{R3(0, 2, 5), R3(0, 0.5f, 0), R3(0, 1, 0)};
        ro().m_receiveShadow = 1;
        shader(surface);
        add(sphereMesh(32), TranslationMatrix(R3(-0.7f, 1, 0)));
        add(sphereMesh(32), TranslationMatrix(R3(1, 1.5f, -1)) * ScaleMatrix(R3(1, 0.5f, 0.7f)));
        phong().reflectiveColor = R3(0.3f, 0.3f, 0.3f);
        addSquare(R3(), R3(0, 1, 0), 8);
    }

    void lamp(const std::string& name) {
        if (name == "KelPointLight") steadyLight(R3(2, 5, 3));
        if (name == "KelDirectionalLight") light<KelDirectionalLight>(name).direction = R3(-0.5f, -1, -0.3f);
        if (name == "KelSpotLight") {
            auto& spot = light<KelSpotLight>(name);
            spot.position = R3(-2, 6, 2), spot.direction = R3(0.3f, -1, -0.3f);
            spot.minAngle = 0.3f, spot.maxAngle = 0.6f;
        }
    }
};

static unsigned sum(const auto& numbers) { return std::accumulate(numbers.begin(), numbers.end(), 0u); }

// A tile in the middle of the picture, by itself.
struct Tile {
    ShadowsAhead::Traced traced{};
    unsigned asked = 0, differing = 0;
    bool any = false;

    explicit Tile(TestWorld& world) {
        Session& session = world.session();
        const ShadowsAhead ahead(session);
        any = ahead.any();
        if (!any) return;
        const PixelBlocks blocks(static_cast<const OxPerspectiveCamera&>(*world.camera), session);
        ThreadRecord& record = ThreadRecord::mine();
        record = {};
        world.renderingObject->initTile(0, 0);
        const Window window{16, 16, 32, 31};  // with a last row that has no second
        PixelBlocks::Rows rows, again;
        ShadowsAhead::Answers answers;
        for (unsigned y = window.y0; y < window.y1; ++y) {
            if (y % 2 == 0) {
                blocks.shoot({0.5f, 0.5f}, window, y, rows);
                again = rows;
                ahead.trace(rows, window.width(), std::min(window.y1 - y, 2u), traced, answers);
            }
            for (unsigned i = 0; i < window.width(); ++i) {
                record.shadows = &answers[y % 2][i];
                const R3 color = shade(session, rows[y % 2][i]);
                record.shadows = nullptr;
                differing += color != shade(session, again[y % 2][i]);
            }
        }
        asked = sum(record.shadowsAsked);
    }

    static R3 shade(Session& session, OxState& state) {
        session.attachRecord(state, 0, 0);
        return Session::shade(state);
    }
};

TEST(ShadowsAhead, AreThoseThatSurfacesAskForAndGiveTheSameColours) {
    const std::vector<std::string> lamps = {"KelPointLight", "KelDirectionalLight", "KelSpotLight"};
    for (const char* surface : {"KelPhong", "KelFresnelPhong"})
        for (const std::string& lamp : lamps) {
            Balls world(surface);
            world.lamp(lamp);
            const Tile tile(world);
            EXPECT_GT(tile.traced[0], 100u) << surface << ' ' << lamp;
            EXPECT_GT(tile.asked, 0.95 * tile.traced[0]) << surface << ' ' << lamp;
            EXPECT_EQ(tile.differing, 0u) << surface << ' ' << lamp;
        }
    Balls world;
    for (const std::string& lamp : lamps) world.lamp(lamp);
    const Tile tile(world);
    EXPECT_GT(tile.asked, 0.95 * sum(tile.traced));
    EXPECT_EQ(tile.differing, 0u);
}

TEST(ShadowsAhead, AreNotTracedWhereNobodyWouldAskForThem) {
    const std::pair<const char*, std::function<void(Balls&)>> cases[] = {
        {"no shadows", [](Balls& world) { world.ro().m_receiveShadow = 0; }},
        {"jittered", [](Balls& world) { world.ro().m_softShadows = 1; }},
        {"lights with an extent", [](Balls& world) { world.ro().m_fuzzyLights = 1; }},
        {"what lets light through asks for the nearest hit",
         [](Balls& world) {
             world.phong().transparentColor = White;
             world.addSquare(R3(0, 3, 0), R3(0, 1, 0), 1);
         }},
        {"no lights", [](Balls& world) { world.lights.clear(); }}};
    for (const auto& [what, change] : cases) {
        Balls world;
        world.lamp("KelPointLight");
        change(world);
        EXPECT_FALSE(Tile(world).any) << what;
    }
    Balls world;  // of which nobody knows but the light itself
    world.lamp("KelPointLight");
    static_cast<KelPointLight&>(*world.lights[0]).castShadow = 0;
    const Tile tile(world);
    EXPECT_LE(tile.traced[0], 32u) << "after two rows nobody has asked";
    EXPECT_EQ(tile.differing, 0u);
}

// A surface that says what is not so: its rays start where it is hit.
struct Mistaken : OxShader {
    void NewFrame() override {
        oxsBlockLight(this, typeid(Mistaken));
        oxsExpectShadowRays(this, typeid(Mistaken), 0.125f);
    }
    Oxvoid Shade(OxState* state) override {
        R3 point;
        oxsGetHitPosition(state, point);
        OxState shadow;
        oxsInitState(state, &shadow);
        oxsIlluminate(OxContext::current->lights[0], &shadow, point, &shadow, nullptr);
        oxsSetRayVisibility(&shadow, RAY_SHADOW);
        bool blocks = false;
        oxsReturnColor(state, oxsShootShadowRay(&shadow, blocks) ? Black : White);
    }
};

TEST(ShadowsAhead, WhatIsSaidWronglyChangesNothing) {
    Balls world;
    world.light<OxPointLight>("OxPointLight").position = R3(2, 5, 6);
    world.own<Mistaken>();
    world.addSquare(R3(0, 1, 3), R3(0, 0, 1), 4);  // before all others
    const Tile tile(world);
    EXPECT_EQ(tile.differing, 0u);
    EXPECT_EQ(tile.traced[0], 32u);
    EXPECT_EQ(tile.asked, 0u);
}

// Rays by themselves, and primary rays too.
struct OneByOne : Intersector {
    explicit OneByOne(Intersector& kernel_) : kernel(kernel_) {}
    bool Intersect(OxState& state) override { return kernel.Intersect(state); }
    bool Intersect4(OxState4& state) override { return kernel.Intersect4(state); }
    void Occluded4(OxState4& state) override { kernel.Occluded4(state); }
    Intersector& kernel;
};

TEST(ShadowsAhead, PicturesAreThoseOfSingleRaysOnEveryProcessor) {
    for (const char* isa : {"sse2", "sse4.2", "avx"}) {
        const auto picture = [&](bool single) {
            Balls world;
            for (const char* lamp : {"KelPointLight", "KelDirectionalLight", "KelSpotLight"}) world.lamp(lamp);
            Workers workers(2);
            workers.within([&] { world.geometry.build(isa); });
            OneByOne intersector(world.geometry.intersector());
            RenderOptions options;
            options.samples = 2;
            if (single) options.intersector = &intersector;
            return render(world, workers, options).film.pixels();
        };
        EXPECT_TRUE(picture(false) == picture(true)) << isa;
    }
}
