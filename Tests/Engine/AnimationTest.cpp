// Values over time, the node animations of models, and views that go round.
#include "Tests/Support/Gltf.h"

#include "Engine/World/Turntable.h"

#include <cmath>

using namespace oxbeam::test;

namespace {

using Numbers = std::vector<double>;

MATCHER_P2(IsNear, expected, tolerance, "") {
    if (arg.size() != expected.size()) return false;
    for (std::size_t i = 0; i < arg.size(); ++i)
        if (!(std::fabs(arg[i] - expected[i]) <= tolerance)) return false;
    return true;
}

Curve curve(ValueSpace space, Interpolation how, const Numbers& times, const std::vector<Numbers>& values) {
    return {space, how, times, values};
}

const double Half = std::sqrt(0.5);

// A scene with a light, a camera, a ball, a box placed by a matrix and a ground.
const std::string Stage =
    "[camera]\nposition = [0, 1, 5]\nlookAt = [0, 0, 0]\n[shader.a]\nobject = \"KelPhong\"\n"
    "[[light]]\nobject = \"KelDirectionalLight\"\ndirection = [0, -1, 0]\n"
    "[[mesh]]\nshape = \"sphere\"\nshader = \"a\"\nsegments = 8\n"
    "[[mesh]]\nshape = \"box\"\nshader = \"a\"\n"
    "matrix = [1, 0, 0, 3, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]\n"
    "[[mesh]]\nshape = \"ground\"\nshader = \"a\"\n";

// The table begins at line 20.
std::string animated(const std::string& target, const std::string& values, const std::string& more = "") {
    return Stage + "[[animation]]\ntarget = \"" + target + "\"\ntimes = [1, 2]\nvalues = " + values + "\n" + more;
}

R3 r3(const ParameterValue& value) {
    R3 v;
    const auto& list = std::get<std::vector<ParameterValue::Number>>(value.data);
    for (unsigned i = 0; i < 3; ++i)
        v[i] = static_cast<float>(std::visit([](auto n) { return static_cast<double>(n); }, list.at(i)));
    return v;
}

}  // namespace

TEST(Animation, CurvesGoThroughTheirKeysAndHoldOutside) {
    using enum Interpolation;
    const std::vector<Numbers> values = {{0.0}, {4.0}, {4.0}, {2.0}};
    for (const Interpolation how : {Step, Linear, Smooth, In, Out}) {
        const Curve c = curve(ValueSpace::Numbers, how, {1.0, 2.0, 4.0, 5.0}, values);
        for (const auto& [time, value] :
             std::vector<std::pair<double, double>>{{-3, 0}, {1, 0}, {2, 4}, {4, 4}, {5, 2}, {9, 2}})
            EXPECT_THAT(c.at(time), ElementsAre(value));
        // None goes beyond its keys, where a spline would swing.
        for (double t = 0.0; t < 6.0; t += 0.01) {
            EXPECT_GE(c.at(t)[0], 0.0);
            EXPECT_LE(c.at(t)[0], 4.0);
        }
    }
    const auto quarter = [&](Interpolation how) {
        return curve(ValueSpace::Numbers, how, {0.0, 1.0}, {{0.0}, {16.0}}).at(0.25);
    };
    EXPECT_THAT(quarter(Step), ElementsAre(0.0));
    EXPECT_THAT(quarter(Linear), ElementsAre(4.0));
    EXPECT_THAT(quarter(Smooth), ElementsAre(2.5));
    EXPECT_THAT(quarter(In), ElementsAre(1.0));
    EXPECT_THAT(quarter(Out), ElementsAre(7.0));
    // No corner where keys are, and no rest either.
    const Curve s = curve(ValueSpace::Numbers, Smooth, {0.0, 1.0, 3.0}, {{0.0}, {1.0}, {5.0}});
    const double before = (s.at(1.0)[0] - s.at(1.0 - 1e-6)[0]) / 1e-6,
                 after = (s.at(1.0 + 1e-6)[0] - s.at(1.0)[0]) / 1e-6;
    EXPECT_NEAR(before, after, 1e-4);
    EXPECT_GT(before, 0.5);
}

TEST(Animation, DirectionsGoAlongTheSphereAndRotationsTheShorterWay) {
    const auto direction = [](const Numbers& a, const Numbers& b, double t) {
        return curve(ValueSpace::Directions, Interpolation::Linear, {0.0, 1.0}, {a, b}).at(t);
    };
    EXPECT_THAT(direction({1, 0, 0}, {0, 1, 0}, 0.5), IsNear(Numbers{Half, Half, 0}, 1e-12));
    EXPECT_THAT(direction({1, 0, 0}, {0, 1, 0}, 1.0 / 3.0), IsNear(Numbers{std::sqrt(0.75), 0.5, 0}, 1e-12));
    EXPECT_THAT(direction({2, 0, 0}, {0, 4, 0}, 0.5), IsNear(Numbers{3 * Half, 3 * Half, 0}, 1e-12));
    const Numbers opposite = direction({1, 0, 0}, {-1, 0, 0}, 0.5);
    EXPECT_NEAR(opposite[0], 0.0, 1e-12);
    EXPECT_NEAR(std::hypot(opposite[1], opposite[2]), 1.0, 1e-12);

    const auto rotation = [](const Numbers& a, const Numbers& b, double t) {
        return curve(ValueSpace::Rotations, Interpolation::Linear, {0.0, 1.0}, {a, b}).at(t);
    };
    EXPECT_THAT(rotation({0, 0, 0}, {0, 720, 0}, 0.25), ElementsAre(0.0, 180.0, 0.0));
    // A third of a turn about the diagonal takes x to y and y to z: at half of it, the angles of a sixth of a turn.
    const Numbers sixth = rotation({0, 0, 0}, {90, 0, 90}, 0.5);
    double angles[3] = {sixth[0], sixth[1], sixth[2]};
    const Quaternion q = quaternionOf(angles);
    EXPECT_NEAR(q.w, std::cos(3.14159265358979 / 6.0), 1e-9);
    EXPECT_NEAR(q.x, q.z, 1e-9);
    // And at the end the rotation that the scene file's angles make.
    const Numbers end = rotation({0, 0, 0}, {10, 20, 30}, 1.0 - 1e-12);
    EXPECT_THAT(end, IsNear(Numbers{10, 20, 30}, 1e-6));
}

TEST(Animation, AWorldIsAsItsTracksSay) {
    const auto at = [](const std::string& text, double seconds) {
        LoadedScene loaded = loadText(text);
        EXPECT_THAT(loaded.said, IsEmpty());
        loaded.world->animation.show(*loaded.world, 7.5);  // whatever was there before
        loaded.world->animation.show(*loaded.world, seconds);
        return std::move(loaded.world);
    };
    const auto light = at(animated("light.0.direction", "[[0, -1, 0], [1, 0, 0]]"), 1.5);
    const R3 direction = r3(light->places.get("light.0.direction"));
    EXPECT_NEAR(direction.x, Half, 1e-6);
    EXPECT_NEAR(direction.y, -Half, 1e-6);
    const auto camera = at(animated("camera.position", "[[0, 1, 5], [0, 1, 9]]"), 1.25);
    EXPECT_EQ(camera->view->position, R3(0, 1, 6));
    EXPECT_EQ(camera->view->lookAt, R3(0, 0, 0));
    EXPECT_EQ(at(animated("camera.fov", "[20, 60]"), 1.75)->fov, 50.0f);
    const auto ball = at(animated("mesh.0.translate", "[[0, 0, 0], [8, 0, 0]]"), 1.25);
    EXPECT_EQ(ball->placements.at("mesh.0").toWorld, TranslationMatrix(R3(2, 0, 0)));
    EXPECT_EQ(at(animated("mesh.0.scale", "[1, [1, 3, 1]]"), 1.5)->placements.at("mesh.0").toWorld,
              ScaleMatrix(R3(1, 2, 1)));
    const auto whole = [&](double seconds) {
        const auto world = at(animated("render.recursionLimit", "[1, 4]"), seconds);
        return std::get<std::int64_t>(world->places.get("render.recursionLimit").data);
    };
    EXPECT_EQ(whole(1.1), 1);
    EXPECT_EQ(whole(1.2), 2);
    const auto soft = [&](double seconds) {
        const auto world = at(animated("render.softShadows", "[false, true]"), seconds);
        return std::get<bool>(world->places.get("render.softShadows").data);
    };
    EXPECT_FALSE(soft(1.99));
    EXPECT_TRUE(soft(2.0));
}

TEST(Animation, MistakesAreToldWithTheirPlaces) {
    const std::string at = "scene.toml:";
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {animated("ligth.0.direction", "[1, 2]"),
              "21:10: error: animation 0: there is no 'ligth.0.direction' to animate; "
              "did you mean 'light.0.direction'?"},
             {animated("light.0.direction", "[[0, 1, 0], [1, 0]]"), "23:22: error: "},
             {animated("camera.fov", "[40, 200]"),
              "23:15: error: animation 0: 'fov' must lie between 0 and 180 degrees"},
             {animated("camera.position", "[1, 2]"), "23:11: error: animation 0: 'position' is "},
             {animated("mesh.1.rotate", "[[0, 0, 0], [1, 1, 1]]"),
              "21:10: error: animation 0: mesh 1 is placed by a 'matrix'"},
             {animated("mesh.2.translate", "[[0, 0, 0], [1, 1, 1]]"),
              "21:10: error: animation 0: mesh 2 is without end"},
             {animated("camera.fov", "[1, 2, 3]"), "23:10: error: animation 0: has 2 'times' and 3 'values'"},
             {animated("camera.fov", "[1, 2]", "interpolation = \"smoth\"\n"),
              "24:17: error: animation 0: 'interpolation' is the "
              "text 'smoth'; expected one of step, linear, smooth"},
             {animated("camera.fov", "[1, 2]", "[[animation]]\ntarget = \"camera.fov\"\ntimes = [0]\nvalues = [1]\n"),
              "25:10: error: animation 1: 'camera.fov' is animated twice"},
             {Stage + "[[animation]]\ntarget = \"camera.fov\"\ntimes = [1, 1]\nvalues = [1, 2]\n",
              "22:13: error: animation 0: 'times' must each be later than the one before"}}) {
        SCOPED_TRACE(message);
        EXPECT_THAT(loadText(text).said, Contains(StartsWith(at + message)));
    }
}

// What stands still is as if nothing moved beside it, and bounds follow what moves.
TEST(Animation, WhatMovesIsMovableFromTheStart) {
    SceneFileOptions options;
    options.changeable = false;
    LoadedScene loaded =
        loadFile(writeFile("scene.toml", animated("mesh.0.translate", "[[0, 0, 0], [8, 0, 0]]")), options);
    World& world = *loaded.world;
    world.geometry.build();
    EXPECT_TRUE(world.geometry.structure().twoLevels);
    const Bounds before = world.geometry.bounds();
    world.animation.show(world, 2.0);
    world.geometry.build();
    EXPECT_NEAR(world.geometry.bounds().upper.x - before.upper.x, 5.0f, 1e-5f);  // beyond the box at 4
    EXPECT_THROW(world.placements.move("mesh.1", {}), BadValue);
}

TEST(Animation, NodesOfAGltfMove) {
    writeMovingGltf("slide.gltf");
    const Model model = loadModel(scratch() / "slide.gltf");
    ASSERT_EQ(model.clips.size(), 1u);
    EXPECT_EQ(model.clips[0].name, "slide");
    EXPECT_EQ(model.clips[0].seconds, 2.0f);

    const std::string scene =
        "[shader.a]\nobject = \"KelPhong\"\n[[mesh]]\nfile = \"slide.gltf\"\nshader = \"a\"\n"
        "translate = [0, 1, 0]\n";
    LoadedScene loaded = loadText(scene + "clip = \"slide\"\n");
    EXPECT_THAT(loaded.said, IsEmpty());
    World& world = *loaded.world;
    EXPECT_EQ(world.animation.span()->second, 2.0);
    world.animation.show(world, 2.0);
    world.geometry.build();
    const Instance& instance = *world.geometry.scene().instances[0];
    const R3 corner = TransformPoint(instance.meshToWorldXfm, R3(1, 0, 0));  // turned to y, moved by 4, and up by 1
    EXPECT_NEAR(corner.x, 4.0f, 1e-5f);
    EXPECT_NEAR(corner.y, 2.0f, 1e-5f);
    world.animation.show(world, 1.0);
    world.geometry.build();
    EXPECT_NEAR(TransformPoint(instance.meshToWorldXfm, R3(0, 0, 0)).x, 2.0f, 1e-5f);

    EXPECT_THAT(loadText(scene + "clip = \"slid\"\n").said,
                Contains(HasSubstr("mesh 0: its file has no clip 'slid'; did you mean 'slide'?; there are 0 'slide'")));
    SceneFileOptions options;
    options.clip = "1";
    EXPECT_THAT(loadFile(writeFile("scene.toml", scene), options).said,
                Contains("--clip 1: error: no model of the scene has this clip; there are 0 'slide'"));
    options.clip = "0";
    EXPECT_FALSE(loadFile(scratch() / "scene.toml", options).world->animation.empty());

    std::string text = contentOf("slide.gltf");
    const std::string straight = "\"output\": 5}";
    text.replace(text.find(straight), straight.size(), "\"output\": 5, \"interpolation\": \"STEP\"}");
    writeFile("slide.gltf", text);
    EXPECT_THAT(loadText(scene).said, IsEmpty()) << "of what is not played";
    EXPECT_THAT(loadText(scene + "clip = \"slide\"\n").said,
                ElementsAre(HasSubstr("warning: mesh 0: in its file, the clip 'slide' goes between keys by steps or "
                                      "splines (STEP, CUBICSPLINE); it is played straight")));
}

// Every corner of what is looked at stays in the picture; what is around the eye does not count.
TEST(Animation, ATurntableHasEverythingInThePictureAllTheWayRound) {
    for (const std::string up : {"[0, 1, 0]", "[0, 0, 1]"}) {
        SCOPED_TRACE(up);
        const LoadedScene loaded =
            loadText("[camera]\nposition = [6, 4, 3]\nlookAt = [0, 1, 0]\nlookUp = " + up +
                     "\n[shader.a]\nobject = \"KelPhong\"\n"
                     "[[mesh]]\nshape = \"box\"\nshader = \"a\"\nscale = [4, 0.2, 1]\ntranslate = [1, 1, 2]\n"
                     "[[mesh]]\nshape = \"box\"\nshader = \"a\"\nscale = [0.2, 2, 0.3]\n"
                     "[[mesh]]\nshape = \"sphere\"\nshader = \"a\"\nscale = 90\n");
        World& world = *loaded.world;
        world.image = {120, 90};
        const Turntable table(world);
        const R2 window = world.imageWindow();
        Bounds box = world.geometry.instanceBounds(0), other = world.geometry.instanceBounds(1);
        float nearest = 1e9f;
        for (int i = 0; i < 16; ++i) {
            const View view = table.at(i / 16.0);
            const R3 f = Normalize(view.lookAt - view.position), r = Normalize(Cross(f, view.lookUp)), u = Cross(r, f);
            for (const Bounds& b : {box, other})
                for (unsigned corner = 0; corner < 8; ++corner) {
                    const R3 d = R3(corner & 1 ? b.upper.x : b.lower.x, corner & 2 ? b.upper.y : b.lower.y,
                                    corner & 4 ? b.upper.z : b.lower.z) -
                                 view.position;
                    const float depth = Dot(d, f);
                    ASSERT_GT(depth, 0.0f);
                    nearest = std::min(nearest, 1.0f - std::max(std::fabs(Dot(d, r)) / (depth * window.x),
                                                                std::fabs(Dot(d, u)) / (depth * window.y)));
                }
        }
        EXPECT_GT(nearest, 0.1f);  // with a margin,
        EXPECT_LT(nearest, 0.2f);  // and no more
    }
}
