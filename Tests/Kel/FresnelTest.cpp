// Fresnel tables, against closed forms.
#include "Shaders/Kel/KelFresnel.h"

#include <gtest/gtest.h>

#include <cmath>

// Fresnel's equations for both polarisations, in angles by the law of refraction.
static double exact(double cosine, double n) {
    const double sinB = std::sqrt(1.0 - cosine * cosine) / n, cosB = std::sqrt(1.0 - sinB * sinB);
    if (sinB >= 1.0) return 1.0;
    const double s = (cosine - n * cosB) / (cosine + n * cosB), p = (cosB - n * cosine) / (cosB + n * cosine);
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
    EXPECT_EQ(FesnelTermBufferTyp1(1.5f).fresnelTable[1][762], 1.0f) << "total reflection below a cosine of 0.7454";
    EXPECT_EQ(FesnelTermBufferTyp3(1.5f, std::nanf(""), 1.0f, 1.0f).fresnelTerm(0.5f, 0), 0.0f);
}

TEST(Fresnel, LookUpsClampAndTruncate) {
    FesnelTermBufferTyp2 buffer(1.5f);
    for (int i = 0; i < 2048; ++i) buffer.fresnelTable[i / 1024][i % 1024] = static_cast<float>(i);
    const float cases[][2] = {{1, 1023}, {INFINITY, 1023}, {0.9999f, 1022}, {0.5f, 511}, {-0.5f, 0}, {NAN, 0}};
    for (const auto& [cosine, entry] : cases)
        for (int inside = 0; inside < 2; ++inside)
            EXPECT_EQ(buffer.fresnelTerm(cosine, inside), 1024.0f * static_cast<float>(inside) + entry) << cosine;
}
