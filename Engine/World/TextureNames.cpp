#include "Engine/World/TextureNames.h"

#include "Engine/Textures/Projection.h"

#include <algorithm>
#include <stdexcept>

namespace oxbeam {

void TextureUse::applyTo(Texture& texture) const {
    texture.m_wrapS = texture.m_wrapT = static_cast<Oxint>(wrap);
    texture.filterMode = static_cast<Oxint>(filter);
    texture.textureModel = model;
    if (bump) texture.bumpKind = *bump;
    texture.bumpScale = bumpScale;
    texture.roughness = roughness;
    texture.withVertexColors = vertexColors;
    if (alphaThreshold) texture.thresholdAlpha(*alphaThreshold);
}

// Objects do not say what they read; these are known.
TextureNames::Layout TextureNames::layoutFor(const std::string& object) {
    static const std::map<std::string, Layout> known = {{"KelEnvironment", Layout::AngularMap},
                                                        {"KelEnvMapLight", Layout::AngularMap},
                                                        {"KelCubicEnvironment", Layout::VerticalCross}};
    const auto found = known.find(object);
    return found == known.end() ? Layout::AsItIs : found->second;
}

std::vector<std::string> TextureNames::names(const std::string& scope) const {
    std::vector<std::string> names;
    if (const auto found = m_scopes.find(scope); found != m_scopes.end())
        for (const auto& [name, named] : found->second) names.push_back(name);
    return names;
}

std::vector<std::string> TextureNames::paths() const {
    std::vector<std::string> paths;
    for (const auto& [scope, names] : m_scopes) {
        const std::string prefix = scope.empty() ? "texture." : scope + ".texture.";
        for (const auto& [name, named] : names) paths.push_back(prefix + name);
    }
    return paths;
}

TextureNames::Named* TextureNames::find(const std::string& scope, const std::string& name) {
    const auto names = m_scopes.find(scope);
    if (names == m_scopes.end()) return nullptr;
    const auto found = std::find_if(names->second.begin(), names->second.end(),
                                    [&](const auto& entry) { return entry.first == name; });
    return found == names->second.end() ? nullptr : &found->second;
}

TextureNames::Named& TextureNames::define(const std::string& scope, const std::string& name) {
    if (Named* known = find(scope, name)) return *known = {};
    return m_scopes[scope].emplace_back(name, Named()).second;
}

std::optional<int> TextureNames::idFor(const std::string& scope, const std::string& name, const std::string& object) {
    const Named* named = find(scope, name);
    if (!named && !scope.empty()) named = find({}, name);
    if (!named) return std::nullopt;
    const Layout layout = layoutFor(object);
    if (named->id == Ox_NOTEXTURE || layout == Layout::AsItIs || !named->turn) return named->id;
    // A light must not lose what a lamp gives; who only shows it may.
    return converted(*named, layout, named->brightest && object != "KelEnvMapLight");
}

int TextureNames::converted(const Named& named, Layout layout, bool limited) {
    const auto [entry, isNew] = m_converted.try_emplace({named.id, layout, limited, *named.turn}, Ox_NOTEXTURE);
    if (!isNew) return entry->second;
    const auto& picture = static_cast<const Texture&>(*m_textures.ByID(named.id));
    std::unique_ptr<Texture> made =
        layout == Layout::AngularMap ? toAngularMap(picture, *named.turn) : toVerticalCross(picture, *named.turn);
    if (limited) made->limit(*named.brightest);
    return entry->second = m_textures.add(std::move(made));
}

// Of a picture whose name is another's now, unless one more goes by it.
void TextureNames::letGo(int id) {
    for (const auto& [scope, names] : m_scopes)
        for (const auto& [name, named] : names)
            if (named.id == id) return;
    for (auto it = m_converted.begin(); it != m_converted.end();) {
        const bool own = std::get<0>(it->first) == id;
        if (own) m_textures.remove(it->second);
        it = own ? m_converted.erase(it) : std::next(it);
    }
    m_textures.remove(id);
}

void TextureNames::setPicture(const std::string& scope, const std::string& name, std::unique_ptr<Texture> picture) {
    Named* named = find(scope, name);
    if (!named) throw std::out_of_range("no texture '" + name + "'");
    named->use.applyTo(*picture);
    if (named->turn) picture->dropNegative();
    const int before = named->id;
    named->id = m_textures.add(std::move(picture));
    letGo(before);
}

void TextureNames::beginFrame() {
    for (const auto& [scope, names] : m_scopes)
        for (const auto& [name, named] : names)
            if (TextureObject* texture = m_textures.ByID(named.id)) {
                texture->m_wrapS = texture->m_wrapT = static_cast<Oxint>(named.use.wrap);
                texture->filterMode = static_cast<Oxint>(named.use.filter);
            }
}

}  // namespace oxbeam
