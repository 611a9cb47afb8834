// The viewer as a process, without a display: what scripts do in it, what it writes, and what it says.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

using namespace oxbeam::test;

namespace {

class Viewing : public Command {
protected:
    void SetUp() override {
        Command::SetUp();
        fs::create_directory(scratch() / "packages");
    }
    // By SDL's driver of that name: "offscreen" has OpenGL, "dummy" none.
    static Outcome view(const std::string& script, const std::string& arguments = "scene.toml",
                        const std::string& driver = "dummy") {
        writeFile("script", script);
        return shell("unset DISPLAY WAYLAND_DISPLAY; export XDG_STATE_HOME=$PWD/state; SDL_VIDEODRIVER=" + driver +
                     " timeout 60 $oxbeam --package-path packages view " + arguments + " --script script");
    }
    static void expectDone(const std::string& script, const std::string& arguments = "scene.toml",
                           const std::string& driver = "dummy") {
        const Outcome outcome = view(script, arguments, driver);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
    }
    static void rendered(const std::string& scene, const std::string& picture, const std::string& more = "") {
        const Outcome outcome = run("render " + scene + " -o " + picture + " --samples 3 " + more);
        ASSERT_EQ(outcome.status, 0) << outcome.err;
    }
};

const std::string Picture = "wait done\npicture view.exr\nwait message \"wrote view.exr\"\n";

// Lines of one text that the other does not have.
std::vector<std::string> newLines(const std::string& before, const std::string& after) {
    std::multiset<std::string> old;
    std::istringstream b(before), a(after);
    for (std::string line; std::getline(b, line);) old.insert(line);
    std::vector<std::string> lines;
    for (std::string line; std::getline(a, line);)
        if (const auto found = old.find(line); found != old.end())
            old.erase(found);
        else
            lines.push_back(line);
    return lines;
}

}  // namespace

TEST_F(Viewing, WhereNothingMovesThePictureIsThatOfRender) {
    rendered("scene.toml", "rendered.exr");
    for (const char* driver : {"dummy", "offscreen"}) {
        expectDone("wait loaded\nexpect display " +
                       std::string(driver[0] == 'd' ? "\"SDL renderer\"" : "\"OpenGL 3\"") + "\n" + Picture +
                       "screenshot window.png",
                   "scene.toml --samples 3", driver);
        expectSame("rendered.exr", "view.exr");
        EXPECT_EQ(picture("window.png").spec().width, 1280);
    }
    rendered("scene.toml", "large.exr", "--size 300x200");
    expectDone(Picture, "scene.toml --samples 3 --size 300x200");
    expectSame("large.exr", "view.exr");
}

TEST_F(Viewing, WhatIsChangedIsSavedWhereItStands) {
    const std::string before = contentOf("scene.toml");
    expectDone(
        "wait done\nclick 20 14\nexpect picked sphere\nexpect shader shader.body\n"
        "search shininess\nslide shader.body.shininess 0.5\nexpect dirty yes\n" +
            Picture + "key ctrl+s\nexpect dirty no\n",
        "scene.toml --samples 3");
    EXPECT_THAT(newLines(before, contentOf("scene.toml")), ElementsAre(StartsWith("shininess = ")));
    rendered("scene.toml", "rendered.exr");
    expectSame("rendered.exr", "view.exr");
}

// Each way of moving changes the view alone, and what is saved of it gives the picture that was seen.
TEST_F(Viewing, MovesAreSavedAsTheCamerasView) {
    const std::string before = contentOf("scene.toml");
    for (const std::string move :
         {"drag left 10 10 30 20", "drag middle 10 10 14 12", "drag right 10 10 12 9", "wheel 2", "hold w 0.2", "key 3",
          "key f", "key 4\ndrag left 10 10 12 15", "doubleclick 20 14\ndrag left 10 10 30 20"}) {
        SCOPED_TRACE(move);
        expectDone("wait done\nmove 5 5\n" + move + "\n" + Picture + "expect dirty no\nsave moved.toml",
                   "scene.toml --samples 3");
        for (const std::string& line : newLines(before, contentOf("moved.toml")))
            EXPECT_THAT(line,
                        AnyOf(StartsWith("position"), StartsWith("lookAt"), StartsWith("lookUp"), "[camera]", ""));
        rendered("moved.toml", "rendered.exr");
        expectSame("rendered.exr", "view.exr");
    }
}

TEST_F(Viewing, UndoneToTheStartThePictureIsThatOfTheStart) {
    rendered("scene.toml", "rendered.exr");
    const std::string undo = "key ctrl+z\n", changes = R"(
        set shader.body.shininess 7
        set shader.body.diffuseColor [0.1,0.2,0.9]
        reset shader.body.diffuseColor
        class shader.body KelDiffuse
        light KelDirectionalLight
        set light.1.direction [0,-1,0]
        class light.0 OxPointLight
        delete light.0
        set render.recursionLimit 1
    )";
    std::string undone, redone;
    for (int i = 0; i < 9; ++i) undone += undo, redone += "key ctrl+shift+z\n";
    expectDone("wait done\n" + changes + undone + "expect dirty no\n" + Picture, "scene.toml --samples 3");
    expectSame("rendered.exr", "view.exr");
    // And done again, they are those of the scene with all of them.
    expectDone("wait done\n" + changes + undone + redone + Picture + "save changed.toml", "scene.toml --samples 3");
    rendered("changed.toml", "rendered.exr");
    expectSame("rendered.exr", "view.exr");
}

TEST_F(Viewing, ADragIsOneStepAndTheDefaultComesBack) {
    expectDone(
        "wait done\nsearch ambientIntensity\nwait seconds 0.2\nexpect set shader.body.ambientIntensity no\n"
        "slide shader.body.ambientIntensity 0.9\nexpect set shader.body.ambientIntensity yes\n"
        "back shader.body.ambientIntensity\nexpect set shader.body.ambientIntensity no\n"
        "key ctrl+z\nexpect set shader.body.ambientIntensity yes\n"
        "key ctrl+z\nexpect set shader.body.ambientIntensity no\nexpect dirty no\n");
}

// What is declared to be one; and a number of which nothing is said, which may be another as well, as it is written.
TEST_F(Viewing, SwitchesAreSwitched) {
    const std::string before = contentOf("scene.toml");
    expectDone(
        "wait done\nsearch softShadows\nwait seconds 0.2\nslide render.softShadows 0.5\n"
        "expect value render.softShadows true\nslide render.softShadows 0.5\nexpect value render.softShadows false\n"
        "search receiveShadow\nwait seconds 0.2\nslide shader.body.receiveShadow 0.05\n"
        "expect value shader.body.receiveShadow true\nslide shader.body.receiveShadow 0.05\n"
        "search castShadow\nwait seconds 0.2\nslide light.0.castShadow 0.05\nexpect value light.0.castShadow 0\n"
        "search wireframe\nwait seconds 0.2\nslide shader.body.wireframe 0.6\ntype 0.5\nkey return\n"
        "expect value shader.body.wireframe 0.5\nkey ctrl+s\n");
    EXPECT_THAT(
        newLines(before, contentOf("scene.toml")),
        UnorderedElementsAre("softShadows = false", "receiveShadow = false", "castShadow = 0", "wireframe = 0.5"));
}

TEST_F(Viewing, TheCommandLineRendersJustThis) {
    expectDone("wait done\nset shader.body.shininess 7\nset light.0.intensity [9,8,7]\ndrag left 10 10 30 20\nkey .\n" +
                   Picture + "key ctrl+c\nexpect clipboard \" render scene.toml\"\n",
               "scene.toml --samples 3");
    const std::string said = picture("view.exr").spec().get_string_attribute("oxbeam:command");
    ASSERT_THAT(
        said,
        StartsWith("oxbeam --package-path packages render scene.toml -o view.exr --size 40x30 --samples 3 --set "));
    fs::rename(scratch() / "view.exr", scratch() / "seen.exr");
    const Outcome outcome = shell("$" + said);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    expectSame("seen.exr", "view.exr");
}

TEST_F(Viewing, AModelIsSavedAsAScene) {
    fs::copy_file(SCENES "/assets/suzanne.glb", scratch() / "head.glb");
    expectDone("wait done\nset light.0.intensity [1,2,3]\n" + Picture + "save head.toml\nexpect dirty no\n",
               "head.glb --size 48x32 --samples 3 --view front --ground none --shader KelPhong");
    rendered("head.toml", "rendered.exr");
    expectSame("rendered.exr", "view.exr");
}

TEST_F(Viewing, LooksChangeWhatIsShownAndNotTheFilm) {
    rendered("scene.toml", "rendered.exr");
    expectDone(
        "wait done\nexpect pixel 0 0 0 0 0 0\nkey l\nexpect layer depth\nkey l\nkey l\nkey l\nexpect layer object\n"
        "wait seconds 0.3\nexpect pixel 0 0 0 0 0 0\nkey l\nexpect layer color\n"
        "key .\nkey .\nkey .\nkey t\nexpect dirty yes\nkey z\nkey h\nkey F1\nkey F2\nkey g\nkey tab\n" +
            Picture,
        "scene.toml --samples 3");
    expectSame("rendered.exr", "view.exr");
}

TEST_F(Viewing, ALensIsFocusedWhereOneClicks) {
    writeFile("lens.toml", SceneText +
                               "\n[camera.lens]\nobject = \"KelDOFCamera\"\nposition = [0, 1, 5]\nlookAt = [0, "
                               "0.5, 0]\n# on it\nfocus = [0, 0, 0]\nlensRadius = 0.01\n");
    expectDone("wait done\nclick 20 14 shift\nexpect dirty yes\n" + Picture + "key ctrl+s\n",
               "lens.toml --samples 3 --camera lens");
    EXPECT_THAT(contentOf("lens.toml"), AllOf(Not(HasSubstr("focus =")), HasSubstr("# on it\n")));
    rendered("lens.toml", "rendered.exr", "--camera lens");
    expectSame("rendered.exr", "view.exr");
}

// A machine that is busy with much else needs more than the second that it is to take.
const std::string Soon = Sanitized ? "timeout 40\n" : "timeout 4\n";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
    return text;
}

// Camera and changes stay; a scene that is broken leaves what is shown; what is undone is as the file has it now.
TEST_F(Viewing, AChangedSceneIsLoadedAgain) {
    const std::string object = "object = \"KelPhong\"\n";
    writeFile("one.toml", replaced(SceneText, object, object + "shininess = 5\n"));
    writeFile("broken.toml", replaced(SceneText, "[shader.body]", "[shader.body"));
    writeFile("two.toml", replaced(replaced(SceneText, object, object + "shininess = 6\n"), "intensity = [20, 20, 20]",
                                   "intensity = [30, 20, 20]\n[[light]]\nobject = \"KelDirectionalLight\""));
    expectDone(
        "wait done\ndrag left 10 10 30 20\nset light.0.position [1,2,3]\nlight OxPointLight\n"
        "set render.recursionLimit 3\n" +
            Soon +
            "copy one.toml scene.toml\nwait value shader.body.shininess 5.0\n"
            "expect value light.0.position \"[1, 2, 3]\"\nexpect value render.recursionLimit 3\n"
            "copy broken.toml scene.toml\nwait message \"scene.toml:10:13: error: \"\n"
            "expect value shader.body.shininess 5.0\nexpect dirty yes\n"
            "copy two.toml scene.toml\nwait value shader.body.shininess 6.0\n"
            "expect value light.0.intensity \"[30.0, 20.0, 20.0]\"\nexpect value light.0.position \"[1, 2, 3]\"\n"
            "expect set light.2.position yes\n" +
            Picture + "key ctrl+s\nexpect dirty no\nwait seconds 0.5\n" +
            "key ctrl+z\nkey ctrl+z\nkey ctrl+z\nexpect value light.0.position \"[2.0, 3.0, 4.0]\"\n"
            "expect value light.0.intensity \"[30.0, 20.0, 20.0]\"\n",
        "scene.toml --samples 3");
    rendered("scene.toml", "rendered.exr");
    expectSame("rendered.exr", "view.exr");
}

TEST_F(Viewing, AChangedTextureIsLoadedAgain) {
    writeImage(scratch() / "white.png", 1, 1, {White});
    writeImage(scratch() / "black.png", 1, 1, {Black});
    writeImage(scratch() / "wood.png", 1, 1, {White});
    const std::string textured =
        replaced(SceneText, "object = \"KelPhong\"", "object = \"KelDiffuse\"\ntexture = \"wood\"");
    writeFile("scene.toml",
              replaced(textured, "reflective = [0.5, 0.5, 0.5]", "") + "[texture.wood]\nfile = \"wood.png\"\n");
    expectDone("wait done\n" + Soon +
                   "copy black.png wood.png\nwait pixel 22 12 0 0 0 3\n"
                   "copy scene.toml wood.png\nwait message \"could not be loaded again\"\nexpect pixel 22 12 0 0 0 3\n"
                   "copy white.png wood.png\nwait loads 3\nwait done\npicture white.exr\nwait message "
                   "white.exr\nexpect dirty no\n",
               "scene.toml --samples 3");
    rendered("scene.toml", "rendered.exr");
    expectSame("rendered.exr", "white.exr");
}

TEST_F(Viewing, ARebuiltPackageIsLoadedAgain) {
    const std::string library = "packages/libPaint.so", red = VIEW_PACKAGES "/red/libPaint.so",
                      green = VIEW_PACKAGES "/green/libPaint.so";
    fs::copy_file(red, scratch() / library);
    writeFile("scene.toml", replaced(SceneText, "[shader.body]", "[shader.paint]\nobject = \"Paint\"\n[shader.body]") +
                                "[[mesh]]\nshape = \"sphere\"\nshader = \"paint\"\nscale = 1.5\n");
    expectDone("wait done\nexpect pixel 20 14 255 0 0 0\nset shader.paint.gain 0.5\nwait pixel 20 14 188 0 0 1\n" +
                   Soon + "copy " + green + " " + library +
                   "\nwait pixel 20 14 0 188 0 1\nexpect value shader.paint.gain 0.5\n"
                   "copy scene.toml " +
                   library +
                   "\nwait message \"libPaint.so: warning: \"\nwait message \"could not be loaded again\"\n"
                   "set shader.paint.gain 1\nwait pixel 20 14 0 255 0 0\n"
                   "copy " +
                   red + " " + library +
                   "\nwait pixel 20 14 255 0 0 0\nkey ctrl+z\n"
                   "key ctrl+z\nexpect dirty no\nwait done\nexpect pixel 20 14 255 0 0 0\n",
               "scene.toml");
}

// By its arrow along x, as far as the pointer goes; in the file only that changes.
TEST_F(Viewing, AnObjectIsDraggedAlongAnAxis) {
    const std::string before = contentOf("scene.toml");
    expectDone(
        "wait done\nclick 40 28\nexpect picked sphere\nwait seconds 0.2\ndrag left 44 30 50 30\nexpect dirty yes\n"
        "key ctrl+z\nexpect dirty no\nkey ctrl+shift+z\nwait done\nclick 46 28\nexpect picked sphere\n"
        "save moved.toml\n",
        "scene.toml --samples 3 --size 80x60 ");
    const auto lines = newLines(before, contentOf("moved.toml"));
    EXPECT_THAT(lines, ElementsAre(ContainsRegex("^translate = \\[[0-9.]+, 0, 0\\]$")));
}

// By its handle, on the plane of the picture: the picture's middle is seen along the way that the camera looks.
TEST_F(Viewing, ALightIsDraggedByItsHandle) {
    expectDone(
        "wait done\nset light.0.position [0,0.4,2]\ndrag left 40 30 50 30\nkey ctrl+s\n"
        "key ctrl+z\nexpect value light.0.position \"[0, 0.4, 2]\"\nkey delete\nsave dark.toml\n",
        "scene.toml --samples 3 --size 80x60");
    EXPECT_THAT(contentOf("scene.toml"),
                ContainsRegex("\nposition = \\[0\\.[1-9][0-9]*, 0\\.(4|39|40)[0-9]*, [12]\\."));
    EXPECT_THAT(contentOf("dark.toml"), Not(HasSubstr("light")));
}

// A picture of each of two states, of the same samples; what was kept comes back.
TEST_F(Viewing, StatesAreKeptAndCompared) {
    expectDone(
        "wait done\nkey k\nexpect kept 1\nkey c\nwait compared same\n"
        "set shader.body.diffuseColor [0,0,1]\nlight KelDirectionalLight\nwait compared differs\n"
        "drag left 10 10 14 12\nwait compared differs\n" +
            Picture +
            "bring 1\nwait compared same\nexpect dirty yes\nkey c\nkey ctrl+z\n"
            "expect value shader.body.diffuseColor \"[0, 0, 1]\"\nkey ctrl+shift+z\nwait done\n"
            "picture back.exr\nwait message back.exr\nsave back.toml\n",
        "scene.toml --samples 3");
    rendered("back.toml", "rendered.exr");
    expectSame("rendered.exr", "back.exr");
}

// Without a scene the last ones are offered; scenes that are dropped are opened, pictures become textures and surroundings.
TEST_F(Viewing, FilesAreDroppedAndRemembered) {
    writeImage(scratch() / "sky.exr", 4, 2, std::vector<R3>(8, R3(0.0f, 0.0f, 1.0f)));
    writeImage(scratch() / "wood.png", 1, 1, {Black});
    writeFile("other.toml", SceneText);
    writeFile("broken.toml", "[shader.a]\nobject = 'KelPhongg'\n");
    expectDone(
        "expect scene nothing\nexpect recent nothing\nkey ctrl+o\nexpect chooser yes\nkey escape\n"
        "expect chooser no\ndrop broken.toml\nwait message \"did you mean 'KelPhong'?\"\n"
        "drop scene.toml\nwait loaded\nexpect recent scene.toml\nexpect hint yes\nexpect scene scene.toml\n"
        "drop other.toml\nwait scene other.toml\nwait done\nwheel 1\nexpect hint no\n"
        "move 20 14\ndrop none.png\nwait message none.png\nexpect dirty no\n",
        "--samples 3");
    expectDone(
        "wait done\nexpect hint no\nexpect recent scene.toml\nmove 20 14\ndrop wood.png\n"
        "wait set shader.body.texture yes\n"
        "drop sky.exr\nwait pixel 1 1 0 0 255 0\n" +
            Picture + "drop other.toml\nwait asked yes\nkey escape\nsave new.toml\n",
        "scene.toml --samples 3 --scale 2");
    EXPECT_THAT(newLines(contentOf("scene.toml"), contentOf("new.toml")), Contains("file = \"wood.png\""));
    rendered("new.toml", "rendered.exr");
    expectSame("rendered.exr", "view.exr");
}

TEST_F(Viewing, UnsavedChangesAreAskedAbout) {
    expectDone("wait done\nclose\nexpect asked no\nquit");
    expectDone("wait done\nset shader.body.shininess 7\nclose\nexpect asked yes\nexpect picked nothing\n");
}

TEST_F(Viewing, RandomEventsDoNoHarm) { expectDone("timeout 100\nwait done\nrandom 400\nwait seconds 0.5\n"); }

TEST_F(Viewing, MistakesAreTold) {
    const auto says = [](const Outcome& outcome, int status, const std::string& text) {
        EXPECT_EQ(outcome.status, status);
        EXPECT_THAT(outcome.err, HasSubstr(text));
    };
    says(shell("unset DISPLAY WAYLAND_DISPLAY SDL_VIDEODRIVER; timeout 20 $oxbeam view scene.toml"), 2,
         "oxbeam: error: there is no display: ");
    says(shell("unset DISPLAY WAYLAND_DISPLAY SDL_VIDEODRIVER; timeout 20 $oxbeam view scene.toml"), 2,
         "`oxbeam render`");
    says(view("wait loaded\nscreenshoot a.png"), 2,
         "script:2:1: error: there is no step 'screenshoot'; did you mean 'screenshot'?");
    says(view("expect picked something"), 6, "script:1:1: error: expected picked 'something', found 'nothing'");
    says(view("timeout 0.2\nwait passes 1000000"), 6, "script:2:1: error: 'wait passes 1000000' has not come");
    says(view("set shader.body.shinyness 3"), 6, "did you mean 'shininess'?");
    says(view("quit", "none.toml"), 5, "none.toml: no such file");
    writeFile("bad.toml", "[shader.a]\nobject = 'KelPhongg'\n");
    says(view("wait loaded", "bad.toml"), 3, "did you mean 'KelPhong'?");
    // Without the viewer beside it the command still says what it would do.
    fs::create_directories(scratch() / "bin");
    const Outcome help = shell(
        "cp $oxbeam bin/oxbeam; export LD_LIBRARY_PATH=$(dirname $oxbeam)/../lib; bin/oxbeam view "
        "--help >help.txt && bin/oxbeam view scene.toml");
    says(help, 2, "the viewer is not installed");
    EXPECT_THAT(contentOf("help.txt"), HasSubstr("--script FILE"));
}
