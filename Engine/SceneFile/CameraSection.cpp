#include "Engine/SceneFile/CameraSection.h"

#include "Engine/Packages/Overrides.h"

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
    const auto focusOn = [&](const auto& on) {
        if (on) m_focuses.push_back({*on, reader.where("focus"), place, reader.label(), chosen});
    };
    if (reader.isList("focus"))
        focusOn(reader.vector("focus"));
    else
        focusOn(reader.text("focus", "a point, which is a list of 3 numbers, or the name of a mesh"));
    const CameraView& own = m_world.cameraViews[place] = {view, fov.value_or(CameraView().fov)};
    if (chosen) {
        m_world.view = own.view;
        m_world.fov = own.fov;
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

void CameraSection::focusError(const Focus& focus, const std::string& message) {
    if (focus.chosen) m_diagnostics.error(focus.where, fmt::format("{}: 'focus' {}", focus.label, message));
}

const std::vector<unsigned>* CameraSection::instancesOf(const Focus& focus, const Instances& instances) {
    const std::string& name = std::get<std::string>(focus.on);
    if (const auto found = instances.find(name); found != instances.end()) return &found->second;
    std::vector<std::string> names;
    names.reserve(instances.size());
    for (const auto& [known, numbers] : instances) names.push_back(known);
    focusError(focus, fmt::format("names mesh '{}', which is not defined{}", name, didYouMean(name, names)));
    return nullptr;
}

// Of each camera, be it in force or not, so that a distance that it is given later is told from this one.
void CameraSection::setDistance(const Focus& focus, CameraView& own, float distance) {
    OxCamera& camera = dynamic_cast<OxCamera&>(m_world.places.objectAt(focus.camera));
    if (focus.chosen && !overrides(camera, &OxCamera::setFocalDistance))
        m_diagnostics.warning(focus.where, fmt::format("{}: 'focus' changes nothing: {} does not focus", focus.label,
                                                       m_world.places.classAt(focus.camera).name));
    own.focusedAt = distance;
    camera.setFocalDistance(distance);
}

void CameraSection::focus(const Instances& instances) {
    for (const Focus& focus : m_focuses) {
        CameraView& own = m_world.cameraViews[focus.camera];
        if (const R3* point = std::get_if<R3>(&focus.on))
            own.focus = *point;
        else if (const auto* found = instancesOf(focus, instances))
            own.focusOn = *found;
        else
            continue;
        const auto distance = m_world.focalDistance(own, own.view);
        if (!own.view)
            focusError(focus, "needs 'position' and 'lookAt'");
        else if (!distance)
            focusError(focus, "lies behind the camera");
        else if (m_world.places.has(focus.camera))
            setDistance(focus, own, *distance);
    }
}

}  // namespace oxbeam
