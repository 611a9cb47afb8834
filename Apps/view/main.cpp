// `oxbeam-view`, which `oxbeam view` becomes.
#include "Apps/oxbeam/SharedOptions.h"
#include "Apps/oxbeam/Usage.h"
#include "Apps/oxbeam/View.h"
#include "Apps/view/Viewer.h"
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/Watch.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <new>

using namespace oxbeam;

static int view(int argc, char** argv) {
    ViewCommand command;
    CLI::App app("Look at a scene or a model in a window, and change it", "oxbeam-view");
    app.set_version_flag("--version", "oxbeam-view " OXBEAM_VERSION);
    addPackagePath(app, command.packagePaths);
    addViewOptions(app, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);
        throw Error(ExitStatus::Usage, usageError(app, e) + "\nRun with --help for more information.");
    }
    if (!command.render.scene.empty()) checkInput(command.render.scene);
    nameCrashes();
    Viewer(command).run();
    return 0;
}

static int fail(ExitStatus status, const std::string& message) {
    if (!message.empty()) std::fprintf(stderr, "oxbeam: error: %s\n", printable(message).c_str());
    return static_cast<int>(status);
}

int main(int argc, char** argv) try { return view(argc, argv); } catch (const Error& e) {
    return fail(e.status(), e.what());
} catch (const std::bad_alloc&) {
    return fail(ExitStatus::InputOutput, "out of memory");
} catch (const std::exception& e) {
    return fail(ExitStatus::InputOutput, e.what());
}
