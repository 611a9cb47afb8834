#include "Engine/Output/Checkpoint.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Hash.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace oxbeam {

namespace fs = std::filesystem;

// The version of what follows, by which a checkpoint is also known to be one.
static constexpr const char* const VersionName = "oxbeam:checkpoint";
static constexpr int Version = 1;
static constexpr const char* const RandomName = "oxbeam:random";
static constexpr const char* const ContentName = "oxbeam:content";

static const std::vector<std::string> Sums = {"R", "G", "B", "samples.N"};
static const std::vector<std::string> AovSums = {"normal.X", "normal.Y", "normal.Z", "albedo.R",
                                                 "albedo.G", "albedo.B", "depth.Z",  "object.id"};
static constexpr const char* const AlphaSum = "A";

// A damaged float may well look like any other.
static std::string contentHash(const Film& film) {
    const std::uint64_t others = hashOf(std::as_bytes(film.aovSums()), hashOf(std::as_bytes(film.sums())));
    return fmt::format("{:016x}", hashOf(std::as_bytes(film.alphaSums()), others));
}

// Counts below 2^24 are exact in floats, which every program reads as they are.
static std::vector<Layer> layersOf(const Film& film) {
    std::vector<Layer> layers = {
        {Sums, [&film](std::size_t i, float* to) {
             const auto& [sum, samples] = film.sums()[i];
             std::ranges::copy(std::array{sum.x, sum.y, sum.z, static_cast<float>(samples)}, to);
         }}};
    if (film.hasAovs())
        layers.push_back(
            {AovSums, [&film](std::size_t i, float* to) {
                 const auto& [n, a, depth, object] = film.aovSums()[i];
                 std::ranges::copy(std::array{n.x, n.y, n.z, a.x, a.y, a.z, depth, static_cast<float>(object)}, to);
             }});
    if (film.hasAlpha())
        layers.push_back({{AlphaSum}, [&film](std::size_t i, float* to) { *to = film.alphaSums()[i]; }});
    return layers;
}

void writeCheckpoint(const fs::path& file, const ImageSize& image, const Film& film, const Attributes& attributes) {
    ImageOptions options;
    options.placement = {film.window(), image};
    options.compress = false;  // noise hardly gets smaller
    options.attributes = attributes;
    options.attributes[VersionName] = Version;
    const RandomState random = randomState();
    options.attributes[RandomName] = fmt::format("{} {} {}", random[0], random[1], random[2]);
    options.attributes[ContentName] = contentHash(film);
    options.layers = layersOf(film);
    StoredFile stored(file);
    writeLayers(stored, file, film.window().width(), film.window().height(), options);
    stored.finish();
}

// ---- Reading

struct Checkpoint::File {
    std::unique_ptr<OIIO::ImageInput> input;
    const OIIO::ImageSpec& spec() const { return input->spec(); }
};

Error Checkpoint::damaged(const std::string& how) const {
    return {ExitStatus::InputOutput, fmt::format("checkpoint '{}' is damaged: {}", m_name.string(), how)};
}

Checkpoint::Checkpoint(const fs::path& file) : m_name(file), m_file(std::make_unique<File>()) {
    const auto refuse = [&](const std::string& why) {
        return Error(ExitStatus::InputOutput, fmt::format("cannot resume from '{}': {}", file.string(), why));
    };
    if (!fs::exists(file)) throw refuse("there is no such checkpoint");
    if (!fs::is_regular_file(file)) throw refuse("it is not a regular file");
    m_file->input = OIIO::ImageInput::open(file.string());
    if (!m_file->input) throw damaged(OIIO::geterror());
    const int version = m_file->spec().get_int_attribute(VersionName);
    if (version == 0) throw refuse("it is a picture, but no checkpoint");
    if (version != Version) throw refuse(fmt::format("it is of version {}; expected {}", version, Version));
}

Checkpoint::~Checkpoint() = default;

std::string Checkpoint::text(const std::string& name) const {
    const auto* attribute = m_file->spec().find_attribute(name, OIIO::TypeString);
    if (!attribute) throw damaged(fmt::format("it lacks '{}'", name));
    return attribute->get_string();
}

double Checkpoint::number(const std::string& name) const {
    const auto* attribute = m_file->spec().find_attribute(name);
    if (!attribute) throw damaged(fmt::format("it lacks '{}'", name));
    return static_cast<double>(attribute->get_float());
}

bool Checkpoint::hasAovs() const { return m_file->spec().channelindex(AovSums[0]) >= 0; }

Begun Checkpoint::begun(const Window& window) {
    const OIIO::ImageSpec& spec = m_file->spec();
    if (spec.x != static_cast<int>(window.x0) || spec.y != static_cast<int>(window.y0) ||
        spec.width != static_cast<int>(window.width()) || spec.height != static_cast<int>(window.height()))
        throw damaged("it is of another size");
    std::vector<std::string> names = Sums;
    if (hasAovs()) names.insert(names.end(), AovSums.begin(), AovSums.end());
    const bool hasAlpha = spec.channelindex(AlphaSum) >= 0;
    if (hasAlpha) names.push_back(AlphaSum);
    std::vector<std::size_t> at;
    for (const std::string& name : names) {
        const int channel = spec.channelindex(name);
        if (channel < 0) throw damaged(fmt::format("it lacks '{}'", name));
        at.push_back(static_cast<std::size_t>(channel));
    }
    const auto channels = static_cast<std::size_t>(spec.nchannels);
    std::vector<float> values(channels * window.size());
    if (!m_file->input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, values.data()))
        throw damaged(m_file->input->geterror());

    Begun begun{Film(window, hasAovs(), hasAlpha), {}};
    const auto count = [](float v) { return v >= 0.0f && v <= 0x1p24f ? static_cast<unsigned>(v) : 0u; };
    for (std::size_t i = 0; i < window.size(); ++i) {
        const auto value = [&](std::size_t k) { return values[i * channels + at[k]]; };
        const auto vector = [&](std::size_t k) { return R3(value(k), value(k + 1), value(k + 2)); };
        begun.film.sums()[i] = {vector(0), count(value(3))};
        if (hasAovs()) begun.film.aovSums()[i] = {vector(4), vector(7), value(10), count(value(11))};
        if (hasAlpha) begun.film.alphaSums()[i] = value(at.size() - 1);
    }
    RandomState& random = begun.random;
    if (std::sscanf(text(RandomName).c_str(), "%hu %hu %hu", random.data(), &random[1], &random[2]) != 3)
        throw damaged(fmt::format("'{}' is no state of random numbers", RandomName));
    if (text(ContentName) != contentHash(begun.film)) throw damaged("its pixels are not those that were saved");
    return begun;
}

}  // namespace oxbeam
