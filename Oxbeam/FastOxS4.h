// Services for packets of four rays, small enough to be compiled into every caller. A lane whose triangle is negative
// has hit nothing.
#pragma once

#include "Oxbeam/ABSP.h"
#include "Oxbeam/OxContext.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxScene.h"
#include "Oxbeam/OxShader.h"
#include "Oxbeam/OxState.h"
#include "Oxbeam/OxTexture.h"
#include "Oxbeam/OxTypes.h"

#include <algorithm>

// A package can offer copies of its own to other packages, under the same names: one source file emits them, and all
// others must agree that they are exported.
#if defined(OXBEAM_EMIT_PACKET_SERVICES)
#define OX_PACKET_SERVICE [[gnu::used]] inline OXBEAM_API
#elif defined(OXBEAM_EXPORT_PACKET_SERVICES)
#define OX_PACKET_SERVICE inline OXBEAM_API
#else
#define OX_PACKET_SERVICE OX_SERVICE
#endif

inline const sse_t sse_one_half = _mm_set1_ps(0.5f);
inline const sse_t sse_three = _mm_set1_ps(3.0f);

// ---- The packet

OX_PACKET_SERVICE Oxvoid oxs4Init(OxState4& state4) {
    for (unsigned i = 0; i < 4; ++i) state4.scene[i] = OxContext::current->scene;
}

OX_PACKET_SERVICE Oxvoid* oxsGetPrivatePtr4(OxState4& state) { return state.ray4->privatePtr; }
OX_PACKET_SERVICE Oxvoid oxsSetPrivatePtr4(OxState4& state, Oxvoid* record) { state.ray4->privatePtr = record; }

OX_PACKET_SERVICE Oxvoid oxsGetRayOrigin4(OxState4& state, ISSEVec4& origin) { origin = state.ray4->origin; }
OX_PACKET_SERVICE Oxvoid oxsSetRayOrigin4(OxState4& state, ISSEVec4& origin) { state.ray4->origin = origin; }
OX_PACKET_SERVICE Oxvoid oxsGetRayDirection4(OxState4& state, ISSEVec4& direction) {
    direction = state.ray4->direction;
}
OX_PACKET_SERVICE Oxvoid oxsSetRay4(OxState4& state, const ISSEVec4& origin, const ISSEVec4& direction, sse_t maxDist) {
    state.ray4->origin = origin;
    state.ray4->direction = direction;
    state.ray4->maxDist = maxDist;
}

// ---- The hits

// Fills in the instances and objects of the lanes that hit something.
OX_PACKET_SERVICE Oxvoid oxs4LoadGeometry(OxState4& state4) {
    for (unsigned i = 0; i < 4; ++i) {
        if (state4.hit4->tri[i] == TRI_NONE) continue;
        const Scene& scene = *state4.scene[i];
        state4.instance[i] = scene.instances[static_cast<unsigned>(state4.hit4->inst[i])];
        state4.object[i] = scene.objects[state4.instance[i]->object];
    }
}

OX_PACKET_SERVICE Oxvoid oxsGetHitPosition4(OxState4& state, ISSEVec4& position) {
    position = state.ray4->origin + _mm_loadu_ps(state.hit4->dist) * state.ray4->direction;
}

// By lane, the shader of the hit, or `background`.
OX_PACKET_SERVICE Oxvoid oxs4GetShader(OxState4& state4, OxShader** shader4, const OxShader* background) {
    for (unsigned i = 0; i < 4; ++i)
        shader4[i] =
            state4.hit4->tri[i] < 0
                ? const_cast<OxShader*>(background)
                : OxContext::current
                      ->shaders[state4.object[i]->GetShaderId4(*state4.hit4, i) + state4.instance[i]->shaderBias];
}

// ---- Directions

// Turns normals to the side that the rays come from and brings them to unit length, by the processor's estimate of the
// reciprocal square root and one Newton-Raphson step: about 22 correct bits.
inline Oxvoid oxs4NormalizeFaceForward(const OxState4& state4, ISSEVec4& normal4) {
    const sse_t away = _mm_cmpgt_ps(Dot(state4.ray4->direction, normal4), _mm_setzero_ps());
    const sse_t flip = _mm_and_ps(away, _mm_set1_ps(-0.0f));
    for (sse_t& component : normal4.t) component = _mm_xor_ps(component, flip);
    const sse_t l2 = Dot(normal4, normal4), r = _mm_rsqrt_ps(l2);
    const sse_t refined =
        _mm_mul_ps(_mm_mul_ps(sse_one_half, r), _mm_sub_ps(sse_three, _mm_mul_ps(l2, _mm_mul_ps(r, r))));
    normal4 = refined * normal4;
}

// Turns normals of the hit objects into unit normals in world space that face the rays. The instances of all lanes must
// be set; those that transform do it by their matrix for points, which is right for rotations and even scales.
OX_PACKET_SERVICE Oxvoid oxs4FindShadingNormal(OxState4& state4, ISSEVec4& normal4) {
    for (unsigned i = 0; i < 4; ++i)
        if (state4.hit4->tri[i] >= 0 && state4.instance[i]->hasXfm)
            normal4.setLane(i, TransformVector(state4.instance[i]->meshToWorldXfm, normal4.lane(i)));
    oxs4NormalizeFaceForward(state4, normal4);
}

// The normal is taken off by the square of the cosine, where a mirror takes twice the cosine.
OX_PACKET_SERVICE Oxvoid oxsReflect4(ISSEVec4& newDirection, const ISSEVec4& oldDirection, const ISSEVec4& normal) {
    const sse_t cosTheta = Dot(oldDirection, normal);
    const sse_t cosTheta2 = _mm_mul_ps(cosTheta, cosTheta);
    newDirection = oldDirection - cosTheta2 * normal;
}

// ---- Lights

// Asks a light for four samples at once. True: the shadow packet holds the four rays from `pos` to the light and, as
// its colours, the intensities that arrive.
OX_PACKET_SERVICE bool oxsIlluminate4(Oxvoid* light, OxState4& shadow, ISSEVec4& pos, OxState4& state,
                                      Oxvoid* userData) {
    ISSERay4& ray = *shadow.ray4;
    for (sse_t& channel : shadow.colors.t) channel = _mm_setzero_ps();  // of lights that set none
    if (!static_cast<OxLight*>(light)->Illuminate4(pos, ray.direction, ray.maxDist, shadow.colors, state, userData))
        return false;
    ray.origin = pos;
    return true;
}

// ---- Textures

// Coordinates of a lane's hit; those on its triangle where the mesh has none.
inline R2 oxs4TextureCoordinates(const OxState4& state4, const ISSEIntersection4& hit4, unsigned lane) {
    const float u = hit4.u[lane], v = hit4.v[lane];
    const auto* mesh = dynamic_cast<const ABSP*>(state4.object[lane]);
    if (!mesh || !(mesh->triangleFlags(hit4.tri[lane]) & ABSP::HasTexCoords)) return {u, v};
    return mesh->interpolate(mesh->texCoords, hit4.tri[lane], u, v);
}

// Looks textures up, one a lane (all bits set: none, the lane's colour stays). Coordinates are clamped to the texture's
// range; texels stand at whole places, not half ones.
OX_PACKET_SERVICE Oxvoid oxs4ApplyTexture(OxState4& state4, ISSEIntersection4& hit4, unsigned int* textureId,
                                          ISSEVec4& color4) {
    for (unsigned i = 0; i < 4; ++i) {
        if (textureId[i] == ~0u || hit4.tri[i] < 0) continue;
        const TextureObject* texture = TextureList::current->ByID(static_cast<Oxint>(textureId[i]));
        if (!texture) continue;
        const R2 tc = oxs4TextureCoordinates(state4, hit4, i);
        const float fu =
            static_cast<float>(texture->width()) * std::min(std::max(texture->minST.x, tc.x), texture->maxST.x);
        const float fv =
            static_cast<float>(texture->height()) * std::min(std::max(texture->minST.y, tc.y), texture->maxST.y);
        const auto iu = static_cast<Oxint>(fu), iv = static_cast<Oxint>(fv);
        const float ru = fu - static_cast<float>(iu), rv = fv - static_cast<float>(iv);
        const RGBAFloat texel = texture->texelBlend(iu, iv, iu + 1, iv + 1, ru, 1.0f - ru, rv, 2);
        color4.setLane(i, R3(texel.r, texel.g, texel.b));
    }
}
