#include "Apps/oxbeam/Sweep.h"

#include "Apps/oxbeam/MemoryLimit.h"
#include "Apps/oxbeam/OutputFiles.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/oxbeam/SharedOptions.h"
#include "Apps/oxbeam/SweepValues.h"
#include "Engine/Output/ContactSheet.h"
#include "Engine/SceneFile/ScenePlaces.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <iterator>
#include <optional>

namespace oxbeam {

static constexpr unsigned PictureSide = 320, LeastCellWidth = 160, MaxPictures = 256;

void addSweep(CLI::App& app, SweepCommand& command) {
    RenderCommand& r = command.render;
    CLI::App* c = app.add_subcommand("sweep", "Render a scene with many values of a parameter, on one contact sheet");
    c->add_option("SCENE", r.scene, "Scene file (.toml), or a model")->required();
    c->add_option("-o,--output", r.output, "Picture to write: .png, .jpg, .tif, .exr or .hdr")
        ->required()
        ->type_name("FILE");
    addRepeated(*c, "--set", r.set,
                "Sweep a parameter: A..B/N for N steps, a,b,c for these values, no value for the object's own bounds; "
                "twice for a grid. One value sets it for all pictures")
        ->type_name("PLACE.PARAM[=VALUES]")
        ->required();
    c->add_option("--size", r.size, "Size of each picture in pixels")->type_name("WxH");
    c->add_option("--columns", command.columns, "Pictures in a row, where one parameter is swept")
        ->type_name("N")
        ->check(CLI::Range(1, 64));
    c->add_option("--camera", r.camera, "One of the scene's named cameras")->type_name("CAMERA");
    addUp(*c, r.model);
    addImportLimit(*c, r.importLimit);
    c->add_option("--samples", r.samples, "Passes over each picture, instead of the scene's")->type_name("N");
    addThreads(*c, r.threads);
    addMemoryLimit(*c);
    addQuiet(*c, r.quiet);
}

namespace {

// The swept settings, taken out of `set`: the first changes along each row, the second from row to row. None where the
// scene cannot be read, after saying why.
std::vector<SweptSetting> takeSwept(RenderCommand& render, const Registry& registry) {
    std::vector<std::string> given;
    std::copy_if(render.set.begin(), render.set.end(), std::back_inserter(given),
                 [](const std::string& text) { return text.find('=') != std::string::npos; });
    Diagnostics unreadable;  // is said when the scene is loaded, unless a declaration is needed before
    const std::vector<ScenePlace> known =
        scenePlaces(render.scene, registry, unreadable,
                    {given, {}, modelSceneOptions(render.model, render.size), importLimits(render.importLimit)});
    const std::vector<Place> places(known.begin(), known.end());
    if (unreadable.hasErrors() && given.size() < render.set.size()) {
        unreadable.print(std::cerr);
        return {};
    }
    std::vector<SweptSetting> swept;
    std::vector<std::string> ordinary;
    for (const std::string& text : render.set) {
        if (auto setting = sweptSetting(text, places))
            swept.push_back(std::move(*setting));
        else
            ordinary.push_back(text);
    }
    if (swept.empty() || swept.size() > 2)
        throw Error(ExitStatus::Usage, fmt::format("--set: {} of the settings have more than one value; expected one, "
                                                   "or two for a grid",
                                                   swept.empty() ? "none" : std::to_string(swept.size())));
    render.set = std::move(ordinary);
    return swept;
}

struct Cell {
    std::vector<std::string> set;
    std::string label;
};

std::vector<Cell> cellsOf(const std::vector<SweptSetting>& swept) {
    const auto parameter = [](const SweptSetting& s) { return s.path.substr(s.path.rfind('.') + 1); };
    const bool ambiguous = swept.size() == 2 && parameter(swept[0]) == parameter(swept[1]);
    std::vector<Cell> cells(1);
    // The last setting changes slowest.
    for (auto s = swept.rbegin(); s != swept.rend(); ++s) {
        std::vector<Cell> longer;
        for (const Cell& cell : cells)
            for (const SweepValue& value : s->values) {
                Cell next = cell;
                const std::string name = ambiguous ? s->path : parameter(*s);
                next.set.push_back(fmt::format("{}={}", s->path, value.text));
                next.label = fmt::format("{} = {}{}{}", name, value.label, cell.label.empty() ? "" : ", ", cell.label);
                longer.push_back(std::move(next));
            }
        cells = std::move(longer);
    }
    if (cells.size() > MaxPictures)
        throw Error(ExitStatus::Usage,
                    fmt::format("a sweep of {} pictures; expected at most {}", cells.size(), MaxPictures));
    return cells;
}

}  // namespace

ExitStatus runSweep(const SweepCommand& command, const Registry& registry) {
    checkInput(command.render.scene);
    checkOutput(command.render.output, {});
    requireApart(outputsOf(command.render), inputsOf(command.render.scene, {}, registry));
    RenderCommand base = command.render;
    const std::vector<SweptSetting> swept = takeSwept(base, registry);
    if (swept.empty()) return ExitStatus::BadScene;
    const std::vector<Cell> cells = cellsOf(swept);
    const auto count = static_cast<unsigned>(cells.size());
    const auto columns = swept.size() == 2 ? static_cast<unsigned>(swept[0].values.size()) : command.columns;
    ProgressLine progress(base.quiet);
    stopOnSignals();
    ContactSheet::prepare();

    std::optional<ContactSheet> contacts;
    std::optional<WorthWaitingFor> worth;
    const auto writeSheet = [&] {
        if (!contacts) return;
        const Sheet sheet = contacts->sheet();
        writeImage(base.output, sheet.width, sheet.height, sheet.pixels);
        progress.step(fmt::format("wrote {} ({} x {})", base.output, sheet.width, sheet.height));
    };
    const auto render = [&](const Cell& cell) {
        RenderCommand one = base;
        one.set.insert(one.set.end(), cell.set.begin(), cell.set.end());
        const auto picture = renderPicture(one, registry, PictureSide, writeSheet);
        if (!picture) return false;
        if (!worth) worth.emplace();
        if (!contacts) contacts.emplace(count, columns, std::max(picture->width, LeastCellWidth), picture->height);
        contacts->add(picture->width, picture->height, picture->pixels, cell.label);
        return true;
    };
    bool good = true;
    std::exception_ptr failure;
    try {
        for (unsigned i = 0; i < count && good && !stopWanted(); ++i) {
            good = render(cells[i]);
            if (good) progress.step(fmt::format("{} of {}: {}", i + 1, count, cells[i].label));
        }
    } catch (...) {
        failure = std::current_exception();
    }
    writeSheet();  // also of what came before an error, a package that fails, or a stop
    if (failure) std::rethrow_exception(failure);
    if (!good) return ExitStatus::BadScene;
    return stopWanted() ? stoppedStatus() : ExitStatus::Done;
}

}  // namespace oxbeam
