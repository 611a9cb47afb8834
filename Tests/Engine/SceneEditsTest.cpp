// Values in the text of a scene file are changed where they stand, and nothing else of it.
#include "Engine/SceneFile/SceneEdits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace oxbeam;

namespace {

const std::string Text = R"(# A scene – with a dash
[image]
width = 40 # wide

[shader]
flat.object = "KelDiffuse" # dotted
flat.color = [1, 0, 0]

[shader."pale blue"]
object = "KelPhong"
diffuseColor = [
  0.5, # red
  0.6, 0.7,
]   # after

  [[light]]
  object = 'KelPointLight'
  intensity = [1, 2, 3]
# about the second
[[light]]
object = "KelSpotLight"

[camera]
close = { fov = 30, position = [0, 0, 1] }

[[model]]
file = "ä.glb"
[model.shader.Steel]
shininess = 3
[[mesh]]
shape = "box")";

std::string replaced(const std::string& what, const std::string& by) {
    std::string text = Text;
    EXPECT_NE(text.find(what), text.npos) << what;
    return text.replace(text.find(what), what.size(), by);
}

}  // namespace

TEST(SceneEdits, AValueIsChangedWhereItStands) {
    using Names = std::vector<std::string>;
    struct Case {
        const char *place, *value;
        Names names;
        std::string expected;
    };
    const Case cases[] = {
        {"image", "64", {"width"}, replaced("40", "64")},
        {"image", "9", {"height"}, replaced("# wide\n", "# wide\nheight = 9\n")},
        {"shader.flat", "[0, 1, 0]", {"color"}, replaced("[1, 0, 0]", "[0, 1, 0]")},
        {"shader.flat", "2", {"other"}, replaced("[1, 0, 0]\n", "[1, 0, 0]\nflat.other = 2\n")},
        {"shader.pale blue",
         "[1, 1, 1]",
         {"diffuse", "diffuseColor"},
         replaced("[\n  0.5, # red\n  0.6, 0.7,\n]", "[1, 1, 1]")},
        {"shader.pale blue", "true", {"wireframe"}, replaced("# after\n", "# after\nwireframe = true\n")},
        {"light.0", "\"OxPointLight\"", {"object"}, replaced("'KelPointLight'", "\"OxPointLight\"")},
        {"light.0", "1", {"samples"}, replaced("[1, 2, 3]\n", "[1, 2, 3]\n  samples = 1\n")},
        {"light.1", "1", {"samples"}, replaced("\"KelSpotLight\"\n", "\"KelSpotLight\"\nsamples = 1\n")},
        {"camera.close", "31", {"fov"}, replaced("30", "31")},
        {"camera.close", "1", {"lens"}, replaced("[0, 0, 1] }", "[0, 0, 1], lens = 1 }")},
        {"model.0.shader.Steel", "4", {"shininess"}, replaced("shininess = 3", "shininess = 4")},
        {"model.0.shader.Old Steel",
         "4",
         {"shininess"},
         replaced("glb\"\n", "glb\"\n\n[model.shader.\"Old Steel\"]\nshininess = 4\n")},
        {"render", "true", {"softShadows"}, Text + "\n\n[render]\nsoftShadows = true\n"},
        {"mesh.0", "2", {"scale"}, Text + "\nscale = 2\n"},
    };
    for (const Case& c : cases) EXPECT_EQ(edited(Text, {c.place, c.names, c.value}), c.expected) << c.place;
}

TEST(SceneEdits, AKeyGoesWithItsLine) {
    EXPECT_EQ(edited(Text, {"image", {"width"}, {}}), replaced("width = 40 # wide\n", ""));
    EXPECT_EQ(edited(Text, {"shader.flat", {"object"}, {}}), replaced("flat.object = \"KelDiffuse\" # dotted\n", ""));
    EXPECT_EQ(edited(Text, {"camera.close", {"fov"}, {}}), replaced("fov = 30, ", ""));
    EXPECT_EQ(edited(Text, {"camera.close", {"position"}, {}}), replaced(", position = [0, 0, 1]", ""));
    EXPECT_EQ(edited(Text, {"image", {"height"}, {}}), Text);
}

TEST(SceneEdits, EntriesComeAndGo) {
    EXPECT_EQ(withEntry(Text, "light"), replaced("KelSpotLight\"\n", "KelSpotLight\"\n\n[[light]]\n"));
    EXPECT_EQ(withEntry("", "light"), "\n[[light]]\n");
    EXPECT_EQ(withoutEntry(Text, "light", 0),
              replaced("  [[light]]\n  object = 'KelPointLight'\n  intensity = [1, 2, 3]\n", ""));
    EXPECT_EQ(withoutEntry(Text, "model", 0),
              replaced("[[model]]\nfile = \"ä.glb\"\n[model.shader.Steel]\nshininess = 3\n", ""));
}

// By what the file says it with.
TEST(SceneEdits, WhatStandsInTheSceneIsMoved) {
    EXPECT_EQ(withTranslation(Text, "mesh.0", {1, 2.5f, -3}),
              replaced("shape = \"box\"", "shape = \"box\"\ntranslate = [1, 2.5, -3]\n"));
    const std::string moved = "[[mesh]]\ntranslate = [0, 1, 0] # up\n",
                      matrix = "mesh = [{ matrix = [1,0,0, 4 ,\n0,1,0,5, # y\n0,0,1,6, 0,0,0,1] }]\n";
    EXPECT_EQ(withTranslation(moved, "mesh.0", {7, 8, 9}), "[[mesh]]\ntranslate = [7, 8, 9] # up\n");
    EXPECT_EQ(withTranslation(matrix, "mesh.0", {7, 8, 9}),
              "mesh = [{ matrix = [1,0,0, 7 ,\n0,1,0,8, # y\n0,0,1,9, 0,0,0,1] }]\n");
    EXPECT_THROW(withTranslation(moved, "mesh.1", {0, 0, 0}), Error);
}

TEST(SceneEdits, WhatCannotBeEditedIsAnError) {
    EXPECT_THROW(edited("a = ", {"image", {"width"}, "1"}), Error);
    EXPECT_THROW(edited(Text, {"light.2", {"samples"}, "1"}), Error);
    EXPECT_THROW(withoutEntry(Text, "light", 2), Error);
    EXPECT_THROW(edited(Text, {"image", {"width"}, "no value"}), Error);
}
