// How messages read, in which order they come, and which name is offered for a wrong one.
#include "Engine/Diagnostics/Diagnostics.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace oxbeam;

TEST(Diagnostics, ComeInTheOrderOfTheirPlacesAndAreCounted) {
    Diagnostics d;
    d.warning({"b.toml", 2, 7}, "third");
    d.note({"b.toml", 10, 1}, "last");
    d.error({"b.toml", 2, 7}, "after the third, as it was said");
    d.error({"b.toml", 0, 0}, "about the file");
    d.error({}, "about nothing in particular");
    std::ostringstream out;
    d.print(out);
    EXPECT_EQ(out.str(),
              "error: about nothing in particular\n"
              "b.toml: error: about the file\n"
              "b.toml:2:7: warning: third\n"
              "b.toml:2:7: error: after the third, as it was said\n"
              "b.toml:10:1: note: last\n");
    EXPECT_EQ(d.errors(), 3u);
}

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
