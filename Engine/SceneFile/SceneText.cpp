#include "Engine/SceneFile/SceneText.h"

#include "Engine/SceneFile/SceneSections.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace oxbeam {

std::string tomlValue(float value) {
    std::string text = fmt::format("{}", std::isfinite(value) ? value : 0.0f);
    return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

std::string tomlValue(const R3& v) {
    return fmt::format("[{}, {}, {}]", tomlValue(v.x), tomlValue(v.y), tomlValue(v.z));
}

std::string tomlValue(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        if (static_cast<unsigned char>(c) < 32 || c == 127)
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        else
            quoted += c;
    }
    return quoted + '"';
}

void SceneText::comment(const std::string& text) {
    std::string line = text;
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }, ' ');
    m_text += fmt::format("# {}\n", line);
}

void SceneText::keys(const Values& values) {
    for (const auto& [key, value] : values)
        if (!value.empty()) m_text += fmt::format("{} = {}\n", key, value);
}

void SceneText::table(const std::string& header, const Values& values) {
    m_text += header + '\n';
    keys(values);
    m_text += '\n';
}

void SceneText::object(const std::string& header, const std::string& name, const Values& values) {
    m_text += fmt::format("{}\nobject = {}\n", header, tomlValue(name));
    keys(values);
    if (const ObjectClass* object = m_registry.find(name)) defaults(*object, values);
    m_text += '\n';
}

static std::string defaultOf(const ParameterDeclaration& p) {
    if (p.size == 1) return p.defaultBytes[0] == std::byte{} ? "false" : "true";
    std::vector<std::string> elements;
    for (unsigned i = 0; i < p.components(); ++i) {
        std::int32_t whole;
        float real;
        std::memcpy(&whole, p.defaultBytes.data() + 4 * i, 4);
        std::memcpy(&real, p.defaultBytes.data() + 4 * i, 4);
        elements.push_back(p.type == ElementType::Float  ? tomlValue(real)
                           : p.type == ElementType::Bool ? (whole ? "true" : "false")
                                                         : std::to_string(whole));
    }
    return elements.size() == 1 ? elements[0] : fmt::format("[{}]", fmt::join(elements, ", "));
}

// A place in the object that goes by several names is listed once.
void SceneText::defaults(const ObjectClass& object, const Values& set) {
    std::vector<const ParameterDeclaration*> listed;
    for (const auto& [key, value] : set)
        if (const ParameterDeclaration* p = value.empty() ? nullptr : object.find(key)) listed.push_back(p);
    const auto overlaps = [&](const ParameterDeclaration& p) {
        return std::any_of(listed.begin(), listed.end(), [&](const ParameterDeclaration* other) {
            return p.offset < other->offset + other->size && other->offset < p.offset + p.size;
        });
    };
    for (const ParameterDeclaration& p : object.parameters) {
        if (overlaps(p)) continue;
        listed.push_back(&p);
        m_text += fmt::format("# {} = {}\n", p.id, defaultOf(p));
    }
}

// Of a table that holds values of its own beside the named ones.
bool SceneText::isKey(const std::string& kind, const std::string& name) const {
    const SceneSection& section = sceneSection(kind);
    if (section.form != SceneSection::TableAndNamed) return false;
    const ObjectClass* object = m_registry.find(section.preset);
    return section.knows(name) || (object && object->find(name));
}

std::string SceneText::name(const std::string& kind, const std::string& wanted, const std::string& otherwise) {
    std::string base;
    for (const char c : wanted.substr(0, 60)) base += std::isalnum(static_cast<unsigned char>(c)) || c == '-' ? c : '_';
    if (base.find_first_not_of('_') == std::string::npos) base = otherwise;
    std::string unique = base;
    for (unsigned n = 2; isKey(kind, unique) || !m_names.insert(fmt::format("{}.{}", kind, unique)).second; ++n)
        unique = fmt::format("{}-{}", base, n);
    return unique;
}

}  // namespace oxbeam
