// Textures as packages see them.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <memory>
#include <vector>

// No texture.
inline constexpr Oxint Ox_NOTEXTURE = -1;

// OpenGL's enumerant values, so that numbers in scene data mean what they mean there.
enum OxTextureEnum : Oxuint {
    OX_GL_ADD = 0x0104,
    OX_GL_TEXTURE_2D = 0x0DE1,
    OX_GL_REPLACE = 0x1E01,
    OX_GL_MODULATE = 0x2100,
    OX_GL_DECAL = 0x2101,
    OX_GL_NEAREST = 0x2600,
    OX_GL_LINEAR = 0x2601,
    OX_GL_TEXTURE_MIN_FILTER = 0x2801,
    OX_GL_TEXTURE_WRAP_S = 0x2802,
    OX_GL_TEXTURE_WRAP_T = 0x2803,
    OX_GL_REPEAT = 0x2901,
    OX_GL_CLAMP_TO_EDGE = 0x812F,
    OX_GL_MIRRORED_REPEAT = 0x8370
};

class OXBEAM_API TextureObject {
public:
    Oxint filterMode = OX_GL_LINEAR;
    Oxint m_wrapS = OX_GL_REPEAT;
    Oxint m_wrapT = OX_GL_REPEAT;
    Oxuint textureModel = OX_GL_MODULATE;
    R2 minST{0.0f, 0.0f}, maxST{1.0f, 1.0f};  // valid texture coordinates of packet look-ups

    virtual ~TextureObject();
    // There is an alpha channel, and not all of it is opaque.
    virtual bool hasTransparency() const = 0;
    // Size in texels.
    virtual Oxuint width() const = 0;
    virtual Oxuint height() const = 0;
    // Blend of the four texels at columns x0 and x1 of rows y0 and y1, counted from the left bottom corner and wrapped
    // as the texture says: x1 and y1 weigh rx and ry, x0 weighs rx1. filter: 1 nearest (x0, y0), 2 bilinear.
    virtual RGBAFloat texelBlend(Oxint x0, Oxint y0, Oxint x1, Oxint y1, float rx, float rx1, float ry,
                                 Oxuint filter) const = 0;
    // Sets filter or wrap mode; between frames only. Other parameters and values are ignored.
    void TexParameteri(Oxuint target, Oxuint parameter, Oxint value);
};

// The textures of a scene by their ids 0, 1, 2, ...
class OXBEAM_API TextureList {
public:
    static TextureList* current;  // that of the scene being rendered

    // Null where the id names no texture.
    TextureObject* ByID(Oxint id) const {
        return static_cast<Oxuint>(id) < m_textures.size() ? m_textures[static_cast<Oxuint>(id)].get() : nullptr;
    }
    // Takes the texture over and returns its id.
    Oxint add(std::unique_ptr<TextureObject> texture) {
        m_textures.push_back(std::move(texture));
        return static_cast<Oxint>(m_textures.size()) - 1;
    }
    // Ends a texture that nobody uses any more; its id names none from now on.
    void remove(Oxint id) {
        if (ByID(id)) m_textures[static_cast<Oxuint>(id)].reset();
    }

private:
    std::vector<std::unique_ptr<TextureObject>> m_textures;
};
