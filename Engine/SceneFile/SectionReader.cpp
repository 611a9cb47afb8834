#include "Engine/SceneFile/SectionReader.h"

#include "Engine/System/Interruption.h"

#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

void SectionReader::wrongForm(const toml::node& node, const std::string& what, const std::string& expected) {
    m_diagnostics.error(locationOf(node.source()), fmt::format("'{}' must be {}", what, expected));
}

const toml::table* SectionReader::find(const std::string& name) {
    const toml::node* node = m_document.get(name);
    if (node && !node->is_table()) wrongForm(*node, name, fmt::format("a table: [{}]", name));
    return node ? node->as_table() : nullptr;
}

// A scene may have very many tables.
static void goOnUnlessInterrupted() {
    if (interrupted()) throw Interruption("stopped while reading the scene");
}

TableReader SectionReader::table(const std::string& name) {
    static const toml::table none;
    const toml::table* table = find(name);
    return {table ? *table : none, sceneSection(name), name, m_diagnostics, m_file};
}

void SectionReader::eachNamed(const std::string& name,
                              const std::function<void(const std::string&, TableReader&)>& use) {
    const toml::table* tables = find(name);
    if (!tables) return;
    for (const auto& [key, node] : *tables) {
        const std::string own(key.str());
        if (!node.is_table()) {
            wrongForm(node, fmt::format("{}.{}", name, own),
                      fmt::format("a table; each {0} has a name of its own: [{0}.NAME]", name));
            continue;
        }
        goOnUnlessInterrupted();
        TableReader reader(*node.as_table(), sceneSection(name), fmt::format("{} '{}'", name, own), m_diagnostics);
        use(own, reader);
    }
}

void SectionReader::eachEntry(const std::string& name, const std::function<void(TableReader&)>& use) {
    const toml::node* node = m_document.get(name);
    if (!node) return;
    const toml::array* entries = node->as_array();
    const bool tables = entries && std::all_of(entries->begin(), entries->end(), [](auto& e) { return e.is_table(); });
    if (!tables) return wrongForm(*node, name, fmt::format("a list of tables: [[{}]]", name));
    unsigned number = 0;
    for (const toml::node& entry : *entries) {
        goOnUnlessInterrupted();
        TableReader reader(*entry.as_table(), sceneSection(name), fmt::format("{} {}", name, number++), m_diagnostics);
        use(reader);
    }
}

// The place that was probably meant: a section, or what has that name in one.
std::string SectionReader::placeMeant(std::string_view unknown, const std::vector<std::string>& sections) const {
    for (const SceneSection& section : sceneSections()) {
        const toml::table* tables = m_document[section.name].as_table();
        const bool named = section.form == SceneSection::Named || section.form == SceneSection::TableAndNamed;
        if (named && tables && (*tables)[unknown].is_table())
            return fmt::format("; did you mean '{}.{}'?", section.name, unknown);
    }
    return didYouMean(std::string(unknown), sections);
}

void SectionReader::reportUnknown() {
    std::vector<std::string> names;
    for (const SceneSection& section : sceneSections()) names.emplace_back(section.name);
    for (const auto& [key, node] : m_document)
        if (!std::count(names.begin(), names.end(), key.str()))
            m_diagnostics.error(locationOf(key.source()),
                                fmt::format("a scene has no '{}'{}", key.str(), placeMeant(key.str(), names)));
}

}  // namespace oxbeam
