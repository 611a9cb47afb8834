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

// Where both are finite and so is their sum, which is nearly always, one look is enough.
static void mend(R3& normal, R3& albedo) {
    if (IsFinite(normal + albedo)) [[likely]]
        return;
    if (!IsFinite(normal)) normal = Black;
    if (!IsFinite(albedo)) albedo = Black;
}

void AovSampler::sample(const OxState& state, AovSample& to) const {
    if (state.hit.tri < 0) {
        to = AovSample();
        return;
    }
    R3 position;
    oxsGetHitPosition(&state, position);
    to.depth = Dot(position - m_eye, m_forward);
    to.object = static_cast<unsigned>(state.hit.inst) + 1;
    oxsFindShadingNormal(&state, to.normal);
    to.albedo = albedo(state);
    mend(to.normal, to.albedo);
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
    const auto put = [&film, aov](std::size_t i, float* to) {
        const Film::Pixel& pixel = film.sums()[i];
        const auto vector = [to](const R3& v) { to[0] = v.x, to[1] = v.y, to[2] = v.z; };
        switch (aov) {
        case Aov::Depth: *to = pixel.samples ? film.aovSums()[i].depth : AovSample().depth; break;
        case Aov::Normal: vector(film.aovSums()[i].normal * film.share(i)); break;
        case Aov::Albedo: vector(film.aovSums()[i].albedo * film.share(i)); break;
        case Aov::Object: *to = static_cast<float>(film.aovSums()[i].object); break;
        case Aov::Samples: *to = static_cast<float>(pixel.samples); break;
        }
    };
    return {channels[static_cast<std::size_t>(aov)], put};
}

}  // namespace oxbeam
