// What the command makes of the objects' descriptions: documents, completions, sweeps; and what it says of itself.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

using namespace oxbeam;
using namespace oxbeam::test;
using testing::ContainsRegex;
using testing::HasSubstr;

// ---- Describing

TEST_F(Command, JsonHoldsValuesInForceBesideDocumentedOnes) {
    const auto all = nlohmann::json::parse(run("describe --format json").out);
    ASSERT_EQ(all.size(), registry().all().size());
    const auto phong = nlohmann::json::parse(run("describe KelPhong --format json").out);
    EXPECT_THAT(all, testing::Contains(phong));
    const auto parameter = [&](const std::string& id) {
        for (const auto& p : phong.at("parameters"))
            if (p.at("id") == id) return p;
        return nlohmann::json();
    };
    const auto shininess = parameter("shininess");
    EXPECT_EQ(shininess.at("default"), 5);
    EXPECT_EQ(shininess.at("documentedDefault"), 16);
    EXPECT_EQ(shininess.at("lowerBound"), 1);
    EXPECT_EQ(shininess.at("upperBound"), 512);
    EXPECT_EQ(shininess.at("logarithmic"), true);
    EXPECT_EQ(parameter("ambientIntensity").at("default"), 0.2) << "not the nearest float's decimals";
    EXPECT_EQ(parameter("specularColor").at("default"), nlohmann::json({0, 0, 0}));
    EXPECT_EQ(parameter("texture").at("default"), nullptr);
}

// ---- Completing

TEST_F(Command, BashCompletesWhatTheCommandTakes) {
    struct Case {
        std::string words, expected;  // the words as bash takes them apart; all that is offered
    };
    const std::vector<Case> cases = {
        {"re", "render"},
        {"describe KelPh", "KelPhong KelPhongEyeLight"},
        {"describe --format = x", "xml"},
        {"scene car.glb --view b", "back bottom"},
        {"scene sce", "scene.toml"},
        {"render sce", "scene.toml"},
        {"render scene.toml --set sha", "shader."},
        {"render scene.toml --set shader.", "shader.body."},
        {"render --size 4x4 scene.toml -q --set shader.body.shin", "shader.body.shininess="},
        {"sweep scene.toml --set render.softShadows =", "false true"},
        {"render scene.toml --set render.softShadows = t", "true"},
        {"check scene.toml --set = light.0.int", "light.0.intensity="},
        {"render scene.toml --set mesh.0.sha", "mesh.0.shape= mesh.0.shader= mesh.0.shaders="},
        {"render scene.toml --camera ''", "side"},
        {"render none.toml --set sha", ""},
        {"render packages/libBroken.so --set sha", ""},
        {"--package-path pack", "packages"},
        {"--package-path packages render scene.toml --set im", "image."},
    };
    std::filesystem::create_directory(scratch() / "packages");
    writeFile("packages/libBroken.so", "no library");
    writeFile("scene.toml", std::string(SceneText) + "[camera.side]\nfov = 20\n");
    writeFile("script.bash", run("completion bash").out);
    std::string script = "source script.bash\n", expected;
    for (const Case& c : cases) {
        script +=
            "COMP_WORDS=(\"" OXBEAM_COMMAND "\" " + c.words + ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_oxbeam\n";
        script += "echo \"" + c.words + " -> ${COMPREPLY[*]}\"\n";
        expected += c.words + " -> " + c.expected + '\n';
    }
    writeFile("cases.bash", script);
    ASSERT_EQ(std::system(("cd " + scratch().string() + " && bash cases.bash >replies 2>&1").c_str()), 0);
    EXPECT_EQ(contentOf("replies"), expected);
}

// The other shells, where they are installed. zsh has its own functions stand-ins here, as they work in its editor only.
TEST_F(Command, ZshAndFishCompleteWhatBashDoes) {
    struct Case {
        std::string line, expected;  // an empty word at the end is completed to anything
    };
    const std::vector<Case> cases = {
        {"rend", "render"},
        {"scene car.glb --view b", "back bottom"},
        {"render --ground n", "none"},
        {"render --aov dep", "depth"},
        {"completion z", "zsh"},
        {"describe KelPhongE", "KelPhongEyeLight"},
        {"render scene.toml --camera s", "side"},
    };
    writeFile("scene.toml", std::string(SceneText) + "[camera.side]\nfov = 20\n");
    const auto has = [](const char* shell) {
        return std::system(("command -v " + std::string(shell) + " >/dev/null 2>&1").c_str()) == 0;
    };
    std::filesystem::create_symlink(OXBEAM_COMMAND, scratch() / "oxbeam");
    const auto reply = [&](const std::string& shell, const std::string& script) {
        writeFile("cases." + shell, script);
        const std::string call = "cd " + scratch().string() + " && PATH=" + scratch().string() + ":$PATH " + shell +
                                 (shell == "zsh" ? " -f" : " --no-config") + " cases." + shell + " >replies 2>&1";
        EXPECT_EQ(std::system(call.c_str()), 0);
        return contentOf("replies");
    };
    std::string zsh = R"(source script.zsh
compadd() { while [[ $1 != -- ]]; do shift; done; shift; print -rl -- ${(M)@:#${words[CURRENT]}*}; }
compset() { :; }
_files() { print -- files; }
try() { words=(oxbeam "$@") CURRENT=$(( $# + 1 )); print -r -- "$* -> ${(j: :)${(f)$(_oxbeam)}}"; }
)",
                fish = "source script.fish\n", expected;
    for (const Case& c : cases) {
        zsh += "try " + c.line + '\n';
        fish += "echo '" + c.line + " ->' (complete -C 'oxbeam " + c.line + "' | string replace -r '\\t.*' '')\n";
        expected += c.line + " -> " + c.expected + '\n';
    }
    if (!has("zsh") && !has("fish")) GTEST_SKIP() << "neither zsh nor fish is installed";
    writeFile("script.zsh", run("completion zsh").out);
    writeFile("script.fish", run("completion fish").out);
    if (has("zsh")) {
        EXPECT_EQ(reply("zsh", zsh + "try render sce\ntry render scene.toml --set shader.body.shin\n"),
                  expected +
                      "render sce -> files\n"
                      "render scene.toml --set shader.body.shin -> shader.body.shininess=\n");
        // As installed, it is loaded at the first completion.
        std::filesystem::create_directory(scratch() / "functions");
        std::filesystem::copy_file(scratch() / "script.zsh", scratch() / "functions" / "_oxbeam");
        zsh.replace(0, zsh.find('\n'), "fpath=($PWD/functions $fpath); autoload -Uz _oxbeam");
        EXPECT_EQ(reply("zsh", zsh), expected);
    }
    if (has("fish")) {
        EXPECT_EQ(reply("fish", fish), expected);
    }
}

// ---- Sweeping

TEST_F(Command, SweepsTakeStepsFromTheLineOrFromTheDeclaration) {
    struct Case {
        std::string arguments;
        std::vector<std::string> labels;
    };
    const std::vector<Case> cases = {
        // Declared from 1 to 512, logarithmic.
        {"--set shader.body.shininess",
         {"shininess = 1", "shininess = 3.4822", "shininess = 12.1257", "shininess = 42.2243", "shininess = 147.033",
          "shininess = 512"}},
        {"--set camera.fov=20..60/3", {"fov = 20", "fov = 40", "fov = 60"}},
        // Whole steps, each once.
        {"--set render.recursionLimit=1..3/6", {"recursionLimit = 1", "recursionLimit = 2", "recursionLimit = 3"}},
        {"--set shader.body.reflective=[0,1,0]..[1,0,0]/3",
         {"reflective = [0, 1, 0]", "reflective = [0.5, 0.5, 0]", "reflective = [1, 0, 0]"}},
        {"--set render.softShadows --set camera.fov=20,30 --set light.0.intensity=[9,9,9]",
         {"softShadows = false, fov = 20", "softShadows = true, fov = 20", "softShadows = false, fov = 30",
          "softShadows = true, fov = 30"}},
    };
    for (const Case& c : cases) {
        const Outcome outcome = run("sweep scene.toml -o s.png --samples 1 --size 8x6 " + c.arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        std::string steps;
        for (std::size_t i = 0; i < c.labels.size(); ++i)
            steps += std::to_string(i + 1) + " of " + std::to_string(c.labels.size()) + ": " + c.labels[i] + '\n';
        EXPECT_THAT(outcome.err, testing::StartsWith(steps + "wrote s.png ("));
    }
}

TEST_F(Command, ASweepsSheetHoldsItsPictures) {
    const std::string black =
        " --set light.0.intensity=[0,0,0] --set shader.body.reflective=[0,0,0]"
        " --set shader.body.ambient=0";
    // Cells of 160 x 30 pixels, 12 pixels apart, with 28 for the label; the pictures of 40 x 30 in their middle.
    ASSERT_EQ(run("sweep scene.toml -o s.exr --set shader.body.emissiveColor=[1,0,0],[0,1,0]"
                  " --set camera.fov=40,60" +
                  black)
                  .status,
              0);
    EXPECT_EQ(pixel("s.exr", 12 + 80, 12 + 15), R3(1, 0, 0));
    EXPECT_EQ(pixel("s.exr", 12 + 172 + 80, 12 + 15), R3(0, 1, 0));
    EXPECT_EQ(pixel("s.exr", 12 + 80, 12 + 70 + 15), R3(1, 0, 0));
    // An error leaves what was done before.
    const Outcome outcome = run("sweep scene.toml -o t.exr --set shader.body.emissiveColor=[0,0,1],nothing" + black);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.err, HasSubstr("\n--set shader.body.emissiveColor=nothing:1:27: error: "));
    EXPECT_EQ(pixel("t.exr", 12 + 80, 12 + 15), R3(0, 0, 1));
}

TEST_F(Command, ASweepThatCannotBeIsRefused) {
    const std::string sweep = "sweep scene.toml -o old.png ", error = "oxbeam: error: ";
    expectFailures({
        {sweep + "--set camera.fov=30", 2,
         error + "--set: none of the settings have more than one value; expected one, or two for a grid\n"},
        {sweep + "--set shader.body.shininess=1..9/1", 2,
         error + "--set shader.body.shininess=1..9/1: expected 2 to 64 steps after the '/'\n"},
        {sweep + "--set shader.body.emissive=0..[1,1,1]", 2,
         error +
             "--set shader.body.emissive=0..[1,1,1]: expected A..B or A..B/N, with two numbers or two lists of as many "
             "numbers\n"},
        {sweep + "--set shader.body.emissiveColor", 2,
         error + "--set shader.body.emissiveColor: the object declares no bounds for it; say which values, as "
                 "shader.body.emissiveColor=A..B/N or shader.body.emissiveColor=a,b,c\n"},
        {sweep + "--set shader.body.shinyness", 3,
         error + "--set shader.body.shinyness: no object of the scene declares this parameter; did you mean "
                 "'shader.body.shininess'?\n"},
    });
}

// ---- The doctor

TEST_F(Command, TheDoctorGoesOnWhereAPackageDoesNotLoad) {
    std::filesystem::create_directory(scratch() / "packages");
    writeFile("packages/libBroken.so", "no library");
    const Outcome outcome = run("doctor --package-path packages");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.err, ContainsRegex("^.*/libBroken\\.so: warning: this package does not load: .*\n$"));
    EXPECT_THAT(outcome.out, ContainsRegex("/libBroken\\.so\n    broken: this package does not load: .*\n"));
    EXPECT_THAT(outcome.out, ContainsRegex("\n  Embree +3\\..*\n  oneTBB +2.*\n  OpenImageIO +2\\."));
    EXPECT_THAT(outcome.out, ContainsRegex("/libKel\\.so\n    18 objects: Kel, .*KelPhong"));
    EXPECT_THAT(outcome.out, ContainsRegex("\n  rendering +[1-9]"));
    for (const char* reader : {"import", "decode"})
        EXPECT_THAT(outcome.out,
                    ContainsRegex(std::string("\n  oxbeam-") + reader + "\n    limits: 20 s of a processor, .*" +
                                  "\n    capabilities: none\n    Landlock: .*in force.*\n    seccomp: .*in force"));
    EXPECT_EQ(run("doctor").status, 0);
}
