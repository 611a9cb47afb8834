#include "Engine/SceneFile/MaterialTable.h"

#include "Engine/SceneFile/SceneText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace oxbeam {

namespace {

struct Setting {
    const char* parameter;
    std::string (*value)(const Surface&);  // an empty one leaves the object's default
};

struct Rule {
    const char* material;
    bool (*applies)(const Surface&);
    bool rough;  // by its bump map
    const char* object;
    std::vector<Setting> settings;
};

std::string given(const std::string& name) { return name.empty() ? name : tomlValue(name); }

std::string positive(const R3& color) { return Max(color) > 0.0f ? tomlValue(color) : ""; }

// A metal so rough that it reflects no shapes is as good as matte, so that its lights need not be found by reflection.
float metallicOf(const ModelMaterial& m) { return m.metallic * std::clamp((1.0f - m.roughness) / 0.4f, 0.0f, 1.0f); }

float reflectanceOf(float ior) { return (ior - 1.0f) * (ior - 1.0f) / ((ior + 1.0f) * (ior + 1.0f)); }

// What is reflected straight on. Dielectrics and metals differ in nothing else, and all between them is possible.
R3 facing(const Surface& s) {
    const ModelMaterial& m = s.material;
    const float metallic = metallicOf(m), least = 0.5f * m.reflectivity;
    R3 share;
    for (unsigned i = 0; i < 3; ++i) {
        const float dielectric = std::clamp(reflectanceOf(m.ior) * m.specularColor[i], least, 1.0f);
        share[i] = dielectric + (s.color[i] - dielectric) * metallic;
    }
    return share;
}

// Above it, the Fresnel surface's index would be out of bounds, and its curve is flat but for the rim.
constexpr float MirrorFrom = 0.65f;

// Mean over all directions that a sphere shows, by C. Schlick's approximation (1994).
R3 meanOver(const R3& facingShare) { return facingShare + (White - facingShare) * (2.0f / 42.0f); }

// The index of a body that reflects that much straight on.
float indexFor(float reflectance) {
    const float root = std::sqrt(std::clamp(reflectance, 1e-4f, MirrorFrom));
    return (1.0f + root) / (1.0f - root);
}

float specularShare(const Surface& s) {
    const float specular = std::max(s.material.specular, s.material.reflectivity);
    return specular + (1.0f - specular) * metallicOf(s.material);
}

// What is seen under the reflections. A metal keeps some, since its texture shows in nothing else.
R3 undertone(const Surface& s) {
    return s.material.baseColor * (s.material.opacity * (1.0f - 0.8f * metallicOf(s.material)));
}

bool reflects(const Surface& s) { return Max(facing(s)) * specularShare(s) > 1e-3f; }

// As sharp as the mirrors of that roughness are distributed.
float highlightExponent(float roughness) {
    const float alpha = std::max(roughness * roughness, 0.03f);
    return std::clamp(2.0f / (alpha * alpha) - 2.0f, 1.0f, 512.0f);
}

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
const Setting Highlight = {"specularColor", [](const Surface& s) {
                               const float smooth = 1.0f - s.material.roughness;
                               const R3 color = facing(s) / std::max(Max(facing(s)), 1e-4f);
                               return s.highlights ? positive(0.4f * smooth * smooth * specularShare(s) * color) : "";
                           }};
const Setting Shininess = {"shininess", [](const Surface& s) {
                               return s.highlights ? tomlValue(highlightExponent(s.material.roughness)) : "";
                           }};
const Setting Transparent = {"transparent", [](const Surface& s) {
                                 return s.material.opacity < 1.0f ? tomlValue(White * (1.0f - s.material.opacity)) : "";
                             }};

// The first rule that applies is taken.
const std::vector<Rule> Table = {
    {"transmission",
     [](const Surface& s) { return s.material.transmission >= 0.5f; },
     false,
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
     [](const Surface& s) { return s.material.clearCoat > 0.0f; },
     false,
     "KelCarPaint",
     {AmbientLight,
      {"diffuseColor", [](const Surface& s) { return tomlValue(s.material.baseColor); }},
      ColorTexture,
      BumpMap,
      {"specularColor",
       [](const Surface& s) { return s.highlights ? tomlValue(0.4f * White * s.material.clearCoat) : ""; }},
      {"shininess", [](const Surface& s) { return s.highlights ? tomlValue(256.0f) : ""; }},
      {"reflective", [](const Surface& s) { return tomlValue(White * s.material.clearCoat); }},
      {"bindex", [](const Surface&) { return tomlValue(1.5f); }},
      Emission}},
    {"nothing is reflected",
     [](const Surface& s) { return !reflects(s); },
     false,
     "KelPhong",
     {AmbientLight,
      {"diffuseColor", [](const Surface& s) { return tomlValue(s.material.baseColor * s.material.opacity); }},
      ColorTexture,
      BumpMap,
      Transparent,
      Emission}},
    {"a mirror, as most metals are",
     [](const Surface& s) { return Max(facing(s)) > MirrorFrom; },
     true,
     "KelPhong",
     {AmbientLight,
      {"diffuseColor", [](const Surface& s) { return tomlValue(undertone(s) * (1.0f - Max(facing(s)))); }},
      ColorTexture,
      BumpMap,
      Highlight,
      Shininess,
      Transparent,
      {"reflective", [](const Surface& s) { return tomlValue(meanOver(facing(s)) * specularShare(s)); }},
      Emission}},
    {"all others",
     [](const Surface&) { return true; },
     true,
     "KelFresnelPhong",
     {AmbientLight,
      {"diffuseColor", [](const Surface& s) { return tomlValue(undertone(s)); }},
      ColorTexture,
      BumpMap,
      Highlight,
      Shininess,
      Transparent,
      {"reflective",
       [](const Surface& s) { return tomlValue(facing(s) / std::max(Max(facing(s)), 1e-4f) * specularShare(s)); }},
      {"fresnelMethod", [](const Surface&) { return std::string("2"); }},
      {"bindex", [](const Surface& s) { return tomlValue(indexFor(Max(facing(s)))); }},
      Emission}},
};

}  // namespace

static const Rule& ruleFor(const Surface& surface) {
    return *std::find_if(Table.begin(), Table.end(), [&](const Rule& r) { return r.applies(surface); });
}

// Even the smoothest has some, so that its rim sends no ray into itself.
float roughnessOfBumps(const Surface& surface) {
    return ruleFor(surface).rough ? std::max(surface.material.roughness, 0.02f) : 0.0f;
}

ShaderTable shaderFor(const Surface& surface) {
    const Rule& rule = ruleFor(surface);
    ShaderTable table{rule.object, {}};
    for (const Setting& setting : rule.settings)
        if (std::string value = setting.value(surface); !value.empty())
            table.parameters.emplace_back(setting.parameter, std::move(value));
    return table;
}

// ---- In place of all materials

bool samplesManyLights(const std::string& object) { return object == "KelAlphaILS"; }

ShaderTable overrideFor(const ObjectClass& object, float size) {
    using Parameters = std::vector<std::pair<std::string, std::string>>;
    static const std::string white = tomlValue(White), black = tomlValue(Black);
    static const std::map<std::string, Parameters> looks = {
        {"KelCarPaint", {{"diffuseColor", "[0.45, 0.02, 0.03]"}, {"reflective", white}}},
        {"KelFresnelPhong", {{"diffuseColor", "[0.04, 0.13, 0.33]"}, {"reflective", white}, {"fresnelMethod", "2"}}},
        {"KelAlphaILS", {{"specularColor", black}}},
        // The eye's light comes on top of all others.
        {"KelPhongEyeLight", {{"diffuseColor", "[0.55, 0.55, 0.55]"}, {"intensity", "[0.5, 0.5, 0.5]"}}},
        {"KelDbgObjectID", {{"emissiveColor", "[0.05, 0.05, 0.05]"}}},
        {"KelAmbientOcclusion", {{"samples", "4"}, {"maxDistance", tomlValue(0.4f * size)}}},
        {"KelWallThickness", {{"maxDistance", tomlValue(size)}, {"scaleDistance", tomlValue(1.2f / size)}}},
    };
    ShaderTable table{object.name, {}};
    if (const auto found = looks.find(object.name); found != looks.end()) table.parameters = found->second;
    const auto general = [&](const char* parameter, const std::string& value) {
        const bool set = std::any_of(table.parameters.begin(), table.parameters.end(),
                                     [&](const auto& p) { return p.first == parameter; });
        if (!set && object.find(parameter)) table.parameters.emplace_back(parameter, value);
    };
    general("ambientIntensity", tomlValue(0.12f));
    general("diffuseColor", tomlValue(0.8f * White));
    return table;
}

}  // namespace oxbeam
