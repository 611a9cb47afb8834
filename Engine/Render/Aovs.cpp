#include "Engine/Render/Aovs.h"

#include "Oxbeam/ABSP.h"
#include "Oxbeam/OxFunctions.h"

namespace oxbeam {

AovSampler::AovSampler(const World& world) {
    const View view = world.viewInForce();
    m_eye = view.position;
    m_forward = Normalize(view.lookAt - view.position);
    for (const OxShader* shader : OxContext::current->shaders) m_baseColors.push_back(world.baseColor(shader));
}

// The base colour as the texture changes it. A surface that declares none, like glass, lets through or reflects all: white.
R3 AovSampler::albedo(const OxState& state) const {
    const BaseColor& base =
        m_baseColors[static_cast<const ABSP&>(*state.object).GetShaderId(state.hit) + state.instance->shaderBias];
    R3 color = base.color ? *base.color : White;
    if (base.texture && *base.texture != Ox_NOTEXTURE)
        oxsApplyTexture(&state, static_cast<Oxuint>(*base.texture), color);
    return color;
}

AovSample AovSampler::sample(const OxState& state) const {
    AovSample sample;
    if (state.hit.tri < 0) return sample;
    const auto finite = [](const R3& v) { return IsFinite(v) ? v : Black; };
    R3 position;
    oxsGetHitPosition(&state, position);
    oxsFindShadingNormal(&state, sample.normal);
    sample.normal = finite(sample.normal);
    sample.albedo = finite(albedo(state));
    sample.depth = Dot(position - m_eye, m_forward);
    sample.object = static_cast<unsigned>(state.hit.inst) + 1;
    return sample;
}

const std::vector<std::string>& aovNames() {
    static const std::vector<std::string> names = {"depth", "normal", "albedo", "object", "samples"};
    return names;
}

Layer layerOf(Aov aov, const Film& film) {
    static const std::vector<std::vector<std::string>> channels = {{"depth.Z"},
                                                                   {"normal.X", "normal.Y", "normal.Z"},
                                                                   {"albedo.R", "albedo.G", "albedo.B"},
                                                                   {"object.id"},
                                                                   {"samples.N"}};
    const auto pixels = film.sums();
    const auto aovs = film.aovSums();
    Layer layer{channels[static_cast<std::size_t>(aov)], {}};
    layer.values.reserve(layer.channels.size() * pixels.size());
    const auto put = [&](const R3& v) { layer.values.insert(layer.values.end(), {v.x, v.y, v.z}); };
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        switch (aov) {
        case Aov::Depth: layer.values.push_back(pixels[i].samples ? aovs[i].depth : AovSample().depth); break;
        case Aov::Normal: put(aovs[i].normal * film.share(i)); break;
        case Aov::Albedo: put(aovs[i].albedo * film.share(i)); break;
        case Aov::Object: layer.values.push_back(static_cast<float>(aovs[i].object)); break;
        case Aov::Samples: layer.values.push_back(static_cast<float>(pixels[i].samples)); break;
        }
    }
    return layer;
}

}  // namespace oxbeam
