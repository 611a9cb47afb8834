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
    if (found == m_ids.end()) return m_outer ? m_outer->idFor(name, object) : std::nullopt;
    const Layout layout = layoutFor(object);
    if (found->second == Ox_NOTEXTURE || layout == Layout::AsItIs || !m_equirectangular.contains(name))
        return found->second;
    // A light must not lose what a lamp gives; who only shows it may.
    const bool limited = m_brightest.contains(name) && object != "KelEnvMapLight";
    const auto [entry, isNew] = m_converted.try_emplace({name, layout, limited}, Ox_NOTEXTURE);
    if (isNew) {
        const auto& picture = static_cast<const Texture&>(*m_world.textures.ByID(found->second));
        const float turn = m_equirectangular[name];
        std::unique_ptr<Texture> converted =
            layout == Layout::AngularMap ? toAngularMap(picture, turn) : toVerticalCross(picture, turn);
        if (limited) converted->limit(m_brightest[name]);
        entry->second = m_world.textures.add(std::move(converted));
    }
    return entry->second;
}

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

// What is done with the picture.
struct Use {
    Oxuint wrap, filter, model;
    std::optional<BumpKind> bump;
    float bumpScale, roughness;
    std::optional<float> alphaThreshold;

    explicit Use(TableReader& reader) {
        static const Oxuint wraps[] = {OX_GL_REPEAT, OX_GL_CLAMP_TO_EDGE, OX_GL_MIRRORED_REPEAT};
        static const Oxuint filters[] = {OX_GL_LINEAR, OX_GL_NEAREST};
        static const Oxuint models[] = {OX_GL_MODULATE, OX_GL_REPLACE, OX_GL_ADD, OX_GL_DECAL};
        wrap = wraps[reader.word("wrap", {"repeat", "clamp", "mirror"}).value_or(0)];
        filter = filters[reader.word("filter", {"linear", "nearest"}).value_or(0)];
        model = models[reader.word("model", {"modulate", "replace", "add", "decal"}).value_or(0)];
        if (const auto kind = reader.word("bump", {"height", "normal"}))
            bump = *kind == 0 ? BumpKind::Height : BumpKind::Normal;
        bumpScale = reader.number("bumpScale").value_or(1.0f);
        roughness = reader.number("roughness").value_or(0.0f);
        if (!(roughness >= 0.0f && roughness <= 1.0f))
            reader.error("roughness", fmt::format("'roughness' is {}; expected 0 to 1", roughness));
        const auto alpha = reader.word("alpha", {"blend", "mask", "ignore"});
        const float cutoff = reader.number("alphaCutoff").value_or(0.5f);
        if (alpha == 1u) alphaThreshold = cutoff;
        if (alpha == 2u) alphaThreshold = 0.0f;
    }

    void applyTo(Texture& texture) const {
        texture.m_wrapS = texture.m_wrapT = static_cast<Oxint>(wrap);
        texture.filterMode = static_cast<Oxint>(filter);
        texture.textureModel = model;
        if (bump) texture.bumpKind = *bump;
        texture.bumpScale = bumpScale;
        texture.roughness = roughness;
        if (alphaThreshold) texture.thresholdAlpha(*alphaThreshold);
    }
};

}  // namespace

void TextureSection::adopt(const std::string& name, int id) {
    m_names.push_back(name);
    m_ids[name] = id;
}

void TextureSection::read(const std::string& name, TableReader& reader) {
    m_names.push_back(name);
    m_ids[name] = Ox_NOTEXTURE;  // until it is loaded: defined, if wrongly
    const Origin origin(reader);
    const Use use(reader);
    reader.finish();
    if (origin.equirectangular) m_equirectangular[name] = origin.turn;
    if (origin.brightest) m_brightest[name] = *origin.brightest;
    if (!origin.isKnown()) return;
    try {
        auto texture = origin.file        ? m_assets.texture(origin.source(m_folder))
                       : origin.generated ? studioPicture()
                                          : whiteTexel();
        texture->withVertexColors = origin.vertexColors;
        use.applyTo(*texture);
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
        m_ids[name] = m_world.textures.add(std::move(texture));
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        m_diagnostics.error(reader.where("file"), e.what());
    }
}

}  // namespace oxbeam
