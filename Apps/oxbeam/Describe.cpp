#include "Apps/oxbeam/Describe.h"

#include "Apps/oxbeam/Commands.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/ParameterValue.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iostream>

namespace oxbeam {

void addDescribe(CLI::App& app, DescribeCommand& command) {
    CLI::App* c = app.add_subcommand("describe", "Describe an object and its parameters, or all objects");
    c->add_option("OBJECT", command.object, "Object, as `oxbeam list` names it; all of them by default");
    auto* format = c->add_option("--format", command.format,
                                 "How: for people, for programs, as the object's own document, or as a table")
                       ->check(CLI::IsMember({"text", "json", "xml", "markdown"}).description(""))
                       ->type_name("text|json|xml|markdown");
    c->add_flag("--xml", command.document, "Print the object's own document, byte for byte")->excludes(format);
}

// ---- Text

static std::string parameterText(const ParameterDeclaration& p, std::size_t width) {
    std::string text = fmt::format("  {:<{}}  {}, default {}", p.id, width, describeType(p),
                                   p.followed ? "by the size of the scene" : describeValue(p, p.defaultBytes.data()));
    if (p.info && !p.info->lowerbound.empty())
        text += fmt::format(", {} to {}", p.info->lowerbound, p.info->upperbound);
    text += '\n';
    const auto line = [&](const std::string& more) {
        if (!more.empty()) text += fmt::format("  {:<{}}  {}\n", "", width, more);
    };
    if (!p.aliases.empty()) line(fmt::format("also: {}", fmt::join(p.aliases, ", ")));
    if (p.info) line(p.info->help);
    if (p.followed) line(fmt::format("unless set: {}", p.followed));
    return text;
}

static std::string objectText(const ObjectClass& object) {
    std::string text = fmt::format("{}, {}", object.name, oneOf(object.kind));
    if (!object.info.longname.empty()) text += ": " + object.info.longname;
    text += fmt::format("\nfrom {}\n", object.package);
    if (object.parameters.empty()) text += "It has no parameters.\n";
    std::size_t width = 0;
    for (const ParameterDeclaration& p : object.parameters) width = std::max(width, p.id.size());
    for (const ParameterDeclaration& p : object.parameters) text += parameterText(p, width);
    return text;
}

std::string describeAsText(const Objects& objects) {
    std::vector<std::string> texts;
    texts.reserve(objects.size());
    for (const ObjectClass* object : objects) texts.push_back(objectText(*object));
    return fmt::format("{}", fmt::join(texts, "\n"));
}

// ---- The command

static Objects chosenObjects(const std::string& name, const Registry& registry) {
    if (name.empty()) return registry.all();
    const ObjectClass* object = registry.find(name);
    if (!object)
        throw Error(registry.brokenFor(name) ? ExitStatus::BadPackage : ExitStatus::Usage, registry.whyMissing(name));
    return {object};
}

ExitStatus runDescribe(const DescribeCommand& command, const Registry& registry) {
    const bool all = command.object.empty();
    if (command.document && all) throw Error(ExitStatus::Usage, "--xml: expected the name of an object");
    const Objects objects = chosenObjects(command.object, registry);
    if (command.document)
        std::cout << objects.front()->document;
    else if (command.format == "json")
        std::cout << describeAsJson(objects, all);
    else if (command.format == "xml")
        std::cout << describeAsXml(objects, all);
    else if (command.format == "markdown")
        std::cout << describeAsMarkdown(objects, all);
    else
        std::cout << describeAsText(objects);
    return ExitStatus::Done;
}

ExitStatus runList(const Registry& registry) {
    for (const ObjectClass* object : registry.all())
        std::cout << fmt::format("{:<24}{:<18}{}\n", object->name, kindName(object->kind), object->info.longname);
    for (const BrokenPackage& package : registry.broken())
        std::cout << printable(fmt::format("{}: broken: {}\n", package.path.string(), package.why));
    return ExitStatus::Done;
}

}  // namespace oxbeam
