#include "Apps/oxbeam/Frames.h"

#include "Engine/Output/Movie.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <regex>
#include <sstream>

namespace oxbeam {

static Error usage(const std::string& message) { return {ExitStatus::Usage, message}; }

// ---- Files

static const std::regex& placeholder() {
    static const std::regex pattern(R"(\{frame(?::(0?)([1-9]))?\})");
    return pattern;
}

bool hasFrame(const std::string& file) { return std::regex_search(file, placeholder()); }

std::string fileOfFrame(const std::string& file, unsigned frame) {
    std::string made, rest = file;
    for (std::smatch found; std::regex_search(rest, found, placeholder()); rest = found.suffix()) {
        const std::string number = std::to_string(frame);
        const std::size_t width = found[2].matched ? static_cast<std::size_t>(found[2].str()[0] - '0') : 0;
        const char fill = found[1].length() > 0 ? '0' : ' ';
        made += found.prefix();
        if (number.size() < width) made += std::string(width - number.size(), fill);
        made += number;
    }
    return made + rest;
}

// What looks like a placeholder is one.
static void checkName(const char* option, const std::string& file) {
    const auto rest = std::regex_replace(file, placeholder(), "");
    if (rest.find("{frame") != std::string::npos)
        throw usage(fmt::format("{} '{}': expected {{frame}} or, with zeros before it, {{frame:04}}", option, file));
}

// ---- Numbers

namespace {

struct Range {
    unsigned first = 0, last = 0, step = 1;

    std::vector<unsigned> frames() const {
        std::vector<unsigned> all;
        for (unsigned f = first; f <= last; f += step) all.push_back(f);
        return all;
    }
};

std::optional<unsigned> parseNumber(const std::string& text) {
    unsigned value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, problem] = std::from_chars(text.data(), end, value);
    return problem == std::errc() && rest == end && value < MostFrames ? std::optional(value) : std::nullopt;
}

// "7", "0..35", "0..100/10"
std::optional<Range> parseRange(const std::string& text) {
    const auto dots = text.find(".."), slash = text.find('/');
    const auto last = dots == std::string::npos ? text : text.substr(dots + 2, slash - dots - 2);
    const auto from = parseNumber(text.substr(0, dots)), to = parseNumber(last);
    const auto step = slash == std::string::npos ? std::optional(1u) : parseNumber(text.substr(slash + 1));
    if (!from || !to || !step || *step < 1 || *to < *from || (dots == std::string::npos && slash != std::string::npos))
        return std::nullopt;
    return Range{*from, *to, *step};
}

Range framesGiven(const SequenceCommand& s) {
    const auto range = parseRange(s.frames);
    if (!range)
        throw usage(fmt::format("--frames {}: expected A..B or A..B/STEP, for example 0..35, with numbers from 0 to {}",
                                s.frames, MostFrames - 1));
    return *range;
}

// Rounding does not cost the last frame.
Range framesBetween(double from, double to, double fps) {
    constexpr double little = 1e-6;
    const double first = std::max(std::ceil(from * fps - little), 0.0), last = std::floor(to * fps + little);
    if (!(last < MostFrames)) throw usage(fmt::format("{:g} seconds have more than {} frames", to, MostFrames));
    return {static_cast<unsigned>(first), static_cast<unsigned>(std::max(first, last)), 1};
}

// All that there are, whichever of them are to be rendered.
std::optional<Range> wholeAsked(const SequenceCommand& s) {
    if (s.turntable) return Range{0, *s.turntable - 1, 1};
    if (s.duration) return framesBetween(0.0, *s.duration, s.fps);
    return std::nullopt;
}

}  // namespace

std::vector<unsigned> onlyThose(const std::vector<unsigned>& all, const std::string& only) {
    if (only.empty()) return all;
    std::vector<unsigned> some;
    std::istringstream stream(only);
    for (std::string word; std::getline(stream, word, ',');) {
        const auto range = parseRange(word);
        if (!range) throw usage(fmt::format("--only {}: expected frames, for example 7 or 7,9..12", only));
        for (const unsigned frame : range->frames()) {
            if (!std::binary_search(all.begin(), all.end(), frame))
                throw usage(fmt::format("--only {}: frame {} is none of the sequence's", only, frame));
            some.push_back(frame);
        }
    }
    std::sort(some.begin(), some.end());
    some.erase(std::unique(some.begin(), some.end()), some.end());
    return some;
}

std::optional<std::vector<unsigned>> framesAsked(const RenderCommand& command) {
    const SequenceCommand& s = command.sequence;
    const auto whole = wholeAsked(s);
    if (s.frames.empty() && !whole) return std::nullopt;
    const Range range = s.frames.empty() ? *whole : framesGiven(s);
    if (s.turntable && range.last >= *s.turntable)
        throw usage(fmt::format("--frames {}: the turntable has frames 0 to {}", s.frames, *s.turntable - 1));
    return onlyThose(range.frames(), s.only);
}

// ---- Options

static bool hasOptions(const SequenceCommand& s) {
    return !s.frames.empty() || s.turntable || s.duration || !s.animate.empty() || !s.clip.empty() || !s.only.empty();
}

static void checkAnimations(const SequenceCommand& s) {
    for (const std::string& text : s.animate)
        if (const auto equals = text.find('='); equals == std::string::npos || text.find("..", equals) == text.npos)
            throw usage(
                fmt::format("--animate {}: expected PLACE.PARAM=FROM..TO, for example light.0.intensity="
                            "[0, 0, 0]..[9, 9, 9]",
                            text));
}

static void checkMovie(const RenderCommand& command) {
    const SequenceCommand& s = command.sequence;
    const std::string& movie = command.output;
    if (hasFrame(movie)) throw usage(fmt::format("-o '{}': one file holds all frames; expected no {{frame}}", movie));
    const char* given = s.missing                     ? "--missing"
                        : !command.checkpoint.empty() ? "--checkpoint"
                        : !s.only.empty()             ? "--only"
                                                      : nullptr;
    if (given) throw usage(fmt::format("{}: '{}' is one file, which is made in one go", given, movie));
    if (!command.stats.empty() && !hasFrame(command.stats))
        throw usage(
            fmt::format("--stats '{}': expected {{frame}} in it, as there is a file for each frame", command.stats));
}

void checkSequence(const RenderCommand& command) {
    const SequenceCommand& s = command.sequence;
    checkName("-o", command.output);
    checkName("--checkpoint", command.checkpoint);
    checkName("--stats", command.stats);
    if (!(s.fps > 0.0 && s.fps <= 1000.0)) throw usage(fmt::format("--fps {:g}: expected up to 1000", s.fps));
    if (s.turntable && (*s.turntable < 1 || *s.turntable > MostFrames))
        throw usage(fmt::format("--turntable {}: expected 1 to {} frames", *s.turntable, MostFrames));
    if (s.duration && !(*s.duration >= 0.0 && *s.duration <= 1e6))
        throw usage(fmt::format("--duration {:g}: expected seconds", *s.duration));
    if (s.turntable && s.duration) throw usage("--turntable says how many frames there are; expected no --duration");
    checkAnimations(s);
    if (isMovie(command.output)) return checkMovie(command);
    if (s.missing && !hasFrame(command.output)) throw usage("--missing: expected {frame} in the name after -o");
    if (const auto frames = framesAsked(command); frames && frames->size() > 1 && !hasFrame(command.output))
        throw usage(fmt::format("-o '{}': {} frames need {}", command.output, frames->size(), NamesOfFrames));
}

// ---- A scene's

Frames::Frames(const RenderCommand& command, World& world) : m_command(command), m_world(world) {
    const SequenceCommand& s = command.sequence;
    auto asked = framesAsked(command);
    const auto span = world.animation.span();
    if (!asked && span) asked = onlyThose(framesBetween(span->first, span->second, s.fps).frames(), s.only);
    const bool names = hasFrame(command.output) || isMovie(command.output);
    if (!asked && (names || hasOptions(s)))
        throw usage("nothing says which frames there are; expected --frames A..B, --duration SECONDS or --turntable N");
    m_still = !names && !hasOptions(s);
    m_numbers = asked.value_or(std::vector{0u});
    if (m_still) m_numbers.resize(1);
    requireNames(hasOptions(s));
    spread();
    if (!s.turntable) return;
    if (world.animation.movesCamera(world.places.placeOf(world.camera)))
        throw usage("--turntable turns the camera; it cannot be animated beside that");
    m_turntable.emplace(world, command.model.view.zoom);
}

// Of files that are written for each frame.
void Frames::requireNames(bool asked) const {
    if (m_numbers.size() < 2) return;
    const auto require = [&](const char* option, const std::string& file, const char* names) {
        if (!file.empty() && !hasFrame(file))
            throw usage(fmt::format("{} '{}': {} frames need {}", option, file, m_numbers.size(), names));
    };
    constexpr const char* names = "names of their own; expected {frame} in it, as name.{frame:04}";
    if (asked && !isMovie(m_command.output)) require("-o", m_command.output, NamesOfFrames);
    require("--checkpoint", m_command.checkpoint, names);
    require("--stats", m_command.stats, names);
}

// Over all frames that there are, and never just those that are to be rendered; only where nothing else says how many there
// are, --frames does.
void Frames::spread() {
    const SequenceCommand& s = m_command.sequence;
    if (!m_world.animation.wantsSpan()) return;
    auto whole = wholeAsked(s);
    const auto span = m_world.animation.span();
    if (!whole && span) {
        m_span = fmt::format("{}..{}", span->first, span->second);
        return m_world.animation.spread(span->first, span->second);
    }
    if (!whole) whole = framesGiven(s);
    if (!wholeAsked(s) && whole->first == whole->last)
        throw usage(
            fmt::format("--animate: --frames {} does not say from when to when; expected --duration SECONDS too, or "
                        "all frames and --only {}",
                        s.frames, s.frames));
    const double last = s.duration.value_or(whole->last / s.fps);
    m_span = fmt::format("{}..{}", whole->first / s.fps, last);
    m_world.animation.spread(whole->first / s.fps, last);
}

void Frames::show(unsigned number) {
    m_world.animation.show(m_world, number / m_command.sequence.fps);
    if (m_turntable) m_world.view = m_turntable->at(static_cast<double>(number) / *m_command.sequence.turntable);
}

std::vector<std::pair<std::string, std::string>> Frames::inputs(unsigned number) const {
    const SequenceCommand& s = m_command.sequence;
    if (m_still) return {};
    return {{"--animate", fmt::format("{}", fmt::join(s.animate, " "))},
            {"--clip", s.clip},
            {"--fps", fmt::format("{}", s.fps)},
            {"--frames", std::to_string(number)},
            {"--duration", m_span},
            {"--turntable", s.turntable ? std::to_string(*s.turntable) : ""}};
}

RenderCommand Frames::commandOf(const RenderCommand& command, unsigned number) {
    RenderCommand one = command;
    one.frame = number;
    for (std::string* file : {&one.output, &one.checkpoint, &one.stats}) *file = fileOfFrame(*file, number);
    return one;
}

}  // namespace oxbeam
