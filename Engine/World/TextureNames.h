// The textures of a world by their names.
#pragma once

#include "Engine/Textures/Texture.h"

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace oxbeam {

// What is done with a picture, whichever it is.
struct TextureUse {
    Oxuint wrap = OX_GL_REPEAT, filter = OX_GL_LINEAR, model = OX_GL_MODULATE;
    std::optional<BumpKind> bump;  // nothing: as the picture looks
    float bumpScale = 1.0f;
    float roughness = 0.0f;               // 0 to 1
    std::optional<float> alphaThreshold;  // see Texture::thresholdAlpha
    bool vertexColors = false;

    OXBEAM_API void applyTo(Texture& texture) const;
};

// Names stand in a scope: "" for the scene's own, "model.0" for what a model brought along. Who asks from within a model
// sees its names first, then the scene's.
class OXBEAM_API TextureNames {
public:
    struct Named {
        int id = Ox_NOTEXTURE;      // until it has a picture: defined, if wrongly
        TextureUse use = {};        // of pictures that it is given later
        std::optional<float> turn;  // laid out as a panorama of all directions: its turn about the vertical, degrees
        std::optional<float> brightest;  // of those that show such a picture
    };

    explicit TextureNames(TextureList& textures) : m_textures(textures) {}

    // In the order in which they came.
    std::vector<std::string> names(const std::string& scope) const;
    // Of all scopes: "texture.wood", "model.0.texture.wood".
    std::vector<std::string> paths() const;
    // Null where the scope itself has no such name.
    Named* find(const std::string& scope, const std::string& name);
    Named& define(const std::string& scope, const std::string& name);
    // In the list, laid out as an object of that name reads it; nothing where no such texture is defined.
    std::optional<int> idFor(const std::string& scope, const std::string& name, const std::string& object);
    // Takes a picture over, used as the one before was. Nobody may be rendering. Throws std::out_of_range where the scope
    // has no such name.
    void setPicture(const std::string& scope, const std::string& name, std::unique_ptr<Texture> picture);
    // Undoes what objects did to pictures that they look up together with others.
    void beginFrame();

private:
    // How an environment picture is laid out for those who read it.
    enum class Layout { AsItIs, AngularMap, VerticalCross };
    static Layout layoutFor(const std::string& object);
    int converted(const Named& named, Layout layout, bool limited);
    void letGo(int id);

    TextureList& m_textures;
    std::map<std::string, std::vector<std::pair<std::string, Named>>> m_scopes;
    std::map<std::tuple<int, Layout, bool, float>, int> m_converted;  // whether limited; its turn
};

}  // namespace oxbeam
