#include "Apps/oxbeam/Commands.h"
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/ParameterValue.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iostream>

namespace oxbeam {

ExitStatus runList(const Registry& registry) {
    for (const ObjectClass* object : registry.all())
        std::cout << fmt::format("{:<24}{:<18}{}\n", object->name, kindName(object->kind), object->info.longname);
    return ExitStatus::Done;
}

static void describeParameter(const ParameterDeclaration& p, std::size_t width) {
    std::cout << fmt::format("  {:<{}}  {}, default {}", p.id, width, describeType(p),
                             describeValue(p, p.defaultBytes.data()));
    if (p.info && !p.info->lowerbound.empty())
        std::cout << fmt::format(", {} to {}", p.info->lowerbound, p.info->upperbound);
    std::cout << '\n';
    const auto line = [&](const std::string& text) {
        if (!text.empty()) std::cout << fmt::format("  {:<{}}  {}\n", "", width, text);
    };
    if (!p.aliases.empty()) line(fmt::format("also: {}", fmt::join(p.aliases, ", ")));
    if (p.info) line(p.info->help);
}

ExitStatus runDescribe(const std::string& name, bool xml, const Registry& registry) {
    const ObjectClass* object = registry.find(name);
    if (!object)
        throw Error(ExitStatus::Usage,
                    fmt::format("no package offers an object '{}'{}", name, didYouMean(name, registry.names())));
    if (xml) {
        std::cout << object->document;
        return ExitStatus::Done;
    }
    std::cout << fmt::format("{}, a {}", object->name, kindName(object->kind));
    if (!object->info.longname.empty()) std::cout << ": " << object->info.longname;
    std::cout << fmt::format("\nfrom {}\n", object->package);
    if (object->parameters.empty()) std::cout << "It has no parameters.\n";
    std::size_t width = 0;
    for (const ParameterDeclaration& p : object->parameters) width = std::max(width, p.id.size());
    for (const ParameterDeclaration& p : object->parameters) describeParameter(p, width);
    return ExitStatus::Done;
}

}  // namespace oxbeam
