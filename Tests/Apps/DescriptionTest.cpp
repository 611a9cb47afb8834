// What the command makes of the objects' descriptions: documents, completions, sweeps; and what it says of itself.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

using namespace oxbeam::test;

TEST_F(Command, JsonHoldsValuesInForceBesideDocumentedOnes) {
    const auto all = nlohmann::json::parse(run("describe --format json").out);
    ASSERT_EQ(all.size(), registry().all().size());
    const auto phong = nlohmann::json::parse(run("describe KelPhong --format json").out);
    EXPECT_THAT(all, Contains(phong));
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
    // What nobody sets is the host's to choose.
    const auto kel = nlohmann::json::parse(run("describe Kel --format json").out);
    for (const auto& p : kel.at("parameters")) {
        const bool followed = p.at("id") == "rayEpsilon";
        EXPECT_EQ(p.contains("unlessSet"), followed) << p;
        EXPECT_EQ(p.at("default").is_null(), followed) << p;
    }
}

// What is completed to what, a line each: "WORDS -> OFFERS".
static std::string completions(const char* name) { return contentOf(TEST_TRANSCRIPTS "/" + std::string(name)); }

// The words as bash takes them apart.
TEST_F(Command, BashCompletesWhatTheCommandTakes) {
    writeBrokenPackage();
    writeFile("scene.toml", SceneText + "[camera.side]\nfov = 20\n");
    writeFile("script.bash", run("completion bash").out);
    writeFile("cases", completions("bash.txt"));
    const Outcome replies = shell(R"sh(source script.bash
while IFS= read -r line; do
    words=${line% -> *}
    eval "COMP_WORDS=('$oxbeam' $words)"
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _oxbeam
    echo "$words -> ${COMPREPLY[*]}"
done <cases)sh");
    EXPECT_EQ(replies.out + replies.err, completions("bash.txt"));
}

// The other shells, where they are installed. zsh has its own functions stand-ins here, as they work in its editor only.
TEST_F(Command, ZshAndFishCompleteWhatBashDoes) {
    const auto has = [](const std::string& name) { return shell("command -v " + name).status == 0; };
    if (!has("zsh") && !has("fish")) GTEST_SKIP() << "neither zsh nor fish is installed";
    writeFile("scene.toml", SceneText + "[camera.side]\nfov = 20\n");
    fs::create_symlink(OXBEAM_COMMAND, scratch() / "oxbeam");
    const std::string expected = completions("shells.txt");
    std::string zsh = R"(source script.zsh
compadd() { while [[ $1 != -- ]]; do shift; done; shift; print -rl -- ${(M)@:#${words[CURRENT]}*}; }
compset() { :; }
_files() { print -- files; }
try() { words=(oxbeam "$@") CURRENT=$(( $# + 1 )); print -r -- "$* -> ${(j: :)${(f)$(_oxbeam)}}"; }
)",
                fish = "source script.fish\n";
    std::istringstream lines(expected);
    for (std::string line; std::getline(lines, line);) {
        const std::string words = line.substr(0, line.find(" -> "));
        zsh += "try " + words + '\n';
        fish += "echo '" + words + " ->' (complete -C 'oxbeam " + words + "' | string replace -r '\\t.*' '')\n";
    }
    const auto reply = [&](const std::string& name, const std::string& options, const std::string& script) {
        writeFile("script." + name, run("completion " + name).out);
        writeFile("cases." + name, script);
        const Outcome outcome = shell("PATH=$PWD:$PATH " + name + options + " cases." + name);
        EXPECT_EQ(outcome.status, 0);
        return outcome.out + outcome.err;
    };
    if (has("zsh")) {
        EXPECT_EQ(reply("zsh", " -f", zsh + "try render sce\ntry render scene.toml --set shader.body.shin\n"),
                  expected +
                      "render sce -> files\n"
                      "render scene.toml --set shader.body.shin -> shader.body.shininess=\n");
        // As installed, it is loaded at the first completion.
        std::filesystem::create_directory(scratch() / "functions");
        std::filesystem::copy_file(scratch() / "script.zsh", scratch() / "functions" / "_oxbeam");
        zsh.replace(0, zsh.find('\n'), "fpath=($PWD/functions $fpath); autoload -Uz _oxbeam");
        EXPECT_EQ(reply("zsh", " -f", zsh), expected);
    }
    if (has("fish")) {
        EXPECT_EQ(reply("fish", " --no-config", fish), expected);
    }
}

TEST_F(Command, SweepsTakeStepsFromTheLineOrFromTheDeclaration) {
    writeFile("old.png", "an old picture");
    expectTranscript("sweeps.txt");
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

TEST_F(Command, TheDoctorGoesOnWhereAPackageDoesNotLoad) {
    writeBrokenPackage();
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
    EXPECT_THAT(outcome.out, ContainsRegex("\nmemory\n(.*\n)*.*available(.*\n)*.*80% of the"));
    const Outcome limited = run("doctor --memory-limit 1536M");
    EXPECT_EQ(limited.status, 0);
    EXPECT_THAT(limited.out, HasSubstr("1.5 GiB, by --memory-limit"));
}
