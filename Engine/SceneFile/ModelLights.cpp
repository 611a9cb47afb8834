#include "Engine/SceneFile/ModelLights.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace oxbeam {

void ModelLights::write(const std::string& about, const std::string& object, const SceneText::Values& values) {
    m_text.comment(about);
    m_text.object("[[light]]", object, values);
}

// Mean cosine to the vertical of a light from above whose direction is jittered over a square.
static float jitteredCosine(float extent) {
    constexpr int steps = 32;
    float sum = 0.0f;
    for (int i = 0; i < steps * steps; ++i) {
        const int column = i % steps, row = i / steps;
        const float x = extent * ((static_cast<float>(column) + 0.5f) / steps - 0.5f);
        const float y = extent * ((static_cast<float>(row) + 0.5f) / steps - 0.5f);
        sum += 1.0f / std::sqrt(1.0f + x * x + y * y);
    }
    return sum / static_cast<float>(steps * steps);
}

void ModelLights::writeStudio() {
    const R3 forward = Normalize(m_view.lookAt - m_view.position), right = Normalize(Cross(forward, m_view.lookUp));
    R3 back = Cross(right, R3(0.0f, 1.0f, 0.0f));  // level
    if (Length(back) < 0.1f) back = R3(0.0f, 0.0f, 1.0f);
    const bool own = !m_model.lights.empty();
    if (!own) {
        const R3 key = Normalize(R3(0.0f, -1.0f, 0.0f) + 0.6f * right - 0.65f * Normalize(back));
        write(
            "Key light", "KelDirectionalLight",
            {{"direction", tomlValue(key)}, {"intensity", tomlValue(R3(0.56f, 0.54f, 0.51f))}, {"fuzzyness", "0.12"}});
        m_onGround += 0.54f * -key.y;
    }
    constexpr float extent = 2.0f;
    const float ceiling = own ? 0.18f : 0.28f, fill = own ? 0.05f : 0.1f;
    write("Ceiling", "KelDirectionalLight",
          {{"direction", "[0.0, -1.0, 0.0]"},
           {"intensity", tomlValue(ceiling * White)},
           {"fuzzyness", tomlValue(extent)}});
    write("Fill from the viewer", "KelDirectionalLight",
          {{"direction", tomlValue(forward)}, {"intensity", tomlValue(fill * White)}, {"castShadow", "0"}});
    m_onGround += ceiling * jitteredCosine(extent) + fill * std::fabs(forward.y);
}

// How much weaker it is in the middle of the model.
float ModelLights::loss(const ModelLight& l) const {
    if (l.kind == ModelLight::Directional) return 1.0f;
    const float d = Length(m_middle - TransformPoint(m_toScene, l.position)) / m_scale;
    return std::max(l.attenuation[0] + d * l.attenuation[1] + d * d * l.attenuation[2], 1e-12f);
}

// Formats agree on no unit of light: all are scaled alike, so that what arrives in the middle of the model is right.
void ModelLights::writeOwn() {
    float arriving = 0.0f;
    for (const ModelLight& l : m_model.lights) arriving += Max(l.intensity) / loss(l);
    const float factor = arriving > 0.0f && std::isfinite(arriving) ? 0.75f / arriving : 1.0f;
    for (const ModelLight& l : m_model.lights) {
        const float own = loss(l), s = m_scale;
        SceneText::Values values = {{"intensity", tomlValue(l.intensity * (factor / own))}};
        if (l.kind != ModelLight::Point)
            values.emplace_back("direction", tomlValue(Normalize(TransformVector(m_toScene, l.direction))));
        if (l.kind != ModelLight::Directional) {
            values.emplace_back("position", tomlValue(TransformPoint(m_toScene, l.position)));
            values.emplace_back("atten0", tomlValue(l.attenuation[0] / own));
            values.emplace_back("atten1", tomlValue(l.attenuation[1] / own / s));
            values.emplace_back("atten2", tomlValue(l.attenuation[2] / own / (s * s)));
        }
        if (l.kind == ModelLight::Spot) {
            values.emplace_back("minAngle", tomlValue(l.innerAngle));
            values.emplace_back("maxAngle", tomlValue(l.outerAngle));
        }
        static const char* const objects[] = {"KelDirectionalLight", "KelPointLight", "KelSpotLight"};
        write(fmt::format("The file's light '{}', scaled by {:g}", l.name, factor / own), objects[l.kind], values);
    }
    m_onGround += 0.4f;
}

// Mean over the upper half of the picture, every direction counting alike.
static float skyBrightness(const Texture& picture) {
    constexpr unsigned side = 64;
    float sum = 0.0f, weights = 0.0f;
    for (unsigned i = 0; i < side * side; ++i) {
        const unsigned column = i % side, row = i / side;
        const float t = 0.5f + 0.5f * (static_cast<float>(row) + 0.5f) / side;
        const float weight = std::cos(3.14159265f * (t - 0.5f));
        sum += weight * Avg(picture.lookUp((static_cast<float>(column) + 0.5f) / side, t).rgb());
        weights += weight;
    }
    return sum / weights;
}

// Strong enough that a white surface that all of the sky reaches is nearly white.
static float suitableFactor(const Texture& picture) { return 0.26f / std::max(skyBrightness(picture), 1e-6f); }

void ModelLights::writeSurroundings(const Texture& picture) {
    write("Light from the surroundings", "KelEnvMapLight",
          {{"texture", "\"surroundings\""},
           {"numLights", "24"},
           {"intensity", tomlValue(White * suitableFactor(picture))}});
    m_onGround = 1.0f;
}

// Such a surface takes a fixed small share of every light. The scene's first light is not sampled but, in a preview,
// stands for all the others.
void ModelLights::writeManyLights(const Texture& picture) {
    constexpr float share = 0.002f;
    constexpr unsigned number = 64;
    write("Stands for all others in the first pass", "KelDirectionalLight",
          {{"direction", "[0.3, -1.0, -0.4]"}, {"intensity", tomlValue(White * (0.7f / share / number))}});
    write("Many lights from the surroundings", "KelEnvMapLight",
          {{"texture", "\"surroundings\""},
           {"numLights", std::to_string(number)},
           {"intensity", tomlValue(White * (suitableFactor(picture) / share))}});
    m_onGround = 1.0f;
}

}  // namespace oxbeam
