#include "Engine/SceneFile/SceneSections.h"

#include "Engine/World/Places.h"

#include <algorithm>

namespace oxbeam {

bool SceneSection::knows(std::string_view key) const { return std::find(keys.begin(), keys.end(), key) != keys.end(); }

const std::vector<SceneSection>& sceneSections() {
    using enum SceneSection::Form;
    static const std::vector<SceneSection> all = {
        {"texture",
         Named,
         {},
         nullptr,
         {"file", "image", "wrap", "filter", "model", "colorSpace", "projection", "rotate", "generate", "bump",
          "bumpScale", "alpha", "alphaCutoff", "vertexColors", "roughness", "brightest"}},
        {"shader", Named, kindsAt("shader"), nullptr, {"object"}},
        {"render", Table, kindsAt("render"), "Kel", {"object"}},
        {"image",
         Table,
         {},
         nullptr,
         {"width", "height", "samples", "exposure", "tone", "background", "filter", "filterWidth"}},
        {"camera",
         TableAndNamed,
         kindsAt("camera"),
         "OxPerspectiveCamera",
         {"object", "position", "lookAt", "lookUp", "fov", "focus"}},
        {"environment", Table, kindsAt("environment"), "OxBackground", {"object"}},
        {"light", List, kindsAt("light"), nullptr, {"object"}},
        {"model",
         List,
         {},
         nullptr,
         {"file", "shaders", "highlights", "name", "up", "scale", "rotate", "translate", "matrix", "visibleTo",
          "clip"}},
        {"mesh",
         List,
         {},
         nullptr,
         {"file", "shape", "segments", "uvScale", "coordinates", "ids", "name", "shader", "shaders", "up", "scale",
          "rotate", "translate", "matrix", "visibleTo", "clip"}},
        {"animation", List, {}, nullptr, {"target", "times", "values", "interpolation"}}};
    return all;
}

const SceneSection& sceneSection(std::string_view name) {
    return *std::find_if(sceneSections().begin(), sceneSections().end(),
                         [&](const SceneSection& section) { return section.name == name; });
}

}  // namespace oxbeam
