// From light to what a display shows.
#include "Engine/Output/Dither.h"
#include "Engine/World/Tone.h"
#include "Tests/Support/Probe.h"

#include <algorithm>

using namespace oxbeam::test;

namespace {

R3 under(ToneCurve curve, const R3& light) { return toned(light, {0.0f, curve}); }

float grey(ToneCurve curve, float light) {
    const R3 shown = under(curve, light * White);
    EXPECT_TRUE(shown.x == shown.y && shown.y == shown.z) << light;
    return shown.x;
}

}  // namespace

TEST(Display, CurvesHaveTheValuesOfTheirFormulas) {
    const struct {
        ToneCurve curve;
        R3 light, shown;
    } cases[] = {
        // (2.51 + 0.03) / (2.43 + 0.59 + 0.14), and for middle grey
        {ToneCurve::Filmic, R3(1, 0, 0.18f), R3(0.803797f, 0, 0.266897f)},
        // The least of a colour less its square times 6.25 goes; what is left below 0.76 stays.
        {ToneCurve::Neutral, R3(0.5f, 0.3f, 0.0f), R3(0.5f, 0.3f, 0.0f)},
        {ToneCurve::Neutral, R3(0.5f, 0.3f, 0.04f), R3(0.47f, 0.27f, 0.01f)},
        {ToneCurve::Neutral, R3(0.8f, 0.4f, 0.2f), R3(0.76f, 0.36f, 0.16f)},
        // The peak of 0.96 becomes 1 - 0.24^2 / (0.96 - 0.52).
        {ToneCurve::Neutral, White, R3(0.869091f, 0.869091f, 0.869091f)},
        // From a peak of 4: 1 - 0.24^2 / 3.48 = 0.983448, of which 0.311524 is white.
        {ToneCurve::Neutral, R3(4, 0, 0), R3(0.983448f, 0.306367f, 0.306367f)},
    };
    for (const auto& c : cases) expectNear(under(c.curve, c.light), c.shown, 2e-6f);
}

TEST(Display, CurvesGrowFromBlackToWhiteAndTakeAnyLight) {
    for (const ToneCurve curve : {ToneCurve::Filmic, ToneCurve::Neutral}) {
        EXPECT_EQ(grey(curve, 0.0f), 0.0f);
        float last = 0.0f;
        for (float light = 1e-5f; light < 1e8f; light *= 1.05f) {
            const float shown = grey(curve, light);
            ASSERT_GE(shown, last) << light;
            ASSERT_LE(shown, 1.0f) << light;
            ASSERT_TRUE(shown > last || light < 1e-3f || light > 6.0f) << light;
            last = shown;
        }
        EXPECT_NEAR(last, 1.0f, 1e-4f);
        expectNear(under(curve, R3(std::nanf(""), -3, -RayInfinity)), Black);
        expectNear(under(curve, RayInfinity * White), White, 1e-4f);
    }
}

// Of any value's neighbours as many are taken as make up the value, in every part of the picture and not in clumps.
TEST(Display, DitheringKeepsTheMeanEverywhereAndLeavesIntegersAlone) {
    constexpr unsigned side = 16;
    for (const unsigned x0 : {0u, 1000u, 65000u})
        for (const float value : {12.1f, 0.25f, 100.5f, 254.9f}) {
            unsigned sum = 0;
            for (unsigned y = 0; y < side; ++y)
                for (unsigned x = 0; x < side; ++x) {
                    const unsigned taken = dithered(value, ditherThreshold(x0 + x, 7 * x0 + y));
                    ASSERT_LT(std::fabs(static_cast<float>(taken) - value), 1.0f);
                    sum += taken;
                }
            EXPECT_NEAR(static_cast<float>(sum) / (side * side), value, 0.02f) << "at " << x0;
        }
    for (unsigned x = 0; x < 1000; ++x)
        for (const float value : {0.0f, 1.0f, 127.9999f, 128.0001f, 255.0f})
            ASSERT_EQ(dithered(value, ditherThreshold(x, 3 * x)), static_cast<unsigned>(std::round(value)));
}
