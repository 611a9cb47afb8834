// How values get into objects whose parameters say more or less about themselves.
#include "Engine/Packages/ParameterValue.h"
#include "Tests/Support/SceneText.h"

#include <cstring>

using namespace oxbeam::test;

static const Registry& strangers() {
    static const Registry& all = []() -> const Registry& {
        auto* made = new Registry;
        made->loadPackage(KEL_LIBRARY);
        made->loadPackage(std::string(TEST_PACKAGES) + "/libStranger.so");
        return *made;
    }();
    return all;
}

// A scene with one object, whose third line sets one of its parameters, and two textures: "oak", 0, and "wood", 1.
static LoadedScene set(const std::string& object, const std::string& line) {
    makePicture();
    return loadText("[shader.s]\nobject = '" + object + "'\n" + line +
                        "\n[texture.oak]\nfile = 'wood.png'\n[texture.wood]\nfile = 'wood.png'\n",
                    {}, strangers());
}

using Member = std::variant<Oxint, float, bool, R3, std::array<Oxint, 2>>;

static void expectHolds(const World& world, const ObjectClass& object, const std::string& parameter,
                        const Member& expected) {
    const ParameterDeclaration* p = object.find(parameter);
    ASSERT_TRUE(p) << parameter;
    const auto* bytes = reinterpret_cast<const std::byte*>(world.shaders.at(0)) + p->offset;
    std::visit(
        [&](const auto& value) {
            ASSERT_EQ(sizeof value, static_cast<std::size_t>(p->size)) << parameter;
            EXPECT_EQ(std::memcmp(bytes, &value, sizeof value), 0)
                << parameter << " holds " << describeValue(*p, bytes);
        },
        expected);
}

TEST(Parameters, TakeTheTypeOfTheirDefaultOrTheirDocument) {
    const struct {
        const char *object, *line;
        Member holds;
        const char* said;  // without the place
    } cases[] = {
        {"StrangerBare", "count = 7", 7, ""},
        {"StrangerBare", "gain = 2", 2.0f, ""},
        {"StrangerBare", "lit = 0", false, ""},
        {"StrangerBare", "tint = [0, 0.5, 2]", R3(0.0f, 0.5f, 2.0f), ""},
        {"StrangerBare", "picture = 'wood'", 1, ""},
        {"StrangerBare", "blank = 3", 3,
         "note: parameter 'blank' of shader 's' (StrangerBare) does not say whether it is an integer or a real "
         "number; taken as an integer, as it is written"},
        {"StrangerBare", "blank = true", 1, ""},
        {"StrangerPaint", "layers = 9", 9,
         "warning: parameter 'layers' of shader 's' (StrangerPaint) is 9, outside its bounds 0 to 8"},
        {"StrangerPaint", "coat = 'glossy'", 1, ""},
        {"StrangerPaint", "age = 2", 2.0f, ""},
        {"StrangerPaint", "cells = [4, -5]", std::array{4, -5}, ""},
        {"StrangerPaint", "decal = 'wood'", 1, ""},
        {"StrangerPaint", "shade = [0.5, 1, 1.5]", R3(0.5f, 1.0f, 1.5f),
         "warning: parameter 'shade' of shader 's' (StrangerPaint) is 1.5, outside its bounds 0 to 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        const LoadedScene scene = set(c.object, c.line);
        const std::string line = c.line, name = line.substr(0, line.find(' '));
        if (*c.said)
            EXPECT_THAT(scene.said, ElementsAre("scene.toml:3:" + std::to_string(name.size() + 4) + ": " + c.said));
        else
            EXPECT_THAT(scene.said, IsEmpty());
        expectHolds(*scene.world, *strangers().find(c.object), name, c.holds);
    }
}

TEST(Parameters, RefuseValuesOfAnotherKindAndKeepTheirDefaults) {
    const struct {
        const char *object, *line, *said;
    } cases[] = {
        {"StrangerBare", "count = 1.5", "is the number 1.5; expected an integer"},
        {"StrangerBare", "count = 3000000000", "is 3000000000; expected a number within 2.14748e+09"},
        {"StrangerBare", "gain = 1979-05-27",
         "is a date or time; expected true or false, a number, a text or a list of numbers"},
        {"StrangerBare", "lit = 2", "is the integer 2; expected true or false"},
        {"StrangerBare", "tint = [1, 1]", "is a list of 2 numbers; expected a list of 3 numbers"},
        {"StrangerBare", "tint = [1, nan, 1]", "is nan; expected a number within 3.40282e+38"},
        {"StrangerBare", "tint = [1, '1', 1]",
         "is a list of 3; expected true or false, a number, a text or a list of numbers"},
        {"StrangerBare", "picture = 'woood'", "names texture 'woood', which is not defined; did you mean 'wood'?"},
        {"StrangerPaint", "coat = 'shiny'", "is the text 'shiny'; expected 0 or 'matte', 1 or 'glossy'"},
        {"StrangerPaint", "decal = 0", "is the integer 0; expected the name of a texture"},
    };
    const LoadedScene untouched[] = {set("StrangerBare", ""), set("StrangerPaint", "")};
    for (const auto& c : cases) {
        const LoadedScene scene = set(c.object, c.line);
        const std::string line = c.line, name = line.substr(0, line.find(' '));
        const bool bare = std::string(c.object) == "StrangerBare";
        EXPECT_THAT(scene.said, ElementsAre("scene.toml:3:" + std::to_string(name.size() + 4) + ": error: parameter '" +
                                            name + "' of shader 's' (" + c.object + ") " + c.said));
        for (const ParameterDeclaration& p : strangers().find(c.object)->parameters)
            EXPECT_EQ(std::memcmp(reinterpret_cast<std::byte*>(scene.world->shaders[0]) + p.offset,
                                  reinterpret_cast<std::byte*>(untouched[!bare].world->shaders[0]) + p.offset,
                                  static_cast<std::size_t>(p.size)),
                      0)
                << line << " changed " << p.id;
    }
}

TEST(Parameters, KnownToTheDocumentAloneAreErrors) {
    EXPECT_THAT(set("StrangerPaint", "nowhere = 1").said,
                ElementsAre("scene.toml:3:1: error: shader 's' (StrangerPaint) has no parameter 'nowhere'"));
}
