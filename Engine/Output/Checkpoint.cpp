#include "Engine/Output/Checkpoint.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ExrStream.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Import/PictureStream.h"
#include "Engine/System/Hash.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace oxbeam {

namespace fs = std::filesystem;

// The version of what follows, by which a checkpoint is also known to be one.
static constexpr const char* const VersionName = "oxbeam:checkpoint";
static constexpr int Version = 2;
static constexpr const char* const RandomName = "oxbeam:random";
static constexpr const char* const ContentName = "oxbeam:content";

static const std::vector<std::string> Sums = {"R", "G", "B", "samples.N"};
static const std::vector<std::string> AovSums = {"normal.X", "normal.Y", "normal.Z", "albedo.R",
                                                 "albedo.G", "albedo.B", "depth.Z",  "object.id"};
static constexpr const char* const AlphaSum = "A";

// Of all that is read back: a damaged float may well look like any other, and a damaged text, too.
static std::string contentHash(const Film& film, const std::map<std::string, std::string>& attributes) {
    std::uint64_t pixels = hashOf(std::as_bytes(film.aovSums()), hashOf(std::as_bytes(film.sums())));
    if (film.hasAlpha()) pixels = hashOf(std::as_bytes(film.alphaSums()), pixels);
    std::string texts = film.hasAovs() ? "layers" : "no layers";
    for (const auto& [name, value] : attributes)
        if (name != ContentName) texts.append(1, '\0').append(name).append(1, '\0').append(value);
    return fmt::format("{:016x}", hashOf(std::as_bytes(std::span(texts)), pixels));
}

// ---- Writing

// As the process that decodes pictures hands them back.
static std::map<std::string, std::string> textsOf(const Attributes& attributes) {
    std::map<std::string, std::string> texts;
    for (const auto& [name, value] : attributes) {
        if (!name.starts_with(ExrAttributes)) continue;
        if (const auto* text = std::get_if<std::string>(&value)) texts[name] = attributeText(*text);
        if (const auto* whole = std::get_if<int>(&value)) texts[name] = attributeText(*whole);
        if (const auto* number = std::get_if<float>(&value)) texts[name] = attributeText(*number);
    }
    return texts;
}

// Counts below 2^24 are exact in floats, which every program reads as they are.
static std::vector<Layer> layersOf(const Film& film) {
    const auto sums = [&film](std::size_t i, float* to) {
        const auto& [sum, samples] = film.sums()[i];
        std::ranges::copy(std::array{sum.x, sum.y, sum.z, static_cast<float>(samples)}, to);
    };
    const auto aovs = [&film](std::size_t i, float* to) {
        const auto& [n, a, depth, object] = film.aovSums()[i];
        std::ranges::copy(std::array{n.x, n.y, n.z, a.x, a.y, a.z, depth, static_cast<float>(object)}, to);
    };
    const auto alpha = [&film](std::size_t i, float* to) { *to = film.alphaSums()[i]; };
    std::vector<Layer> layers = {{Sums, sums}};
    if (film.hasAovs()) layers.push_back({AovSums, aovs});
    if (film.hasAlpha()) layers.push_back({{AlphaSum}, alpha});
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
    options.attributes[ContentName] = contentHash(film, textsOf(options.attributes));
    options.layers = layersOf(film);
    StoredFile stored(file);
    writeLayers(stored, file, film.window().width(), film.window().height(), options);
    stored.finish();
}

// ---- Reading

Error Checkpoint::damaged(const std::string& how) const {
    return {ExitStatus::InputOutput, fmt::format("checkpoint '{}' is damaged: {}", m_name.string(), how)};
}

Error Checkpoint::refused(const std::string& why) const {
    return {ExitStatus::InputOutput, fmt::format("cannot resume from '{}': {}", m_name.string(), why)};
}

// What can be told without decoding it. After a power cut a file may be of nothing but zeros.
void Checkpoint::open() const {
    struct File {
        int descriptor;
        ~File() { close(descriptor); }
    } file{::open(m_name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    if (file.descriptor < 0) throw refused(errno == ENOENT ? "there is no such checkpoint" : std::strerror(errno));
    struct stat status {};
    if (fstat(file.descriptor, &status) != 0 || !S_ISREG(status.st_mode)) throw refused("it is not a regular file");
    constexpr std::array<unsigned char, 4> magic = {0x76, 0x2f, 0x31, 0x01};
    std::array<unsigned char, 4> begins{};
    const ssize_t size = read(file.descriptor, begins.data(), begins.size());
    if (size < 0) throw refused(std::strerror(errno));
    if (size < static_cast<ssize_t>(magic.size()) || begins != magic)
        throw damaged("it does not begin as an EXR picture does");
}

// What the file does to its reader is no fault of a scene.
PictureHeader Checkpoint::ask(const ExrRequest& request, std::uint64_t& rest) try {
    PictureHeader header;
    rest = m_process->ask(m_name, fmt::format("checkpoint '{}'", m_name.string()), request.words());
    if (rest < sizeof header) throw damaged("its reader handed back what is no picture");
    m_process->take(&header, sizeof header);
    rest -= sizeof header;
    if (header.width == 0) throw damaged(oneLine(m_process->takeText(std::min<std::uint64_t>(rest, 65536))));
    return header;
} catch (const Error& e) {
    throw Error(ExitStatus::InputOutput, e.what());
}

static std::vector<std::string> split(const std::string& texts) {
    std::vector<std::string> parts;
    for (std::size_t at = 0, end; (end = texts.find('\0', at)) != texts.npos; at = end + 1)
        parts.push_back(texts.substr(at, end - at));
    return parts;
}

void Checkpoint::readHeader() {
    constexpr std::uint64_t most = 64u << 20;  // bytes of texts
    std::uint64_t rest = 0;
    const PictureHeader header = ask({}, rest);
    ExrOrigin origin;
    if (rest < sizeof origin || rest > most) throw damaged("what is said of it is of an absurd length");
    m_process->take(&origin, sizeof origin);
    const std::vector<std::string> texts = split(m_process->takeText(rest - sizeof origin));
    if (origin.x < 0 || origin.y < 0 || texts.size() < header.channels || (texts.size() - header.channels) % 2 != 0)
        throw damaged("what is said of it makes no sense");
    const auto x = static_cast<unsigned>(origin.x), y = static_cast<unsigned>(origin.y);
    m_window = {x, y, x + header.width, y + header.height};
    m_channels.assign(texts.begin(), texts.begin() + header.channels);
    for (std::size_t i = header.channels; i < texts.size(); i += 2)
        if (!texts[i + 1].empty()) m_attributes[texts[i]] = texts[i + 1];
}

Checkpoint::Checkpoint(const fs::path& file) : m_name(file) {
    open();
    m_process = std::make_shared<ImportProcess>(PictureProgram);
    begin();
}

Checkpoint::Checkpoint(const fs::path& file, const Checkpoint& before) : m_name(file), m_process(before.m_process) {
    open();
    begin();
}

void Checkpoint::begin() {
    readHeader();
    const auto version = m_attributes.find(VersionName);
    if (version == m_attributes.end()) throw refused("it is a picture, but no checkpoint");
    if (version->second != attributeText(Version))
        throw refused(fmt::format("it is of version {}; expected {}", version->second.substr(1), Version));
}

Checkpoint::~Checkpoint() = default;

const std::string& Checkpoint::value(const std::string& name, char kind) const {
    const auto found = m_attributes.find(name);
    if (found == m_attributes.end() || found->second[0] != kind) throw damaged(fmt::format("it lacks '{}'", name));
    return found->second;
}

std::string Checkpoint::text(const std::string& name) const { return value(name, 's').substr(1); }

double Checkpoint::number(const std::string& name) const {
    const std::string& digits = value(name, 'f');
    std::uint32_t bits = 0;
    std::from_chars(digits.data() + 1, digits.data() + digits.size(), bits);
    return static_cast<double>(std::bit_cast<float>(bits));
}

bool Checkpoint::hasAovs() const { return std::ranges::count(m_channels, AovSums[0]) > 0; }

bool Checkpoint::hasAlpha() const { return std::ranges::count(m_channels, AlphaSum) > 0; }

// Some rows at a time, straight into the film.
void Checkpoint::readFilm(Film& film) {
    std::vector<std::string> names = Sums;
    if (film.hasAovs()) names.insert(names.end(), AovSums.begin(), AovSums.end());
    if (film.hasAlpha()) names.push_back(AlphaSum);
    std::vector<std::size_t> at;
    for (const std::string& name : names) {
        const auto found = std::ranges::find(m_channels, name);
        if (found == m_channels.end()) throw damaged(fmt::format("it lacks '{}'", name));
        at.push_back(static_cast<std::size_t>(found - m_channels.begin()));
    }
    constexpr std::size_t most = 32u << 20;  // bytes
    const std::size_t channels = m_channels.size(), row = channels * m_window.width() * sizeof(float);
    const unsigned height = m_window.height(), together = static_cast<unsigned>(std::max<std::size_t>(1, most / row));
    const auto count = [](float v) { return v >= 0.0f && v <= 0x1p24f ? static_cast<unsigned>(v) : 0u; };
    std::vector<float> values;
    std::size_t pixel = 0;
    for (ExrRequest rows; rows.first < height; rows.first += rows.count) {
        rows.count = std::min(together, height - rows.first);
        std::uint64_t rest = 0;
        ask(rows, rest);
        if (rest != rows.count * row) throw damaged("its reader handed back other rows");
        values.resize(rest / sizeof(float));
        m_process->take(values.data(), rest);
        for (const float* v = values.data(); v < values.data() + values.size(); v += channels, ++pixel) {
            const auto vector = [&](std::size_t k) { return R3(v[at[k]], v[at[k + 1]], v[at[k + 2]]); };
            film.sums()[pixel] = {vector(0), count(v[at[3]])};
            if (film.hasAovs()) film.aovSums()[pixel] = {vector(4), vector(7), v[at[10]], count(v[at[11]])};
            if (film.hasAlpha()) film.alphaSums()[pixel] = v[at.back()];
        }
    }
}

Begun Checkpoint::begun(const Window& window) {
    if (m_window.x0 != window.x0 || m_window.y0 != window.y0 || m_window.x1 != window.x1 || m_window.y1 != window.y1)
        throw damaged("it is of another size");
    Begun begun{Film(window, hasAovs(), hasAlpha()), {}};
    readFilm(begun.film);
    if (text(ContentName) != contentHash(begun.film, m_attributes)) throw damaged("it does not hold what was saved");
    RandomState& random = begun.random;
    if (std::sscanf(text(RandomName).c_str(), "%hu %hu %hu", random.data(), &random[1], &random[2]) != 3)
        throw damaged(fmt::format("'{}' is no state of random numbers", RandomName));
    return begun;
}

}  // namespace oxbeam
