// What packages do that are not to be trusted, and what becomes of a rendering then.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

using namespace oxbeam::test;

namespace {

struct Packages : Command {
    void SetUp() override {
        Command::SetUp();
        fs::create_directory(scratch() / "packages");
    }

    static void offer(const std::string& package) {
        fs::copy_file(fs::path(TEST_PACKAGES) / ("lib" + package + ".so"),
                      scratch() / "packages" / ("lib" + package + ".so"));
    }

    // A sphere of such a surface, seen from the front.
    static Outcome render(const std::string& object, const std::string& more = "") {
        writeFile("seen.toml",
                  "[image]\nwidth = 48\nheight = 48\nsamples = 2\n[camera]\nposition = [0, 0, 4]\n"
                  "lookAt = [0, 0, 0]\n[shader.body]\nobject = \"" +
                      object + "\"\n[[mesh]]\nshape = \"sphere\"\nshader = \"body\"\n");
        fs::remove(scratch() / "seen.exr");
        return run("render seen.toml -q -o seen.exr --threads 2 --package-path packages " + more);
    }
};

}  // namespace

// ---- While they are found

TEST_F(Packages, ABrokenOneIsAnErrorOnlyWhereItIsNeeded) {
    offer("NullId");
    const std::string why = "a parameter of 'NullId' is declared without an id\n";
    Outcome outcome = run("render scene.toml -q -o old.png --package-path packages");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, ContainsRegex("packages/libNullId\\.so: warning: " + why + "$"));

    outcome = render("NullId");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.err, AllOf(ContainsRegex("seen\\.toml:9:10: error: shader 'body': 'NullId' is an object of "
                                                 ".*libNullId\\.so, which is broken\n"),
                                   HasSubstr("oxbeam: error: the scene needs a package that is broken\n")));
    EXPECT_EQ(render("Nobody").status, 3);  // all that it would offer is known
    EXPECT_EQ(run("describe NullId --package-path packages").status, 4);

    outcome = run("list --package-path packages");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("KelPhong"), ContainsRegex("libNullId\\.so: broken: " + why)));
}

// ---- While they render

TEST_F(Packages, WhatTheyThrowEndsTheRenderingAndWhatThereIsIsSaved) {
    offer("Throwing");
    Outcome outcome = render("Throwing", "--checkpoint passes.exr --aov depth");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.err,
                ContainsRegex("^oxbeam: error: .*/libThrowing\\.so: 'Shade' of 'Throwing' throws: an exception "
                              "of a type of its own\n$"));
    EXPECT_GT(pixel("seen.exr", 24, 8).x, 0.2f);  // of the upper part of the sphere
    EXPECT_TRUE(fs::exists(scratch() / "passes.exr"));

    // The package has not changed, so it throws again where it did.
    outcome = render("Throwing", "--checkpoint passes.exr --aov depth --resume");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_GT(pixel("seen.exr", 24, 8).x, 0.2f);

    // Of a sweep, the pictures that were finished: this close, only the upper part is seen.
    outcome = run("sweep seen.toml -q -o sheet.exr --set camera.fov=10,40 --package-path packages");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_GT(pixel("sheet.exr", 12 + 80, 12 + 24).x, 0.2f);

    outcome = render("ThrowingFrame");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.err, HasSubstr("libThrowing.so: 'NewFrame' of 'ThrowingFrame' throws: no such frame\n"));
}

TEST_F(Packages, HowTheyEndTheProcessIsSaid) {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which have words of their own
    for (const char* package : {"Crashing", "Endless"}) offer(package);
    const struct {
        const char *object, *message;
    } cases[] = {
        {"Crashing", "libCrashing.so: 'Shade' of 'Crashing' crashes (Segmentation fault)\n"},
        {"Aborting", "libCrashing.so: 'Shade' of 'Aborting' crashes (Aborted)\n"},
        {"Endless", "libEndless.so: 'Shade' of 'Endless' calls itself without end: the stack is used up\n"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = render(c.object);
        EXPECT_EQ(outcome.status, 4) << c.object;
        EXPECT_THAT(outcome.err, HasSubstr(c.message));
    }
#endif
}

TEST_F(Packages, WhatIsThereWhenTheyCallExitIsSaved) {
    if (Sanitized) GTEST_SKIP() << "sanitizers have words of their own at the end of a process";
    offer("Exiting");
    for (unsigned i = 0; i < 5; ++i) {  // the threads come there in another order each time
        const Outcome outcome = render("Exiting", "--checkpoint passes.exr --stats s.json");
        EXPECT_EQ(outcome.status, 4);
        EXPECT_THAT(outcome.err, ContainsRegex("oxbeam: error: .*/libExiting\\.so: 'Shade' of 'Exiting' ends the "
                                               "process \\(exit\\)\n$"));
        ASSERT_TRUE(fs::exists(scratch() / "seen.exr"));
        EXPECT_GT(pixel("seen.exr", 24, 8).x, 0.2f);
        EXPECT_EQ(nlohmann::json::parse(contentOf("s.json")).at("complete"), false);
        EXPECT_TRUE(fs::exists(scratch() / "passes.exr"));
        fs::remove(scratch() / "passes.exr");
    }
    const Outcome outcome = run("sweep seen.toml -q -o sheet.exr --set camera.fov=10,40 --package-path packages");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_GT(pixel("sheet.exr", 12 + 80, 12 + 24).x, 0.2f);
}

TEST_F(Packages, WhoGivesNoNumberIsNamed) {
    offer("GivesNaN");
    const Outcome outcome = render("GivesNaN");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, ContainsRegex("^oxbeam: warning: ([0-9]+) samples were not finite, and counted as black: "
                                           "[0-9]+ of GivesNaN\n$"));
}

// ---- oxbeam check-package

TEST_F(Packages, WhatIsWrongWithThemIsFound) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer does not bear threads that are started after a fork";
#endif
    const struct {
        const char *package, *object, *kind;
        const char* text;
    } cases[] = {
        {"NoObjects", "", "registration", "exports no Register_<Name>_LoadableObject"},
        {"NoFactory", "", "registration", "'Orphan' has no factory"},
        {"DataForFunction", "", "registration", "is data; expected a function"},
        {"HangingRegister", "", "registration", "does not end"},
        {"EndingRegister", "", "registration", "ends the process with status 7"},
        {"ThrowingStart", "", "registration", "throws: no licence today"},
        {"Overlapping", "", "registration", "'first' and 'second' of 'Overlapping' overlap"},
        {"OverHostField", "", "registration", "over 'm_ro', which is the host's"},
        {"NullId", "", "registration", "declared without an id"},
        {"NoXml", "NoXml", "document", "is no XML"},
        {"WrongDocument", "WrongDocument", "document", "'color' is declared with 3 components, and documented with 1"},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // whose memory and signals are theirs
        {"UnsetMember", "UnsetMember", "unset", "Init leaves 'gain' unset"},
        {"WritesItself", "WritesItself", "writes", "writes to itself in Shade: 'number'"},
        {"Crashing", "Crashing", "crash", "'Shade' of 'Crashing' crashes (Segmentation fault)"},
        {"Crashing", "Aborting", "crash", "'Shade' of 'Aborting' crashes (Aborted)"},
        {"Exiting", "Exiting", "exit", "'Shade' of 'Exiting' ends the process (exit)"},
        {"Endless", "Endless", "recursion", "'Shade' of 'Endless' calls itself without end"},
        {"OutOfBounds", "OutOfBounds", "crash", "'Shade' of 'OutOfBounds' crashes (Segmentation fault)"},
#endif
        {"BreaksPromise", "BreaksPromise", "promise", "lets light through, though it has promised to block it"},
        {"ByThread", "ByThread", "threads", "on one thread and on two are not the same"},
        {"GivesNaN", "GivesNaN", "nan", "Shade gives what is not finite"},
        {"Throwing", "Throwing", "exception", "'Shade' of 'Throwing' throws"},
        {"Throwing", "ThrowingFrame", "exception", "'NewFrame' of 'ThrowingFrame' throws: no such frame"},
        {"Endless", "Hanging", "hang", "does not come back in Shade"},
    };
    std::map<std::string, nlohmann::json> checked;
    std::map<std::string, std::size_t> faults, expected;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.package);
        if (!checked.contains(c.package)) {
            const Outcome outcome = run(std::string("check-package --json " TEST_PACKAGES "/lib") + c.package + ".so");
            EXPECT_EQ(outcome.status, 4);
            checked[c.package] = nlohmann::json::parse(outcome.out);
            for (const auto& finding : checked[c.package]["findings"])
                faults[c.package] += finding["fault"].get<bool>();
        }
        ++expected[c.package];
        bool found = false;
        for (const auto& finding : checked[c.package]["findings"])
            found = found || (finding["object"] == c.object && finding["kind"] == c.kind && finding["fault"] == true &&
                              finding["text"].get<std::string>().find(c.text) != std::string::npos);
        EXPECT_TRUE(found) << checked[c.package].dump(2);
    }
    if (!Sanitized) {
        EXPECT_EQ(faults, expected) << "and nothing else";
    }
}

TEST_F(Packages, GoodOnesPass) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer does not bear threads that are started after a fork";
#endif
    const Outcome outcome = run("check-package " KEL_LIBRARY);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr(": 18 objects, 0 faults\n"));
    for (const std::string object : {"KelAmbientOcclusion", "KelWallThickness"})
        EXPECT_THAT(outcome.out, HasSubstr(": note: '" + object +
                                           "': it draws random numbers that are the whole "
                                           "process': its pictures repeat on one thread only [random]\n"));
    // Its documents advertise other defaults than are in force; that is meant, and found all the same.
    EXPECT_THAT(outcome.out,
                HasSubstr("note: 'KelAlphaILS': the document's default of 'shininess' is 16, that in force 64 "
                          "[difference]\n"));
    EXPECT_EQ(run("check-package --strict " KEL_LIBRARY).status, 4);
    EXPECT_EQ(run("check-package " TEST_PACKAGES "/libStranger.so").status, 0);
    EXPECT_EQ(run("check-package none.so").status, 4);
}
