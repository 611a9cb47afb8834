#include "Engine/Packages/ShaderInfo.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>

namespace oxbeam {

const ParameterInfo* ShaderInfo::find(std::string_view name) const {
    const auto names = [&](const ParameterInfo& p) {
        return std::count(p.ids.begin(), p.ids.end(), name) || std::count(p.aliases.begin(), p.aliases.end(), name);
    };
    const auto found = std::find_if(parameters.begin(), parameters.end(), names);
    return found == parameters.end() ? nullptr : &*found;
}

static ParameterInfo parseParameter(const pugi::xml_node& node, const std::string& group) {
    ParameterInfo p;
    p.group = group;
    for (const auto& id : node.children("id")) p.ids.emplace_back(id.text().get());
    for (const auto& alias : node.children("alias")) p.aliases.emplace_back(alias.text().get());
    p.longname = node.child("longname").text().get();
    p.type = node.child("type").text().get();
    if (const auto what = node.child("interpretation").first_child()) {
        p.interpretation = what.name();
        for (const auto& item : what.children("item"))
            p.items[item.child("key").text().as_int()] = item.child("value").text().get();
    }
    p.defaultText = node.child("default").text().get();
    p.lowerbound = node.child("lowerbound").text().get();
    p.upperbound = node.child("upperbound").text().get();
    p.logarithmic = !node.child("logarithmic").empty();
    p.help = node.child("help").text().get();
    return p;
}

ShaderInfo parseShaderInfo(std::string_view document) {
    ShaderInfo info;
    pugi::xml_document xml;
    const pugi::xml_parse_result result = xml.load_buffer(document.data(), document.size());
    const pugi::xml_node root = xml.child("ShaderInfo");
    if (!result)
        info.fault = fmt::format("is no XML: {} at byte {}", result.description(), result.offset);
    else if (!root)
        info.fault = "has no element 'ShaderInfo'";
    if (!info.fault.empty()) return info;
    info.type = root.child("type").text().get();
    info.package = root.child("package").text().get();
    info.id = root.child("id").text().get();
    info.longname = root.child("longname").text().get();
    for (const auto& node : root.children()) {
        if (std::string_view(node.name()) == "parameter") info.parameters.push_back(parseParameter(node, {}));
        if (std::string_view(node.name()) == "group")
            for (const auto& inner : node.children("parameter"))
                info.parameters.push_back(parseParameter(inner, node.child("longname").text().get()));
    }
    return info;
}

}  // namespace oxbeam
