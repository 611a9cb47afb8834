// Options that several subcommands have alike.
#pragma once

#include "Apps/oxbeam/Commands.h"

#include <CLI/CLI.hpp>

namespace oxbeam {

inline void addUp(CLI::App& c, ModelCommand& m) {
    c.add_option("--up", m.up, "Of a model: which of its axes is up, instead of what the file or its format says")
        ->type_name("x|y|z|-x|-y|-z");
}

inline void addModelOptions(CLI::App& c, ModelCommand& m) {
    c.add_option("--shader", m.shader, "Of a model: show all of it with this surface")->type_name("OBJECT");
    c.add_option("--color", m.color, "Of a model: this colour everywhere, 0 to 1, instead of the file's")
        ->type_name("R,G,B");
    c.add_option("--texture", m.texture, "Of a model: this picture everywhere, instead of the file's")
        ->type_name("PICTURE");
    c.add_option("--environment", m.environment, "Of a model: light it with this equirectangular picture")
        ->type_name("PICTURE");
    c.add_option("--rotate-environment", m.rotateEnvironment,
                 "Of a model: turn that picture, counterclockwise as seen from above")
        ->type_name("DEGREES");
    c.add_option("--background", m.background,
                 "What is seen where nothing is; transparent makes an alpha channel; a colour is for models")
        ->type_name("environment|transparent|r,g,b");
    c.add_option("--ground", m.ground, "Of a model: what it stands on, shadow or none")->type_name("shadow|none");
    c.add_option("--view", m.view.name, "Of a model: where it is looked at from")
        ->type_name(CLI::detail::join(viewNames(), "|"));
    c.add_option("--azimuth", m.view.azimuth, "Of a model: degrees from its front to the right, instead of the view's")
        ->type_name("DEGREES");
    c.add_option("--elevation", m.view.elevation, "Of a model: degrees above its front, instead of the view's")
        ->type_name("DEGREES");
    c.add_option("--zoom", m.view.zoom, "Of a model: how many times as large as it fits the picture")
        ->type_name("FACTOR");
    addUp(c, m);
}

// An option that may be repeated, with one value each time.
inline CLI::Option* addRepeated(CLI::App& c, const std::string& name, std::vector<std::string>& values,
                                const std::string& help) {
    return c.add_option(name, values, help + "; may be repeated")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

inline void addSettings(CLI::App& c, std::vector<std::string>& settings) {
    addRepeated(c, "--set", settings, "Set a parameter over the scene, as shader.table.shininess=64")
        ->type_name("PLACE.PARAM=VALUE");
}

inline void addPackagePath(CLI::App& c, std::vector<std::string>& folders) {
    addRepeated(c, "--package-path", folders, "Another directory with packages")->type_name("DIR");
}

inline void addThreads(CLI::App& c, std::optional<unsigned>& threads) {
    c.add_option("--threads", threads, "Rendering threads, 1 to 48; every processor by default")->type_name("N");
}

inline void addQuiet(CLI::App& c, bool& quiet) {
    c.add_flag("-q,--quiet", quiet, "Say nothing but errors and warnings");
}

inline void addImportLimit(CLI::App& c, std::optional<unsigned>& seconds) {
    c.add_option("--import-limit", seconds, "What reading a model may take, instead of 20 and more for a large file")
        ->type_name("SECONDS");
}

}  // namespace oxbeam
