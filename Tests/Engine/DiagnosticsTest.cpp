// Which name is offered for a wrong one.
#include "Engine/Diagnostics/Diagnostics.h"

#include <gtest/gtest.h>

using namespace oxbeam;

TEST(Diagnostics, OfferTheNearestKnownName) {
    const std::vector<std::string> known = {"shininess", "texture", "rd", "transparent", "transparency", "x"};
    const struct {
        const char *unknown, *offered;
    } cases[] = {
        {"shinyness", "shininess"},      // exchanged
        {"shinines", "shininess"},       // left out
        {"txeture", "texture"},          // swapped
        {"TEXTURE", "texture"},          // letter case
        {"transparenc", "transparent"},  // of two equally near the first
        {"emission", ""},                // nothing like it
        {"y", ""},                       // nothing of the name is left
    };
    for (const auto& c : cases) {
        const std::string expected = *c.offered ? std::string("; did you mean '") + c.offered + "'?" : "";
        EXPECT_EQ(didYouMean(c.unknown, known), expected) << c.unknown;
    }
    EXPECT_EQ(didYouMean("shininess", {}), "");
    // Comparing takes time with the square of the length.
    EXPECT_EQ(didYouMean(std::string(10'000'000, 'x'), {std::string(10'000'000, 'x') + "y"}), "");
}
