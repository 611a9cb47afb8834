#include "Engine/World/Animation.h"

#include "Engine/World/World.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace oxbeam {

// ---- Values

static double toDouble(const ParameterValue::Number& number) {
    return std::visit([](auto n) { return static_cast<double>(n); }, number);
}

// Nothing for what is no number.
static std::optional<std::vector<double>> numbersOf(const ParameterValue& value) {
    if (const auto* i = std::get_if<std::int64_t>(&value.data)) return std::vector{static_cast<double>(*i)};
    if (const auto* d = std::get_if<double>(&value.data)) return std::vector{*d};
    const auto* list = std::get_if<std::vector<ParameterValue::Number>>(&value.data);
    if (!list) return std::nullopt;
    std::vector<double> numbers;
    for (const auto& number : *list) numbers.push_back(toDouble(number));
    return numbers;
}

static bool isList(const ParameterValue& value) {
    return std::holds_alternative<std::vector<ParameterValue::Number>>(value.data);
}

static bool isWhole(const ParameterValue& value) {
    if (std::holds_alternative<std::int64_t>(value.data)) return true;
    const auto* list = std::get_if<std::vector<ParameterValue::Number>>(&value.data);
    return list && std::all_of(list->begin(), list->end(),
                               [](const auto& n) { return std::holds_alternative<std::int64_t>(n); });
}

static ParameterValue valueOf(const std::vector<double>& numbers, bool list, bool whole) {
    const auto number = [&](double n) -> ParameterValue::Number {
        if (whole) return static_cast<std::int64_t>(std::llround(n));
        return n;
    };
    if (!list && whole) return {static_cast<std::int64_t>(std::llround(numbers[0])), {}};
    if (!list) return {numbers[0], {}};
    std::vector<ParameterValue::Number> all;
    all.reserve(numbers.size());
    for (const double n : numbers) all.push_back(number(n));
    return {std::move(all), {}};
}

static R3 toR3(const std::vector<double>& v) {
    return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

void Animation::Shown::makeCurve() {
    if (held) return;
    std::vector<std::vector<double>> numbers;
    for (const ParameterValue& value : values) numbers.push_back(*numbersOf(value));
    curve.emplace(space, interpolation, times, std::move(numbers));
}

ParameterValue Animation::Shown::at(double seconds) const {
    if (!held) return valueOf(curve->at(seconds), isList(values.front()), whole);
    const auto next = std::upper_bound(times.begin(), times.end(), seconds);
    return values[next == times.begin() ? 0 : static_cast<std::size_t>(next - times.begin()) - 1];
}

// ---- Targets

static bool isCamera(std::string_view place) { return place == "camera" || place.starts_with("camera."); }

static const std::vector<std::string> MemberNames = {"position",  "lookAt", "lookUp", "fov",
                                                     "translate", "rotate", "scale"};
static constexpr std::size_t CameraMembers = 4;

bool Animation::isMember(std::string_view name) {
    return std::find(MemberNames.begin(), MemberNames.end(), name) != MemberNames.end();
}

std::optional<Animation::Member> Animation::memberNamed(const World& world, const std::string& place,
                                                        const std::string& name) {
    const auto found = std::find(MemberNames.begin(), MemberNames.end(), name);
    if (found == MemberNames.end()) return std::nullopt;
    const auto number = static_cast<std::size_t>(found - MemberNames.begin());
    const std::vector<Placed>& placed = world.placements.all();
    const bool here = number < CameraMembers ? isCamera(place) && world.cameraViews.contains(place)
                                             : std::any_of(placed.begin(), placed.end(),
                                                           [&](const Placed& p) { return p.place == place; });
    return here ? std::optional(static_cast<Member>(number)) : std::nullopt;
}

std::vector<std::string> Animation::targetsOf(const World& world) {
    std::vector<std::string> targets = parameterPaths(world.places.all());
    for (const auto& [place, view] : world.cameraViews)
        for (std::size_t i = 0; i < CameraMembers; ++i) targets.push_back(place + '.' + MemberNames[i]);
    for (const Placed& placed : world.placements.all())
        for (std::size_t i = CameraMembers; i < MemberNames.size(); ++i)
            targets.push_back(placed.place + '.' + MemberNames[i]);
    return targets;
}

// What is wrong with the value of a member; else nothing.
static std::string wrongValue(const std::string& name, const ParameterValue& value) {
    const auto numbers = numbersOf(value);
    const bool single = !isList(value);
    const bool isScale = name == "scale", isFov = name == "fov";
    const bool fits =
        numbers && (single ? isScale || isFov : !isFov && numbers->size() == 3) &&
        std::all_of(numbers->begin(), numbers->end(), [](double n) { return std::isfinite(static_cast<float>(n)); });
    if (!fits)
        return fmt::format("'{}' is {}; expected {}", name, value.kind(),
                           isFov     ? "a finite number"
                           : isScale ? "a finite number or a list of 3"
                                     : "a list of 3 finite numbers");
    if (isFov && !((*numbers)[0] > 0.0 && (*numbers)[0] < 180.0)) return "'fov' must lie between 0 and 180 degrees";
    if (name == "lookUp" && (*numbers)[0] == 0.0 && (*numbers)[1] == 0.0 && (*numbers)[2] == 0.0)
        return "'lookUp' must have a length";
    return {};
}

// ---- Adding

static std::vector<ParameterValue>::const_iterator otherForm(const std::vector<ParameterValue>& values) {
    const auto size = [](const ParameterValue& value) {
        const auto numbers = numbersOf(value);
        return numbers ? numbers->size() : 0;
    };
    return std::find_if(values.begin(), values.end(), [&](const ParameterValue& value) {
        return size(value) == 0 || size(value) != size(values.front()) ||
               value.data.index() != values.front().data.index();
    });
}

// How the values of a parameter go from one to the next.
void Animation::Shown::takeForm(const ParameterDeclaration& p) {
    const bool words = p.type == ElementType::Bool || isTexture(p) || (p.info && !p.info->items.empty());
    const bool integers = std::all_of(values.begin(), values.end(), isWhole);
    whole = p.type == ElementType::Int || (p.type == ElementType::FromValue && integers);
    if (!whole)
        for (ParameterValue& value : values)
            if (const auto numbers = numbersOf(value)) value.data = valueOf(*numbers, isList(value), false).data;
    held = words || otherForm(values) != values.end();
    if (p.info && p.info->interpretation == "direction" && p.components() == 3) space = ValueSpace::Directions;
}

void Animation::Shown::takeForm(Member member) {
    if (member == Member::Scale)  // one number stands for three
        for (ParameterValue& value : values)
            if (const auto numbers = numbersOf(value); numbers->size() == 1)
                value = valueOf({(*numbers)[0], (*numbers)[0], (*numbers)[0]}, true, false);
    if (member == Member::LookUp) space = ValueSpace::Directions;
    if (member == Member::Rotate) space = ValueSpace::Rotations;
}

// What is wrong with a target that is there; else nothing.
std::string Animation::wrongWith(const World& world, const Shown& shown) const {
    const Member* const member = std::get_if<Member>(&shown.what);
    if (std::any_of(m_tracks.begin(), m_tracks.end(), [&](const Shown& s) { return s.target == shown.target; }))
        return fmt::format("'{}' is animated twice", shown.target);
    if (!member || *member < Member::Translate) return {};
    const Placed& placed = world.placements.at(shown.place);
    if (!placed.movable) return fmt::format("{} is without end and cannot be moved", labelOf(shown.place));
    if (placed.by) return {};
    return fmt::format(
        "{} is placed by a 'matrix', and not by 'translate', 'rotate' and 'scale', which can be animated",
        labelOf(shown.place));
}

bool Animation::takes(World& world, const Shown& shown, const std::string& label, Diagnostics& diagnostics) {
    Diagnostics wrong;
    const Member* const member = std::get_if<Member>(&shown.what);
    for (const ParameterValue& value : shown.values) {
        if (!member) world.places.check(shown.target, value, wrong);
        const std::string message = member ? wrongValue(MemberNames[static_cast<std::size_t>(*member)], value) : "";
        if (!message.empty()) wrong.error(value.where, fmt::format("{}: {}", label, message));
    }
    for (const Diagnostic& d : wrong.sorted())
        d.severity == Severity::Error ? diagnostics.error(d.where, d.message) : diagnostics.warning(d.where, d.message);
    return !wrong.hasErrors();
}

void Animation::add(World& world, Track track, const std::string& label, const SourceLocation& where,
                    Diagnostics& diagnostics) {
    const auto dot = std::min(track.target.rfind('.'), track.target.size());
    const std::string name = track.target.substr(std::min(dot + 1, track.target.size()));
    Shown shown;
    shown.place = track.target.substr(0, dot);
    const ParameterDeclaration* const p =
        world.places.has(shown.place) ? world.places.classAt(shown.place).find(name) : nullptr;
    if (p)
        shown.what = p->id;
    else if (const auto member = memberNamed(world, shown.place, name))
        shown.what = *member;
    else
        return diagnostics.error(where, fmt::format("{}: there is no '{}' to animate{}", label, track.target,
                                                    didYouMean(track.target, targetsOf(world))));
    shown.target = fmt::format("{}.{}", shown.place, p ? p->id : name);
    if (track.spread) std::erase_if(m_tracks, [&](const Shown& s) { return s.target == shown.target; });
    if (const std::string message = wrongWith(world, shown); !message.empty())
        return diagnostics.error(where, fmt::format("{}: {}", label, message));
    shown.interpolation = track.interpolation;
    shown.times = std::move(track.times);
    shown.values = std::move(track.values);
    shown.spread = track.spread;
    if (!takes(world, shown, label, diagnostics)) return;
    if (p)
        shown.takeForm(*p);
    else
        shown.takeForm(std::get<Member>(shown.what));
    shown.makeCurve();
    m_tracks.push_back(std::move(shown));
}

// ---- Time

bool Animation::movesCamera(const std::string& place) const {
    return std::any_of(m_tracks.begin(), m_tracks.end(), [&](const Shown& s) {
        const Member* member = std::get_if<Member>(&s.what);
        return member && *member <= Member::LookUp && s.place == place;
    });
}

bool Animation::wantsSpan() const {
    return std::any_of(m_tracks.begin(), m_tracks.end(), [](const Shown& s) { return s.spread; });
}

std::optional<std::pair<double, double>> Animation::span() const {
    std::optional<std::pair<double, double>> all;
    const auto take = [&](double from, double to) {
        all = all ? std::pair(std::min(all->first, from), std::max(all->second, to)) : std::pair(from, to);
    };
    for (const Shown& s : m_tracks)
        if (!s.spread) take(s.times.front(), s.times.back());
    for (const PlacedClip& c : m_clips) take(0.0, c.clip.seconds);
    return all;
}

void Animation::spread(double from, double to) {
    for (Shown& s : m_tracks) {
        if (!s.spread) continue;
        s.spread = false;
        for (double& time : s.times) time = time < 1.0 ? from + time * (to - from) : to;
        if (to > from) {
            s.makeCurve();
            continue;
        }
        s.times = {from};
        s.values.resize(1);
        s.makeCurve();
    }
}

// ---- Showing

void Animation::showMember(World& world, const std::string& place, Member member, const std::vector<double>& value) {
    if (member < Member::Translate) {
        CameraView& own = world.cameraViews[place];
        if (!own.view) own.view.emplace();
        switch (member) {
        case Member::Position: own.view->position = toR3(value); break;
        case Member::LookAt: own.view->lookAt = toR3(value); break;
        case Member::LookUp: own.view->lookUp = toR3(value); break;
        default: own.fov = static_cast<float>(value[0]);
        }
        if (world.places.placeOf(world.camera) == place) world.chooseCamera(place);
        return;
    }
    Placing by = *world.placements.at(place).by;
    switch (member) {
    case Member::Translate: by.translate = toR3(value); break;
    case Member::Rotate: by.rotate = toR3(value); break;
    default: by.scale = toR3(value);
    }
    world.placements.placeBy(place, by);
}

void Animation::show(World& world, double seconds) const {
    for (const Shown& s : m_tracks) {
        if (const auto* id = std::get_if<std::string>(&s.what))
            world.places.set(s.place + '.' + *id, s.at(seconds));
        else
            showMember(world, s.place, std::get<Member>(s.what), s.curve->at(seconds));
    }
    for (const PlacedClip& c : m_clips) {
        const std::vector<Matrix> nodes = nodesAt(c.nodes, c.clip, seconds);
        std::vector<Matrix> parts;
        for (const int node : c.partNodes) parts.push_back(nodes[static_cast<std::size_t>(node)]);
        world.placements.pose(c.place, parts);
    }
}

}  // namespace oxbeam
