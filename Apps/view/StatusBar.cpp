#include "Apps/view/StatusBar.h"

#include "Apps/view/Keys.h"
#include "Engine/World/Places.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

namespace oxbeam {

static constexpr ImGuiWindowFlags Fixed = ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize |
                                          ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings |
                                          ImGuiWindowFlags_NoFocusOnAppearing | ImGuiWindowFlags_NoBringToFrontOnFocus;

static void drawProgress(const RenderThread::Pulse& pulse) {
    const float share = static_cast<float>(pulse.passes) / static_cast<float>(std::max(pulse.samples, 1u));
    const std::string progress = pulse.divider > 1 ? fmt::format("1/{} of the size", pulse.divider)
                                                   : fmt::format("{} of {} passes", pulse.passes, pulse.samples);
    ImGui::ProgressBar(pulse.divider > 1 ? 0.0f : share, {12.0f * ImGui::GetFontSize(), 0.0f}, progress.c_str());
    ImGui::SameLine();
    const std::string left = pulse.done || pulse.divider > 1 ? "" : fmt::format(", {:.0f} s left", pulse.secondsLeft);
    ImGui::Text("%s", fmt::format("{:.2f} million rays/s{}", 1e-6 * pulse.raysPerSecond, left).c_str());
    ImGui::SameLine(0.0f, 2.0f * ImGui::GetFontSize());
}

// Nothing of a picture before there is any.
void drawStatusBar(const ImVec2& at, const ImVec2& size, const RenderThread::Pulse& pulse, const std::string& pointed,
                   const std::string& message) {
    ImGui::SetNextWindowPos(at);
    ImGui::SetNextWindowSize(size);
    ImGui::Begin("status", nullptr, Fixed | ImGuiWindowFlags_NoScrollbar);
    if (pulse.raysPerSecond > 0.0) drawProgress(pulse);
    if (!pointed.empty()) {
        ImGui::TextUnformatted(pointed.c_str());
        ImGui::SameLine(0.0f, 2.0f * ImGui::GetFontSize());
    }
    if (!message.empty()) ImGui::TextColored(ImGui::GetStyleColorVec4(ImGuiCol_PlotHistogram), "%s", message.c_str());
    ImGui::End();
}

void drawAxes(const Eye& eye, const ImVec2& center, float length) {
    static constexpr const char* names[] = {"x", "y", "z"};
    static constexpr ImU32 colors[] = {IM_COL32(235, 80, 70, 255), IM_COL32(95, 200, 80, 255),
                                       IM_COL32(85, 140, 245, 255)};
    std::multimap<float, unsigned, std::greater<>> order;  // the farthest first
    for (unsigned i = 0; i < 3; ++i) order.emplace(eye.forward()[i], i);
    ImDrawList& draw = *ImGui::GetBackgroundDrawList();
    for (const auto& [depth, i] : order) {
        const ImVec2 tip(center.x + length * eye.right()[i], center.y - length * eye.upwards()[i]);
        draw.AddLine(center, tip, colors[i], 2.0f);
        draw.AddCircleFilled(tip, 0.55f * ImGui::GetFontSize(), colors[i]);
        const ImVec2 text = ImGui::CalcTextSize(names[i]);
        draw.AddText({tip.x - 0.5f * text.x, tip.y - 0.5f * text.y}, IM_COL32_WHITE, names[i]);
    }
}

void drawPick(const Pick& pick, const ImVec2& at) {
    ImGui::SetNextWindowPos(at);
    ImGui::SetNextWindowBgAlpha(0.75f);
    ImGui::Begin("pick", nullptr, Fixed | ImGuiWindowFlags_AlwaysAutoResize);
    const auto vector = [](const R3& v) { return fmt::format("{:.4g}, {:.4g}, {:.4g}", v.x, v.y, v.z); };
    const std::pair<const char*, std::string> rows[] = {{"object", pick.object},
                                                        {"mesh", pick.mesh},
                                                        {"shader", labelOf(pick.shader)},
                                                        {"distance", fmt::format("{:.4g}", pick.distance)},
                                                        {"position", vector(pick.position)},
                                                        {"normal", vector(pick.normal)}};
    for (const auto& [name, value] : rows) {
        ImGui::TextDisabled("%s", name);
        ImGui::SameLine(5.0f * ImGui::GetFontSize());
        ImGui::TextUnformatted(value.c_str());
    }
    ImGui::End();
}

void drawHistogram(const Shown& shown, const ImVec2& at, const ImVec2& size) {
    static constexpr ImU32 colors[] = {IM_COL32(255, 60, 60, 130), IM_COL32(60, 255, 60, 130),
                                       IM_COL32(80, 110, 255, 130)};
    ImDrawList& draw = *ImGui::GetBackgroundDrawList();
    const ImVec2 end(at.x + size.x, at.y + size.y);
    draw.AddRectFilled(at, end, IM_COL32(0, 0, 0, 160));
    for (unsigned c = 0; c < 3; ++c) {
        const auto& counts = shown.histogram[c];
        // The ends are often far above all others, and would flatten them.
        const float most = static_cast<float>(std::max(*std::max_element(counts.begin() + 1, counts.end() - 1), 1u));
        const float width = size.x / static_cast<float>(counts.size());
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const float height = size.y * std::min(1.0f, static_cast<float>(counts[i]) / most);
            const float x = at.x + width * static_cast<float>(i);
            draw.AddRectFilled({x, end.y - height}, {x + width, end.y}, colors[c]);
        }
    }
}

void drawMessages(const std::vector<std::string>& messages, bool& open) {
    ImGui::SetNextWindowSize({36.0f * ImGui::GetFontSize(), 14.0f * ImGui::GetFontSize()}, ImGuiCond_Appearing);
    if (ImGui::Begin("Messages", &open, ImGuiWindowFlags_NoSavedSettings))
        for (auto message = messages.rbegin(); message != messages.rend(); ++message)
            ImGui::TextWrapped("%s", message->c_str());
    ImGui::End();
}

void drawHelp(bool& open) {
    ImGui::SetNextWindowSize({0.0f, 0.0f});
    if (ImGui::Begin("Keys", &open, ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoSavedSettings)) {
        const auto row = [](const char* name, const char* help) {
            ImGui::TextUnformatted(name);
            ImGui::SameLine(15.0f * ImGui::GetFontSize());
            ImGui::TextUnformatted(help);
        };
        for (const Gesture& gesture : gestures()) row(gesture.name, gesture.help);
        ImGui::Separator();
        for (const Key& key : keys()) row(key.name, key.help);
    }
    ImGui::End();
}

}  // namespace oxbeam
