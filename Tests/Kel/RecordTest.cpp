// The package's records of rays: who owns the random numbers, where they start, and what a primary ray begins with.
#include "Engine/Host/ThreadRecord.h"
#include "Oxbeam/OxState.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <set>

using namespace oxbeam;
using namespace oxbeam::test;

TEST(Record, OnlyTheOwnerDeletesTheSampler) {
    int first = 0, second = 0;
    {
        KelRay owner(new ScriptedSampler({0.5f}, &first)), other(new ScriptedSampler({0.5f}, &second));
        {
            const KelRay copy(owner);
            KelRay assigned;
            assigned = copy;
            EXPECT_EQ(assigned.getSample(0), 0.5f);
        }
        EXPECT_EQ(first, 0);
        const KelRay& same = owner;
        owner = same;
        other = owner;
        EXPECT_EQ(second, 1) << "an assigned record lets go of its former sampler";
    }
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
}

TEST(Record, EveryThreadHasOneOfItsOwn) {
    TestWorld world;
    KelRenderingObject& ro = world.ro();
    for (KelRay& record : ro.m_rays) {
        EXPECT_EQ(record.m_ro, &ro);
        EXPECT_EQ(record.sampler, nullptr);
        EXPECT_EQ(record.getSample(0), 0.0f) << "nothing to draw from before the first tile";
    }
    ro.initTile(47, 0);
    EXPECT_EQ(ro.m_rays[46].sampler, nullptr);
    const OxSampler* made = ro.m_rays[47].sampler;
    ro.initTile(47, 1);
    EXPECT_EQ(ro.m_rays[47].sampler, made) << "one sampler for all tiles of a thread";
}

static std::vector<float> draws(KelRenderingObject& ro, unsigned thread, unsigned pass, unsigned tile) {
    ThreadRecord::mine().sampleIndex = pass;
    ro.initTile(thread, tile);
    std::vector<float> numbers;
    for (int i = 0; i < 8; ++i) numbers.push_back(ro.m_rays[thread].getSample(i % 2));
    ThreadRecord::mine().sampleIndex = 0;
    return numbers;
}

TEST(Record, RandomNumbersBelongToPassAndTileNotToTheThread) {
    TestWorld world;
    KelRenderingObject& ro = world.ro();
    ro.m_tilesPerFrame = 12;
    std::set<std::vector<float>> sequences;
    for (unsigned pass = 0; pass < 3; ++pass)
        for (unsigned tile = 0; tile < 12; ++tile) {
            const std::vector<float> numbers = draws(ro, tile % 5, pass, tile);
            sequences.insert(numbers);
            EXPECT_EQ(numbers, draws(ro, 47 - tile, pass, tile));
            for (float number : numbers) EXPECT_TRUE(number >= 0.0f && number < 1.0f) << number;
        }
    EXPECT_EQ(sequences.size(), 36u);
}

TEST(Record, APrimaryRayStartsOutsideWithItsWholeWeight) {
    TestWorld world;
    KelRenderingObject& ro = world.ro();
    const OxSampler& sampler = script(ro, {0.5f}, nullptr, 7);
    KelRay& record = ro.m_rays[7];
    record.depth = 4;
    record.insideFlag = 1;
    record.opacity = 0.1f;
    record.pattern = 6;
    ro.m_rays[8].depth = 4;
    OxState state;
    ro.initRay(state, 99, 7);
    EXPECT_EQ(state.ray.privatePtr, &record);
    EXPECT_EQ(record.depth, 0u);
    EXPECT_EQ(record.insideFlag, 0u);
    EXPECT_EQ(record.opacity, 1.0f);
    EXPECT_EQ(record.pattern, 6u);
    EXPECT_EQ(record.sampler, &sampler);
    EXPECT_EQ(ro.m_rays[8].depth, 4u);

    ISSERay4 ray4;
    OxState4 packet;
    packet.ray4 = &ray4;
    ray4.privatePtr = &state;
    ro.initRay4(packet, 0, 7);
    EXPECT_EQ(ray4.privatePtr, &state) << "packets carry no record";
}
