#include "Engine/SceneFile/CameraSection.h"

#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

void CameraSection::read(TableReader& reader, const std::string& chosen) {
    const auto others = reader.tables();
    readCamera(reader, "camera", chosen.empty());
    std::vector<std::string> names;
    for (const auto& [name, table] : others) {
        names.push_back(name);
        TableReader other(*table, reader.section(), fmt::format("camera '{}'", name), m_diagnostics, m_file);
        readCamera(other, fmt::format("camera.{}", name), name == chosen);
    }
    if (!chosen.empty() && !std::count(names.begin(), names.end(), chosen))
        m_diagnostics.error({m_file, 0, 0},
                            fmt::format("the scene has no camera '{}'{}", chosen, didYouMean(chosen, names)));
}

// Position and aim belong to every camera; all other keys are the object's parameters.
void CameraSection::readCamera(TableReader& reader, const std::string& place, bool chosen) {
    const auto view = viewOf(reader);
    const auto fov = reader.number("fov");
    if (fov && !(*fov > 0.0f && *fov < 180.0f)) reader.error("fov", "'fov' must lie between 0 and 180 degrees");
    std::optional<std::variant<R3, std::string>> focus;
    if (reader.isList("focus")) {
        if (const auto point = reader.vector("focus")) focus = *point;
    } else if (const auto mesh = reader.text("focus")) {
        focus = *mesh;
    }
    const CameraView& own = m_world.cameraViews[place] = {view, fov.value_or(CameraView().fov)};
    if (chosen) {
        m_world.view = own.view;
        m_world.fov = own.fov;
        m_focus = focus;
        m_focusPlace = reader.where("focus");
        m_focusLabel = reader.label();
    }
    const ObjectClass* object = m_objects.classOf(reader);
    if (!object) return;
    OxCamera& camera = m_world.addCamera(*object, place);
    m_objects.setParameters(reader, place);
    if (chosen) m_world.camera = &camera;
}

std::optional<View> CameraSection::viewOf(TableReader& reader) {
    const auto position = reader.vector("position"), lookAt = reader.vector("lookAt"), lookUp = reader.vector("lookUp");
    if (!position || !lookAt) {
        if (reader.has("position") != reader.has("lookAt"))
            reader.error(position ? "position" : "lookAt",
                         "has only one of 'position' and 'lookAt'; expected both, or none to frame the whole scene");
        return std::nullopt;
    }
    const View view{*position, *lookAt, lookUp.value_or(View().lookUp)};
    const R3 forward = view.lookAt - view.position, right = Cross(forward, view.lookUp);
    if (!(Length(forward) > 0.0f))
        reader.error("lookAt", "'lookAt' is where the camera is; it must lie away from 'position'");
    else if (!(Length(right) > 1e-6f * Length(forward) * Length(view.lookUp)))
        reader.error("lookUp", "'lookUp' must not point along the way the camera looks");
    return view;
}

void CameraSection::focusError(const std::string& message) {
    m_diagnostics.error(m_focusPlace, fmt::format("{}: 'focus' {}", m_focusLabel, message));
}

std::optional<R3> CameraSection::focusPoint(const std::map<std::string, std::vector<unsigned>>& instances) {
    if (const R3* point = std::get_if<R3>(&*m_focus)) return *point;
    const std::string& name = std::get<std::string>(*m_focus);
    const auto found = instances.find(name);
    if (found == instances.end()) {
        std::vector<std::string> names;
        names.reserve(instances.size());
        for (const auto& [known, numbers] : instances) names.push_back(known);
        focusError(fmt::format("names mesh '{}', which is not defined{}", name, didYouMean(name, names)));
        return std::nullopt;
    }
    Bounds bounds;
    for (const unsigned instance : found->second) bounds.add(m_world.geometry.instanceBounds(instance));
    return bounds.center();
}

void CameraSection::focus(const std::map<std::string, std::vector<unsigned>>& instances) {
    if (!m_focus || !m_world.camera) return;
    const auto point = focusPoint(instances);
    if (!point) return;
    if (!m_world.view) return focusError("needs 'position' and 'lookAt'");
    const View& view = *m_world.view;
    const float distance = Dot(*point - view.position, Normalize(view.lookAt - view.position));
    if (!(distance > 0.0f)) return focusError("lies behind the camera");
    m_world.camera->setFocalDistance(distance);
}

}  // namespace oxbeam
