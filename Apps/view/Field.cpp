#include "Apps/view/Field.h"

#include <fmt/format.h>
#include <imgui.h>
#include <imgui_stdlib.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace oxbeam {

double shortest(float value) { return std::strtod(fmt::format("{}", value).c_str(), nullptr); }

namespace {

struct Range {
    float least, most;
};

struct IsOn {
    bool operator()(bool value) const { return value; }
    bool operator()(std::int64_t value) const { return value != 0; }
    bool operator()(double value) const { return value != 0.0; }
    template <class Other>
    bool operator()(const Other&) const {
        return false;
    }
};

bool isOnOff(const ParameterValue& value) {
    const auto* whole = std::get_if<std::int64_t>(&value.data);
    return std::holds_alternative<bool>(value.data) || (whole && (*whole == 0 || *whole == 1));
}

std::optional<Range> rangeOf(const ParameterDeclaration& p) {
    if (!p.info || p.info->lowerbound.empty() || p.info->upperbound.empty()) return std::nullopt;
    return Range{std::strtof(p.info->lowerbound.c_str(), nullptr), std::strtof(p.info->upperbound.c_str(), nullptr)};
}

ImGuiSliderFlags flagsOf(const ParameterDeclaration& p) {
    return p.info && p.info->logarithmic ? ImGuiSliderFlags_Logarithmic : ImGuiSliderFlags_None;
}

std::optional<ParameterValue> chooseText(const std::string& now, const std::vector<std::string>& texts) {
    std::optional<ParameterValue> chosen;
    if (!ImGui::BeginCombo("##field", now.c_str())) return chosen;
    for (const std::string& text : texts)
        if (ImGui::Selectable(text.c_str(), text == now)) chosen = {text, {}};
    ImGui::EndCombo();
    return chosen;
}

std::optional<ParameterValue> chooseItem(const ParameterDeclaration& p, std::int64_t now) {
    const auto& items = p.info->items;
    const auto found = items.find(static_cast<int>(now));
    std::optional<ParameterValue> chosen;
    if (!ImGui::BeginCombo("##field", found == items.end() ? std::to_string(now).c_str() : found->second.c_str()))
        return chosen;
    for (const auto& [value, name] : items)
        if (ImGui::Selectable(name.c_str(), value == now)) chosen = {std::int64_t{value}, {}};
    ImGui::EndCombo();
    return chosen;
}

bool isSwitch(const ParameterDeclaration& p, const ParameterValue& value) {
    if (p.type == ElementType::Bool) return isOnOff(value);
    const auto range = rangeOf(p);
    return p.type == ElementType::Int && p.components() == 1 && range && range->least == 0.0f && range->most == 1.0f;
}

// Of which nothing is said, and the default is 0 or 1: who knows what it is for knows whether it is one.
bool mayBeSwitch(const ParameterDeclaration& p) {
    if (p.components() > 1) return false;
    return p.type == ElementType::FromValue ||
           (p.type == ElementType::Int && !p.info && isOnOff(valueOf(p, p.defaultBytes.data())));
}

std::optional<ParameterValue> toggle(const ParameterDeclaration& p, const ParameterValue& now) {
    bool on = std::visit(IsOn(), now.data);
    if (!ImGui::Checkbox("##on", &on)) return std::nullopt;
    if (p.type == ElementType::Int) return ParameterValue{std::int64_t{on}, {}};
    return ParameterValue{on, {}};
}

// As a scene file has it: the way it is written tells what it is.
std::optional<ParameterValue> written(const ParameterValue& now) {
    std::string text = textOf(now);
    if (!ImGui::InputText("##field", &text, ImGuiInputTextFlags_EnterReturnsTrue | ImGuiInputTextFlags_AutoSelectAll))
        return std::nullopt;
    if (text == "true" || text == "false") return ParameterValue{text == "true", {}};
    char* end = nullptr;
    if (const long long whole = std::strtoll(text.c_str(), &end, 10); !text.empty() && !*end)
        return ParameterValue{std::int64_t{whole}, {}};
    const double real = std::strtod(text.c_str(), &end);
    return text.empty() || *end ? std::nullopt : std::optional(ParameterValue{real, {}});
}

std::optional<ParameterValue> integer(const ParameterDeclaration& p, std::int64_t now) {
    int value = static_cast<int>(now);
    const auto range = rangeOf(p);
    const bool changed = range ? ImGui::SliderInt("##field", &value, static_cast<int>(range->least),
                                                  static_cast<int>(range->most), "%d", flagsOf(p))
                               : ImGui::DragInt("##field", &value, 0.1f);
    return changed ? std::optional(ParameterValue{std::int64_t{value}, {}}) : std::nullopt;
}

std::optional<ParameterValue> real(const ParameterDeclaration& p, double now) {
    auto value = static_cast<float>(now);
    const auto range = rangeOf(p);
    const bool changed =
        range ? ImGui::SliderFloat("##field", &value, range->least, range->most, "%.4g", flagsOf(p))
              : ImGui::DragFloat("##field", &value, std::max(0.002f, 0.01f * std::abs(value)), 0.0f, 0.0f, "%.4g");
    return changed ? std::optional(ParameterValue{shortest(value), {}}) : std::nullopt;
}

std::optional<ParameterValue> reals(const ParameterDeclaration& p, const std::vector<ParameterValue::Number>& now) {
    std::array<float, 4> values{};
    const std::size_t count = std::min(now.size(), values.size());
    for (std::size_t i = 0; i < count; ++i)
        values[i] = std::visit([](auto number) { return static_cast<float>(number); }, now[i]);
    const auto range = rangeOf(p);
    const float least = range ? range->least : 0.0f, most = range ? range->most : 0.0f;
    const bool color = count == 3 && p.info && p.info->interpretation == "color";
    const bool changed =
        color ? ImGui::ColorEdit3("##field", values.data(), ImGuiColorEditFlags_Float | ImGuiColorEditFlags_HDR)
              : ImGui::DragScalarN("##field", ImGuiDataType_Float, values.data(), static_cast<int>(count), 0.01f,
                                   &least, &most, "%.4g", flagsOf(p));
    if (!changed) return std::nullopt;
    std::vector<ParameterValue::Number> result;
    for (std::size_t i = 0; i < count; ++i) result.emplace_back(shortest(values[i]));
    return ParameterValue{result, {}};
}

std::optional<ParameterValue> switchOrNumber(const ParameterDeclaration& p, const ParameterValue& value) {
    const float width = ImGui::CalcItemWidth();
    ImGui::BeginGroup();
    auto changed = toggle(p, value);
    ImGui::SameLine();
    ImGui::SetNextItemWidth(width - ImGui::GetFrameHeight() - ImGui::GetStyle().ItemSpacing.x);
    const auto* whole = std::get_if<std::int64_t>(&value.data);
    const auto number = whole && p.type == ElementType::Int ? integer(p, *whole) : written(value);
    ImGui::EndGroup();
    return number ? number : changed;
}

}  // namespace

std::optional<ParameterValue> drawField(const ParameterDeclaration& p, const ParameterValue& value,
                                        const std::vector<std::string>& textures) {
    if (const auto* text = std::get_if<std::string>(&value.data)) return chooseText(*text, textures);
    if (isTexture(p)) return chooseText("none", textures);
    if (isSwitch(p, value)) return toggle(p, value);
    if (mayBeSwitch(p)) return switchOrNumber(p, value);
    if (const auto* whole = std::get_if<std::int64_t>(&value.data))
        return p.info && !p.info->items.empty() ? chooseItem(p, *whole) : integer(p, *whole);
    if (const auto* number = std::get_if<double>(&value.data)) return real(p, *number);
    return reals(p, std::get<std::vector<ParameterValue::Number>>(value.data));
}

}  // namespace oxbeam
