#include "Engine/SceneFile/SceneEdits.h"

#include "Engine/SceneFile/SceneText.h"
#include "Engine/SceneFile/TableReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace oxbeam {

namespace {

// A text with its tables, which know where they stand in it.
class EditedText {
public:
    explicit EditedText(std::string text) : m_text(std::move(text)) {
        try {
            m_document = toml::parse(m_text);
        } catch (const toml::parse_error& e) {
            throw Error(ExitStatus::BadScene, fmt::format("line {}: {}", e.source().begin.line, e.description()));
        }
        for (std::size_t at = 0; at != std::string::npos; at = m_text.find('\n', at), at += at != std::string::npos)
            m_lines.push_back(at);
    }

    const std::string& text() const { return m_text; }
    const toml::table& document() const { return m_document; }

    // Columns count characters, of which UTF-8 has several bytes.
    std::size_t offset(const toml::source_position& at) const {
        std::size_t i = lineStart(at.line);
        for (auto column = at.column; column > 1 && i < m_text.size(); --column) do
                ++i;
            while (i < m_text.size() && (static_cast<unsigned char>(m_text[i]) & 0xC0) == 0x80);
        return i;
    }
    // Lines are counted from 1; one beyond the last is where the text ends.
    std::size_t lineStart(std::size_t line) const { return line <= m_lines.size() ? m_lines[line - 1] : m_text.size(); }
    std::size_t lineCount() const { return m_lines.size(); }
    std::string line(std::size_t number) const {
        return m_text.substr(lineStart(number), lineStart(number + 1) - lineStart(number));
    }

    std::string replaced(const toml::source_region& region, const std::string& by) const {
        const std::size_t begin = offset(region.begin), end = offset(region.end);
        return m_text.substr(0, begin) + by + m_text.substr(end);
    }
    std::string inserted(std::size_t at, std::string what) const {
        if (at > 0 && m_text[at - 1] != '\n') what.insert(0, "\n");
        return m_text.substr(0, at) + what + m_text.substr(at);
    }
    std::string withoutLines(std::size_t first, std::size_t end) const {
        return m_text.substr(0, lineStart(first)) + m_text.substr(lineStart(end));
    }

private:
    std::string m_text;
    toml::table m_document;
    std::vector<std::size_t> m_lines;  // where they start
};

std::string keyText(const std::string& name) {
    const bool bare = !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '_' || c == '-';
    });
    return bare ? name : tomlValue(name);
}

bool isList(const std::string& section) { return section == "light" || section == "mesh" || section == "model"; }

// What a place names, as far as it is there.
struct Found {
    const toml::table* table = nullptr;  // null: not there
    const toml::table* entry = nullptr;  // of a list, that it stands in
    std::string header;                  // "model.shader.Steel"
};

Found find(const toml::table& within, const std::string& place) {
    const std::size_t dot = place.find('.');
    const std::string section = place.substr(0, dot);
    std::string rest = dot == std::string::npos ? "" : place.substr(dot + 1);
    const toml::node* node = within.get(section);
    if (!isList(section)) {
        const toml::table* table = node ? node->as_table() : nullptr;
        if (rest.empty()) return {table, nullptr, section};
        const toml::node* named = table ? table->get(rest) : nullptr;
        return {named ? named->as_table() : nullptr, nullptr, fmt::format("{}.{}", section, keyText(rest))};
    }
    std::size_t number = 0;
    const auto [end, problem] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    const toml::array* list = node ? node->as_array() : nullptr;
    const toml::node* found = list && problem == std::errc() ? list->get(number) : nullptr;
    const toml::table* entry = found ? found->as_table() : nullptr;
    if (!entry) throw Error(ExitStatus::BadScene, fmt::format("the text has no {}", place));
    rest.erase(0, static_cast<std::size_t>(end - rest.data()));
    if (rest.empty()) return {entry, nullptr, section};
    Found inner = find(*entry, rest.substr(1));
    return {inner.table, entry, fmt::format("{}.{}", section, inner.header)};
}

// Keys of a table that stand right under its header, or within its braces.
struct OwnKeys {
    const toml::key* last = nullptr;
    const toml::node* lastValue = nullptr;
};

OwnKeys ownKeys(const toml::table& table) {
    OwnKeys own;
    for (const auto& [key, node] : table) {
        const toml::table* inner = node.as_table();
        if ((inner && !inner->is_inline()) || node.is_array_of_tables()) continue;
        if (own.lastValue && node.source().end.line < own.lastValue->source().end.line) continue;
        own.last = &key;
        own.lastValue = &node;
    }
    return own;
}

// Where a line can be put that belongs to the table.
std::size_t afterOwnKeys(const EditedText& text, const toml::table& table) {
    const OwnKeys own = ownKeys(table);
    const auto& last = own.lastValue ? own.lastValue->source() : table.source();
    return text.lineStart(last.end.line + 1);
}

std::string withKey(const EditedText& text, const toml::table& table, const std::string& name,
                    const std::string& value) {
    const OwnKeys own = ownKeys(table);
    const std::string assignment = fmt::format("{} = {}", keyText(name), value);
    if (table.is_inline()) {
        if (!own.lastValue) return text.replaced(table.source(), fmt::format("{{ {} }}", assignment));
        const std::size_t end = text.offset(own.lastValue->source().end);
        return text.text().substr(0, end) + ", " + assignment + text.text().substr(end);
    }
    // As the key before it stands there: indented, or with the table's name before it.
    std::string before;
    if (own.last) {
        const auto& at = own.last->source().begin;
        before = text.text().substr(text.lineStart(at.line), text.offset(at) - text.lineStart(at.line));
    }
    return text.inserted(afterOwnKeys(text, table), before + assignment + '\n');
}

std::string withTable(const EditedText& text, const Found& found, const std::string& name, const std::string& value) {
    const std::string table = fmt::format("\n[{}]\n{} = {}\n", found.header, keyText(name), value);
    return text.inserted(found.entry ? afterOwnKeys(text, *found.entry) : text.text().size(), table);
}

// With its line where it is alone there but for a comment.
std::string withoutKey(const EditedText& text, const toml::table& table, const toml::key& key,
                       const toml::node& value) {
    if (!table.is_inline()) return text.withoutLines(key.source().begin.line, value.source().end.line + 1);
    std::size_t begin = text.offset(key.source().begin), end = text.offset(value.source().end);
    const std::string& all = text.text();
    const std::size_t next = all.find_first_not_of(" \t", end), before = all.find_last_not_of(" \t", begin - 1);
    if (next != std::string::npos && all[next] == ',')
        end = all.find_first_not_of(" \t", next + 1);
    else if (before != std::string::npos && all[before] == ',')
        begin = before;
    return all.substr(0, begin) + all.substr(end);
}

// Lines from a table's header to the next header that is no part of it.
std::pair<std::size_t, std::size_t> linesOf(const EditedText& text, const toml::table& entry, const std::string& list) {
    const std::size_t first = entry.source().begin.line;
    const OwnKeys own = ownKeys(entry);
    std::size_t end = (own.lastValue ? own.lastValue->source().end.line : entry.source().end.line) + 1;
    for (std::size_t line = end; line <= text.lineCount(); ++line) {
        const std::string content = text.line(line);
        if (!content.starts_with('[')) continue;
        if (!content.starts_with('[' + list + '.')) break;
        end = line + 1;
        while (end <= text.lineCount() && !text.line(end).starts_with('[')) ++end;
    }
    return {first, end};
}

const toml::array& listOf(const EditedText& text, const std::string& list, std::size_t least) {
    const toml::node* node = text.document().get(list);
    const toml::array* entries = node ? node->as_array() : nullptr;
    if (!entries || entries->size() < least || !entries->is_array_of_tables())
        throw Error(ExitStatus::BadScene, fmt::format("the text has no {}.{}", list, least - 1));
    return *entries;
}

}  // namespace

std::string edited(const std::string& original, const SceneEdit& edit) {
    const EditedText text(original);
    const Found found = find(text.document(), edit.place);
    std::string result = original;
    bool there = false;
    if (found.table)
        for (const auto& [key, node] : *found.table)
            if (std::count(edit.names.begin(), edit.names.end(), std::string(key.str())) && !there) {
                there = true;
                result =
                    edit.value ? text.replaced(node.source(), *edit.value) : withoutKey(text, *found.table, key, node);
            }
    if (!there && edit.value)
        result = found.table && found.table->source().begin.line > 0
                     ? withKey(text, *found.table, edit.names.front(), *edit.value)
                     : withTable(text, found, edit.names.front(), *edit.value);
    // What could not be taken apart as it was meant is not passed on.
    const EditedText renewed(result);
    const Found now = find(renewed.document(), edit.place);
    const bool has = now.table && std::any_of(edit.names.begin(), edit.names.end(),
                                              [&](const std::string& name) { return now.table->contains(name); });
    if (has != edit.value.has_value())
        throw Error(ExitStatus::BadScene,
                    fmt::format("{}.{} cannot be edited where it stands", edit.place, edit.names.front()));
    return result;
}

std::string withTranslation(const std::string& original, const std::string& place, const R3& to) {
    const EditedText text(original);
    const Found found = find(text.document(), place);
    const toml::node* matrix = found.table ? found.table->get("matrix") : nullptr;
    if (!matrix) return edited(original, {place, {"translate"}, fmt::format("[{}, {}, {}]", to.x, to.y, to.z)});
    std::string result = original;
    for (const unsigned row : {2u, 1u, 0u}) {
        const EditedText now(result);
        const toml::array* numbers = find(now.document(), place).table->get("matrix")->as_array();
        const toml::node* number = numbers ? numbers->get(4 * row + 3) : nullptr;
        if (!number)
            throw Error(ExitStatus::BadScene, fmt::format("{}.matrix cannot be edited where it stands", place));
        result = now.replaced(number->source(), fmt::format("{}", to[row]));
    }
    return result;
}

std::string withEntry(const std::string& original, const std::string& list) {
    const EditedText text(original);
    const toml::node* node = text.document().get(list);
    const toml::array* entries = node ? node->as_array() : nullptr;
    std::size_t at = original.size();
    if (entries && !entries->empty() && entries->is_array_of_tables())
        at = text.lineStart(linesOf(text, *entries->back().as_table(), list).second);
    return text.inserted(at, fmt::format("\n[[{}]]\n", list));
}

std::string withoutEntry(const std::string& original, const std::string& list, std::size_t entry) {
    const EditedText text(original);
    const auto [first, end] = linesOf(text, *listOf(text, list, entry + 1)[entry].as_table(), list);
    return text.withoutLines(first, end);
}

}  // namespace oxbeam
