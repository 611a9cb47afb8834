// Reading a table of a scene file key by key.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/ParameterValue.h"
#include "Engine/SceneFile/SceneSections.h"
#include "Primitives/Matrix.h"

#define TOML_HEADER_ONLY 0
#include <toml++/toml.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace oxbeam {

SourceLocation locationOf(const toml::source_region& region);

// Getters are for the keys of the table's section. They answer nothing where the key is missing, and report an error
// where its value is of another kind or out of range.
class TableReader {
public:
    // `label` names the table for messages, for example "shader 'table'"; `file` is where it would stand if it is not
    // written anywhere.
    TableReader(const toml::table& table, const SceneSection& section, std::string label, Diagnostics& diagnostics,
                std::string file = {});

    std::optional<bool> flag(std::string_view key);
    std::optional<unsigned> count(std::string_view key, unsigned least, unsigned most);
    std::optional<float> number(std::string_view key);
    std::optional<float> number(std::string_view key, float least, float most);
    std::optional<std::string> text(std::string_view key, const char* expected = "a text");
    // The name of a file: a text without control characters, at which the system would cut it off or a terminal misread it.
    std::optional<std::string> fileName(std::string_view key);
    // One of several words; the answer is its index.
    std::optional<unsigned> word(std::string_view key, const std::vector<std::string>& words);
    std::optional<std::vector<float>> numbers(std::string_view key, std::size_t size);
    std::optional<R2> pair(std::string_view key);
    std::optional<R3> vector(std::string_view key);
    // A list of whatever it holds; null where it is none.
    const toml::array* list(std::string_view key);
    std::optional<std::vector<std::string>> texts(std::string_view key);

    // The tables within this one, by their names; they count as the section's.
    std::vector<std::pair<std::string, const toml::table*>> tables();

    bool has(std::string_view key) const { return m_table.contains(key); }
    // Whether a key has that text, without a word where it has not.
    bool is(std::string_view key, std::string_view text) const {
        return m_table[key].value<std::string_view>() == text;
    }
    bool isList(std::string_view key) const { return m_table.get(key) && m_table.get(key)->is_array(); }
    // Where the table, or a key's value, stands.
    SourceLocation where() const { return m_table.source().path ? locationOf(m_table.source()) : m_unwritten; }
    SourceLocation where(std::string_view key) const;
    const std::string& label() const { return m_label; }
    const SceneSection& section() const { return m_section; }

    // Hands over every key that is not the section's.
    void
    rest(const std::function<void(const std::string& key, const SourceLocation& at, const toml::node& value)>& use);
    // Reports every key that is not.
    void finish();
    void error(std::string_view key, const std::string& message);

private:
    const toml::node* take(std::string_view key);
    void wrongKind(std::string_view key, const std::string& expected);

    const toml::table& m_table;
    const SceneSection& m_section;
    std::string m_label;
    Diagnostics& m_diagnostics;
    SourceLocation m_unwritten;
    bool m_tablesAsked = false;
};

// A value for a parameter; nothing, and an error, for what no parameter can hold.
std::optional<ParameterValue> parameterValue(const toml::node& node, const std::string& about,
                                             Diagnostics& diagnostics);

}  // namespace oxbeam
