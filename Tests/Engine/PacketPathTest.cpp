// Frames rendered with packets of rays: what takes part, and what is done ray by ray as if there were none.
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

using namespace oxbeam::test;

// Two balls on a floor, each of a shader of its own, in a picture with odd sides.
struct Balls : TestWorld {
    explicit Balls(const char* left, const char* floor = "KelDiffuse", const char* lamp = "KelDirectionalLight")
        : TestWorld(R3(0.25f, 0.5f, 1)) {
        image = {57, 41};
        view = View{R3(0, 2, 5), R3(0, 0.5f, 0), R3(0, 1, 0)};
        light(lamp);
        shader(left);
        add(sphereMesh(32), TranslationMatrix(R3(-0.7f, 1, 0)));
        shader("KelPhongEyeLight");
        add(sphereMesh(32), TranslationMatrix(R3(1, 1, 0)));
        shader(floor);
        addSquare(R3(), R3(0, 1, 0), 8);
    }

    RenderResult packets(unsigned threads = 1) { return render(threads, 2, {}, true); }
};

static std::vector<R3> pixels(const RenderResult& result) { return result.film.pixels(); }

TEST(PacketPath, OnlyWhatShadesPacketsDiffersFromSingleRays) {
    const auto single = pixels(Balls("KelPhong").render(1, 2)), four = pixels(Balls("KelPhong").packets());
    // The same, with a ball that shows up in no other colour.
    const auto marked = pixels(Balls("KelDbgObjectID").render(1, 2)), plain = pixels(Balls("KelDiffuse").render(1, 2));
    unsigned onBall = 0, differ = 0;
    for (unsigned i = 0; i < single.size(); ++i) {
        const bool ball = marked[i] != plain[i], differs = four[i] != single[i];
        EXPECT_TRUE(ball || !differs) << i % 57 << ", " << i / 57;
        onBall += ball;
        differ += differs;
    }
    EXPECT_GT(onBall, 100u);
    EXPECT_GT(differ, onBall / 2);
}

TEST(PacketPath, ThePictureDoesNotDependOnTheThreads) {
    EXPECT_TRUE(pixels(Balls("KelPhong", "KelPhong").packets(1)) == pixels(Balls("KelPhong", "KelPhong").packets(3)));
}

TEST(PacketPath, WithoutAnythingToGainItIsThePictureOfSingleRays) {
    const struct {
        const char *left, *lamp, *camera, *why;
    } cases[] = {
        // Shaders that only inherit the packet form of a simpler one would come out as that.
        {"KelCarPaint", "KelDirectionalLight", nullptr, "no shader of the scene shades more than single rays"},
        {"KelPhong", "KelPointLight", nullptr, "a light of the scene answers single rays only"},
        {"KelPhong", "KelDirectionalLight", "KelDOFCamera", "the camera makes single rays only"},
    };
    for (const auto& c : cases) {
        Balls a(c.left, "KelDiffuse", c.lamp), b(c.left, "KelDiffuse", c.lamp);
        if (c.camera)
            for (Balls* world : {&a, &b}) world->setCamera(*registry().find(c.camera));
        const RenderResult four = a.packets();
        EXPECT_EQ(four.statistics.packetsRefused, c.why);
        EXPECT_TRUE(pixels(four) == pixels(b.render(1, 2))) << c.why;
    }
}
