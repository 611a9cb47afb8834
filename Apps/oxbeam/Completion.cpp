#include "Apps/oxbeam/Completion.h"

#include "Apps/oxbeam/CompletionScripts.h"
#include "Engine/SceneFile/ScenePlaces.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <map>

namespace oxbeam {

void addCompletion(CLI::App& app, CompletionCommand& command) {
    CLI::App* script = app.add_subcommand("completion", "Print a script that completes this command in a shell");
    script->add_option("SHELL", command.shell, "For which shell")->required()->check(CLI::IsMember(shellNames()));
    CLI::App* callback = app.add_subcommand("complete", "What can follow an option, for a scene")->group("");
    callback->add_option("SCENE", command.scene, "Scene file")->required();
}

// ---- The script

static std::string joined(const std::vector<std::string>& words) { return fmt::format("{}", fmt::join(words, " ")); }

// A word that stands for itself, unlike R or x0, which stand for what the user knows.
static bool isLiteral(const std::string& word) {
    return word.size() > 1 || word == "x" || word == "y" || word == "z"
               ? std::none_of(word.begin(), word.end(), [](unsigned char c) { return std::isupper(c) || c == ','; })
               : std::isdigit(static_cast<unsigned char>(word[0])) != 0;
}

static std::vector<std::string> literals(const std::string& text, char separator) {
    std::vector<std::string> words = CLI::detail::split(text, separator);
    std::erase_if(words, [](const std::string& word) { return word.empty() || !isLiteral(word); });
    return words;
}

// What completes an option's value or an argument; nothing where that is for the user to know. Options say it by their
// type's name, as a|b|c for words and a,b,c for lists of them, or by the set that their value is checked against.
static std::string kindOf(const CLI::Option& option, const Registry& registry) {
    static const std::map<std::string, std::string> known = {
        {"FILE", "@file"},    {"SCENE", "@file"},    {"MODEL", "@file"},  {"PICTURE", "@file"},
        {"PACKAGE", "@file"}, {"DIR", "@directory"}, {"CAMERA", "@scene"}};
    const std::string type = option.get_type_name();
    if (const auto set = type.find('{'); set != std::string::npos)
        return joined(literals(type.substr(set + 1, type.rfind('}') - set - 1), ','));
    if (type.find('|') != std::string::npos) return joined(literals(type, '|'));
    if (type.find(',') != std::string::npos && type.find_first_of("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ") == type.npos)
        return "@list " + joined(literals(type, ','));
    const std::string name = option.get_positional() ? option.get_name() : type;
    if (name == "OBJECT") return joined(registry.names());
    if (name.starts_with("PLACE")) return "@scene";
    const auto found = known.find(name);
    return found == known.end() ? "" : found->second;
}

static std::vector<ShellOption> optionsOf(const CLI::App& app, const Registry& registry) {
    std::vector<ShellOption> options;
    for (const CLI::Option* option : app.get_options()) {
        ShellOption made;
        for (const std::string& name : option->get_lnames()) made.names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) made.names.push_back("-" + name);
        made.takesValue = option->get_positional() || option->get_items_expected_max() > 0;
        if (option->get_positional()) made.names.clear();
        made.kind = made.takesValue ? kindOf(*option, registry) : "";
        made.help = option->get_description();
        options.push_back(std::move(made));
    }
    return options;
}

ExitStatus runCompletion(const CLI::App& app, const std::string& shell, const Registry& registry) {
    std::vector<ShellCommand> commands = {{"", "", optionsOf(app, registry)}};
    for (const CLI::App* subcommand : app.get_subcommands([](const CLI::App* s) { return !s->get_group().empty(); }))
        commands.push_back({subcommand->get_name(), subcommand->get_description(), optionsOf(*subcommand, registry)});
    std::cout << completionScript(shell, commands);
    return ExitStatus::Done;
}

// ---- What a scene tells

// What needs no quoting, in the scene nor in the shell.
static bool isBare(const std::string& path) {
    return std::all_of(path.begin(), path.end(),
                       [](unsigned char c) { return std::isalnum(c) || c == '_' || c == '-' || c == '.'; });
}

static std::vector<std::string> namesUnder(const std::string& section, const std::vector<ScenePlace>& places) {
    std::vector<std::string> names;
    for (const ScenePlace& place : places)
        if (place.path.starts_with(section + '.')) names.push_back(place.path.substr(section.size() + 1));
    return names;
}

// Values that can be listed; one empty value where any other can stand.
static std::vector<std::string> valuesOf(const ParameterDeclaration& p, const std::vector<std::string>& textures) {
    if (p.type == ElementType::Bool) return {"false", "true"};
    if (p.info && p.info->interpretation == "texture") return textures;
    std::vector<std::string> values;
    if (p.info)
        for (const auto& [value, name] : p.info->items) values.push_back(std::to_string(value));
    return values.empty() ? std::vector<std::string>{""} : values;
}

static void completePlace(const ScenePlace& place, const Registry& registry, const std::vector<std::string>& textures) {
    const auto print = [&](const std::string& key, const std::vector<std::string>& values) {
        for (const std::string& value : values) std::cout << fmt::format("--set {}.{}={}\n", place.path, key, value);
    };
    const auto printAnimated = [&](const std::string& key) {
        std::cout << fmt::format("--animate {}.{}=\n", place.path, key);
    };
    for (const std::string& key : place.keys) {
        if (Animation::isMember(key)) printAnimated(key);
        const bool isObject = key == "object" && place.object;
        print(key, isObject ? registry.names({place.object->kind}) : std::vector<std::string>{""});
    }
    if (!place.object) return;
    for (const ParameterDeclaration& p : place.object->parameters) {
        print(p.id, valuesOf(p, textures));
        printAnimated(p.id);
    }
}

ExitStatus runComplete(const std::string& scene, const Registry& registry) {
    Diagnostics unsaid;
    std::vector<ScenePlace> places = scenePlaces(scene, registry, unsaid);
    std::erase_if(places, [](const ScenePlace& place) { return !isBare(place.path); });
    const std::vector<std::string> textures = namesUnder("texture", places);
    for (const ScenePlace& place : places) completePlace(place, registry, textures);
    for (const std::string& camera : namesUnder("camera", places)) std::cout << "--camera " << camera << '\n';
    return ExitStatus::Done;
}

}  // namespace oxbeam
