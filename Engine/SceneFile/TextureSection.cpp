#include "Engine/SceneFile/TextureSection.h"

#include "Engine/Diagnostics/Error.h"

#include <fmt/format.h>

namespace oxbeam {

static std::unique_ptr<Texture> whiteTexel() {
    return std::make_unique<Texture>(1u, 1u, 3u, std::vector<std::uint8_t>{255, 255, 255}, ColorSpace::Linear);
}

namespace {

// Where a texture's picture comes from.
struct Origin {
    std::optional<std::string> file;
    std::optional<unsigned> image;
    std::optional<unsigned> space;
    bool generated = false;
    bool equirectangular = false;
    float turn;  // about the vertical, degrees
    bool vertexColors = false;
    bool rough = false;
    std::optional<float> brightest;

    explicit Origin(TableReader& reader)
        : file(reader.fileName("file")), image(reader.count("image", 0, 1u << 20)),
          space(reader.word("colorSpace", {"linear", "srgb"})), generated(reader.word("generate", {"studio"})),
          equirectangular(reader.word("projection", {"equirectangular"}) || generated),
          turn(reader.number("rotate").value_or(0.0f)), vertexColors(reader.flag("vertexColors").value_or(false)),
          rough(reader.has("roughness")), brightest(reader.number("brightest")) {
        if (reader.has("rotate") && !equirectangular)
            reader.error("rotate", "'rotate' is for surroundings: 'projection = \"equirectangular\"'");
        if (brightest && !(equirectangular && *brightest > 0.0f))
            reader.error("brightest", "'brightest' is for an equirectangular picture, and above 0");
        if (!isKnown() && !reader.has("file")) reader.error("file", "has no 'file'");
        if (image && !reader.has("file")) reader.error("image", "'image' is for the images within a model's 'file'");
    }

    bool isKnown() const { return file || vertexColors || generated || rough; }

    TextureSource source(const std::filesystem::path& folder) const {
        TextureSource source;
        source.file = folder / *file;
        if (image) source.image = static_cast<int>(*image);
        if (space) source.space = *space == 0 ? ColorSpace::Linear : ColorSpace::SRGB;
        return source;
    }
};

}  // namespace

// What is done with the picture.
static TextureUse useOf(TableReader& reader) {
    static const Oxuint wraps[] = {OX_GL_REPEAT, OX_GL_CLAMP_TO_EDGE, OX_GL_MIRRORED_REPEAT};
    static const Oxuint filters[] = {OX_GL_LINEAR, OX_GL_NEAREST};
    static const Oxuint models[] = {OX_GL_MODULATE, OX_GL_REPLACE, OX_GL_ADD, OX_GL_DECAL};
    TextureUse use;
    use.wrap = wraps[reader.word("wrap", {"repeat", "clamp", "mirror"}).value_or(0)];
    use.filter = filters[reader.word("filter", {"linear", "nearest"}).value_or(0)];
    use.model = models[reader.word("model", {"modulate", "replace", "add", "decal"}).value_or(0)];
    if (const auto kind = reader.word("bump", {"height", "normal"}))
        use.bump = *kind == 0 ? BumpKind::Height : BumpKind::Normal;
    use.bumpScale = reader.number("bumpScale").value_or(use.bumpScale);
    use.roughness = reader.number("roughness").value_or(use.roughness);
    if (!(use.roughness >= 0.0f && use.roughness <= 1.0f))
        reader.error("roughness", fmt::format("'roughness' is {}; expected 0 to 1", use.roughness));
    const auto alpha = reader.word("alpha", {"blend", "mask", "ignore"});
    const float cutoff = reader.number("alphaCutoff").value_or(0.5f);
    if (alpha == 1u) use.alphaThreshold = cutoff;
    if (alpha == 2u) use.alphaThreshold = 0.0f;
    return use;
}

void TextureSection::read(const std::string& name, TableReader& reader) {
    const Origin origin(reader);
    TextureNames::Named& named = m_world.textureNames.define(m_scope, name);
    named.use = useOf(reader);
    named.use.vertexColors = origin.vertexColors;
    reader.finish();
    if (origin.equirectangular) named.turn = origin.turn;
    named.brightest = origin.brightest;
    if (!origin.isKnown()) return;
    try {
        auto texture = origin.file        ? m_assets.texture(origin.source(m_folder))
                       : origin.generated ? m_assets.studio()
                                          : whiteTexel();
        named.use.applyTo(*texture);
        if (texture->mended())
            m_diagnostics.warning(reader.where("file"),
                                  fmt::format("{}: {} numbers of the picture are not finite; they "
                                              "count as 0, infinities as 65504",
                                              reader.label(), texture->mended()));
        if (const std::size_t negative = origin.equirectangular ? texture->dropNegative() : 0)
            m_diagnostics.warning(reader.where("file"),
                                  fmt::format("{}: {} numbers of the picture are negative, which no "
                                              "light is; they count as 0",
                                              reader.label(), negative));
        named.id = m_world.textures.add(std::move(texture));
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        m_diagnostics.error(reader.where("file"), e.what());
    }
}

}  // namespace oxbeam
