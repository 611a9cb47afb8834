#include "Apps/oxbeam/Completion.h"

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
    script->add_option("SHELL", command.shell, "For which shell: bash")
        ->required()
        ->check(CLI::IsMember({"bash"}).description(""))
        ->type_name("bash|");
    CLI::App* callback = app.add_subcommand("complete", "What can follow an option, for a scene")->group("");
    callback->add_option("SCENE", command.scene, "Scene file")->required();
}

// ---- The script

// _oxbeam_words tells, for "subcommand ", its options; for "subcommand --option" and for "subcommand *", an argument of
// it, the words that can stand there, or @file, @directory or @scene.
static const char* const Script = R"bash(
# What can follow "$1", an option, in the scene on the command line; asked for once until the file changes.
_oxbeam_from_scene() {
    local file=${scene//[\'\"\\]/} line rest part
    file=${file/#\~/$HOME}
    [[ -f $file ]] || return 0
    local key="${packages[*]} $file $(stat -c '%Y %s' -- "$file")"
    if [[ $key != "$_oxbeam_scene_key" ]]; then
        mapfile -t _oxbeam_scene < <(timeout 5 "${COMP_WORDS[0]/#\~/$HOME}" "${packages[@]}" complete "$file" 2>/dev/null)
        _oxbeam_scene_key=$key
    fi
    local -A seen=()
    for line in "${_oxbeam_scene[@]}"; do
        [[ $line == "$1 $current"* ]] || continue
        rest=${line#"$1 $current"}
        part=${rest%%[.=]*} # one step of a path at a time
        part+=${rest:${#part}:1}
        [[ -v seen[x$part] ]] && continue
        seen[x$part]=1
        [[ $part == *[.=] ]] && compopt -o nospace 2>/dev/null
        part=$current$part
        # bash replaces no more than what stands behind the last '='.
        [[ $part == *=?* || $current == *= ]] && part=${part##*=}
        [[ -n $part ]] && COMPREPLY+=("$part")
    done
}

_oxbeam() {
    local words=() packages=() word command= scene= option= i
    COMPREPLY=()
    # bash takes words apart at '='.
    for ((i = 1; i <= COMP_CWORD; i++)); do
        if ((${#words[@]})) && [[ ${COMP_WORDS[i]} == "=" || ${COMP_WORDS[i - 1]} == "=" ]]; then
            words[-1]+=${COMP_WORDS[i]}
        else
            words+=("${COMP_WORDS[i]}")
        fi
    done
    local current=${words[-1]}
    unset 'words[-1]'
    for word in "${words[@]}"; do
        if [[ -n $option ]]; then
            [[ $option == --package-path ]] && packages+=("$option" "$word")
            option=
        elif [[ $word == -* ]]; then
            [[ -n ${_oxbeam_words["$command $word"]+x} ]] && option=$word
        elif [[ -z $command ]]; then
            command=$word
        elif [[ -z $scene ]]; then
            scene=$word
        fi
    done
    if [[ -z $option && $current == --*=* && -n ${_oxbeam_words["$command ${current%%=*}"]+x} ]]; then
        option=${current%%=*} current=${current#*=}
    fi
    local kind
    if [[ -n $option ]]; then
        kind=${_oxbeam_words["$command $option"]}
    elif [[ $current == -* || -z $command ]]; then
        kind=${_oxbeam_words["$command "]-}
    else
        kind=${_oxbeam_words["$command *"]-}
    fi
    case $kind in
    @file | @directory)
        mapfile -t COMPREPLY < <(compgen -A "${kind:1}" -- "$current")
        compopt -o filenames 2>/dev/null
        ;;
    @scene) _oxbeam_from_scene "$option" ;;
    @list*) # some of the words, with commas in between
        mapfile -t COMPREPLY < <(compgen -P "${current%"${current##*,}"}" -W "${kind#@list}" -- "${current##*,}")
        compopt -o nospace 2>/dev/null
        ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$kind" -- "$current") ;;
    esac
    return 0
}
complete -F _oxbeam oxbeam
)bash";

// What completes an option's value or an argument; nothing where that is for the user to know.
static std::string kindOf(const CLI::Option& option, const Registry& registry) {
    static const std::map<std::string, std::string> known = {
        {"FILE", "@file"}, {"SCENE", "@file"}, {"PICTURE", "@file"}, {"DIR", "@directory"}, {"CAMERA", "@scene"}};
    std::string type = option.get_type_name();
    if (type.find('|') != std::string::npos) {
        std::replace(type.begin(), type.end(), '|', ' ');
        return type;
    }
    if (type.find(',') != std::string::npos && type.find("x0") == std::string::npos && type != "R,G,B") {
        std::replace(type.begin(), type.end(), ',', ' ');
        return "@list " + type;
    }
    const std::string name = option.get_positional() ? option.get_name() : type;
    if (name == "OBJECT") return fmt::format("{}", fmt::join(registry.names(), " "));
    if (name.starts_with("PLACE")) return "@scene";
    const auto found = known.find(name);
    return found == known.end() ? "" : found->second;
}

using Words = std::map<std::string, std::string>;

// Adds the options of an app to those of a subcommand; global ones belong to every subcommand.
static void addOptions(const std::string& subcommand, const CLI::App& app, const Registry& registry, Words& words) {
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) {
            words[subcommand + " *"] = kindOf(*option, registry);
            continue;
        }
        std::vector<std::string> names;
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
        for (const std::string& name : names) {
            std::string& all = words[subcommand + ' '];
            if (all.find(name + ' ') == std::string::npos) all += name + ' ';
            if (option->get_items_expected_max() > 0)
                words[fmt::format("{} {}", subcommand, name)] = kindOf(*option, registry);
        }
    }
}

ExitStatus runCompletion(const CLI::App& app, const Registry& registry) {
    Words words;
    addOptions("", app, registry, words);
    for (const CLI::App* subcommand : app.get_subcommands([](const CLI::App* s) { return !s->get_group().empty(); })) {
        words[" "] += subcommand->get_name() + ' ';
        addOptions(subcommand->get_name(), *subcommand, registry, words);
        addOptions(subcommand->get_name(), app, registry, words);
    }
    std::cout << "# Completes the arguments of oxbeam: source this, or put it where bash looks for completions.\n"
                 "# Printed by `oxbeam completion bash`; print it anew when packages have changed.\n"
                 "declare -gA _oxbeam_words=(\n";
    for (const auto& [key, value] : words) std::cout << fmt::format("    [\"{}\"]=\"{}\"\n", key, value);
    std::cout << ")\n" << Script;
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
    for (const std::string& key : place.keys) {
        const bool isObject = key == "object" && place.object;
        print(key, isObject ? registry.names({place.object->kind}) : std::vector<std::string>{""});
    }
    if (!place.object) return;
    for (const ParameterDeclaration& p : place.object->parameters) print(p.id, valuesOf(p, textures));
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
