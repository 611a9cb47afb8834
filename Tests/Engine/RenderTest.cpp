// The frame loop: what a picture depends on, and what it must not depend on.
#include "Engine/Render/Renderer.h"

#include "Engine/Diagnostics/Error.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

using namespace oxbeam::test;

namespace {

// A sphere over a floor in which every kind of chance has its part: lights with an extent and blurred reflections.
std::unique_ptr<TestWorld> randomWorld() {
    auto world = std::make_unique<TestWorld>(R3(0.2f, 0.3f, 0.4f));
    world->ro().m_fuzzyLights = world->ro().m_glossySurfaces = world->ro().m_receiveShadow = 1;
    world->ro().m_numFuzzySamples = 2;
    KelPhongShader& shader = world->phong(R3(0.9f, 0.5f, 0.3f));
    shader.reflectiveColor = R3(0.6f, 0.6f, 0.6f);
    shader.shininess = 3;
    world->add(sphereMesh(24));
    world->addSquare(R3(0, -1, 0), R3(0, 1, 0), 4);
    world->pointLight(R3(2, 3, 2), R3(6, 6, 6)).fuzzyness = 1.5f;
    world->view = View{R3(0, 1, 5), R3(), R3(0, 1, 0)};
    world->image = {70, 50};  // tiles at the right and lower edge are narrower
    return world;
}

// Bit for bit: the number of values that differ, NaN or not.
std::size_t differences(const std::vector<R3>& a, const std::vector<R3>& b) {
    EXPECT_EQ(a.size(), b.size());
    std::size_t count = 0;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) count += std::memcmp(&a[i], &b[i], sizeof(R3)) != 0;
    return count;
}

}  // namespace

TEST(Render, ACropHoldsThePixelsOfTheWholePicture) {
    const auto used = randomWorld();  // whatever went before, and on any number of threads
    used->render(2, 1);
    const std::vector<R3> whole = used->render(48, 2).film.pixels();
    for (const Window& crop : {Window{5, 7, 41, 39}, Window{69, 49, 70, 50}}) {
        const auto part = randomWorld()->render(2, 2, crop);
        std::vector<R3> expected;
        for (unsigned y = crop.y0; y < crop.y1; ++y)
            for (unsigned x = crop.x0; x < crop.x1; ++x) expected.push_back(whole[y * 70 + x]);
        EXPECT_EQ(differences(part.film.pixels(), expected), 0u);
        EXPECT_LT(part.statistics.rays.primary, 70u * 50u * 2u) << "tiles that nobody sees were rendered";
    }
}

TEST(Render, EachThreadIdIsUsedByOneThreadAtATime) {
    constexpr unsigned threads = 5, items = 400;
    Workers workers(threads);
    std::atomic<int> busy[threads] = {};
    std::atomic<unsigned> clashes = 0, calls[items] = {};
    workers.run(items, [&](unsigned thread, unsigned item) {
        ASSERT_LT(thread, threads);
        clashes += busy[thread]++ != 0;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        --busy[thread];
        ++calls[item];
    });
    EXPECT_EQ(clashes, 0u);
    EXPECT_TRUE(std::all_of(std::begin(calls), std::end(calls), [](const auto& n) { return n == 1; }));
    EXPECT_THROW(workers.run(items,
                             [](unsigned, unsigned item) {
                                 if (item == 17) throw Error(ExitStatus::BadScene, "thrown by an item");
                             }),
                 Error);
    EXPECT_THROW(TestWorld().render(49), Error) << "packages keep no more records";
}

TEST(Render, AThreadThatAsksForASecondSessionIsRefused) {
    TestWorld first, second;
    first.session();
    EXPECT_THROW(second.session(), std::logic_error);
}

TEST(Render, BadSamplesAreBlackAndCounted) {
    for (const float bad : {std::nanf(""), RayInfinity}) {
        TestWorld world(White);
        world.faceTheCards(40, 30);
        world.glowing(R3(0, bad, 0));
        world.addSquare(R3(0.5f, 0, 0), R3(0, 0, 1), 0.5f);  // of 15 by 15 pixels to the right of the centre
        const RenderResult result = world.render(2, 1);
        const std::vector<R3> pixels = result.film.pixels();
        const auto black = std::count(pixels.begin(), pixels.end(), Black);
        EXPECT_NEAR(static_cast<double>(black), 15 * 15, 16);
        EXPECT_EQ(std::count(pixels.begin(), pixels.end(), White), 40 * 30 - black);
        EXPECT_EQ(result.statistics.badSamples, static_cast<std::uint64_t>(black));
        EXPECT_EQ(pixels[15 * 40 + 27], Black);
    }
}
