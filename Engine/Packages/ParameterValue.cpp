#include "Engine/Packages/ParameterValue.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sstream>
#include <utility>

namespace oxbeam {

std::string ParameterValue::kind() const {
    struct Names {
        std::string operator()(bool v) const { return v ? "true" : "false"; }
        std::string operator()(std::int64_t v) const { return fmt::format("the integer {}", v); }
        std::string operator()(double v) const { return fmt::format("the number {}", v); }
        std::string operator()(const std::string& v) const { return fmt::format("the text '{}'", v); }
        std::string operator()(const std::vector<Number>& v) const {
            return fmt::format("a list of {} numbers", v.size());
        }
    };
    return std::visit(Names(), data);
}

// ---- For people

bool isTexture(const ParameterDeclaration& p) { return p.info && p.info->interpretation == "texture"; }

std::string describeType(const ParameterDeclaration& p) {
    if (isTexture(p)) return "texture";
    const char* element = p.type == ElementType::Bool    ? "bool"
                          : p.type == ElementType::Int   ? "int"
                          : p.type == ElementType::Float ? "float"
                                                         : "int or float";
    std::string text = p.components() == 1 ? element : fmt::format("{} {}s", p.components(), element);
    if (!p.info) return text;
    if (!p.info->items.empty()) {
        std::vector<std::string> items;
        for (const auto& [key, value] : p.info->items) items.push_back(fmt::format("{} {}", key, value));
        return fmt::format("{}: {}", text, fmt::join(items, ", "));
    }
    if (!p.info->interpretation.empty()) text += fmt::format(" ({})", p.info->interpretation);
    return text;
}

// A component's four bytes, as either of what they may be.
static std::pair<std::int32_t, float> componentAt(const std::byte* bytes, unsigned i) {
    std::int32_t whole;
    std::memcpy(&whole, bytes + 4 * i, 4);
    return {whole, std::bit_cast<float>(whole)};
}

std::string describeValue(const ParameterDeclaration& p, const std::byte* bytes) {
    if (p.size == 1) return bytes[0] == std::byte{} ? "false" : "true";
    std::vector<std::string> elements;
    for (unsigned i = 0; i < p.components(); ++i) {
        const auto [whole, real] = componentAt(bytes, i);
        if (p.type == ElementType::Bool)
            elements.emplace_back(whole == 0 ? "false" : whole == 1 ? "true" : std::to_string(whole));
        else if (isTexture(p) && whole == -1)
            elements.emplace_back("none");
        else
            elements.push_back(p.type == ElementType::Float ? fmt::format("{}", real) : std::to_string(whole));
    }
    return fmt::format("{}", fmt::join(elements, " "));
}

// What would have been right, for messages.
static std::string expected(const ParameterDeclaration& p) {
    if (isTexture(p)) return "the name of a texture";
    if (p.components() > 1)
        return fmt::format("a list of {} {}", p.components(), p.type == ElementType::Float ? "numbers" : "integers");
    if (p.info && !p.info->items.empty()) {
        std::vector<std::string> items;
        for (const auto& [key, value] : p.info->items) items.push_back(fmt::format("{} or '{}'", key, value));
        return fmt::format("{}", fmt::join(items, ", "));
    }
    switch (p.type) {
    case ElementType::Bool: return "true or false";
    case ElementType::Int: return "an integer";
    default: return "a number";
    }
}

// ---- ParameterWriter

ParameterWriter::ParameterWriter(const ObjectClass& object, std::string label, Diagnostics& diagnostics,
                                 TextureByName textures, std::vector<std::string> textureNames,
                                 std::vector<std::string> otherNames)
    : m_object(object), m_label(std::move(label)), m_diagnostics(diagnostics), m_textures(std::move(textures)),
      m_textureNames(std::move(textureNames)), m_otherNames(std::move(otherNames)) {}

std::string ParameterWriter::about(const ParameterDeclaration& p) const {
    return fmt::format("parameter '{}' of {} ({})", p.id, m_label, m_object.name);
}

// Who writes a text where a list is expected may not know how one is written.
void ParameterWriter::wrongKind(const ParameterDeclaration& p, const ParameterValue& value) {
    std::string example;
    if (p.components() > 1 && std::holds_alternative<std::string>(value.data))
        example = fmt::format(", such as [{}]", fmt::join(std::vector<int>(p.components(), 1), ", "));
    m_diagnostics.error(value.where,
                        fmt::format("{} is {}; expected {}{}", about(p), value.kind(), expected(p), example));
}

// Where neither the document nor the default tells, the way the value is written does, and the user hears of it.
ElementType ParameterWriter::typeFor(const ParameterDeclaration& p, const ParameterValue& value) {
    if (p.type != ElementType::FromValue) return p.type;
    if (std::holds_alternative<bool>(value.data)) return ElementType::Bool;
    const bool whole = std::holds_alternative<std::int64_t>(value.data);
    if (!whole && !std::holds_alternative<double>(value.data))
        return ElementType::Int;  // a texture's name, if anything
    m_diagnostics.note(value.where,
                       fmt::format("{} does not say whether it is an integer or a real number; taken as {}, as "
                                   "it is written",
                                   about(p), whole ? "an integer" : "a real number"));
    return whole ? ElementType::Int : ElementType::Float;
}

// Integers that have names: textures, and the items of an enumeration.
std::optional<std::int64_t> ParameterWriter::byName(const ParameterDeclaration& p, const ParameterValue& value) {
    const auto& name = std::get<std::string>(value.data);
    if (p.info && !p.info->items.empty()) {
        for (const auto& [key, text] : p.info->items)
            if (text == name) return key;
        wrongKind(p, value);
        return std::nullopt;
    }
    if (p.info && !isTexture(p)) {
        wrongKind(p, value);
        return std::nullopt;
    }
    if (const auto id = m_textures ? m_textures(name) : std::nullopt) return *id;
    m_diagnostics.error(value.where, fmt::format("{} names texture '{}', which is not defined{}", about(p), name,
                                                 didYouMean(name, m_textureNames)));
    return std::nullopt;
}

static double toDouble(const ParameterValue::Number& number) {
    return std::visit([](auto v) { return static_cast<double>(v); }, number);
}

// The value as one number a component; nothing, and an error, where its shape or kind does not fit.
std::optional<std::vector<double>> ParameterWriter::numbersOf(const ParameterDeclaration& p, ElementType type,
                                                              const ParameterValue& value) {
    const auto fits = [&](bool good, std::vector<double> numbers) -> std::optional<std::vector<double>> {
        if (good) return numbers;
        wrongKind(p, value);
        return std::nullopt;
    };
    if (const auto* list = std::get_if<std::vector<ParameterValue::Number>>(&value.data)) {
        bool good = list->size() == p.components() && p.components() > 1;
        std::vector<double> numbers;
        for (const auto& number : *list) {
            good = good && (type == ElementType::Float || std::holds_alternative<std::int64_t>(number));
            numbers.push_back(toDouble(number));
        }
        return fits(good, numbers);
    }
    if (p.components() > 1) return fits(false, {});
    if (const auto* flag = std::get_if<bool>(&value.data)) return fits(type == ElementType::Bool, {*flag ? 1.0 : 0.0});
    if (const auto* real = std::get_if<double>(&value.data)) return fits(type == ElementType::Float, {*real});
    if (const auto* whole = std::get_if<std::int64_t>(&value.data))
        return fits(!(isTexture(p) && *whole != -1) && !(type == ElementType::Bool && *whole != 0 && *whole != 1),
                    {static_cast<double>(*whole)});
    if (type != ElementType::Int) return fits(false, {});
    const auto id = byName(p, value);
    return id ? std::optional(std::vector<double>{static_cast<double>(*id)}) : std::nullopt;
}

bool ParameterWriter::encode(const ParameterDeclaration& p, ElementType type, const ParameterValue& value,
                             std::byte* bytes) {
    const auto numbers = numbersOf(p, type, value);
    if (!numbers) return false;
    const double most =
        type == ElementType::Float ? std::numeric_limits<float>::max() : std::numeric_limits<std::int32_t>::max();
    for (unsigned i = 0; i < numbers->size(); ++i) {
        const double v = (*numbers)[i];
        const bool mayBeInfinite =
            !p.info || (p.info->interpretation != "position" && p.info->interpretation != "direction");
        if (std::isnan(v) || (std::fabs(v) > most && !(mayBeInfinite && std::isinf(v)))) {
            m_diagnostics.error(value.where, fmt::format("{} is {}; expected a number within {:g}", about(p), v, most));
            return false;
        }
        const auto store = [&](auto element) { std::memcpy(bytes + 4 * i, &element, sizeof element); };
        if (type == ElementType::Float)
            store(static_cast<float>(v));
        else if (p.size == 1)
            bytes[0] = v != 0.0 ? std::byte{1} : std::byte{0};
        else
            store(static_cast<std::int32_t>(v));
    }
    checkBounds(p, *numbers, value.where);
    return true;
}

// Bounds are advice: one number for all components, or one for each.
void ParameterWriter::checkBounds(const ParameterDeclaration& p, const std::vector<double>& numbers,
                                  const SourceLocation& where) {
    if (!p.info) return;
    if (!p.info->items.empty() && !p.info->items.contains(static_cast<int>(numbers[0])))
        return m_diagnostics.warning(where, fmt::format("{} is {}; expected {}", about(p), numbers[0], expected(p)));
    if (p.info->lowerbound.empty() || p.info->upperbound.empty()) return;
    std::istringstream lower(p.info->lowerbound), upper(p.info->upperbound);
    double least = 0.0, most = 0.0;
    for (const double number : numbers) {
        lower >> least;  // at the end of the text the last one stays
        upper >> most;
        if (number >= least && number <= most) continue;
        m_diagnostics.warning(where,
                              fmt::format("{} is {}, outside its bounds {} to {}", about(p), number, least, most));
        return;
    }
}

const ParameterDeclaration* ParameterWriter::write(OxLoadableObject& target, const std::string& name,
                                                   const SourceLocation& nameAt, const ParameterValue& value) {
    const ParameterDeclaration* p = m_object.find(name);
    if (!p) {
        std::vector<std::string> known = m_object.parameterNames();
        known.insert(known.end(), m_otherNames.begin(), m_otherNames.end());
        m_diagnostics.error(nameAt, fmt::format("{} ({}) has no parameter '{}'{}", m_label, m_object.name, name,
                                                didYouMean(name, known)));
        return nullptr;
    }
    std::vector<std::byte> bytes(static_cast<std::size_t>(p->size));
    if (!encode(*p, typeFor(*p, value), value, bytes.data())) return nullptr;
    std::memcpy(memberOf(target, *p), bytes.data(), bytes.size());
    return p;
}

// ---- Reading

// Where nothing tells, a small integer is one, as among the defaults.
static ElementType typeHeld(const ParameterDeclaration& p, std::int32_t bits) {
    if (p.type != ElementType::FromValue) return p.type;
    return std::abs(static_cast<std::int64_t>(bits)) <= 1 << 16 ? ElementType::Int : ElementType::Float;
}

ParameterValue valueOf(const ParameterDeclaration& p, const std::byte* bytes) {
    if (p.size == 1) return {bytes[0] != std::byte{}, {}};
    std::vector<ParameterValue::Number> numbers;
    for (unsigned i = 0; i < p.components(); ++i) {
        const auto [whole, real] = componentAt(bytes, i);
        if (typeHeld(p, whole) == ElementType::Float)
            numbers.emplace_back(double{real});
        else
            numbers.emplace_back(std::int64_t{whole});
    }
    if (p.components() > 1) return {std::move(numbers), {}};
    if (const auto* whole = std::get_if<std::int64_t>(&numbers[0])) {
        if (p.type == ElementType::Bool && (*whole == 0 || *whole == 1)) return {*whole == 1, {}};
        return {*whole, {}};
    }
    return {std::get<double>(numbers[0]), {}};
}

static std::string textOf(const ParameterValue::Number& number) {
    if (const auto* whole = std::get_if<std::int64_t>(&number)) return std::to_string(*whole);
    const std::string text = fmt::format("{}", std::get<double>(number));
    return text.find_first_of(".en") == std::string::npos ? text + ".0" : text;  // "inf" and "nan" too
}

std::string textOf(const ParameterValue& value) {
    struct Texts {
        std::string operator()(bool v) const { return v ? "true" : "false"; }
        std::string operator()(std::int64_t v) const { return std::to_string(v); }
        std::string operator()(double v) const { return oxbeam::textOf(ParameterValue::Number(v)); }
        std::string operator()(const std::string& v) const {
            std::string text = "\"";
            for (const char c : v) text += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
            return text + '"';
        }
        std::string operator()(const std::vector<ParameterValue::Number>& v) const {
            std::vector<std::string> words;
            words.reserve(v.size());
            for (const ParameterValue::Number& number : v) words.push_back(oxbeam::textOf(number));
            return fmt::format("[{}]", fmt::join(words, ", "));
        }
    };
    return std::visit(Texts(), value.data);
}

}  // namespace oxbeam
