// Objects for programs and for documents.
#include "Apps/oxbeam/Describe.h"
#include "Engine/Packages/ParameterValue.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>
#include <iterator>
#include <sstream>

namespace oxbeam {

using Json = nlohmann::ordered_json;

// Where a package lies differs from machine to machine; its file's name does not.
static std::string packageName(const ObjectClass& object) {
    return std::filesystem::path(object.package).filename().string();
}

// ---- JSON

// "0.2", "true", "0 0 1" as the value that it stands for; nothing becomes null, and what is no value stays a text.
static Json valueOf(const std::string& text) {
    std::istringstream stream(text);
    Json values = Json::array();
    for (std::string word; stream >> word;) {
        const Json value = Json::parse(word, nullptr, false);
        if (word == "none")
            values.push_back(nullptr);
        else if (value.is_primitive() && !value.is_discarded())
            values.push_back(value);
        else
            return text;
    }
    return values.empty() ? Json() : values.size() == 1 ? values[0] : values;
}

static Json parameterAsJson(const ParameterDeclaration& p) {
    static const char* const types[] = {"bool", "int", "float", "int or float"};
    Json json = {{"id", p.id},
                 {"aliases", p.aliases},
                 {"type", types[static_cast<int>(p.type)]},
                 {"components", p.components()},
                 {"default", p.followed ? Json() : valueOf(describeValue(p, p.defaultBytes.data()))}};
    if (p.followed) json["unlessSet"] = p.followed;
    if (!p.info) return json;
    const auto add = [&](const char* key, const std::string& text, bool asValue) {
        if (!text.empty()) json[key] = asValue ? valueOf(text) : Json(text);
    };
    add("documentedDefault", p.info->defaultText, true);
    add("lowerBound", p.info->lowerbound, true);
    add("upperBound", p.info->upperbound, true);
    if (p.info->logarithmic) json["logarithmic"] = true;
    add("interpretation", p.info->interpretation, false);
    for (const auto& [value, name] : p.info->items) json["items"].push_back({{"value", value}, {"name", name}});
    add("group", p.info->group, false);
    add("longname", p.info->longname, false);
    add("help", p.info->help, false);
    return json;
}

std::string describeAsJson(const Objects& objects, bool all) {
    Json list = Json::array();
    for (const ObjectClass* object : objects) {
        Json parameters = Json::array();
        for (const ParameterDeclaration& p : object->parameters) parameters.push_back(parameterAsJson(p));
        list.push_back({{"name", object->name},
                        {"kind", kindName(object->kind)},
                        {"package", object->package},
                        {"longname", object->info.longname},
                        {"parameters", parameters}});
    }
    // A package's text need not be UTF-8.
    return (all ? list : list[0]).dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

// ---- XML

// The document of an object, or a comment where what it says of itself is none.
static void appendDocument(pugi::xml_node parent, const ObjectClass& object) {
    pugi::xml_document own;
    if (own.load_string(object.document.c_str()) && own.child("ShaderInfo"))
        parent.append_copy(own.child("ShaderInfo"));
    else
        parent.append_child("ShaderInfo")
            .append_child(pugi::node_comment)
            .set_value(fmt::format(" {} has no document of its own ", object.name).c_str());
}

std::string describeAsXml(const Objects& objects, bool all) {
    pugi::xml_document document;
    pugi::xml_node declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    if (!all) appendDocument(document, *objects.front());
    pugi::xml_node list = all ? document.append_child("objects") : pugi::xml_node();
    for (const ObjectClass* object : all ? objects : Objects()) {
        pugi::xml_node entry = list.append_child("object");
        entry.append_attribute("name") = object->name.c_str();
        entry.append_attribute("kind") = kindName(object->kind);
        entry.append_attribute("package") = object->package.c_str();
        appendDocument(entry, *object);
    }
    std::ostringstream text;
    document.save(text, "  ");
    return text.str();
}

// ---- Markdown

// Text that means nothing but itself, also in a table.
static std::string plain(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (std::string_view("\\`*_[]<>|").find(c) != std::string_view::npos) escaped += '\\';
        escaped += c == '\n' ? ' ' : c;
    }
    return escaped;
}

static std::string code(const std::string& text) { return text.empty() ? text : fmt::format("`{}`", text); }

// "0 0 0" and "0" are one value for all components of a vector.
static std::string shortened(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    const bool alike = std::adjacent_find(words.begin(), words.end(), std::not_equal_to<>()) == words.end();
    return alike && words.size() > 1 ? words.front() : text;
}

static std::string parameterRow(const ParameterDeclaration& p) {
    static const ParameterInfo undocumented;
    const ParameterInfo& info = p.info ? *p.info : undocumented;
    std::string bounds;
    if (!info.lowerbound.empty())
        bounds = fmt::format("{} to {}{}", shortened(info.lowerbound), shortened(info.upperbound),
                             info.logarithmic ? ", logarithmic" : "");
    std::vector<std::string> aliases;
    std::transform(p.aliases.begin(), p.aliases.end(), std::back_inserter(aliases), code);
    const std::string inForce = p.followed ? plain(p.followed) : code(describeValue(p, p.defaultBytes.data()));
    return fmt::format("| {} | {} | {} | {} | {} | {} | {} |\n", code(p.id), fmt::join(aliases, ", "),
                       plain(describeType(p)), inForce, code(info.defaultText), plain(bounds), plain(info.help));
}

static std::string section(const ObjectClass& object) {
    std::string text =
        fmt::format("## {}\n\n*{}* from `{}`{}{}\n", object.name, kindName(object.kind), packageName(object),
                    object.info.longname.empty() ? "" : ": ", plain(object.info.longname));
    if (object.parameters.empty()) return text + "\nIt has no parameters.\n";
    text += "\n| parameter | also | type | default | documented | bounds | help |\n|---|---|---|---|---|---|---|\n";
    for (const ParameterDeclaration& p : object.parameters) text += parameterRow(p);
    return text;
}

// What a heading is linked by.
static std::string anchorOf(std::string heading) {
    std::transform(heading.begin(), heading.end(), heading.begin(), [](unsigned char c) { return std::tolower(c); });
    return heading;
}

std::string describeAsMarkdown(const Objects& objects, bool all) {
    std::vector<std::string> sections;
    sections.reserve(objects.size());
    for (const ObjectClass* object : objects) sections.push_back(section(*object));
    std::string text = fmt::format("{}", fmt::join(sections, "\n"));
    if (!all) return text;
    std::string contents;
    for (const ObjectClass* object : objects)
        contents += fmt::format("- [{}](#{}), {}\n", object->name, anchorOf(object->name), kindName(object->kind));
    return "# Objects\n\n"
           "What the objects of the loaded packages say of themselves, as `oxbeam describe --format markdown` prints "
           "it.\n*Default* is the value in force where nothing is set, *documented* the one that the object's document "
           "advertises,\n*bounds* are advice.\n\n" +
           contents + '\n' + text;
}

}  // namespace oxbeam
