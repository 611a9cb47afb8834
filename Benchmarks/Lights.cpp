// How a frame's time grows with the number of lights where a surface evaluates a few of them a pass. Prints JSON.
//
// The order in which lights are visited is made once in a process, for as many as there are then: each number of lights
// is measured in a process of its own, turn by turn.
#include "Benchmarks/Scenes.h"
#include "Benchmarks/Timing.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

using namespace oxbeam;
using namespace oxbeam::bench;

namespace {

struct Settings {
    unsigned turns = 7, passes = 16, lights = 0;
    ImageSize size{640, 360};
};

// Seconds a pass on one thread, the beginning of a frame included.
double passTime(const Settings& settings) {
    ManyLightsScene scene(settings.lights);
    scene.image = settings.size;
    Workers one(1);
    one.within([&] { scene.geometry.build(); });
    RenderOptions options;
    render(scene, one, options);
    options.samples = settings.passes;
    return seconds([&] { render(scene, one, options); }) / settings.passes;
}

double passTimeInProcess(const Settings& settings, unsigned lights) {
    const std::string command = "exec '" + std::filesystem::read_symlink("/proc/self/exe").string() + "' --lights " +
                                std::to_string(lights) + " --passes " + std::to_string(settings.passes) + " --width " +
                                std::to_string(settings.size.width) + " --height " +
                                std::to_string(settings.size.height);
    FILE* answer = popen(command.c_str(), "r");
    double time = 0.0;
    const bool told = answer && std::fscanf(answer, "%lf", &time) == 1;
    if (!answer || pclose(answer) != 0 || !told) throw std::runtime_error("the process that measures failed");
    return time;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Times passes of a surface for many lights, and prints JSON.");
    Settings settings;
    app.add_option("--turns", settings.turns, "Times that both numbers of lights are measured")->capture_default_str();
    app.add_option("--passes", settings.passes)->capture_default_str();
    app.add_option("--width", settings.size.width)->capture_default_str();
    app.add_option("--height", settings.size.height)->capture_default_str();
    app.add_option("--lights", settings.lights, "Measure so many, here and once, and print nothing but seconds a pass");
    CLI11_PARSE(app, argc, argv);
    if (settings.lights > 0) {
        std::cout << passTime(settings) << '\n';
        return 0;
    }
    Json json = {{"width", settings.size.width}, {"height", settings.size.height}, {"passes", settings.passes}};
    json.update(compare(
        settings.turns, [&] { return passTimeInProcess(settings, 100'000); }, "lights_100000_s_a_pass",
        [&] { return passTimeInProcess(settings, 100); }, "lights_100_s_a_pass"));
    std::cout << json.dump(2) << '\n';
}
