#include "Engine/SceneFile/TextureSection.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Textures/Projection.h"
#include "Engine/Textures/Studio.h"

#include <fmt/format.h>

namespace oxbeam {

// Objects do not say what they read; these are known.
TextureSection::Layout TextureSection::layoutFor(const std::string& object) {
    static const std::map<std::string, Layout> known = {{"KelEnvironment", Layout::AngularMap},
                                                        {"KelEnvMapLight", Layout::AngularMap},
                                                        {"KelCubicEnvironment", Layout::VerticalCross}};
    const auto found = known.find(object);
    return found == known.end() ? Layout::AsItIs : found->second;
}

std::optional<int> TextureSection::idFor(const std::string& name, const std::string& object) {
    const auto found = m_ids.find(name);
    if (found == m_ids.end()) return std::nullopt;
    const Layout layout = layoutFor(object);
    if (found->second == Ox_NOTEXTURE || layout == Layout::AsItIs || !m_equirectangular.contains(name))
        return found->second;
    const auto [entry, isNew] = m_converted.try_emplace({name, layout}, Ox_NOTEXTURE);
    if (isNew) {
        const auto& picture = static_cast<const Texture&>(*m_world.textures.ByID(found->second));
        entry->second =
            m_world.textures.add(layout == Layout::AngularMap ? toAngularMap(picture) : toVerticalCross(picture));
    }
    return entry->second;
}

static std::unique_ptr<Texture> whiteTexel() {
    return std::make_unique<Texture>(1u, 1u, 3u, std::vector<std::uint8_t>{255, 255, 255}, ColorSpace::Linear);
}

void TextureSection::read(const std::string& name, TableReader& reader) {
    m_names.push_back(name);
    m_ids[name] = Ox_NOTEXTURE;  // until it is loaded: defined, if wrongly
    static const Oxuint wraps[] = {OX_GL_REPEAT, OX_GL_CLAMP_TO_EDGE, OX_GL_MIRRORED_REPEAT};
    static const Oxuint filters[] = {OX_GL_LINEAR, OX_GL_NEAREST};
    static const Oxuint models[] = {OX_GL_MODULATE, OX_GL_REPLACE, OX_GL_ADD, OX_GL_DECAL};
    const auto file = reader.text("file");
    const auto wrap = reader.word("wrap", {"repeat", "clamp", "mirror"});
    const auto filter = reader.word("filter", {"linear", "nearest"});
    const auto model = reader.word("model", {"modulate", "replace", "add", "decal"});
    const auto space = reader.word("colorSpace", {"linear", "srgb"});
    const auto bump = reader.word("bump", {"height", "normal"});
    const auto bumpScale = reader.number("bumpScale");
    const auto image = reader.count("image", 0, 1u << 20);
    const auto alpha = reader.word("alpha", {"blend", "mask", "ignore"});
    const auto cutoff = reader.number("alphaCutoff");
    const bool vertexColors = reader.flag("vertexColors").value_or(false);
    const auto generated = reader.word("generate", {"studio"});
    const auto projection = reader.word("projection", {"equirectangular"});
    if (generated || projection) m_equirectangular.insert(name);
    reader.finish();
    if (!file && !reader.has("file") && !vertexColors && !generated) reader.error("file", "has no 'file'");
    if (image && !file) reader.error("image", "'image' is for the images within a model's 'file'");
    if (!file && !vertexColors && !generated) return;
    try {
        TextureSource source;
        if (file) source.file = m_folder / *file;
        if (image) source.image = static_cast<int>(*image);
        if (space) source.space = *space == 0 ? ColorSpace::Linear : ColorSpace::SRGB;
        auto texture = file ? m_assets.texture(source) : generated ? studioPicture() : whiteTexel();
        texture->withVertexColors = vertexColors;
        if (alpha == 1u) texture->thresholdAlpha(cutoff.value_or(0.5f));
        if (alpha == 2u) texture->thresholdAlpha(0.0f);
        texture->m_wrapS = texture->m_wrapT = static_cast<Oxint>(wraps[wrap.value_or(0)]);
        texture->filterMode = static_cast<Oxint>(filters[filter.value_or(0)]);
        texture->textureModel = models[model.value_or(0)];
        if (bump) texture->bumpKind = *bump == 0 ? BumpKind::Height : BumpKind::Normal;
        texture->bumpScale = bumpScale.value_or(1.0f);
        if (texture->mended())
            m_diagnostics.warning(
                reader.where("file"),
                fmt::format("{}: {} numbers of the picture are not finite; they count as 0, infinities "
                            "as 65504",
                            reader.label(), texture->mended()));
        m_ids[name] = m_world.textures.add(std::move(texture));
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        m_diagnostics.error(reader.where("file"), e.what());
    }
}

}  // namespace oxbeam
