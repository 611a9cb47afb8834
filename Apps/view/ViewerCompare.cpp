// States that are kept, and one of them compared with what there is now.
#include "Apps/view/Viewer.h"

#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

// Of the longer side of a kept state's picture, in pixels.
static constexpr unsigned Thumbnail = 160;
static constexpr std::size_t MostKept = 12;

// Of every so many pixels one.
void Viewer::picture(Kept& kept) const {
    const Shown& shown = *m_shown;
    const unsigned step = std::max(1u, std::max(shown.width, shown.height) / Thumbnail);
    kept.width = std::max(1u, shown.width / step);
    kept.height = std::max(1u, shown.height / step);
    kept.rgba.clear();
    kept.texture = nullptr;
    for (unsigned y = 0; y < kept.height; ++y)
        for (unsigned x = 0; x < kept.width; ++x) {
            const std::uint8_t* from = &shown.rgba[4 * (std::size_t{y} * step * shown.width + std::size_t{x} * step)];
            kept.rgba.insert(kept.rgba.end(), from, from + 4);
        }
}

void Viewer::keep() {
    if (!m_shown) return;
    if (m_kept.size() == MostKept) return say(fmt::format("no more than {} states are kept", MostKept));
    Kept kept;
    picture(kept);
    kept.revision = m_document.revision();
    m_document.keep();
    m_kept.push_back(std::move(kept));
}

void Viewer::bringBack(std::size_t number) {
    m_document.become(m_document.kept().at(number));
    m_thread.rest();
}

void Viewer::compare() {
    if (m_compared)
        m_compared.reset();
    else if (m_kept.empty())
        return say("there is no state to compare with: K keeps the present one");
    else
        m_compared = m_kept.size() - 1;
    m_comparedRevision = 0;
    if (!m_compared) {
        m_thread.compareNoMore();
        m_other.reset();
    }
    m_thread.rest();
}

// Who renders is told anew how the two differ, whenever they do otherwise.
void Viewer::followCompared() {
    if (!m_compared) return;
    const State &now = m_document.now(), &kept = m_document.kept()[*m_compared];
    m_look.otherTone = kept.tone;
    if (m_comparedRevision != m_document.revision()) {
        m_comparedRevision = m_document.revision();
        m_thread.compare(differences(now, kept), differences(kept, now));
    }
    if (const auto other = m_thread.developer().latest(true); other != m_other) {
        m_other = other;
        m_redraw = std::max(m_redraw, 1);
    }
}

float Viewer::dividerX() const { return m_origin.x + m_divider * m_pixel * static_cast<float>(m_scene->image.width); }

// To the left of the divider, what was kept.
void Viewer::drawCompared() {
    if (!m_compared) return;
    ImDrawList& draw = *ImGui::GetBackgroundDrawList();
    const ImVec2 end(m_origin.x + m_pixel * static_cast<float>(m_scene->image.width),
                     m_origin.y + m_pixel * static_cast<float>(m_scene->image.height));
    if (m_other && m_other->serial != m_otherUploaded) {
        m_otherUploaded = m_other->serial;
        m_otherTexture = m_window.display().picture(Display::Other, m_other->width, m_other->height,
                                                    m_other->rgba.data(), m_other->coarse() || m_zoom < 2.0f);
    }
    const float x = dividerX();
    if (m_other && m_otherTexture) draw.AddImage(m_otherTexture, m_origin, {x, end.y}, {0.0f, 0.0f}, {m_divider, 1.0f});
    draw.AddLine({x, m_origin.y}, {x, end.y}, IM_COL32(0, 0, 0, 160), 4.0f);
    draw.AddLine({x, m_origin.y}, {x, end.y}, IM_COL32_WHITE, 2.0f);
    const std::string left = fmt::format("state {}", *m_compared + 1);
    const ImVec2 size = ImGui::CalcTextSize(left.c_str());
    draw.AddText({x - size.x - 8.0f, m_origin.y + 4.0f}, IM_COL32_WHITE, left.c_str());
    draw.AddText({x + 8.0f, m_origin.y + 4.0f}, IM_COL32_WHITE, "now");
}

// A click brings a state back; the right button compares with it, the middle one forgets it.
void Viewer::drawKept() {
    if (m_kept.empty() || !m_scene) return;
    const ImVec4 area = pictureArea();
    const float height = 4.5f * ImGui::GetFontSize();
    ImGui::SetNextWindowPos({0.5f * area.z, area.w - 0.5f * ImGui::GetFontSize()}, ImGuiCond_Always, {0.5f, 1.0f});
    ImGui::SetNextWindowBgAlpha(0.6f);
    ImGui::Begin("kept", nullptr,
                 ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings |
                     ImGuiWindowFlags_NoFocusOnAppearing | ImGuiWindowFlags_AlwaysAutoResize);
    std::optional<std::size_t> wanted, forgotten;
    for (std::size_t i = 0; i < m_kept.size(); ++i) {
        Kept& kept = m_kept[i];
        if (!kept.texture)
            kept.texture = m_window.display().picture(Display::Kept + static_cast<unsigned>(i), kept.width, kept.height,
                                                      kept.rgba.data(), true);
        if (i > 0) ImGui::SameLine();
        ImGui::PushID(static_cast<int>(i));
        const float width = height * static_cast<float>(kept.width) / static_cast<float>(kept.height);
        const ImVec4 frame = m_compared == i ? ImVec4(1.0f, 1.0f, 1.0f, 1.0f) : ImVec4(0.0f, 0.0f, 0.0f, 0.0f);
        if (ImGui::ImageButton(kept.texture, {width, height}, {}, {1.0f, 1.0f}, 2, frame)) wanted = i;
        if (ImGui::IsItemClicked(ImGuiMouseButton_Right)) m_compared = i, m_comparedRevision = 0;
        if (ImGui::IsItemClicked(ImGuiMouseButton_Middle)) forgotten = i;
        if (ImGui::IsItemHovered())
            ImGui::SetTooltip(
                "state %zu: click to bring it back, right button to compare with it,\nmiddle button to "
                "forget it",
                i + 1);
        ImGui::PopID();
    }
    ImGui::End();
    if (wanted) bringBack(*wanted);
    if (forgotten) forget(*forgotten);
}

// Those after it have other places for their pictures.
void Viewer::forget(std::size_t number) {
    if (m_compared) compare();
    m_document.forget(number);
    m_kept.erase(m_kept.begin() + static_cast<std::ptrdiff_t>(number));
    for (Kept& kept : m_kept) kept.texture = nullptr;
}

}  // namespace oxbeam
