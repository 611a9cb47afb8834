#include "Apps/oxbeam/View.h"

#include "Apps/oxbeam/SharedOptions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

namespace oxbeam {

void addViewOptions(CLI::App& c, ViewCommand& v) {
    RenderCommand& r = v.render;
    c.add_option("SCENE", r.scene,
                 "Scene file (.toml), or a model; without one, those that were opened last are offered");
    addModelOptions(c, r.model);
    c.add_option("--size", r.size, "Size of the picture in pixels, instead of the scene's")->type_name("WxH");
    c.add_option("--camera", r.camera, "One of the scene's named cameras, or of a model's own; 'file': its first")
        ->type_name("CAMERA");
    c.add_option("--samples", r.samples, "Passes over the picture, instead of the scene's")->type_name("N");
    addThreads(c, r.threads);
    addSettings(c, r.set);
    c.add_option("--script", v.script, "Do what stands in this file, and end with it")->type_name("FILE");
    c.add_option("--theme", v.theme, "Colours of the window")
        ->type_name("dark|light")
        ->check(CLI::IsMember(std::vector<std::string>{"dark", "light"}).description(""));
    c.add_option("--scale", v.scale, "Size of the interface, instead of what the screen asks for; 1 to 4")
        ->type_name("FACTOR")
        ->check(CLI::Range(1.0f, 4.0f).description(""));
    addImportLimit(c, r.importLimit);
    addQuiet(c, r.quiet);
}

void addView(CLI::App& app, ViewCommand& command) {
    addViewOptions(*app.add_subcommand("view", "Look at a scene or a model in a window, and change it"), command);
}

// All arguments but the subcommand's name: the first that is neither an option nor the value of one before it.
static std::vector<char*> viewerArguments(int argc, char** argv) {
    std::vector<char*> arguments;
    bool named = false, value = false;
    for (int i = 1; i < argc; ++i) {
        const bool subcommand = !named && !value && argv[i][0] != '-';
        value = std::strcmp(argv[i], "--package-path") == 0;
        if (subcommand)
            named = true;
        else
            arguments.push_back(argv[i]);
    }
    return arguments;
}

ExitStatus runView(int argc, char** argv) {
    std::error_code unknown;
    std::string program = std::filesystem::read_symlink("/proc/self/exe", unknown).replace_filename("oxbeam-view");
    std::vector<char*> arguments = viewerArguments(argc, argv);
    arguments.insert(arguments.begin(), program.data());
    arguments.push_back(nullptr);
    for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, SIG_DFL);
    execv(program.c_str(), arguments.data());
    if (errno == ENOENT)
        throw Error(ExitStatus::Usage, fmt::format("the viewer is not installed: there is no '{}'; `oxbeam render` "
                                                   "makes a picture without it",
                                                   program));
    throw Error(ExitStatus::InputOutput, fmt::format("cannot run '{}': {}", program, std::strerror(errno)));
}

}  // namespace oxbeam
