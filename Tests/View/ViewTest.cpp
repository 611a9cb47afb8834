// The viewer as a process, without a display: what scripts do in it, what it writes, and what it says.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

using namespace oxbeam::test;

namespace {

class Viewing : public Command {
protected:
    // By SDL's driver of that name: "offscreen" has OpenGL, "dummy" none.
    static Outcome view(const std::string& script, const std::string& arguments = "scene.toml",
                        const std::string& driver = "dummy") {
        writeFile("script", script);
        return shell("unset DISPLAY WAYLAND_DISPLAY; SDL_VIDEODRIVER=" + driver + " timeout 60 $oxbeam view " +
                     arguments + " --script script");
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

TEST_F(Viewing, TheCommandLineRendersJustThis) {
    expectDone("wait done\nset shader.body.shininess 7\nset light.0.intensity [9,8,7]\ndrag left 10 10 30 20\nkey .\n" +
                   Picture + "key ctrl+c\nexpect clipboard \"oxbeam render scene.toml\"\n",
               "scene.toml --samples 3");
    const std::string said = picture("view.exr").spec().get_string_attribute("oxbeam:command");
    ASSERT_THAT(said, StartsWith("oxbeam render scene.toml -o view.exr --size 40x30 --samples 3 --set "));
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
