#include "Apps/oxbeam/SweepValues.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>

namespace oxbeam {

namespace {

Error badSweep(const std::string& text, const std::string& message) {
    return {ExitStatus::Usage, fmt::format("--set {}: {}", text, message)};
}

// ---- Numbers

// One number, or a list: "[1, 0.5, 0]".
struct Numbers {
    std::vector<double> values;
    bool list = false;
    bool whole = true;  // written without point and exponent
};

std::optional<Numbers> parseNumbers(std::string text) {
    Numbers numbers;
    std::erase(text, ' ');
    numbers.list = text.size() > 2 && text.front() == '[' && text.back() == ']';
    std::istringstream stream(numbers.list ? text.substr(1, text.size() - 2) : text);
    for (std::string word; std::getline(stream, word, ',');) {
        double value = 0.0;
        const char* const end = word.data() + word.size();
        const auto [rest, problem] = std::from_chars(word.data(), end, value);
        if (problem != std::errc() || rest != end || !std::isfinite(value)) return std::nullopt;
        numbers.values.push_back(value);
        numbers.whole = numbers.whole && word.find_first_of(".eE") == std::string::npos;
    }
    if (numbers.values.empty() || (!numbers.list && numbers.values.size() != 1)) return std::nullopt;
    return numbers;
}

// A document's "0 0 0" or "1" for a parameter of some components, the last standing for those that are missing.
std::optional<Numbers> parseBound(const std::string& text, const ParameterDeclaration& p) {
    std::istringstream stream(text);
    Numbers bound;
    bound.list = p.components() > 1;
    bound.whole = text.find_first_of(".eE") == std::string::npos;
    double value = 0.0;
    if (!(stream >> value)) return std::nullopt;
    for (unsigned i = 0; i < p.components(); ++i, stream >> value) bound.values.push_back(value);
    return bound;
}

enum class Spacing { Linear, Logarithmic };

// Logarithmic steps that start at zero start with 1 + x instead of x.
double between(double a, double b, double t, Spacing spacing) {
    if (t <= 0.0 || t >= 1.0) return t <= 0.0 ? a : b;
    if (spacing == Spacing::Linear || std::min(a, b) < 0.0) return a + t * (b - a);
    const double shift = std::min(a, b) > 0.0 ? 0.0 : 1.0;
    return std::exp((1.0 - t) * std::log(a + shift) + t * std::log(b + shift)) - shift;
}

std::string textOf(const std::vector<double>& values, bool list, ElementType type) {
    std::vector<std::string> words;
    for (const double value : values) {
        std::string word = type == ElementType::Int ? fmt::format("{:.0f}", value) : fmt::format("{:.6g}", value);
        // What does not declare its type takes it from the way that a value is written.
        if (type == ElementType::FromValue && word.find_first_of(".e") == std::string::npos) word += ".0";
        words.push_back(std::move(word));
    }
    return list ? fmt::format("[{}]", fmt::join(words, ", ")) : words.front();
}

// ---- Values

struct Range {
    Numbers from, to;
    unsigned steps = DefaultSweepSteps;
};

// "A..B" or "A..B/N"; nothing where the text is of another form.
std::optional<Range> parseRange(const std::string& text, const std::string& values) {
    const auto dots = values.find("..");
    if (dots == std::string::npos) return std::nullopt;
    const auto slash = values.rfind('/');
    const bool counted = slash != std::string::npos && slash > dots;
    const auto from = parseNumbers(values.substr(0, dots));
    const auto to = parseNumbers(values.substr(dots + 2, counted ? slash - dots - 2 : std::string::npos));
    if (!from || !to || from->list != to->list || from->values.size() != to->values.size())
        throw badSweep(text, "expected A..B or A..B/N, with two numbers or two lists of as many numbers");
    Range range{*from, *to, DefaultSweepSteps};
    const auto steps = counted ? parseNumbers(values.substr(slash + 1)) : std::nullopt;
    if (counted &&
        !(steps && !steps->list && steps->whole && steps->values[0] >= 2 && steps->values[0] <= MaxSweepSteps))
        throw badSweep(text, fmt::format("expected 2 to {} steps after the '/'", MaxSweepSteps));
    if (steps) range.steps = static_cast<unsigned>(steps->values[0]);
    return range;
}

// The texts of the values, in order and each once: rounding makes some steps of integers alike.
std::vector<std::string> textsOf(const Range& range, const ParameterDeclaration* p) {
    const bool whole = range.from.whole && range.to.whole;
    const Spacing spacing = p && p->info && p->info->logarithmic ? Spacing::Logarithmic : Spacing::Linear;
    ElementType type = p ? p->type : ElementType::Float;
    if (type == ElementType::FromValue && whole) type = ElementType::Int;
    std::vector<std::string> texts;
    for (unsigned step = 0; step < range.steps; ++step) {
        std::vector<double> values;
        for (std::size_t i = 0; i < range.from.values.size(); ++i)
            values.push_back(between(range.from.values[i], range.to.values[i], step / (range.steps - 1.0), spacing));
        std::string text = textOf(values, range.from.list, type);
        if (texts.empty() || texts.back() != text) texts.push_back(std::move(text));
    }
    return texts;
}

// Parts between the commas that stand outside of lists and quotes.
std::vector<std::string> splitList(const std::string& text) {
    std::vector<std::string> parts(1);
    int depth = 0;
    char quote = 0;
    for (const char c : text) {
        if (quote != 0)
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else
            depth += c == '[' ? 1 : c == ']' ? -1 : 0;
        if (c == ',' && depth == 0 && quote == 0)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

// What the declaration itself offers.
std::vector<SweepValue> declaredValues(const std::string& path, const ParameterDeclaration& p) {
    if (p.type == ElementType::Bool) return {{"false", "false"}, {"true", "true"}};
    std::vector<SweepValue> values;
    if (p.info && !p.info->items.empty()) {
        for (const auto& [value, item] : p.info->items)
            values.push_back({std::to_string(value), fmt::format("{} {}", value, item)});
        return values;
    }
    const auto from = p.info ? parseBound(p.info->lowerbound, p) : std::nullopt;
    const auto to = p.info ? parseBound(p.info->upperbound, p) : std::nullopt;
    if (!from || !to)
        throw badSweep(path, fmt::format("the object declares no bounds for it; say which values, as {0}=A..B/N or "
                                         "{0}=a,b,c",
                                         path));
    for (const std::string& text : textsOf({*from, *to, DefaultSweepSteps}, &p)) values.push_back({text, text});
    return values;
}

Error unknownPlace(const std::string& path, const std::vector<Place>& places) {
    return {ExitStatus::BadScene, fmt::format("--set {}: no object of the scene declares this parameter{}", path,
                                              didYouMean(path, parameterPaths(places)))};
}

}  // namespace

std::optional<SweptSetting> sweptSetting(const std::string& text, const std::vector<Place>& places) {
    const auto equals = text.find('=');
    SweptSetting swept{text.substr(0, equals), {}};
    const ParameterDeclaration* p = parameterAt(places, swept.path);
    if (equals == std::string::npos) {
        if (!p) throw unknownPlace(swept.path, places);
        swept.values = declaredValues(swept.path, *p);
        return swept;
    }
    const std::string values = text.substr(equals + 1);
    const auto range = parseRange(text, values);
    const auto texts = range ? textsOf(*range, p) : splitList(values);
    if (!range && texts.size() < 2) return std::nullopt;
    if (texts.size() > MaxSweepSteps) throw badSweep(text, fmt::format("expected at most {} values", MaxSweepSteps));
    for (const std::string& value : texts) swept.values.push_back({value, value});
    return swept;
}

}  // namespace oxbeam
