// The scripts by which shells complete the command line.
#pragma once

#include <string>
#include <vector>

namespace oxbeam {

struct ShellOption {
    std::vector<std::string> names;  // "--output", "-o"; none for an argument
    bool takesValue = false;
    // The words that can stand there, blanks in between; or "@file", "@directory", "@scene" for what the scene tells, and
    // "@list a b" for some of the words with commas in between; or nothing.
    std::string kind;
    std::string help;
};

struct ShellCommand {
    std::string name;  // none: the command itself, whose options belong to every subcommand
    std::string help;
    std::vector<ShellOption> options;
};

const std::vector<std::string>& shellNames();
std::string completionScript(const std::string& shell, const std::vector<ShellCommand>& commands);

}  // namespace oxbeam
