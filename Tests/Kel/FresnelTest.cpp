// Fresnel tables, against closed forms.
#include "Shaders/Kel/KelFresnel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

// Fresnel's equations for both polarisations, in angles by the law of refraction.
static double exact(double cosine, double n) {
    const double a = std::acos(cosine), sinB = std::sin(a) / n;
    if (sinB >= 1.0) return 1.0;
    const double ca = std::cos(a), cb = std::cos(std::asin(sinB));
    const double s = (ca - n * cb) / (ca + n * cb), p = (cb - n * ca) / (cb + n * ca);
    return 0.5 * (s * s + p * p);
}

TEST(Fresnel, TablesFollowTheirFormulas) {
    const FesnelTermBufferTyp2 schlick(1.5f);
    const FesnelTermBufferTyp3 power(1.5f, 0.0f, 1.0f, 4.0f), clamped(1.5f, -0.25f, 2.0f, 1.0f);
    for (const float n : {1.0f, 1.1f, 1.5f, 2.5f}) {
        const FesnelTermBufferTyp1 buffer(n);
        for (int inside = 0; inside < 2; ++inside)
            for (int i = 0; i < 1024; ++i) {
                const double c = i / 1024.0;
                EXPECT_NEAR(buffer.fresnelTable[inside][i], exact(c, inside ? 1.0 / n : n), 1e-3) << n << ' ' << i;
                EXPECT_NEAR(schlick.fresnelTable[inside][i], 0.04 + 0.96 * std::pow(1 - c, 5), 1e-5);
                EXPECT_NEAR(power.fresnelTable[inside][i], 1 - c * c * c * c, 1e-5);
                EXPECT_NEAR(clamped.fresnelTable[inside][i], std::fmax(0, std::fmin(1, 1.75 - 2 * c)), 1e-5);
            }
    }
    const FesnelTermBufferTyp1 glass(1.5f);
    EXPECT_NEAR(glass.fresnelTerm(1, 0), 0.04f, 1e-5f);
    const float critical = std::sqrt(1.0f - 1.0f / 2.25f);
    EXPECT_EQ(glass.fresnelTerm(critical - 0.002f, 1), 1.0f);
    EXPECT_LT(glass.fresnelTerm(critical + 0.002f, 1), 0.9f);
    EXPECT_EQ(FesnelTermBufferTyp3(1.5f, std::nanf(""), 1.0f, 1.0f).fresnelTerm(0.5f, 0), 0.0f);
}

TEST(Fresnel, LookUpsClampAndTruncate) {
    FesnelTermBufferTyp2 buffer(1.5f);
    for (int i = 0; i < 2048; ++i) buffer.fresnelTable[i / 1024][i % 1024] = static_cast<float>(i);
    const float inf = std::numeric_limits<float>::infinity(), nan = std::nanf("");
    const float cases[][2] = {{1, 1023},    {2, 1023}, {inf, 1023}, {0.9999f, 1022}, {0.5f, 511},
                              {0.0009f, 0}, {0, 0},    {-0.5f, 0},  {-inf, 0},       {nan, 0}};
    for (const auto& [cosine, entry] : cases) {
        EXPECT_EQ(buffer.fresnelTerm(cosine, 0), entry) << cosine;
        EXPECT_EQ(buffer.fresnelTerm(cosine, 1), 1024 + entry) << cosine;
    }
}

TEST(Fresnel, TablesAreRebuiltOnlyForOtherParameters) {
    FesnelTermBufferTyp1 exactTerms(1.5f);
    exactTerms.fresnelTable[0][1023] = 7.0f;
    exactTerms.setBIndex(1.5f);
    EXPECT_EQ(exactTerms.fresnelTerm(1, 0), 7.0f);
    exactTerms.setBIndex(3.0f);
    EXPECT_NEAR(exactTerms.fresnelTerm(1, 0), 0.25f, 1e-4f);
    EXPECT_FLOAT_EQ(exactTerms.bindex[1], 1.0f / 3.0f);

    // Setting the index alone brings the other parameters back to their defaults.
    const float others[][4] = {{2, 0, 1, 4}, {1.5f, 0.25f, 1, 4}, {1.5f, 0, 0.5f, 4}, {1.5f, 0, 1, 2}};
    for (const auto& p : others) {
        FesnelTermBufferTyp3 power(1.5f, 0.5f, 0.25f, 1.0f);
        power.setBIndex(1.5f);
        EXPECT_NEAR(power.fresnelTerm(1, 0), 4.0f / 1024.0f, 1e-4f);
        power.fresnelTable[0][1023] = 7.0f;
        power.setBIndex(1.5f);
        EXPECT_EQ(power.fresnelTerm(1, 0), 7.0f);
        power.setApproxBIndex(p[0], p[1], p[2], p[3]);
        EXPECT_LT(power.fresnelTerm(1, 0), 1.0f);
    }
}
