#include "Engine/Render/Aovs.h"

#include "Engine/Host/KnownHit.h"
#include "Engine/Host/Texels.h"
#include "Engine/Render/FourHits.h"
#include "Oxbeam/OxFunctions.h"

namespace oxbeam {

AovSampler::AovSampler(const World& world) {
    const View view = world.viewInForce();
    m_eye = view.position;
    m_forward = Normalize(view.lookAt - view.position);
    for (const OxShader* shader : OxContext::current->shaders) m_baseColors.push_back(world.baseColor(shader));
}

// The base colour as the texture changes it. A surface that declares none, like glass, lets through or reflects all: white.
R3 AovSampler::albedo(const OxState& state, KnownHit& known) const {
    const BaseColor& base = m_baseColors[shaderNumber(state)];
    const R3& color = base.color ? *base.color : White;
    known.texture =
        base.texture && *base.texture != Ox_NOTEXTURE ? textureOf(static_cast<Oxuint>(*base.texture)) : nullptr;
    if (!known.texture) return color;
    known.texel = texelAt(state, *known.texture);
    return combined(known.texture->textureModel, RGBAFloat(color, 1.0f), known.texel).rgb();
}

void AovSampler::sample(const OxState& state, AovSample& to, KnownHit& known) const {
    if (state.hit.tri < 0) {
        to = AovSample();
        return;
    }
    R3 position;
    oxsGetHitPosition(&state, position);
    to.depth = Dot(position - m_eye, m_forward);
    to.object = static_cast<unsigned>(state.hit.inst) + 1;
    to.normal = known.normal = shadingNormal(state);
    to.albedo = albedo(state, known);
    known.noteHit(state);
}

// As faceRay, but for the lanes that it answers as bits: their normals lean away from the viewer.
static int faceRays(const FourHits& hits, ISSEVec4& n) {
    const auto along = [](const ISSEVec4& a, const ISSEVec4& b) { return _mm_cmpgt_ps(Dot(a, b), _mm_setzero_ps()); };
    const sse_t faces = _mm_xor_ps(along(hits.direction, hits.normal), along(n, hits.normal));
    const sse_t sign = _mm_andnot_ps(faces, _mm_set1_ps(-0.0f));
    n = {_mm_xor_ps(n.t[0], sign), _mm_xor_ps(n.t[1], sign), _mm_xor_ps(n.t[2], sign)};
    return _mm_movemask_ps(along(hits.direction, n));
}

// Of four that hit: what all do alike is done at once.
void AovSampler::sampleFour(const OxState* four, AovSample* to, KnownHit* known) const {
    const FourHits hits(four);
    const sse_t depth = Dot(hits.position - ISSEVec4(m_eye), ISSEVec4(m_forward));
    ISSEVec4 n = Normalize(lanesOf(four, worldNormal));
    const int leaning = faceRays(hits, n);
    sse_t rows[4] = {n.t[0], n.t[1], n.t[2], depth};
    _MM_TRANSPOSE4_PS(rows[0], rows[1], rows[2], rows[3]);
    for (unsigned i = 0; i < 4; ++i) {
        R3& normal = known[i].normal = R3(rows[i][0], rows[i][1], rows[i][2]);
        if (leaning >> i & 1) [[unlikely]]
            normal = shadingNormal(four[i]);
        to[i].normal = normal;
        to[i].albedo = albedo(four[i], known[i]);
        known[i].noteHit(four[i]);
        to[i].depth = rows[i][3];
        to[i].object = static_cast<unsigned>(four[i].hit.inst) + 1;
    }
}

void AovSampler::sample(std::span<const OxState> states, AovSample* to, KnownHit* known) const {
    for (; states.size() >= 4; states = states.subspan(4), to += 4, known += 4) {
        const auto hits = [&](unsigned i) { return states[i].hit.tri >= 0; };
        if (hits(0) && hits(1) && hits(2) && hits(3)) [[likely]]
            sampleFour(states.data(), to, known);
        else
            for (unsigned i = 0; i < 4; ++i) sample(states[i], to[i], known[i]);
    }
    for (const OxState& state : states) sample(state, *to++, *known++);
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
