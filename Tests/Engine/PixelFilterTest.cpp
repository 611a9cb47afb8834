// Places of samples against what their filters are.
#include "Engine/World/PixelFilter.h"

#include "Engine/Render/Renderer.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

using namespace oxbeam::test;

namespace {

// The filters themselves, over [-1/2, 1/2] of their width.
double gaussian(double t) { return std::exp(-0.5 * 36.0 * t * t); }

double blackmanHarris(double t) {
    const double a = 2.0 * std::numbers::pi * (t + 0.5);
    return 0.35875 - 0.48829 * std::cos(a) + 0.14128 * std::cos(2 * a) - 0.01168 * std::cos(3 * a);
}

// Mean of t^power by weight, with Simpson's rule.
double moment(const std::function<double(double)>& filter, int power) {
    constexpr int steps = 2000;
    double sum = 0.0, weights = 0.0;
    for (int i = 0; i <= steps; ++i) {
        const double t = static_cast<double>(i) / steps - 0.5;
        const double weight = (i == 0 || i == steps ? 1.0 : i % 2 ? 4.0 : 2.0) * filter(t);
        sum += weight * std::pow(t, power);
        weights += weight;
    }
    return sum / weights;
}

}  // namespace

TEST(PixelFilter, PlacesHaveTheMomentsOfTheFilter) {
    const struct {
        PixelFilter filter;
        std::function<double(double)> density;
    } cases[] = {{{PixelFilter::Box, 2.5f}, [](double) { return 1.0; }},
                 {{PixelFilter::Gaussian, 3.0f}, gaussian},
                 {{PixelFilter::Gaussian, 1.2f}, gaussian},
                 {{PixelFilter::BlackmanHarris, 3.0f}, blackmanHarris}};
    for (const auto& c : cases) {
        const auto width = static_cast<double>(c.filter.width);
        constexpr unsigned passes = 20000;
        double means[5] = {}, alongY = 0.0, both = 0.0;
        for (unsigned pass = 0; pass < passes; ++pass) {
            const R2 place = c.filter.place(samplePlace(pass));
            const double x = (static_cast<double>(place.x) - 0.5) / width,
                         y = (static_cast<double>(place.y) - 0.5) / width;
            ASSERT_LE(std::max(std::fabs(x), std::fabs(y)), 0.5001);
            for (int power = 1; power < 5; ++power) means[power] += std::pow(x, power) / passes;
            alongY += y * y / passes;
            both += x * y / passes;
        }
        SCOPED_TRACE(pixelFilterNames()[c.filter.kind]);
        const R2 first = c.filter.place(samplePlace(0));
        EXPECT_TRUE(first.x == 0.5f && first.y == 0.5f);
        for (int power = 1; power < 5; ++power) EXPECT_NEAR(means[power], moment(c.density, power), 2e-4);
        EXPECT_NEAR(alongY, moment(c.density, 2), 2e-4);
        EXPECT_NEAR(both, 0.0, 2e-4);
    }
}

// A bright half plane: pixels along its edge show the filter's distribution.
TEST(PixelFilter, AnEdgeIsAsSoftAsTheFilter) {
    const auto rowAcrossTheEdge = [](const PixelFilter& filter, std::optional<Window> crop) {
        TestWorld world;
        world.faceTheCards(8, 2);
        world.filter = filter;
        world.glowing(White);
        world.addSquare(R3(100, 0, 0), R3(0, 0, 1), 100);  // the right half
        return world.render(1, 400, crop).film.pixels();
    };
    const PixelFilter wide{PixelFilter::Gaussian, 3.0f};
    const auto pixels = rowAcrossTheEdge(wide, {});
    for (unsigned x = 0; x < 8; ++x) {
        const double deviations = (x + 0.5 - 4.0) / 0.5;
        EXPECT_NEAR(pixels[x].x, 0.5 + 0.5 * std::erf(deviations / std::numbers::sqrt2), 0.01) << x;
    }
    EXPECT_EQ(rowAcrossTheEdge({}, {})[3].x, 0.0f);
    EXPECT_EQ(rowAcrossTheEdge(wide, Window{3, 0, 5, 1})[0], pixels[3]);
}
