#include "Apps/oxbeam/Usage.h"

#include "Engine/Diagnostics/Diagnostics.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace oxbeam {

static void addOptionNames(const CLI::App& app, std::vector<std::string>& names) {
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
}

static std::string notUnderstood(const CLI::App& app, const std::string& word) {
    const auto chosen = app.get_subcommands();
    std::vector<std::string> known;
    if (word.starts_with("-")) {
        addOptionNames(app, known);
        for (const CLI::App* subcommand : chosen) addOptionNames(*subcommand, known);
        const std::string name = word.substr(0, word.find('='));
        const std::string of = chosen.empty() ? "oxbeam" : "oxbeam " + chosen[0]->get_name();
        return fmt::format("{} has no option '{}'{}", of, name, didYouMean(name, known));
    }
    if (!chosen.empty()) return fmt::format("'{}' is one argument too many", word);
    for (const CLI::App* subcommand : app.get_subcommands([](const CLI::App* s) { return !s->get_group().empty(); }))
        known.push_back(subcommand->get_name());
    return fmt::format("there is no subcommand '{}'{}", word, didYouMean(word, known));
}

// Whether the option that "--time soon" begins with takes more than whole numbers.
static bool isReal(const CLI::App& app, const std::string& given) {
    static const std::set<std::string> types = {"SECONDS", "EV", "PIXELS", "DEGREES", "FACTOR"};
    const CLI::App& speaker = app.get_subcommands().empty() ? app : *app.get_subcommands().front();
    const CLI::Option* option = speaker.get_option_no_throw(given.substr(0, given.find(' ')));
    return option && types.contains(option->get_type_name());
}

std::string usageError(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> words = app.remaining(true);
    const auto option =
        std::find_if(words.begin(), words.end(), [](const auto& word) { return word.starts_with("-"); });
    const bool subcommand = !app.get_subcommands().empty();
    if (subcommand && option != words.end()) return notUnderstood(app, *option);
    if (!words.empty()) return notUnderstood(app, words.front());
    std::string message = error.what();
    constexpr std::string_view unconverted = "Could not convert: ";
    if (!message.starts_with(unconverted)) return message;
    message.erase(0, unconverted.size());
    if (const auto equals = message.find(" = "); equals != std::string::npos) message.replace(equals, 3, " ");
    return fmt::format("{}: expected {} number", message, isReal(app, message) ? "a" : "a whole");
}

}  // namespace oxbeam
