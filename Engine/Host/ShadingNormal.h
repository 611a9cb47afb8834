// Which surface a hit has, and the normal that it is shaded with: what packages ask for, and what layers of a picture tell.
#pragma once

#include "Oxbeam/ABSP.h"
#include "Oxbeam/OxState.h"

#include <cstddef>

namespace oxbeam {

// The engine's only kind of object.
inline const ABSP& meshOf(const OxState& state) { return static_cast<const ABSP&>(*state.object); }

// The number of the hit's surface in the context.
inline std::size_t shaderNumber(const OxState& state) {
    return std::size_t{meshOf(state).GetShaderId(state.hit)} + state.instance->shaderBias;
}

// In object space and of any length, like all of a mesh's own.
inline R3 geometricNormal(const ABSP& mesh, int triangle) {
    const Oxuint* const corner = &mesh.indices[3 * static_cast<std::size_t>(triangle)];
    const R3 &c = mesh.positions[corner[0]], &a = mesh.positions[corner[1]], &b = mesh.positions[corner[2]];
    return Cross(b - a, c - a);
}

// The interpolated one; the geometric one where there is none.
inline R3 meshNormal(const ABSP& mesh, int triangle, float u, float v) {
    if (!mesh.normals.empty()) {
        const R3 normal = mesh.interpolate(mesh.normals, triangle, u, v);
        if (Dot(normal, normal) > 1e-12f) return normal;
    }
    return geometricNormal(mesh, triangle);
}

// That of a hit in world space, of any length.
inline R3 worldNormal(const OxState& state) {
    const R3 n = meshNormal(meshOf(state), state.hit.tri, state.hit.u, state.hit.v);
    return state.instance->hasXfm ? TransformVector(state.instance->normalXfm, n) : n;
}

// Turns unit normal n to the side that the ray comes from; `own` is the surface's unperturbed normal. The side is that
// of the geometric normal: at a silhouette the interpolated normal may lean away from the viewer, and is then laid
// down onto the plane across the ray instead of being flipped, which would show as a rim of wrong light.
inline R3 faceRay(const OxState& state, R3 n, const R3& own) {
    const R3& D = state.ray.direction;
    const R3& geometric = state.hit.normal;
    if ((Dot(D, geometric) > 0.0f) == (Dot(own, geometric) > 0.0f)) n = -n;
    const float away = Dot(D, n);
    return away > 0.0f ? Normalize(n - (away / Dot(D, D)) * D) : n;
}

inline R3 shadingNormal(const OxState& state) {
    const R3 own = Normalize(worldNormal(state));
    return faceRay(state, own, own);
}

}  // namespace oxbeam
