#include "Engine/SceneFile/TableReader.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
#include <stdexcept>

namespace oxbeam {

SourceLocation locationOf(const toml::source_region& region) {
    return {region.path ? *region.path : std::string(), region.begin.line, region.begin.column};
}

TableReader::TableReader(const toml::table& table, const SceneSection& section, std::string label,
                         Diagnostics& diagnostics, std::string file)
    : m_table(table), m_section(section), m_label(std::move(label)),
      m_diagnostics(diagnostics), m_unwritten{std::move(file), 0, 0} {}

SourceLocation TableReader::where(std::string_view key) const {
    const toml::node* node = m_table.get(key);
    return node ? locationOf(node->source()) : where();
}

const toml::node* TableReader::take(std::string_view key) {
    if (!m_section.knows(key)) throw std::logic_error(fmt::format("{} has no key '{}'", m_section.name, key));
    return m_table.get(key);
}

void TableReader::error(std::string_view key, const std::string& message) {
    m_diagnostics.error(where(key), fmt::format("{}: {}", m_label, message));
}

static std::string kindOf(const toml::node& node) {
    switch (node.type()) {
    case toml::node_type::table: return "a table";
    case toml::node_type::array: return fmt::format("a list of {}", node.as_array()->size());
    case toml::node_type::string: return fmt::format("the text '{}'", **node.as_string());
    case toml::node_type::integer: return fmt::format("the integer {}", **node.as_integer());
    case toml::node_type::floating_point: return fmt::format("the number {}", **node.as_floating_point());
    case toml::node_type::boolean: return **node.as_boolean() ? "true" : "false";
    default: return "a date or time";
    }
}

void TableReader::wrongKind(std::string_view key, const std::string& expected) {
    error(key, fmt::format("'{}' is {}; expected {}", key, kindOf(*m_table.get(key)), expected));
}

// Integers count as numbers; NaN, infinities and what a float cannot hold do not.
static std::optional<float> finite(const toml::node& node) {
    const auto value = node.is_number() ? node.value<double>() : std::nullopt;
    if (!value || !std::isfinite(static_cast<float>(*value))) return std::nullopt;
    return static_cast<float>(*value);
}

std::optional<bool> TableReader::flag(std::string_view key) {
    const toml::node* node = take(key);
    if (!node) return std::nullopt;
    if (!node->is_boolean()) return wrongKind(key, "true or false"), std::nullopt;
    return **node->as_boolean();
}

std::optional<unsigned> TableReader::count(std::string_view key, unsigned least, unsigned most) {
    const toml::node* node = take(key);
    if (!node) return std::nullopt;
    const auto value = node->is_integer() ? node->value<std::int64_t>() : std::nullopt;
    if (!value || *value < least || *value > most)
        return wrongKind(key, fmt::format("an integer from {} to {}", least, most)), std::nullopt;
    return static_cast<unsigned>(*value);
}

std::optional<float> TableReader::number(std::string_view key) {
    const toml::node* node = take(key);
    if (!node) return std::nullopt;
    const auto value = finite(*node);
    if (!value) wrongKind(key, node->is_number() ? "a finite number" : "a number");
    return value;
}

std::optional<float> TableReader::number(std::string_view key, float least, float most) {
    const auto value = number(key);
    if (!value || (*value >= least && *value <= most)) return value;
    wrongKind(key, fmt::format("a number from {} to {}", least, most));
    return std::nullopt;
}

std::optional<std::string> TableReader::text(std::string_view key, const char* expected) {
    const toml::node* node = take(key);
    if (!node) return std::nullopt;
    if (!node->is_string()) return wrongKind(key, expected), std::nullopt;
    return **node->as_string();
}

// Of the Unicode standard: those of a single byte, and those that begin with C2 and go up to 9F.
static std::optional<unsigned> controlCharacter(std::string_view name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        if (byte < 0x20 || byte == 0x7f) return byte;
        if (byte != 0xc2 || i + 1 == name.size()) continue;
        if (const auto next = static_cast<unsigned char>(name[i + 1]); next >= 0x80 && next < 0xa0) return next;
    }
    return std::nullopt;
}

std::optional<std::string> TableReader::fileName(std::string_view key) {
    auto value = text(key);
    const auto control = value ? controlCharacter(*value) : std::nullopt;
    if (!control) return value;
    error(key,
          fmt::format("'{}' has the control character U+{:04X} in it; expected the name of a file", key, *control));
    return std::nullopt;
}

std::optional<unsigned> TableReader::word(std::string_view key, const std::vector<std::string>& words) {
    const auto value = text(key);
    if (!value) return std::nullopt;
    for (unsigned i = 0; i < words.size(); ++i)
        if (words[i] == *value) return i;
    wrongKind(key, fmt::format("one of {}{}", fmt::join(words, ", "), didYouMean(*value, words)));
    return std::nullopt;
}

std::optional<std::vector<float>> TableReader::numbers(std::string_view key, std::size_t size) {
    const toml::node* node = take(key);
    if (!node) return std::nullopt;
    std::vector<float> values;
    std::size_t kinds = 0;  // of the right kind, whatever their values
    if (const toml::array* array = node->as_array(); array && array->size() == size)
        for (const toml::node& element : *array) {
            kinds += element.is_number();
            if (const auto value = finite(element)) values.push_back(*value);
        }
    if (values.size() == size) return values;
    wrongKind(key, fmt::format("a list of {} {}numbers", size, kinds == size ? "finite " : ""));
    return std::nullopt;
}

std::optional<R2> TableReader::pair(std::string_view key) {
    const auto v = numbers(key, 2);
    return v ? std::optional(R2((*v)[0], (*v)[1])) : std::nullopt;
}

std::optional<R3> TableReader::vector(std::string_view key) {
    const auto v = numbers(key, 3);
    return v ? std::optional(R3((*v)[0], (*v)[1], (*v)[2])) : std::nullopt;
}

const toml::array* TableReader::list(std::string_view key) {
    const toml::node* node = take(key);
    if (node && !node->is_array()) wrongKind(key, "a list");
    return node ? node->as_array() : nullptr;
}

std::optional<std::vector<std::string>> TableReader::texts(std::string_view key) {
    const toml::node* node = take(key);
    if (!node) return std::nullopt;
    std::vector<std::string> values;
    const toml::array* array = node->as_array();
    if (array)
        for (const toml::node& element : *array)
            if (element.is_string()) values.push_back(**element.as_string());
    if (array && values.size() == array->size()) return values;
    wrongKind(key, "a list of texts");
    return std::nullopt;
}

std::vector<std::pair<std::string, const toml::table*>> TableReader::tables() {
    m_tablesAsked = true;
    std::vector<std::pair<std::string, const toml::table*>> found;
    for (const auto& [key, node] : m_table)
        if (const toml::table* table = node.as_table()) found.emplace_back(key.str(), table);
    return found;
}

void TableReader::rest(const std::function<void(const std::string&, const SourceLocation&, const toml::node&)>& use) {
    for (const auto& [key, node] : m_table)
        if (!m_section.knows(key.str()) && !(m_tablesAsked && node.is_table()))
            use(std::string(key.str()), locationOf(key.source()), node);
}

void TableReader::finish() {
    rest([&](const std::string& key, const SourceLocation& at, const toml::node&) {
        std::string hint = didYouMean(key, m_section.keys);
        if (hint.empty()) hint = fmt::format("; it knows {}", fmt::join(m_section.keys, ", "));
        m_diagnostics.error(at, fmt::format("{} has no key '{}'{}", m_label, key, hint));
    });
}

static std::optional<ParameterValue::Number> toNumber(const toml::node& node) {
    if (node.is_integer()) return **node.as_integer();
    if (node.is_floating_point()) return **node.as_floating_point();
    return std::nullopt;
}

std::optional<ParameterValue> parameterValue(const toml::node& node, const std::string& about,
                                             Diagnostics& diagnostics) {
    ParameterValue value;
    value.where = locationOf(node.source());
    if (node.is_boolean()) {
        value.data = **node.as_boolean();
    } else if (node.is_integer()) {
        value.data = **node.as_integer();
    } else if (node.is_floating_point()) {
        value.data = **node.as_floating_point();
    } else if (node.is_string()) {
        value.data = **node.as_string();
    } else {
        std::vector<ParameterValue::Number> list;
        const toml::array* array = node.as_array();
        if (array)
            for (const toml::node& element : *array)
                if (const auto number = toNumber(element)) list.push_back(*number);
        if (!array || list.size() != array->size()) {
            diagnostics.error(value.where,
                              fmt::format("{} is {}; expected true or false, a number, a text or a list of "
                                          "numbers",
                                          about, kindOf(node)));
            return std::nullopt;
        }
        value.data = std::move(list);
    }
    return value;
}

}  // namespace oxbeam
