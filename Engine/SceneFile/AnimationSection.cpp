#include "Engine/SceneFile/AnimationSection.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cmath>

namespace oxbeam {

static std::string placeOf(const std::string& target) { return target.substr(0, target.rfind('.')); }

static bool isPlacement(const std::string& place) {
    return (place.starts_with("mesh.") || place.starts_with("model.")) && place.find('.') == place.rfind('.');
}

AnimationSection::AnimationSection(const toml::table& document, const std::vector<std::string>& settings)
    : m_settings(settings) {
    std::vector<std::string> targets;
    if (const toml::array* tables = document["animation"].as_array())
        for (const toml::node& node : *tables)
            if (const toml::table* table = node.as_table())
                targets.push_back((*table)["target"].value_or(std::string()));
    for (const std::string& setting : settings) targets.push_back(setting.substr(0, setting.find('=')));
    for (const std::string& target : targets)
        if (isPlacement(placeOf(target))) m_moved.insert(placeOf(target));
}

// ---- Tables

namespace {

// In seconds, each later than the one before; nothing, and an error, where they are not.
std::optional<std::vector<double>> timesOf(TableReader& reader, Diagnostics& diagnostics) {
    const toml::array* list = reader.list("times");
    if (!list) return std::nullopt;
    std::vector<double> times;
    for (const toml::node& node : *list) {
        const auto time = node.is_number() ? node.value<double>() : std::nullopt;
        const char* wrong = !time || !(std::fabs(*time) <= 1e9)         ? "must be seconds"
                            : !times.empty() && !(*time > times.back()) ? "must each be later than the one before"
                                                                        : nullptr;
        if (wrong) {
            diagnostics.error(locationOf(node.source()), fmt::format("{}: 'times' {}", reader.label(), wrong));
            return std::nullopt;
        }
        times.push_back(*time);
    }
    return times;
}

std::optional<std::vector<ParameterValue>> valuesOf(TableReader& reader, Diagnostics& diagnostics) {
    const toml::array* list = reader.list("values");
    if (!list) return std::nullopt;
    std::vector<ParameterValue> values;
    for (const toml::node& node : *list) {
        auto value = parameterValue(node, fmt::format("{}: one of 'values'", reader.label()), diagnostics);
        if (!value) return std::nullopt;
        values.push_back(std::move(*value));
    }
    return values;
}

}  // namespace

void AnimationSection::readTable(TableReader& reader, World& world, Diagnostics& diagnostics) const {
    Track track;
    const auto target = reader.text("target");
    const auto times = timesOf(reader, diagnostics);
    auto values = valuesOf(reader, diagnostics);
    const std::vector<std::string> words(interpolationNames().begin(), interpolationNames().begin() + 3);
    if (const auto word = reader.word("interpolation", words)) track.interpolation = static_cast<Interpolation>(*word);
    reader.finish();
    for (const char* key : {"target", "times", "values"})
        if (!reader.has(key)) reader.error(key, fmt::format("has no '{}'", key));
    if (!target || !times || !values) return;
    if (times->empty()) return reader.error("times", "'times' has no time in it");
    if (times->size() != values->size())
        return reader.error("values", fmt::format("has {} 'times' and {} 'values'; expected as many of both",
                                                  times->size(), values->size()));
    track.target = *target;
    track.times = *times;
    track.values = std::move(*values);
    world.animation.add(world, std::move(track), reader.label(), reader.where("target"), diagnostics);
}

// ---- Settings

namespace {

// A value that is no TOML is a text, as in --set.
std::optional<ParameterValue> valueOf(const std::string& text, const std::string& source, Diagnostics& diagnostics) {
    toml::table table;
    try {
        table = toml::parse("value = " + text, source);
    } catch (const toml::parse_error&) {
        table.insert_or_assign("value", text);
    }
    auto value = parameterValue(*table.get("value"), "the value", diagnostics);
    if (value) value->where = {source, 0, 0};
    return value;
}

// Of the ".." between the two values: outside of lists and texts, and not the points of numbers.
std::size_t dotsOf(const std::string& text) {
    int depth = 0;
    char mark = 0;  // that ends the text
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        const char c = text[i];
        if (mark)
            mark = c == mark ? 0 : mark;
        else if (c == '"' || c == '\'')
            mark = c;
        else if (c == '[' || c == ']')
            depth += c == '[' ? 1 : -1;
        else if (depth == 0 && c == '.' && text[i + 1] == '.')
            return i;
    }
    return std::string::npos;
}

void readSetting(const std::string& setting, World& world, Diagnostics& diagnostics) {
    const std::string source = fmt::format("--animate {}", setting);
    const auto equals = setting.find('=');
    const std::string target = setting.substr(0, equals);
    std::string rest = equals == std::string::npos ? "" : setting.substr(equals + 1);
    Track track;
    if (const auto at = rest.rfind('@'); at != std::string::npos && rest.find_first_of("\"']", at) == rest.npos) {
        const std::string ease = rest.substr(at + 1);
        const auto& names = interpolationNames();
        const auto known = std::find(names.begin(), names.end(), ease);
        if (known == names.end())
            return diagnostics.error({source, 0, 0}, fmt::format("'@{}' is no ease; expected one of {}{}", ease,
                                                                 fmt::join(names, ", "), didYouMean(ease, names)));
        track.interpolation = static_cast<Interpolation>(known - names.begin());
        rest.resize(at);
    }
    const auto dots = dotsOf(rest);
    if (dots == std::string::npos)
        return diagnostics.error({source, 0, 0},
                                 "expected PLACE.PARAM=FROM..TO, for example light.0.intensity=[0, 0, 0]..[9, 9, 9]");
    const auto from = valueOf(rest.substr(0, dots), source, diagnostics);
    const auto to = valueOf(rest.substr(dots + 2), source, diagnostics);
    if (!from || !to) return;
    track.target = target;
    track.times = {0.0, 1.0};
    track.values = {*from, *to};
    track.spread = true;
    world.animation.add(world, std::move(track), target, {source, 0, 0}, diagnostics);
}

}  // namespace

void AnimationSection::read(SectionReader& sections, World& world, Diagnostics& diagnostics) const {
    sections.eachEntry("animation", [&](TableReader& reader) { readTable(reader, world, diagnostics); });
    for (const std::string& setting : m_settings) readSetting(setting, world, diagnostics);
}

}  // namespace oxbeam
