#include "Engine/SceneFile/SceneDocument.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/SceneFile/ModelTables.h"
#include "Engine/SceneFile/SceneText.h"
#include "Engine/System/InputFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- Reading

static std::optional<std::string> readText(const fs::path& file, Diagnostics& diagnostics) {
    constexpr std::uintmax_t most = 64u << 20;
    const SourceLocation where{file.string(), 0, 0};
    const auto cannotRead = [&](const std::string& why) {
        return Error(ExitStatus::InputOutput, fmt::format("{}: cannot be read: {}", file.string(), why));
    };
    const InputFile input = inputFile(file);
    if (input.state == InputFile::Refused) throw cannotRead(input.why);
    if (input.state == InputFile::Missing) return diagnostics.error(where, "no such scene file"), std::nullopt;
    if (input.state == InputFile::NotRegular) return diagnostics.error(where, "is not a regular file"), std::nullopt;
    std::error_code problem;
    if (fs::file_size(file, problem) > most) return diagnostics.error(where, "is larger than 64 MiB"), std::nullopt;
    std::ifstream stream(file, std::ios::binary);
    std::string text, chunk(1u << 16, '\0');
    while (stream.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || stream.gcount() > 0)
        text.append(chunk, 0, static_cast<std::size_t>(stream.gcount()));
    if (stream.bad() || !stream.eof()) throw cannotRead(std::strerror(errno));
    return text;
}

// The parser descends once for every part of a dotted key, and what uses the tables once for every level: too many of
// either run out of stack. Dots in texts and comments are harmless.
static bool hasEndlessKey(const std::string& text, const std::string& source, Diagnostics& diagnostics) {
    constexpr unsigned most = 32;  // with values nested as deep as the parser allows it, 8000 levels
    unsigned dots = 0;
    std::string quote;  // ends the text that is being skipped
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (!quote.empty()) {
            if (c == '\\' && quote[0] == '"')
                ++i;
            else if (text.compare(i, quote.size(), quote) == 0) {
                i += quote.size() - 1;
                while (quote.size() == 3 && i + 1 < text.size() && text[i + 1] == c) ++i;  // the text's own last quotes
                quote.clear();
            } else if (c == '\n' && quote.size() == 1)
                quote.clear();
        } else if (c == '"' || c == '\'') {
            quote.assign(text.compare(i, 3, std::string(3, c)) == 0 ? 3 : 1, c);
            i += quote.size() - 1;
        } else if (c == '#') {
            i = std::min(text.find('\n', i), text.size()) - 1;
        } else if (c == '.' && ++dots >= most) {
            const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(i), '\n') + 1;
            diagnostics.error({source, static_cast<unsigned>(line), 1},
                              fmt::format("a key with more than {} parts", most));
            return true;
        } else if (std::string_view("\n,=[]{}").find(c) != std::string_view::npos) {
            dots = 0;
        }
    }
    return false;
}

// What has most often led to a message of the parser.
static std::string_view hintFor(std::string_view message) {
    if (message.find("could not determine value type") != message.npos) return "; a text stands in quotes";
    if (message.find("unescaped control characters") != message.npos) return "; is the closing quote missing?";
    return "";
}

static std::optional<toml::table> parse(const std::string& text, const std::string& source, Diagnostics& diagnostics) {
    if (hasEndlessKey(text, source, diagnostics)) return std::nullopt;
    try {
        return toml::parse(text, source);
    } catch (const toml::parse_error& e) {
        SourceLocation where = locationOf(e.source());
        where.file = source;
        diagnostics.error(where, fmt::format("{}{}", e.description(), hintFor(e.description())));
        return std::nullopt;
    }
}

// ---- Laying over

static std::vector<std::string> keysOf(const toml::table& table) {
    std::vector<std::string> keys;
    for (const auto& [key, node] : table) keys.emplace_back(key.str());
    return keys;
}

// Entries of a list of tables are addressed by their number, from 0.
static void mergeEntries(toml::array& under, toml::table& over, const std::string& path, Diagnostics& diagnostics) {
    for (auto&& [key, node] : over) {
        std::size_t index = 0;
        const std::string_view digits = key.str();
        const auto [end, problem] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
        if (end == digits.data()) {
            diagnostics.error(
                locationOf(key.source()),
                fmt::format("'{0}' is a list; expected the number of an entry, as {0}.0.{1}", path, digits));
            continue;
        }
        toml::table* entry = problem == std::errc() && end == digits.data() + digits.size() && index < under.size()
                                 ? under[index].as_table()
                                 : nullptr;
        if (!entry || !node.is_table())
            diagnostics.error(locationOf(key.source()), fmt::format("there is no {}.{}; the scene has {} of them, "
                                                                    "numbered from 0",
                                                                    path, digits, under.size()));
        else
            layOver(*entry, *node.as_table(), fmt::format("{}.{}", path, digits), diagnostics);
    }
}

void layOver(toml::table& under, toml::table& over, const std::string& path, Diagnostics& diagnostics) {
    for (auto&& [key, node] : over) {
        const std::string name(key.str()), full = path.empty() ? name : fmt::format("{}.{}", path, name);
        toml::node* old = under.get(name);
        toml::table* table = node.as_table();
        if (table && old && old->is_table()) {
            layOver(*old->as_table(), *table, full, diagnostics);
        } else if (table && old && old->is_array_of_tables()) {
            mergeEntries(*old->as_array(), *table, full, diagnostics);
        } else if (table && (path == "shader" || path == "texture" || path.ends_with(".shader"))) {
            // A misspelt name must not make a new one.
            diagnostics.error(locationOf(key.source()),
                              fmt::format("the scene has no {}{}", full, didYouMean(name, keysOf(under))));
        } else {
            under.insert_or_assign(key, std::move(node));  // moved, since a copy forgets where it came from
        }
    }
}

// A value that is no TOML is a text: the name of a texture or of an object.
static std::optional<toml::table> parseSetting(const std::string& setting, Diagnostics& diagnostics) {
    const std::string source = fmt::format("--set {}", setting);
    const std::size_t equals = setting.find('=');
    if (equals == std::string::npos || setting.find('\n') != std::string::npos) {
        diagnostics.error({source, 0, 0}, "expected PLACE.PARAM=VALUE, for example shader.table.shininess=64");
        return std::nullopt;
    }
    Diagnostics attempt;
    if (auto table = parse(setting, source, attempt)) return table;
    const std::string quoted = fmt::format("{}='{}'", setting.substr(0, equals), setting.substr(equals + 1));
    return parse(quoted, source, diagnostics);
}

// ---- Settings for all

// What stands at a place like "model.0.shader"; null where there is nothing.
static const toml::node* nodeAt(const toml::table& document, const std::string& path) {
    const toml::node* node = &document;
    std::istringstream steps(path);
    for (std::string step; node && std::getline(steps, step, '.');) {
        std::size_t index = 0;
        if (const toml::table* table = node->as_table())
            node = table->get(step);
        else if (const toml::array* list = node->as_array();
                 list && std::from_chars(step.data(), step.data() + step.size(), index).ec == std::errc())
            node = list->get(index);
        else
            node = nullptr;
    }
    return node;
}

using Entries = std::vector<std::pair<std::string, const toml::table*>>;

// The entries of a section, by their places.
static Entries entriesOf(const toml::table& document, const std::string& section) {
    Entries entries;
    const toml::node* node = nodeAt(document, section);
    if (const toml::table* tables = node ? node->as_table() : nullptr)
        for (const auto& [key, entry] : *tables)
            if (entry.is_table())
                entries.emplace_back(fmt::format("{}.{}", section, tomlValue(std::string(key.str()))),
                                     entry.as_table());
    const toml::array* list = node ? node->as_array() : nullptr;
    for (std::size_t i = 0; list && i < list->size(); ++i)
        if (list->get(i)->is_table()) entries.emplace_back(fmt::format("{}.{}", section, i), list->get(i)->as_table());
    return entries;
}

// With those of the models, where they have such.
static Entries allEntriesOf(const toml::table& document, const std::string& section) {
    Entries entries = entriesOf(document, section);
    if (section != "shader") return entries;
    for (const auto& [place, model] : entriesOf(document, "model"))
        for (auto& own : entriesOf(document, place + ".shader")) entries.push_back(std::move(own));
    return entries;
}

// "shader.*.samples=64" as one setting for each entry that takes it; any other setting as it is.
static std::vector<std::string> expanded(const std::string& setting, const toml::table& document,
                                         const Registry& registry, Diagnostics& diagnostics) {
    const std::string key = setting.substr(0, setting.find('='));
    const std::size_t star = key.find(".*.");
    if (star == std::string::npos) return {setting};
    const std::string section = key.substr(0, star), rest = setting.substr(star + 3);
    const std::string parameter = key.substr(star + 3, key.find_last_not_of(' ') - star - 2);
    std::vector<std::string> settings, known;
    for (const auto& [place, entry] : allEntriesOf(document, section)) {
        const ObjectClass* object = registry.find(entry->get("object") ? entry->at("object").value_or("") : "");
        if (object && !object->find(parameter) && !entry->contains(parameter)) {
            for (const std::string& other : object->parameterNames()) known.push_back(other);
        } else {
            settings.push_back(fmt::format("{}.{}", place, rest));
        }
    }
    if (settings.empty())
        diagnostics.error({"--set " + setting, 0, 0}, fmt::format("no {} of the scene has a parameter '{}'{}", section,
                                                                  parameter, didYouMean(parameter, known)));
    return settings;
}

// ---- Documents

// What files of models say stands there before anything is set over it.
static void addModels(toml::table& document, const fs::path& folder, const Registry& registry, SceneAssets& assets,
                      Diagnostics& diagnostics) {
    toml::array* models = document["model"].as_array();
    for (std::size_t i = 0; models && i < models->size(); ++i)
        if (toml::table* model = models->get(i)->as_table())
            addModelTables(*model, fmt::format("model.{}", i), folder, registry, assets, diagnostics);
}

std::optional<toml::table> parseSceneDocument(const std::string& text, const std::string& source,
                                              const fs::path& folder, const std::vector<std::string>& set,
                                              const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics) {
    auto document = parse(text, source, diagnostics);
    if (document) addModels(*document, folder, registry, assets, diagnostics);
    static const toml::table nothing;
    for (const std::string& given : set)
        for (const std::string& setting : expanded(given, document ? *document : nothing, registry, diagnostics)) {
            auto over = parseSetting(setting, diagnostics);
            if (document && over) layOver(*document, *over, "", diagnostics);
        }
    return document;
}

std::optional<toml::table> readSceneDocument(const fs::path& file, const std::vector<std::string>& set,
                                             const Registry& registry, SceneAssets& assets, Diagnostics& diagnostics) {
    const auto text = readText(file, diagnostics);
    if (!text) return std::nullopt;
    return parseSceneDocument(*text, file.string(), file.parent_path(), set, registry, assets, diagnostics);
}

}  // namespace oxbeam
