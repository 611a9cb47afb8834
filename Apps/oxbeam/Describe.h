// `oxbeam describe`: what objects say of themselves, for people and for programs.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Engine/Packages/Registry.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace oxbeam {

struct DescribeCommand {
    std::string object;  // nothing for all objects of the loaded packages
    std::string format = "text";
    bool document = false;  // the object's own document, byte for byte
};

void addDescribe(CLI::App& app, DescribeCommand& command);
ExitStatus runDescribe(const DescribeCommand& command, const Registry& registry);

// The formats. `all` tells a list of objects from a single one, of which less needs saying.
using Objects = std::vector<const ObjectClass*>;
std::string describeAsText(const Objects& objects);
std::string describeAsJson(const Objects& objects, bool all);
std::string describeAsXml(const Objects& objects, bool all);
std::string describeAsMarkdown(const Objects& objects, bool all);

}  // namespace oxbeam
