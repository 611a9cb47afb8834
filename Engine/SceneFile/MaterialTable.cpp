#include "Engine/SceneFile/MaterialTable.h"

#include "Engine/SceneFile/SceneText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace oxbeam {

namespace {

struct Setting {
    const char* parameter;
    std::string (*value)(const Surface&);  // an empty one leaves the object's default
};

struct Rule {
    const char* material;
    bool (*applies)(const ModelMaterial&);
    const char* object;
    std::vector<Setting> settings;
};

std::string given(const std::string& name) { return name.empty() ? name : tomlValue(name); }

std::string positive(const R3& color) { return Max(color) > 0.0f ? tomlValue(color) : ""; }

// Glossy rays are spread by exp(shininess); the exponent belongs to the microfacets' distribution of that roughness.
float glossyShininess(float roughness) {
    const float alpha = std::max(roughness * roughness, 1e-3f);
    return std::log(std::max(2.0f / (alpha * alpha) - 2.0f, 1.0f));
}

bool blurred(const ModelMaterial& m) { return m.roughness > 0.08f; }

// A body that has a colour absorbs by its attenuation, or over a tenth of its size where the file does not say.
R3 bodyColor(const Surface& s) { return s.color * s.material.attenuationColor; }
bool colored(const Surface& s) {
    const R3 c = bodyColor(s);
    return std::min({c.x, c.y, c.z}) < 0.99f;
}

const Setting AmbientLight = {"ambientIntensity", [](const Surface&) { return tomlValue(0.12f); }};
const Setting BumpMap = {"bumpMap", [](const Surface& s) { return given(s.bumpMap); }};
const Setting ColorTexture = {"texture", [](const Surface& s) { return given(s.texture); }};
const Setting Emission = {"emissiveColor", [](const Surface& s) { return positive(s.material.emissive); }};
const Setting Highlight = {"specularColor", [](const Surface& s) { return positive(s.material.specular); }};
const Setting Shininess = {"shininess", [](const Surface& s) { return tomlValue(s.material.shininess); }};

// The first rule that applies is taken.
const std::vector<Rule> Table = {
    {"transmission",
     [](const ModelMaterial& m) { return m.transmission >= 0.5f; },
     "KelGlass",
     {{"bindex", [](const Surface& s) { return tomlValue(std::max(s.material.ior, 1.01f)); }},
      {"reflectivity", [](const Surface&) { return tomlValue(0.0f); }},
      {"refractionFilter", [](const Surface& s) { return colored(s) ? tomlValue(bodyColor(s)) : ""; }},
      {"refractionFilterAmount", [](const Surface& s) { return colored(s) ? tomlValue(0.7f) : ""; }},
      {"refractionFilterScale",
       [](const Surface& s) {
           const float distance = s.material.attenuationDistance * s.scale;
           return colored(s) ? tomlValue(distance > 0.0f ? distance : 0.1f * s.size) : "";
       }},
      {"oneSidedGlass", [](const Surface& s) { return std::string(s.material.thickness > 0.0f ? "" : "true"); }},
      BumpMap}},
    {"clear coat",
     [](const ModelMaterial& m) { return m.clearCoat > 0.0f; },
     "KelCarPaint",
     {AmbientLight,
      {"diffuseColor", [](const Surface& s) { return tomlValue(s.material.baseColor); }},
      ColorTexture,
      BumpMap,
      {"specularColor", [](const Surface& s) { return tomlValue(R3(0.4f, 0.4f, 0.4f) * s.material.clearCoat); }},
      {"shininess", [](const Surface&) { return tomlValue(256.0f); }},
      {"reflective", [](const Surface& s) { return tomlValue(White * s.material.clearCoat); }},
      {"bindex", [](const Surface&) { return tomlValue(1.5f); }},
      Emission}},
    {"metal, unless it is so rough that it reflects no shapes",
     [](const ModelMaterial& m) { return m.metallic >= 0.5f && m.roughness < 0.8f; },
     "KelPhong",
     {AmbientLight,
      {"diffuseColor",
       [](const Surface& s) {
           const ModelMaterial& m = s.material;
           return tomlValue(m.baseColor * (1.0f - m.metallic * (0.9f - 0.4f * m.roughness)));
       }},
      ColorTexture,
      BumpMap,
      {"reflective",
       [](const Surface& s) {
           return tomlValue(s.color * s.material.metallic * (1.0f - 0.6f * s.material.roughness));
       }},
      {"glossySurfaces", [](const Surface& s) { return std::string(blurred(s.material) ? "true" : ""); }},
      {"shininess", [](const Surface& s) { return tomlValue(std::max(glossyShininess(s.material.roughness), 1.0f)); }},
      Emission}},
    {"all others",
     [](const ModelMaterial&) { return true; },
     "KelPhong",
     {AmbientLight,
      {"diffuseColor", [](const Surface& s) { return tomlValue(s.material.baseColor * s.material.opacity); }},
      ColorTexture,
      BumpMap,
      Highlight,
      Shininess,
      {"transparent",
       [](const Surface& s) {
           return s.material.opacity < 1.0f ? tomlValue(White * (1.0f - s.material.opacity)) : "";
       }},
      {"reflective", [](const Surface& s) { return positive(White * (0.5f * s.material.reflectivity)); }},
      Emission}},
};

}  // namespace

ShaderTable shaderFor(const Surface& surface) {
    const auto rule =
        std::find_if(Table.begin(), Table.end(), [&](const Rule& r) { return r.applies(surface.material); });
    ShaderTable table{rule->object, {}};
    for (const Setting& setting : rule->settings)
        if (std::string value = setting.value(surface); !value.empty())
            table.parameters.emplace_back(setting.parameter, std::move(value));
    return table;
}

}  // namespace oxbeam
