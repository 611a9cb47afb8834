#include "Apps/oxbeam/CompletionScripts.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>

namespace oxbeam {

// In those of bash and zsh, _oxbeam_words tells, for "subcommand ", its options; for "subcommand --option" and for
// "subcommand *", an argument of it, what can stand there.

static const char* const BashScript = R"bash(
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

static const char* const ZshScript = R"zsh(
# What can follow "$1", an option, in the scene on the command line: one step of a path at a time.
_oxbeam_from_scene() {
    local file=${~scene} line rest part
    local -aU parts
    [[ -f $file ]] || return 0
    for line in "${(@f)$(timeout 5 ${~words[1]} $packages complete $file 2>/dev/null)}"; do
        [[ $line == "$1 $current"* ]] || continue
        rest=${line#"$1 $current"}
        part=${rest%%[.=]*}
        parts+=("$current$part${rest[$#part+1]}")
    done
    (( $#parts )) && compadd -S '' -- $parts
}

_oxbeam() {
    setopt local_options extended_glob
    local word command= scene= option= current=${words[CURRENT]} kind
    local -a packages
    for word in "${(@)words[2,CURRENT-1]}"; do
        if [[ -n $option ]]; then
            [[ $option == --package-path ]] && packages+=($option $word)
            option=
        elif [[ $word == -* ]]; then
            (( ${+_oxbeam_words[$command $word]} )) && option=$word
        elif [[ -z $command ]]; then
            command=$word
        elif [[ -z $scene ]]; then
            scene=$word
        fi
    done
    if [[ -z $option && $current == --*=* ]] && (( ${+_oxbeam_words[$command ${current%%=*}]} )); then
        option=${current%%=*} current=${current#*=}
        compset -P '--[^=]#='
    fi
    if [[ -n $option ]]; then
        kind=${_oxbeam_words[$command $option]}
    elif [[ $current == -* || -z $command ]]; then
        kind=${_oxbeam_words[$command ]}
    else
        kind=${_oxbeam_words[$command *]}
    fi
    case $kind in
        @file) _files ;;
        @directory) _files -/ ;;
        @scene) _oxbeam_from_scene "$option" ;;
        @list*) compset -P '*,'; compadd -S '' -- ${=kind#@list} ;;
        *) compadd -- ${=kind} ;;
    esac
}
# Out of a folder of fpath this is loaded at the first completion, which it then has to answer.
if [[ $funcstack[1] == _oxbeam ]]; then
    _oxbeam "$@"
elif (( $+functions[compdef] )); then
    compdef _oxbeam oxbeam
fi
)zsh";

static const char* const FishScript = R"fish(
# What can follow an option in the scene on the command line.
function __oxbeam_from_scene
    set -l words (commandline -opc)
    for file in $words[2..]
        string match -q -- '-*' $file; and continue
        test -f $file; or continue
        $words[1] complete $file 2>/dev/null | string replace -rf -- "^$argv[1] " ''
        return
    end
end
complete -c oxbeam -f
)fish";

const std::vector<std::string>& shellNames() {
    static const std::vector<std::string> names = {"bash", "zsh", "fish"};
    return names;
}

static std::string heading(const std::string& shell, const std::string& what) {
    return fmt::format(
        "# Completes the arguments of oxbeam: {}.\n"
        "# Printed by `oxbeam completion {}`; print it anew when packages have changed.\n",
        what, shell);
}

// ---- bash and zsh

using Words = std::map<std::string, std::string>;

static void addOptions(const std::string& subcommand, const std::vector<ShellOption>& options, Words& words) {
    for (const ShellOption& option : options) {
        if (option.names.empty()) words[subcommand + " *"] = option.kind;
        for (const std::string& name : option.names) {
            std::string& all = words[subcommand + ' '];
            if (all.find(name + ' ') == std::string::npos) all += name + ' ';
            if (option.takesValue) words[fmt::format("{} {}", subcommand, name)] = option.kind;
        }
    }
}

static Words wordsOf(const std::vector<ShellCommand>& commands) {
    Words words;
    for (const ShellCommand& command : commands) {
        addOptions(command.name, command.options, words);
        if (command.name.empty()) continue;
        words[" "] += command.name + ' ';
        addOptions(command.name, commands.front().options, words);
    }
    return words;
}

static std::string bashScript(const std::vector<ShellCommand>& commands) {
    std::string table = "declare -gA _oxbeam_words=(\n";
    for (const auto& [key, value] : wordsOf(commands)) table += fmt::format("    [\"{}\"]=\"{}\"\n", key, value);
    return heading("bash", "source this, or put it where bash looks for completions") + table + ")\n" + BashScript;
}

static std::string zshScript(const std::vector<ShellCommand>& commands) {
    std::string table = "typeset -gA _oxbeam_words\n_oxbeam_words=(\n";
    for (const auto& [key, value] : wordsOf(commands)) table += fmt::format("    '{}' '{}'\n", key, value);
    return "#compdef oxbeam\n" +
           heading("zsh", "source this after compinit, or put it as _oxbeam into a folder of fpath") + table + ")\n" +
           ZshScript;
}

// ---- fish

static std::string fishQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "'";
}

// What follows on the line that declares an option or an argument.
static std::string fishValue(const ShellOption& option) {
    if (!option.takesValue) return "";
    const bool argument = option.names.empty();
    if (option.kind == "@file") return argument ? " -F" : " -r -F";
    const std::string flag = argument ? "" : " -x";  // a value, and no file
    if (option.kind == "@directory") return flag + " -a '(__fish_complete_directories)'";
    if (option.kind == "@scene") return flag + fmt::format(" -a '(__oxbeam_from_scene {})'", option.names.at(0));
    if (option.kind.starts_with("@list")) return flag + fmt::format(" -a '(__fish_append ,{})'", option.kind.substr(5));
    return flag + (option.kind.empty() ? "" : " -a " + fishQuoted(option.kind));
}

static std::string fishScript(const std::vector<ShellCommand>& commands) {
    std::string script =
        heading("fish", "source this, or put it as oxbeam.fish where fish looks for completions") + FishScript;
    for (const ShellCommand& command : commands) {
        if (!command.name.empty())
            script += fmt::format("complete -c oxbeam -n __fish_use_subcommand -a {} -d {}\n", command.name,
                                  fishQuoted(command.help));
        const std::string where =
            command.name.empty() ? "" : fmt::format(" -n '__fish_seen_subcommand_from {}'", command.name);
        for (const ShellOption& option : command.options) {
            script += "complete -c oxbeam" + where;
            for (const std::string& name : option.names)
                script += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            script += fishValue(option);
            if (!option.names.empty()) script += " -d " + fishQuoted(option.help);
            script += '\n';
        }
    }
    return script;
}

std::string completionScript(const std::string& shell, const std::vector<ShellCommand>& commands) {
    return shell == "bash" ? bashScript(commands) : shell == "zsh" ? zshScript(commands) : fishScript(commands);
}

}  // namespace oxbeam
