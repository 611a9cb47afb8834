// What a texture has at a hit: what packages ask for, and what layers of a picture tell.
#pragma once

#include "Engine/Host/ShadingNormal.h"
#include "Engine/Textures/Texture.h"

namespace oxbeam {

// Null where the id names no texture.
inline const Texture* textureOf(Oxuint id) {
    return static_cast<const Texture*>(TextureList::current->ByID(static_cast<Oxint>(id)));
}

// The barycentric weights where the mesh has no coordinates.
inline R2 textureCoordinates(const OxState& state) {
    const ABSP& mesh = meshOf(state);
    const Intersection& hit = state.hit;
    return mesh.texCoords.empty() ? R2(hit.u, hit.v) : mesh.interpolate(mesh.texCoords, hit.tri, hit.u, hit.v);
}

// White where the mesh has no colours.
inline R3 vertexColor(const OxState& state) {
    const ABSP& mesh = meshOf(state);
    return mesh.colors.empty() ? White : mesh.interpolate(mesh.colors, state.hit.tri, state.hit.u, state.hit.v);
}

inline RGBAFloat texelAt(const OxState& state, const Texture& texture) {
    const R2 st = textureCoordinates(state);
    const RGBAFloat texel = texture.lookUp(st.x, st.y);
    return texture.withVertexColors ? RGBAFloat(vertexColor(state) * texel.rgb(), texel.a) : texel;
}

// A fragment's colour with a texel, by OpenGL's texture environment.
inline RGBAFloat combined(Oxuint model, const RGBAFloat& f, const RGBAFloat& t) {
    switch (model) {
    case OX_GL_REPLACE: return t;
    case OX_GL_ADD: return {f.r + t.r, f.g + t.g, f.b + t.b, f.a + t.a};
    case OX_GL_DECAL: return {f.rgb() * (1.0f - t.a) + t.rgb() * t.a, f.a};
    default: return {f.r * t.r, f.g * t.g, f.b * t.b, f.a * t.a};
    }
}

}  // namespace oxbeam
