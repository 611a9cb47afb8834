// Alpha: how much of a pixel the scene covers, by scenes of which that can be worked out.
#include "Engine/Render/Matte.h"

#include "Engine/Host/ShadowCatcher.h"
#include "Shaders/Kel/KelEnvironment.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam::test;

namespace {

// Pixels of side 1/10 at z = 0, before a bright backdrop that must not show.
struct CardWorld : TestWorld {
    explicit CardWorld(const R3& background = R3(5, 6, 7)) : TestWorld(background) {
        faceTheCards(20, 20);
        ro().m_transparentAccuracy = 0.001f;
    }

    KelPhongShader& card(const R3& color, const R3& center = {}, float halfSide = 100.0f) {
        KelPhongShader& made = glowing(color);
        addSquare(center, R3(0, 0, 1), halfSide);
        return made;
    }
    RenderResult matte(unsigned samples = 1, std::optional<Window> crop = {}) {
        RenderOptions options;
        options.samples = samples;
        options.crop = crop;
        options.alpha = true;
        return renderWorld(*this, options);
    }
};

}  // namespace

TEST(Matte, StraightRaysThroughSurfacesLetTheBackdropThrough) {
    const R3 ahead(0, 0, 1), glow(0.1f, 0, 0);
    const struct {
        const char* what;
        std::function<void(CardWorld&)> add;
        R3 color;
        float alpha;
    } cases[] = {
        {"nothing", [](CardWorld&) {}, Black, 0.0f},
        {"an opaque card", [&](CardWorld& w) { w.card(R3(1, 2, 3)); }, R3(1, 2, 3), 1},
        {"a tinted pane", [&](CardWorld& w) { w.card(glow).transparentColor = R3(0.2f, 0.4f, 0.9f); }, glow, 0.5f},
        {"two panes",
         [&](CardWorld& w) {
             w.card(glow).transparentColor = 0.5f * White;
             w.addSquare(-ahead, ahead);
         },
         1.5f * glow, 0.75f},
        {"a card behind a pane",
         [&](CardWorld& w) {
             w.card(Black).transparentColor = 0.25f * White;
             w.card(White, -ahead);
         },
         0.25f * White, 1},
        {"the hole of a wireframe", [&](CardWorld& w) { w.card(White, R3(30, 0, 0)).m_wireframe = 1; }, Black, 0},
        // The backdrop behind a mirror's back is hidden; what the mirror shows is a colour of its own.
        {"a mirror", [&](CardWorld& w) { w.card(Black).reflectiveColor = 0.5f * White; }, R3(2.5f, 3, 3.5f), 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CardWorld world;
        c.add(world);
        const Film film = world.matte().film;
        expectNear(film.pixels()[5 * 20 + 7], c.color);
        EXPECT_NEAR(film.alpha(5 * 20 + 7), c.alpha, 1e-5f);
    }
}

TEST(Matte, EdgesAreSmoothAndCropsHoldTheSame) {
    const auto card = [](std::optional<Window> crop) {
        CardWorld world;
        world.card(White, R3(0.43f, 0, 0), 0.4f);  // its left edge at 0.03: 30% into the pixel
        return world.matte(200, crop).film;
    };
    const Film whole = card({});
    EXPECT_NEAR(whole.alpha(10 * 20 + 10), 0.7f, 0.01f);
    EXPECT_EQ(whole.alpha(10 * 20 + 9), 0.0f);
    EXPECT_EQ(whole.alpha(10 * 20 + 11), 1.0f);
    EXPECT_NEAR(whole.pixels()[10 * 20 + 10].x, 0.7f, 0.01f);
    const Film part = card(Window{9, 10, 12, 11});
    for (unsigned x = 0; x < 3; ++x) {
        EXPECT_EQ(part.alpha(x), whole.alpha(10 * 20 + 9 + x));
        EXPECT_EQ(part.pixels()[x], whole.pixels()[10 * 20 + 9 + x]);
    }
}

// What is random is the same in both shadings: blurred reflections beside what is seen through give no noise.
TEST(Matte, ChanceDoesNotMakeAlphaNoisy) {
    CardWorld world(Black);
    world.ro().m_glossySurfaces = 1;
    KelPhongShader& pane = world.card(Black);
    pane.transparentColor = pane.reflectiveColor = 0.5f * White;
    pane.shininess = 1;
    world.card(20 * White, R3(1, 0, 3), 1);  // behind the eye
    const Film film = world.matte(2).film;
    for (unsigned i = 0; i < 400; ++i) ASSERT_NEAR(film.alpha(i), 0.5f, 1e-5f);
    const std::vector<R3> pixels = film.pixels();
    const auto [least, most] =
        std::minmax_element(pixels.begin(), pixels.end(), [](const R3& a, const R3& b) { return a.x < b.x; });
    EXPECT_GT(most->x, least->x + 1.0f) << "chance played no part";
}

// The shadow of a card on the plane: black, as dense as the environment is darker there than it would be.
TEST(Matte, AShadowOnTheShadowPlaneIsAlpha) {
    CardWorld plain, world;
    for (CardWorld* w : {&plain, &world}) {
        auto& surroundings = w->surroundings<KelEnvironmentShader>("KelEnvironment");
        surroundings.textureid = w->textures.add(painted(1, 1, [](float, float) { return 0.5f * White; }));
        surroundings.m_receiveShadow = 1;
        surroundings.shadowPlaneOrigin = R3(0, -1, 0);
        w->steadyLight(R3(0, 10, -2), 2 * White);
        w->glowing(Black);
        w->addSquare(R3(0, 1, -2), R3(0, 1, 0), 1, RAY_SHADOW);
    }
    const Film film = world.matte().film;
    const std::vector<R3> dark = plain.render().film.pixels();
    unsigned shadowed = 0;
    for (std::size_t i = 0; i < dark.size(); ++i) {
        ASSERT_EQ(film.pixels()[i], Black);
        ASSERT_NEAR(film.alpha(i), 1.0f - dark[i].x / 0.5f, 1e-5f) << i;
        shadowed += film.alpha(i) > 0.3f;
    }
    EXPECT_GT(shadowed, 5u);
    EXPECT_LT(shadowed, 200u);
}

// Of a catcher that lets three quarters of the backdrop be seen in the square's shadow, and of nothing else.
TEST(Matte, AShadowOnACatcherIsAlpha) {
    CardWorld world;
    world.phong();
    world.addSquare(R3(0, 0, 0.5f), R3(0, 0, 1), 0.25f, RAY_SHADOW);
    world.shader<ShadowCatcher>("OxShadowCatcher").shadowIntensity = 0.25f;
    world.addSquare(R3(), R3(0, 0, 1), 100.0f, RAY_PRIMARY);
    world.steadyLight(R3(0, 0, 1e6f));
    const RenderResult result = world.matte();
    const auto at = [&](unsigned x, unsigned y) { return std::size_t{y} * 20 + x; };
    EXPECT_EQ(result.film.alphaSums()[at(10, 10)], 0.25f);
    EXPECT_EQ(result.film.alphaSums()[at(2, 2)], 0.0f);
    for (const R3& color : result.film.pixels()) EXPECT_EQ(color, Black);
}
