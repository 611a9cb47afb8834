// Pictures that are cut into parts, rendered by whoever comes, and put together again.
#include "Tests/Support/Command.h"
#include "Tests/Support/Processes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <numeric>
#include <set>
#include <thread>

using namespace oxbeam::test;

namespace {

// So long that a part of it can be interrupted.
const std::string Long = std::string("scene.toml --size 200x150 --samples ") + (Sanitized ? "500" : "1600");

nlohmann::json jsonOf(const fs::path& file) { return nlohmann::json::parse(contentOf(file)); }

// As text; "" where there is none.
std::string attributeOf(const std::string& file, const char* name) {
    const OIIO::ImageBuf image = picture(file);
    const OIIO::ParamValue* found = image.spec().find_attribute(name);
    return found ? found->get_string() : "";
}

void expectDone(const Outcome& outcome) { ASSERT_EQ(outcome.status, 0) << outcome.err; }

// Split, rendered and merged.
void farm(const std::string& split, const std::string& farm) {
    fs::remove_all(scratch() / "job");
    expectDone(run("split " + split + " -o job -q"));
    expectDone(run("farm job -q " + farm));
}

// The process that renders a part of "job", or 0.
pid_t processOf(int part) {
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::ifstream stream(entry.path() / "cmdline", std::ios::binary);
        std::string line;
        std::getline(stream, line, '\n');  // nothing, where it has ended in the meantime
        const std::string end =
            '\0' + std::string("part") + '\0' + (scratch() / "job").string() + '\0' + std::to_string(part) + '\0';
        if (line.starts_with(OXBEAM_COMMAND) && line.find(end) != line.npos)
            return std::stoi(entry.path().filename().string());
    }
    return 0;
}

pid_t waitForProcessOf(int part) {
    for (int i = 0; i < 6000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10)))
        if (const pid_t found = processOf(part)) return found;
    ADD_FAILURE() << "part " << part << " is not begun";
    return 0;
}

// Waits until a file does, but not for ever.
bool says(const std::string& file, const std::string& what) {
    for (int i = 0; i < 6000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10)))
        if (fs::exists(scratch() / file) && contentOf(file).find(what) != std::string::npos) return true;
    return false;
}

bool isDone(int part) { return fs::exists(scratch() / "job/results" / (std::to_string(part) + ".exr")); }

bool isSaved(int part) {
    for (const auto& entry : fs::directory_iterator(scratch() / "job/work"))
        if (const std::string name = entry.path().filename();
            name.starts_with(std::to_string(part) + '.') && name.ends_with(".exr"))
            return true;
    return false;
}

// Split into parts, which `use` has rendered by "parallel" or "local" and merged: the whole, whatever happens.
template <class Use>
void expectWholeByEither(int parts, Use use) {
    expectDone(run("render " + Long + " -o whole.exr -q"));
    for (const std::string how : {"parallel", "local"}) {
        SCOPED_TRACE(how);
        fs::remove_all(scratch() / "job");
        expectDone(run("split " + Long + " --parts " + std::to_string(parts) + " -o job -q"));
        use(how);
        expectSame("merged.exr", "whole.exr");
        fs::remove(scratch() / "merged.exr");
    }
}

}  // namespace

TEST_F(Command, MergedPartsAreTheWholePictureBitForBit) {
    writeTexturedScene("wood.toml");
    writeFile("lens.toml", SceneText +
                               "[camera.lens]\nobject = \"KelDOFCamera\"\nposition = [0, 1, 5]\n"
                               "lookAt = [0, 0, 0]\n");
    writeFile("order.toml", SceneText +
                                "[shader.order]\nobject = \"KelAlphaILS\"\nsamples = 2\n"
                                "[[light]]\nobject = \"KelPointLight\"\nposition = [-2, 3, 4]\n"
                                "[[mesh]]\nshape = \"box\"\nshader = \"order\"\n");
    struct Case {
        const char *picture, *name;
    };
    for (const auto& [picture, name] :
         {Case{"wood.toml --aov depth,normal,albedo,object,samples --filter gaussian", "exr"},
          Case{"scene.toml --exposure 1.5 --tone filmic --samples 3", "png"},
          Case{"scene.toml --background transparent --bits 16 --filter blackman-harris", "png"},
          Case{"scene.toml --background transparent --aov depth,samples", "exr"},
          Case{"lens.toml --camera lens --set shader.body.shininess=9 --isa sse2", "exr"},
          Case{"scene.toml --packets --aov normal", "exr"}, Case{"order.toml --threads 1", "hdr"}}) {
        SCOPED_TRACE(picture);
        const std::string whole = std::string("whole.") + name, merged = std::string("merged.") + name;
        const std::string all = std::string(picture) + " --size 101x75";
        farm(all + " --parts 3", "-o " + merged + " --stats merged.json");
        expectDone(run("render " + all + " -q -o " + whole + " --stats whole.json"));
        expectSame(merged, whole);
        if (std::string(name) == "png") {
            EXPECT_TRUE(contentOf(merged) == contentOf(whole)) << "to the last byte";
        }
        if (std::string(name) == "exr") {
            for (const char* attribute : {"oxbeam:sceneHash", "oxbeam:objects", "oxbeam:packages", "worldToNDC"})
                EXPECT_EQ(attributeOf(merged, attribute), attributeOf(whole, attribute)) << attribute;
        }
        const nlohmann::json sum = jsonOf("merged.json"), one = jsonOf("whole.json");
        EXPECT_EQ(sum["rays"], one["rays"]) << "no ray is traced twice";
        EXPECT_EQ(sum["passes"], one["passes"]);
        EXPECT_EQ(sum["parts"], 3);
    }
}

TEST_F(Command, MergedFramesAreThoseOfTheSequence) {
    const std::string sequence =
        "scene.toml --turntable 6 --animate light.0.intensity=[0,0,0]..[30,20,10] --aov depth --size 48x36";
    farm(sequence + " --parts 4", "-o merged.{frame:02}.exr --stats merged.json");
    expectDone(run("render " + sequence + " -q -o whole.{frame:02}.exr"));
    for (const std::string number : {"00", "01", "02", "03", "04", "05"}) {
        const std::string merged = "merged." + number + ".exr", whole = "whole." + number + ".exr";
        expectSame(merged, whole);
        for (const char* attribute : {"oxbeam:sceneHash", "oxbeam:frame", "FramesPerSecond", "worldToNDC"})
            EXPECT_EQ(attributeOf(merged, attribute), attributeOf(whole, attribute)) << attribute;
    }
    EXPECT_EQ(jsonOf("merged.json")["rays"]["primary"], 6 * 2 * 48 * 36);
    // All in one file.
    expectDone(run("farm job -q -o merged.GIF"));
    expectDone(run("render " + sequence.substr(0, sequence.find(" --aov")) + " --size 48x36 -q -o whole.gif"));
    EXPECT_TRUE(contentOf("merged.GIF") == contentOf("whole.gif"));
    // Some frames of a part are there, one of them is another's, and one is missing.
    const fs::path results = scratch() / "job/results";
    const auto frames = jsonOf("job/job.json")["parts"][3]["frames"].get<std::vector<unsigned>>();
    const fs::path last = results / ("4." + std::to_string(frames.back()) + ".exr");
    fs::copy_file(results / "1.0.exr", last, fs::copy_options::overwrite_existing);
    fs::remove(results / "2.1.exr");
    const Outcome refused = run("merge job -o again.{frame:02}.exr");
    EXPECT_EQ(refused.status, 5);
    EXPECT_EQ(withoutFolder(refused.err), error + "part 2 is missing; 'oxbeam part job/2' renders it\n" + error +
                                              "part 4 is doubled: 'job/results/" + last.filename().string() +
                                              "' holds the frame 0\n");
    EXPECT_FALSE(fs::exists(scratch() / "again.00.exr"));
    EXPECT_EQ(run("merge job -o again.gif").status, 5);
    EXPECT_FALSE(fs::exists(scratch() / "again.gif"));
    const Outcome some = run("merge job --only 0,2 -o some.{frame:02}.exr");
    EXPECT_THAT(some.err,
                AllOf(HasSubstr("merged 2 parts: "), HasSubstr("wrote some.{frame:02}.exr (2 frames of 48 x 36)")));
    EXPECT_TRUE(fs::exists(scratch() / "some.02.exr") && !fs::exists(scratch() / "some.03.exr"));
    expectDone(run("farm job -q -o again.{frame:02}.exr"));
    for (const std::string number : {"00", "01", "05"})
        expectSame("again." + number + ".exr", "whole." + number + ".exr");
}

// The parts' tiles are all of the picture's, each once, and their rays about as many.
TEST_F(Command, PartsAreOfAboutEqualCost) {
    writeFile("scene.toml", SceneText + "[environment]\nobject = \"KelEnvironment\"\n");
    farm("scene.toml --size 512x384 --samples 4 --machines 3", "-o merged.exr");
    const nlohmann::json job = jsonOf("job/job.json");
    std::vector<double> rays;
    std::size_t pixels = 0;
    for (const auto& part : job["parts"]) {
        const auto crop = part["crop"].get<std::array<unsigned, 4>>();
        for (const unsigned side : crop) EXPECT_EQ(side % 16, 0u);
        pixels += (crop[2] - crop[0]) * (crop[3] - crop[1]);
        rays.push_back(jsonOf("job/results/" + part["part"].dump() + ".json")["rays"]["total"]);
    }
    EXPECT_EQ(pixels, 512u * 384u);
    ASSERT_EQ(rays.size(), 12u) << "four for each machine";
    const double mean = std::accumulate(rays.begin(), rays.end(), 0.0) / 12.0;
    EXPECT_LT(*std::ranges::max_element(rays), 1.3 * mean);
    EXPECT_GT(*std::ranges::min_element(rays), 0.7 * mean);
}

TEST_F(Command, APartGoesOnFromWhateverAnEarlierTryLeft) {
    expectDone(run("split " + Long + " --parts 2 -o job -q"));
    const Process killed("part job/1 --checkpoint-every 1");
    for (int i = 0; i < 3000 && !isSaved(1); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    killed.signal(SIGKILL);
    killed.finish();
    ASSERT_TRUE(isSaved(1) && !isDone(1));
    // Of two, one of them stopped while it saves nothing, neither disturbs the other.
    const Process one("part job/1"), other("part job 1");
    const Outcome ended = one.finish(), otherEnded = other.finish();
    expectDone(ended);
    expectDone(otherEnded);
    EXPECT_THAT(ended.err, AnyOf(HasSubstr("going on after"), HasSubstr("was done before")));
    EXPECT_FALSE(isSaved(1)) << "what is no longer needed";
    expectDone(run("part job/2/ --threads 1"));
    const Outcome again = run("part ./job/2");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(withoutFolder(again.err), "part 2 was done before: job/results/2.exr\n");
    expectDone(run("merge job -o merged.exr -q"));
    expectDone(run("render " + Long + " -o whole.exr -q"));
    expectSame("merged.exr", "whole.exr");
    // A try that ends half-way says so, and what it has is there for the next one.
    fs::remove(scratch() / "job/results/1.exr");
    const Process stopped("part job/1");
    ASSERT_TRUE(stopped.hasSaid("loaded and built"));
    stopped.signal(SIGTERM);
    EXPECT_EQ(stopped.finish().status, 6);
    EXPECT_TRUE(isSaved(1) && !isDone(1));
    // What is left may be no good.
    for (const auto& entry : fs::directory_iterator(scratch() / "job/work")) fs::resize_file(entry.path(), 1000);
    const Outcome anew = run("part job/1");
    expectDone(anew);
    EXPECT_THAT(anew.err, HasSubstr("warning: not gone on with: checkpoint '"));
    expectDone(run("merge job -o again.exr -q"));
    expectSame("again.exr", "whole.exr");
}

// Parts so short that processes which begin together end together.
TEST_F(Command, ProcessesThatEndWithAPartTogetherAllHaveDoneIt) {
    expectDone(run("split scene.toml --frames 0..3 --parts 1 -o job -q"));
    for (int i = 0; i < 6; ++i) {
        fs::remove_all(scratch() / "job/results");
        std::vector<Process> all;
        for (int k = 0; k < 4; ++k) all.emplace_back("part -q job/1");
        for (const Process& one : all) {
            const Outcome outcome = one.finish();
            EXPECT_EQ(outcome.status, 0);
            EXPECT_EQ(outcome.err, "");
        }
        EXPECT_TRUE(fs::is_empty(scratch() / "job/work"));
    }
}

// Two processes are killed, and one is stopped, which the time limit ends.
TEST_F(Command, AFarmLosesNothingByProcessesThatAreKilledOrHang) {
    expectWholeByEither(8, [](const std::string& how) {
        const Process farm("farm job -o merged.exr --jobs 2 --time-limit 8 --retries 8 --on " + how);
        for (const auto& [part, number] : {std::pair{1, SIGKILL}, {2, SIGSTOP}, {3, SIGKILL}}) {
            const pid_t process = waitForProcessOf(part);
            EXPECT_TRUE(process && kill(process, number) == 0 && !isDone(part)) << "part " << part << " is at work";
        }
        const Outcome outcome = farm.finish();
        EXPECT_EQ(outcome.status, 0) << outcome.err << contentOf("job/work/parallel.log");
        EXPECT_THAT(outcome.err, HasSubstr("8 of 8 parts are done\nmerged 8 parts: "));
    });
}

// Even with a part that hangs.
TEST_F(Command, AFarmThatIsStoppedGoesOn) {
    expectWholeByEither(2, [](const std::string& how) {
        const Process farm("farm job -o merged.exr --on " + how);
        ASSERT_TRUE(says("job/work/" + std::string(how == "local" ? "1" : how) + ".log", "loaded and built"));
        EXPECT_EQ(kill(processOf(1), SIGSTOP), 0);
        farm.signal(SIGINT);
        const Outcome outcome = farm.finish();
        EXPECT_EQ(outcome.status, 130) << outcome.err;
        EXPECT_EQ(processOf(1), 0) << "nothing goes on";
        EXPECT_TRUE(isSaved(1)) << "and nothing is lost";
        EXPECT_FALSE(fs::exists(scratch() / "merged.exr"));
        const Outcome rest =
            shell("script -qec \"$oxbeam farm job -o merged.exr --on " + how + "\" /dev/null </dev/null");
        expectDone(rest);
        EXPECT_THAT(rest.out.substr(std::min(rest.out.find("1 of 2 parts are done"), rest.out.size())),
                    HasSubstr(" elapsed, "))
            << "a terminal is told all the time";
    });
}

static int timesIn(const std::string& text, const std::string& what) {
    int times = 0;
    for (auto at = text.find(what); at != text.npos; at = text.find(what, at + 1)) ++times;
    return times;
}

// What no other try would help, or as many as there may be did not, is not begun again.
TEST_F(Command, AFarmTriesAsOftenAsItIsTold) {
    expectDone(run("split scene.toml --parts 3 -o job -q"));
    writeFile("few.toml", contentOf("scene.toml"));
    expectDone(run("split few.toml --parts 3 -o few -q"));
    writeFile("scene.toml", contentOf("scene.toml") + "# another line\n");
    fs::remove_all(scratch() / "few/results");  // as some ways of copying do
    const std::string changed = "scene 'scene.toml' has changed", small = "oxbeam: error: not enough memory: ";
    struct Case {
        const char *arguments, *tried;
        std::string why;
        int times;
    };
    for (const auto& [arguments, tried, why, times] :
         {Case{"job --on local", "part 1 ended with status 3", changed, 1},
          Case{"job --on parallel", "warning: failed: parts 1-3; see '", changed, 1},
          Case{"few --on local --retries 2 --memory-limit 20K", "part 1 ended with status 5", small, 3},
          Case{"few --on parallel --retries 2 --memory-limit 20K", "warning: failed: parts 1-3; see '", small, 1}}) {
        SCOPED_TRACE(arguments);
        const Outcome outcome = run(std::string("farm ") + arguments + " -o m.png");
        EXPECT_NE(outcome.status, 0);
        EXPECT_THAT(outcome.err, AllOf(HasSubstr(why), Not(HasSubstr("still missing"))));
        EXPECT_EQ(timesIn(outcome.err, tried), times) << outcome.err;
    }
    expectDone(run("farm few -o m.png -q"));
}

// As the documents have it.
TEST_F(Command, PartsAreRenderedByHandAsWell) {
    expectDone(run("split scene.toml --parts 3 -o job -q"));
    for (const std::string how : {"parallel <parts", "xargs -P 4 -d '\\n' -n 1 -a parts sh -c", "sh parts"}) {
        fs::remove_all(scratch() / "job/results");
        const Outcome outcome = shell("PATH=$(dirname $oxbeam):$PATH; cd job && " + how);
        EXPECT_EQ(outcome.status, 0) << how << '\n' << outcome.err;
        EXPECT_TRUE(isDone(1) && isDone(2) && isDone(3)) << how;
    }
}

// Whatever a path contains, no shell makes anything of it.
TEST_F(Command, AFarmsPathsMayContainAnything) {
    for (const char* how : {"local", "parallel"}) {
        const Outcome outcome =
            shell(std::string("mkdir odd && d=\"odd/it's \\\"a\\\" \\$HOME {} {#} ;*&#\" && $oxbeam split "
                              "scene.toml --parts 2 -q --pack -o \"$d\" && $oxbeam farm \"$d\" -q --on ") +
                  how + " -o \"$d/p p.png\" && mv \"$d/p p.png\" merged.png; rm -r odd");
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        expectDone(run("render scene.toml -o whole.png -q"));
        EXPECT_TRUE(contentOf("merged.png") == contentOf("whole.png")) << how;
        fs::remove(scratch() / "merged.png");
    }
}

TEST_F(Command, WhatCannotBeMergedIsNamed) {
    writeFile("chance.toml", contentOf(TEST_SCENES "/scene.toml") +
                                 "[shader.chance]\nobject = \"KelAmbientOcclusion\"\n"
                                 "[[mesh]]\nshape = \"box\"\nshader = \"chance\"\n");
    writeFile("other.toml", SceneText + "# another line\n");
    struct Split {
        const char *folder, *scene;
        std::vector<int> parts;  // that are rendered
    };
    for (const Split& split : {Split{"job", "scene.toml --parts 4", {1, 2, 3, 4}},
                               {"other", "other.toml --parts 4", {1, 2}},
                               {"more", "scene.toml --parts 5", {2, 5}},
                               {"longer", "scene.toml --parts 4 --samples 3", {2}},
                               {"layers", "scene.toml --parts 4 --aov depth", {2}}}) {
        const std::string folder = split.folder;
        expectDone(run("split -q --size 96x64 " + (split.scene + (" -o " + folder))));
        for (const int part : split.parts) expectDone(run("part -q " + folder + '/' + std::to_string(part)));
    }
    expectDone(run("merge job -o p.exr -q"));
    const auto with = [](const std::string& name, const std::string& from, const std::string& to) {
        fs::copy(scratch() / "job", scratch() / name, fs::copy_options::recursive);
        const fs::path target = scratch() / name / "results" / to;
        if (from.empty())
            fs::remove(target);
        else
            fs::copy_file(scratch() / from, target, fs::copy_options::overwrite_existing);
        return target;
    };
    with("missing", "", "2.exr");
    fs::remove(scratch() / "missing/results/3.exr");
    fs::resize_file(with("short", "job/results/2.exr", "2.exr"), 2000);
    const fs::path flipped = with("flipped", "job/results/2.exr", "2.exr");
    std::string bytes = contentOf(flipped);
    bytes[bytes.size() - 300] ^= 4;
    writeFile("flipped/results/2.exr", bytes);
    with("doubled", "job/results/3.exr", "2.exr");
    with("foreign", "other/results/2.exr", "2.exr");
    with("longerPart", "longer/results/2.exr", "2.exr");
    with("layersPart", "layers/results/2.exr", "2.exr");
    with("odd", "more/results/2.exr", "2.exr");
    with("stranger", "more/results/5.exr", "5.exr");
    with("picture", "p.exr", "2.exr");
    fs::remove(with("many", "other/results/1.exr", "1.exr").parent_path() / "4.exr");
    expectDone(run("split -q --size 96x64 chance.toml --samples 1 --parts 2 -o chance"));
    expectDone(run("part -q chance/1"));
    expectDone(run("part -q chance/2"));
    expectDone(run("split -q --size 16x16 scene.toml --frames 0..20/10 --parts 2 -o frames"));
    expectTranscript("merging.txt");
    expectDone(run("merge chance -o forced.png --force -q"));
    // A farm repairs what is of no use.
    expectDone(run("farm many -o merged.exr -q"));
    expectDone(run("render scene.toml --size 96x64 -o whole.exr -q"));
    expectSame("merged.exr", "whole.exr");
}

TEST_F(Command, WhatCannotBeSplitOrRenderedAsAPartIsSaid) {
    writeTexturedScene();
    fs::create_directory(scratch() / "full");
    writeFile("full/file", "");
    fs::create_symlink("nowhere", scratch() / "link");
    writeFile("n\xe9.toml", SceneText);
    expectDone(run("split scene.toml --parts 2 -o job -q"));
    expectDone(run("split scene.toml --parts 2 -o packed -q --pack"));
    fs::create_directory(scratch() / "damaged");
    writeFile("damaged/job.json", contentOf("job/job.json").substr(0, 900));
    fs::create_directory(scratch() / "holey");
    std::string holey = contentOf("job/job.json");
    holey.replace(holey.find("\"parts\": ["), 9, "\"parts\": [], \"p\": ");
    writeFile("holey/job.json", holey);
    expectTranscript("splitting.txt");
    const Outcome unspeakable = run("split n\xe9.toml --parts 2 -o new -q");
    EXPECT_EQ(unspeakable.status, 2);
    EXPECT_THAT(unspeakable.err, HasSubstr("has a name that is not UTF-8"));
    EXPECT_FALSE(fs::exists(scratch() / "new"));
    writeImage(scratch() / "wood.png", 2, 1, {White, Black});
    writeFile("scene.toml", contentOf("scene.toml") + "# another line\n");
    const Outcome changed = run("part job/1");
    EXPECT_EQ(changed.status, 3);
    EXPECT_EQ(changed.err, error +
                               "part 1 cannot be rendered here, where not all is as it was split: file 'wood.png' has "
                               "changed; scene 'scene.toml' has changed\n");
    // What is packed is as it was.
    expectDone(run("farm packed -o p.png -q"));
    writeFile("parallel", "#!/bin/sh\necho GNU parallel\n");
    fs::permissions(scratch() / "parallel", fs::perms::owner_all);
    const Outcome none = shell(
        "PATH=/nowhere::.; $oxbeam farm packed -o p.png --on parallel; $oxbeam farm packed -o p.png "
        "--on slurm; exit 7");
    EXPECT_EQ(none.err,
              error +
                  "there is no program 'parallel' on the path; GNU parallel, Debian's package 'parallel', has "
                  "it\n" +
                  error +
                  "there is no program 'sbatch' on the path; Slurm, Debian's package "
                  "'slurm-client', has it\n");
}

// What is begun at one place is finished by one, and what a killed process left is taken over.
TEST_F(Command, AFolderIsMadeByOneSplitAtATime) {
    const auto begun = [] {
        const fs::directory_iterator all(scratch());
        return std::any_of(begin(all), end(all), [](const auto& entry) {
            return entry.path().filename().string().starts_with(".oxbeam-split-");
        });
    };
    const Process killed("split scene.toml --size 400x300 --samples 20000 --parts 3 -o job -q");
    while (!begun() && !isGone(killed.id())) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    killed.signal(SIGSTOP);
    const Outcome other = run("split scene.toml --parts 2 -o job -q");
    EXPECT_EQ(other.status, 5);
    EXPECT_THAT(other.err, HasSubstr("job' is being made by another process, in '"));
    EXPECT_TRUE(begun());
    killed.signal(SIGKILL);
    killed.finish();
    expectDone(run("split scene.toml --parts 2 -o job -q"));
    EXPECT_FALSE(begun());
    EXPECT_EQ(jsonOf("job/job.json")["parts"].size(), 2u);
}

// Another folder, nothing of where it came from, no environment, and a scene that nobody may change.
TEST_F(Command, APackedJobIsRenderedAnywhere) {
    makePicture();
    fs::create_directories(scratch() / "home/models");
    fs::create_directories(scratch() / "home/scenes");
    fs::copy_file(scratch() / "wood.png", scratch() / "home/models/wood.png");
    writeFile("home/models/b.obj", "mtllib b.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nusemtl m\nf 1/1 2/1 3/1\n");
    writeFile("home/models/b.mtl", "newmtl m\nKd 1 0 0\nmap_Kd wood.png\n");
    const std::string absolute = (scratch() / "home/models/wood.png").string();
    writeFile("home/scenes/scene.toml", SceneText +
                                            "[texture.one]\nfile = \"../models/wood.png\"\n[texture.two]\nfile = '" +
                                            absolute + "'\n[[mesh]]\nfile = \"../models/b.obj\"\nshader = \"body\"\n");
    expectDone(run("render home/scenes/scene.toml --size 64x48 -o whole.png -q"));
    expectDone(run("render home/models/b.obj --environment home/models/wood.png --size 64x48 -o model.png -q"));
    expectDone(run("split home/scenes/scene.toml --size 64x48 --parts 3 -o job --pack -q"));
    expectDone(
        run("split home/models/b.obj --environment home/models/wood.png --size 64x48 --parts 2 -o model --pack -q"));
    const Outcome outcome = shell(
        "set -e; mkdir -m 755 carried; mv job 'carried/a job'; mv model carried/model; rm -r home; cd /\n"
        "for job in 'a job' model; do\n"
        "  job=$OLDPWD/carried/$job; chmod -R a-w \"$job\"; chmod u+w \"$job\"/results \"$job\"/work\n"
        "  for part in $(sed 's/.*\\.\\/\\([0-9]*\\) .*/\\1/' \"$job/parts\"); do\n"
        "    env -i $oxbeam part -q \"$job/$part\"\n"
        "  done\n"
        "done\n"
        "cd $OLDPWD; $oxbeam merge 'carried/a job' -o merged.png -q; $oxbeam merge carried/model -o model-merged.png "
        "-q");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(contentOf("merged.png") == contentOf("whole.png"));
    EXPECT_TRUE(contentOf("model-merged.png") == contentOf("model.png"));
}
