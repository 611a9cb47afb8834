// The `oxbeam` command.
#include "Apps/oxbeam/CheckPackage.h"
#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Completion.h"
#include "Apps/oxbeam/Describe.h"
#include "Apps/oxbeam/Doctor.h"
#include "Apps/oxbeam/Farm.h"
#include "Apps/oxbeam/MemoryLimit.h"
#include "Apps/oxbeam/Merge.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/Part.h"
#include "Apps/oxbeam/PictureOptions.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/oxbeam/SharedOptions.h"
#include "Apps/oxbeam/Split.h"
#include "Apps/oxbeam/Sweep.h"
#include "Apps/oxbeam/Usage.h"
#include "Apps/oxbeam/View.h"
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/Watch.h"
#include "Engine/System/Interruption.h"
#include "Engine/System/LastWords.h"

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <new>
#include <system_error>

using namespace oxbeam;

// Even before the libraries that start threads as they are loaded.
[[gnu::section(".preinit_array"), gnu::used]] static void (*const speakLast)() = [] {
    std::set_terminate([] { endForLackOf("oxbeam: error: ", static_cast<int>(ExitStatus::InputOutput)); });
};

namespace {

struct Arguments {
    std::vector<std::string> packagePaths;
    RenderCommand render;
    SceneCommand scene;
    RenderCommand check;  // the scene and its settings
    std::vector<std::string> pictures;
    std::string sheet;
    unsigned columns = 4;
    CompletionCommand completion;
    DescribeCommand describe;
    SweepCommand sweep;
    SplitCommand split;
    PartCommand part;
    MergeCommand merge;
    FarmCommand farm;
    CheckPackageCommand checkPackage;
    ViewCommand view;
};

void addCheckpoint(CLI::App& c, RenderCommand& r) {
    CLI::Option* checkpoint = c.add_option("--checkpoint", r.checkpoint,
                                           "Save the passes so far to this EXR file every minute, and at the end")
                                  ->type_name("FILE");
    c.add_option("--checkpoint-every", r.checkpointEvery, "Seconds between two such saves, instead of 60")
        ->type_name("SECONDS")
        ->needs(checkpoint);
    c.add_flag("--resume", r.resume, "Go on from the checkpoint, to the very same picture")->needs(checkpoint);
}

void addRender(CLI::App& app, RenderCommand& r) {
    CLI::App* c = app.add_subcommand("render", "Render a scene or a model to a picture");
    c->add_option("SCENE", r.scene, "Scene file (.toml), or a model")->required();
    c->add_option("-o,--output", r.output, "Picture to write: .png, .jpg, .tif, .exr or .hdr; - for standard output")
        ->required()
        ->type_name("FILE");
    c->add_option("--format", r.format, "Of the picture on standard output")->type_name("png|jpg|tiff|exr|hdr");
    addPictureOptions(*c, r);
    c->add_option("--time", r.seconds, "Render as many whole passes as fit into this time; --samples limits them")
        ->type_name("SECONDS");
    addCheckpoint(*c, r);
    addThreads(*c, r.threads);
    c->add_option("--crop", r.crop, "Render a part only: left, top, right, bottom; the last two lie outside")
        ->type_name("x0,y0,x1,y1");
    c->add_flag("--missing", r.sequence.missing, "Of a sequence, render only frames whose files are not there");
    c->add_option("--stats", r.stats, "Write times and counts to a JSON file")->type_name("FILE");
    addMemoryLimit(*c);
    addQuiet(*c, r.quiet);
}

void addScene(CLI::App& app, SceneCommand& s) {
    CLI::App* c = app.add_subcommand("scene", "Write the scene that render makes around a model, to edit it");
    c->add_option("MODEL", s.model, "Model file")->required();
    c->add_option("-o,--output", s.output, "Scene file to write, instead of standard output")->type_name("FILE");
    c->add_option("--camera", s.options.view.camera, "Look through one of the model's own cameras; 'file': its first")
        ->type_name("CAMERA");
    c->add_option("--size", s.size, "Size of the picture in pixels")->type_name("WxH");
    c->add_flag("--keep-materials", s.options.keepMaterials,
                "Name the model as a whole, with the materials of its file, instead of writing them out");
    addModelOptions(*c, s.options);
    addMemoryLimit(*c);
    addImportLimit(*c, s.importLimit);
}

void addOthers(CLI::App& app, Arguments& a) {
    CLI::App* check = app.add_subcommand("check", "Report all errors of a scene without rendering it");
    check->add_option("SCENE", a.check.scene, "Scene file (.toml), or a model")->required();
    addSettings(*check, a.check.set);
    addMemoryLimit(*check);
    addImportLimit(*check, a.check.importLimit);
    CLI::App* sheet = app.add_subcommand("sheet", "Lay pictures out on one contact sheet, labelled by their names");
    sheet->add_option("PICTURE", a.pictures, "Pictures")->required();
    sheet->add_option("-o,--output", a.sheet, "Picture to write: .png, .jpg, .tif, .exr or .hdr")
        ->required()
        ->type_name("FILE");
    sheet->add_option("--columns", a.columns, "Pictures in a row")->type_name("N")->check(CLI::Range(1, 64));
    addMemoryLimit(*sheet);
    app.add_subcommand("list", "List every object that the packages offer");
    addDescribe(app, a.describe);
    addSweep(app, a.sweep);
    addSplit(app, a.split);
    addPart(app, a.part);
    addMerge(app, a.merge);
    addFarm(app, a.farm);
    addView(app, a.view);
    addCheckPackage(app, a.checkPackage);
    addCompletion(app, a.completion);
    addMemoryLimit(
        *app.add_subcommand("doctor", "Report versions, packages, processor, threads, memory and how files are read"));
}

void sayRemarks(const Diagnostics& remarks, bool quiet) {
    for (const Diagnostic& remark : remarks.sorted())
        if (!quiet || remark.severity != Severity::Note) std::cerr << remark.text() << '\n';
}

ExitStatus run(const CLI::App& app, Arguments& a) {
    std::vector<std::filesystem::path> folders = defaultPackageFolders();
    for (const std::string& path : a.packagePaths) {
        if (!std::filesystem::is_directory(path))
            throw Error(ExitStatus::Usage, "--package-path " + path + ": no such directory");
        folders.emplace_back(path);
    }
    if (app.got_subcommand("sheet")) return runSheet(a.pictures, a.sheet, a.columns);
    if (app.got_subcommand("merge")) return runMerge(a.merge);
    a.split.packagePaths = a.farm.packagePaths = a.packagePaths;
    if (app.got_subcommand("farm")) return runFarm(a.farm);
    if (app.got_subcommand("check-package")) return runCheckPackage(a.checkPackage, folders);
    nameCrashes();
    Registry registry;
    registry.loadPackages(folders);
    if (app.got_subcommand("complete")) return runComplete(a.completion.scene, registry);  // nobody reads while typing
    sayRemarks(registry.remarks(), a.render.quiet || a.sweep.render.quiet || a.split.render.quiet || a.part.quiet);
    if (app.got_subcommand("doctor")) return runDoctor(folders, registry);
    if (app.got_subcommand("render")) return runRender(a.render, registry);
    if (app.got_subcommand("scene")) return runScene(a.scene, registry);
    if (app.got_subcommand("check")) return runCheck(a.check, registry);
    if (app.got_subcommand("split")) return runSplit(a.split, registry);
    if (app.got_subcommand("part")) return runPart(a.part, registry);
    if (app.got_subcommand("sweep")) return runSweep(a.sweep, registry);
    if (app.got_subcommand("completion")) return runCompletion(app, a.completion.shell, registry);
    if (app.got_subcommand("list")) return runList(registry);
    return runDescribe(a.describe, registry);
}

// Where one is closed, the next file that is opened, perhaps a picture, would take its place and what is printed.
void openStandardStreams() {
    int opened = 0;
    while (opened >= 0 && opened <= STDERR_FILENO) opened = open("/dev/null", O_RDONLY);
    if (opened > STDERR_FILENO) close(opened);
}

// What was asked for is there only now.
int flushed(int status) {
    if (!std::cout.flush()) throw Error(ExitStatus::InputOutput, "cannot write to standard output");
    return status;
}

int parseAndRun(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Renders scenes with shading packages.", "oxbeam");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "oxbeam " OXBEAM_VERSION);
    addPackagePath(app, arguments.packagePaths);
    arguments.render.text = arguments.split.render.text = shellText({argv, argv + argc});
    addRender(app, arguments.render);
    addScene(app, arguments.scene);
    addOthers(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return flushed(app.exit(e));  // help was asked for
        throw Error(ExitStatus::Usage, usageError(app, e) + "\nRun with --help for more information.");
    }
    if (app.got_subcommand("view")) return static_cast<int>(runView(argc, argv));
    return flushed(static_cast<int>(run(app, arguments)));
}

ExitStatus fail(ExitStatus status, const std::string& message) {
    std::fprintf(stderr, "oxbeam: error: %s\n", printable(message).c_str());
    return status;
}

ExitStatus guarded(int argc, char** argv) {
    try {
        return static_cast<ExitStatus>(parseAndRun(argc, argv));
    } catch (const Interruption& e) {
        std::fprintf(stderr, "oxbeam: %s\n", printable(e.what()).c_str());
        return stoppedStatus();
    } catch (const Error& e) {
        return fail(e.status(), e.what());
    } catch (const std::bad_alloc&) {
        return fail(ExitStatus::InputOutput, "out of memory");
    } catch (const std::system_error& e) {  // a thread or a file that cannot be had
        return fail(ExitStatus::InputOutput, e.what());
    } catch (const std::exception& e) {
        return fail(ExitStatus::BadScene, e.what());
    } catch (...) {
        return fail(ExitStatus::BadPackage, "an exception of a type of a package's own");
    }
}

}  // namespace

int main(int argc, char** argv) {
    openStandardStreams();
    // A reader of what is printed that goes away is an error of writing, and so is a file that gets larger than allowed.
    // Programs that are started do not inherit this.
    for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, [](int) {});
    return static_cast<int>(leave(guarded(argc, argv)));
}
