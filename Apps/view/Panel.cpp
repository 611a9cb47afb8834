#include "Apps/view/Panel.h"

#include "Apps/view/Field.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <utility>

namespace oxbeam {

static bool contains(const std::string& text, const std::string& part) {
    const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

bool Panel::matches(const ObjectInfo& object, const ParameterDeclaration& p) const {
    const std::string wanted = m_search;
    if (wanted.empty() || contains(object.place + '.' + p.id, wanted) || contains(object.object->name, wanted))
        return true;
    if (std::any_of(p.aliases.begin(), p.aliases.end(), [&](const auto& alias) { return contains(alias, wanted); }))
        return true;
    return p.info && (contains(p.info->longname, wanted) || contains(p.info->help, wanted));
}

void Panel::search(const std::string& text) { std::snprintf(m_search, sizeof m_search, "%s", text.c_str()); }

const ImVec4* Panel::fieldOf(const std::string& path) const {
    const auto found = m_fields.find(path);
    return found == m_fields.end() ? nullptr : &found->second;
}

// When all is drawn: what is drawn may go with it.
void Panel::attempt() {
    try {
        if (const auto change = std::exchange(m_change, nullptr)) change();
    } catch (const Error& e) {
        m_say(e.what());
    }
}

static void tooltip(const std::string& text) {
    if (text.empty() || !ImGui::IsItemHovered()) return;
    ImGui::BeginTooltip();
    ImGui::PushTextWrapPos(24.0f * ImGui::GetFontSize());
    ImGui::TextUnformatted(text.c_str());
    ImGui::PopTextWrapPos();
    ImGui::EndTooltip();
}

static std::string helpOf(const ParameterDeclaration& p) {
    std::string text = fmt::format("{}: {}", p.id, describeType(p));
    text += fmt::format("\ndefault {}", describeValue(p, p.defaultBytes.data()));
    if (!p.aliases.empty()) text += fmt::format("\nalso: {}", fmt::join(p.aliases, ", "));
    if (p.info && !p.info->help.empty()) text += "\n" + p.info->help;
    return text;
}

// A switch that nobody declares is one of two integers.
static ParameterValue plain(const ParameterValue& value) {
    const bool* flag = std::get_if<bool>(&value.data);
    return flag ? ParameterValue{std::int64_t{*flag}, {}} : value;
}

// A label, the field, and what takes the value back where it is another than the default.
void Panel::drawParameter(const ObjectInfo& object, const ParameterDeclaration& p) {
    const ParameterState& state = object.values.at(p.id);
    const bool differs = state.set && plain(state.value).data != plain(valueOf(p, p.defaultBytes.data())).data;
    const std::string path = object.place + '.' + p.id;
    ImGui::PushID(p.id.c_str());
    if (differs) ImGui::PushStyleColor(ImGuiCol_Text, ImGui::GetStyleColorVec4(ImGuiCol_PlotHistogram));
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted((p.info && !p.info->longname.empty() ? p.info->longname : p.id).c_str());
    if (differs) ImGui::PopStyleColor();
    tooltip(helpOf(p));
    ImGui::SameLine(9.5f * ImGui::GetFontSize());
    const float unit = ImGui::GetFontSize(), beside = isTexture(p) ? 4.4f * unit : 2.2f * unit;
    ImGui::SetNextItemWidth(ImGui::GetContentRegionAvail().x - beside);
    const auto value = drawField(p, state.value, m_document.textures());
    const ImVec2 least = ImGui::GetItemRectMin(), most = ImGui::GetItemRectMax();
    m_fields[path] = {least.x, least.y, most.x, most.y};
    m_active = m_active || ImGui::IsItemActive();
    if (ImGui::IsItemDeactivated()) m_document.settle();
    if (value) m_change = [=, this] { m_document.set(path, *value); };
    if (isTexture(p)) {
        ImGui::SameLine();
        if (ImGui::SmallButton("...")) m_change = [=, this] { chooseTexture(path); };
        const ImVec2 l = ImGui::GetItemRectMin(), m = ImGui::GetItemRectMax();
        m_fields[path + "#file"] = {l.x, l.y, m.x, m.y};
        tooltip("choose a picture");
    }
    if (differs) {
        ImGui::SameLine();
        if (ImGui::SmallButton("x")) m_change = [=, this] { m_document.settle(), m_document.reset(path); };
        const ImVec2 l = ImGui::GetItemRectMin(), m = ImGui::GetItemRectMax();
        m_fields[path + "#back"] = {l.x, l.y, m.x, m.y};
        tooltip("back to the default");
    }
    ImGui::PopID();
}

// Other objects that can stand there.
void Panel::drawClass(const ObjectInfo& object, const SceneInfo& scene) {
    const std::vector<ObjectKind>& kinds = kindsAt(object.place);
    ImGui::SetNextItemWidth(0.6f * ImGui::GetContentRegionAvail().x);
    if (ImGui::BeginCombo("##class", object.object->name.c_str())) {
        for (const ObjectClass* other : scene.classes)
            if (std::count(kinds.begin(), kinds.end(), other->kind) &&
                ImGui::Selectable(other->name.c_str(), other == object.object))
                m_change = [=, this, place = object.place] { m_document.settle(), m_document.setClass(place, *other); };
        ImGui::EndCombo();
    }
    tooltip(object.object->info.longname);
    if (!object.place.starts_with("light.")) return;
    ImGui::SameLine();
    if (ImGui::SmallButton("delete"))
        m_change = [this, place = object.place] { m_document.settle(), m_document.removeLight(place); };
}

void Panel::drawObject(const ObjectInfo& object, const SceneInfo& scene) {
    std::vector<const ParameterDeclaration*> drawn;
    for (const ParameterDeclaration& p : object.object->parameters)
        if (matches(object, p)) drawn.push_back(&p);
    const bool searched = m_search[0] != '\0', wanted = m_wanted == object.place;
    if (searched && drawn.empty() && !wanted) return;
    if (wanted || searched) ImGui::SetNextItemOpen(true);
    const std::string title = fmt::format("{} ({})###{}", labelOf(object.place), object.object->name, object.place);
    const bool open = ImGui::CollapsingHeader(title.c_str());
    if (wanted) {
        ImGui::SetScrollHereY(0.0f);
        m_wanted.clear();
    }
    if (!open) return;
    ImGui::PushID(object.place.c_str());
    drawClass(object, scene);
    std::string group;
    for (const ParameterDeclaration* p : drawn) {
        if (p->info && p->info->group != group) ImGui::TextDisabled("%s", (group = p->info->group).c_str());
        drawParameter(object, *p);
    }
    ImGui::PopID();
}

void Panel::drawLights(const SceneInfo& scene) {
    if (!ImGui::BeginCombo("##add light", "add a light")) return;
    for (const ObjectClass* other : scene.classes)
        if (other->kind == ObjectKind::Light && ImGui::Selectable(other->name.c_str()))
            m_change = [=, this, radius = scene.bounds.radius()] {
                const R3 above = m_document.eye().pivot + R3(0.0f, std::max(radius, 0.1f), 0.0f);
                m_document.settle();
                m_document.addLight(*other, {{"position", valueOf(above)}});
                m_wanted = lightsAmong(m_document.objects()).back().place;
            };
    ImGui::EndCombo();
}

void Panel::draw(const SceneInfo& scene, const ImVec2& at, const ImVec2& size) {
    m_fields.clear();
    m_active = false;
    ImGui::SetNextWindowPos(at);
    ImGui::SetNextWindowSize(size);
    ImGui::Begin("panel", nullptr,
                 ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove |
                     ImGuiWindowFlags_NoBringToFrontOnFocus);
    ImGui::SetNextItemWidth(-1.0f);
    ImGui::InputTextWithHint("##search", "search all parameters", m_search, sizeof m_search);
    const ImVec2 l = ImGui::GetItemRectMin(), m = ImGui::GetItemRectMax();
    m_fields["search"] = {l.x, l.y, m.x, m.y};
    ImGui::SetNextItemWidth(-1.0f);
    drawLights(scene);
    ImGui::BeginChild("objects");
    for (const ObjectInfo& object : m_document.objects()) drawObject(object, scene);
    ImGui::EndChild();
    ImGui::End();
    attempt();
}

}  // namespace oxbeam
