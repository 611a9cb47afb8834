#include "Apps/view/Script.h"

#include "Apps/view/Viewer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

namespace oxbeam {

// ---- Reading

// Words are parted by blanks; one in quotes may have some.
static std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> words;
    bool within = false, quoted = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
            if (quoted && !within) words.emplace_back();
            within = true;
        } else if (!quoted && c == '#' && !within) {
            break;
        } else if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
            within = false;
        } else {
            if (!within) words.emplace_back();
            within = true;
            words.back() += c;
        }
    }
    return words;
}

// The steps, and how many words follow each at least.
static const std::map<std::string, std::size_t>& steps() {
    static const std::map<std::string, std::size_t> all = {
        {"wait", 1},  {"timeout", 1}, {"expect", 2}, {"move", 2},    {"click", 2},      {"doubleclick", 2},
        {"drag", 5},  {"wheel", 1},   {"key", 1},    {"hold", 2},    {"type", 1},       {"slide", 2},
        {"back", 1},  {"set", 2},     {"reset", 1},  {"class", 2},   {"light", 1},      {"delete", 1},
        {"save", 1},  {"copy", 2},    {"bring", 1},  {"drop", 1},    {"picture", 1},    {"search", 1},
        {"quit", 0},  {"close", 0},   {"random", 1}, {"measure", 0}, {"screenshot", 1}, {"report", 0},
        {"resize", 2}};
    return all;
}

Script::Script(const std::string& file) : m_file(file) {
    std::ifstream stream(file);
    if (!stream) throw Error(ExitStatus::InputOutput, fmt::format("{}: cannot be read", file));
    unsigned number = 0;
    for (std::string text; std::getline(stream, text);) {
        ++number;
        const std::vector<std::string> words = wordsOf(text);
        if (words.empty()) continue;
        const auto known = steps().find(words[0]);
        std::vector<std::string> names;
        for (const auto& [name, least] : steps()) names.push_back(name);
        const std::string where = fmt::format("{}:{}:1: error: ", file, number);
        if (known == steps().end())
            throw Error(ExitStatus::Usage,
                        fmt::format("{}there is no step '{}'{}", where, words[0], didYouMean(words[0], names)));
        if (words.size() <= known->second)
            throw Error(ExitStatus::Usage,
                        fmt::format("{}'{}': expected {} words after it", where, words[0], known->second));
        m_lines.push_back({number, words});
    }
}

void Script::fail(const std::string& what) const {
    throw Error(ExitStatus::Incomplete, fmt::format("{}:{}:1: error: {}", m_file, m_lines[m_next].number, what));
}

const std::string& Script::word(const Line& line, std::size_t i) const {
    if (i >= line.words.size()) fail(fmt::format("'{}': expected more words", line.words[0]));
    return line.words[i];
}

float Script::number(const Line& line, std::size_t i) const {
    const std::string& text = word(line, i);
    char* end = nullptr;
    const float value = std::strtof(text.c_str(), &end);
    if (text.empty() || *end) fail(fmt::format("'{}': expected a number", text));
    return value;
}

// As a scene file has it; what is no such value is a text.
static ParameterValue valueIn(const std::string& text) {
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_boolean()) return {json.get<bool>(), {}};
    if (json.is_number_integer()) return {json.get<std::int64_t>(), {}};
    if (json.is_number()) return {json.get<double>(), {}};
    if (!json.is_array()) return {text, {}};
    std::vector<ParameterValue::Number> numbers;
    for (const auto& entry : json)
        if (entry.is_number_integer())
            numbers.emplace_back(entry.get<std::int64_t>());
        else
            numbers.emplace_back(entry.is_number() ? entry.get<double>() : 0.0);
    return {numbers, {}};
}

// ---- Events

void Script::pointer(float x, float y) {
    SDL_Event event{};
    event.type = SDL_MOUSEMOTION;
    event.motion.x = static_cast<Sint32>(std::lround(x));
    event.motion.y = static_cast<Sint32>(std::lround(y));
    m_pointer = event.motion;
    later(event);
}

void Script::button(bool down, Uint8 which, Uint8 clicks) {
    SDL_Event event{};
    event.type = down ? SDL_MOUSEBUTTONDOWN : SDL_MOUSEBUTTONUP;
    event.button.button = which;
    event.button.clicks = clicks;
    event.button.x = m_pointer.x;
    event.button.y = m_pointer.y;
    later(event);
}

void Script::key(const std::string& name, bool down) {
    SDL_Event event{};
    event.type = down ? SDL_KEYDOWN : SDL_KEYUP;
    event.key.keysym = parseKey(name);
    if (!event.key.keysym.sym) fail(fmt::format("there is no key '{}'", name));
    later(event);
}

static Uint8 buttonCalled(const std::string& name) {
    return name == "middle" ? SDL_BUTTON_MIDDLE : name == "right" ? SDL_BUTTON_RIGHT : SDL_BUTTON_LEFT;
}

// With places in pixels of the picture.
void Script::point(Viewer& viewer, const Line& line) {
    const std::string& what = line.words[0];
    const bool shift = line.words.back() == "shift";
    SDL_SetModState(shift ? KMOD_LSHIFT : KMOD_NONE);
    const auto at = [&](std::size_t i) { return viewer.toWindow(number(line, i), number(line, i + 1)); };
    if (what == "drag") {
        const ImVec2 from = at(2), to = at(4);
        const auto count =
            line.words.size() > 6 && !(shift && line.words.size() == 7) ? static_cast<int>(number(line, 6)) : 8;
        m_paced = true;
        pointer(from.x, from.y);
        button(true, buttonCalled(line.words[1]));
        for (int i = 1; i <= count; ++i) {
            const float share = static_cast<float>(i) / static_cast<float>(count);
            pointer(from.x + share * (to.x - from.x), from.y + share * (to.y - from.y));
        }
        return button(false, buttonCalled(line.words[1]));
    }
    const ImVec2 place = at(1);
    pointer(place.x, place.y);
    if (what == "move") return;
    const int times = what == "doubleclick" ? 2 : 1;
    for (Uint8 i = 1; i <= times; ++i) button(true, SDL_BUTTON_LEFT, i), button(false, SDL_BUTTON_LEFT, i);
}

// On the field of a parameter, as the panel has drawn it: to a share of its width.
void Script::slide(Viewer& viewer, const Line& line) {
    const bool back = line.words[0] == "back";
    const ImVec4* field = viewer.panel().fieldOf(word(line, 1) + (back ? "#back" : ""));
    if (!field) fail(fmt::format("the panel shows no field of {}", word(line, 1)));
    const float share = back ? 0.5f : number(line, 2), y = 0.5f * (field->y + field->w);
    const float x = field->x + share * (field->z - field->x);
    pointer(back ? x : 0.5f * (field->x + x), y);
    button(true, SDL_BUTTON_LEFT);
    pointer(x, y);
    pointer(x, y);
    button(false, SDL_BUTTON_LEFT);
}

// Whatever somebody may do who means no good.
void Script::random(unsigned events) {
    const auto below = [&](unsigned n) { return static_cast<unsigned>(m_random() % n); };
    static const std::vector<std::string> names = {
        // clang-format off
        "f", "1", "2", "3", "4", "5", "6", "7", "l", ",", ".", "k", "c", "t", "z", "h", "m", "g", "w", "a", "s", "d", "tab",
        "F1", "F2", "ctrl+z", "ctrl+shift+z", "ctrl+c", "delete", "escape", "return", "backspace"};
    // clang-format on
    const ImVec2 size = ImGui::GetIO().DisplaySize;
    for (unsigned i = 0; i < events; ++i) {
        const unsigned what = below(11);
        const auto which = static_cast<Uint8>(1 + below(3));
        SDL_SetModState(below(8) == 0 ? KMOD_LSHIFT : KMOD_NONE);
        if (what < 5) {
            pointer(static_cast<float>(below(static_cast<unsigned>(size.x))),
                    static_cast<float>(below(static_cast<unsigned>(size.y))));
        } else if (what < 7) {
            button(below(2) == 0, which, static_cast<Uint8>(1 + below(2)));
        } else if (what == 7) {
            SDL_Event event{};
            event.type = SDL_MOUSEWHEEL;
            event.wheel.preciseY = static_cast<float>(below(3)) - 1.0f;
            later(event);
        } else if (what == 8) {
            SDL_Event event{};
            event.type = SDL_TEXTINPUT;
            event.text.text[0] = static_cast<char>(' ' + below(95));
            later(event);
        } else {
            const std::string& name = names[below(static_cast<unsigned>(names.size()))];
            key(name, true);
            key(name, false);
        }
    }
    for (const Uint8 which : {1, 2, 3}) button(false, which);
}

// ---- Steps

bool Script::step(Viewer& viewer) {
    constexpr double pace = 1.0 / 60.0;
    if (m_paced && !m_events.empty() && m_sinceEvent.seconds() < pace) return true;
    if (!m_events.empty()) {
        m_sinceEvent = {};
        SDL_PushEvent(&m_events.front());
        m_events.pop_front();
        m_settling = 3;
        return true;
    }
    m_paced = false;
    if (m_settling > 0) return --m_settling, true;
    if (m_next == m_lines.size()) return false;
    SDL_SetModState(KMOD_NONE);
    const Line& line = m_lines[m_next];
    if (!perform(viewer, line)) {
        if (m_waiting.seconds() > m_timeout) fail(fmt::format("'{}' has not come", fmt::join(line.words, " ")));
        return true;
    }
    ++m_next;
    m_waiting = {};
    viewer.redraw();
    return line.words[0] != "quit" || m_running.seconds() < (line.words.size() > 1 ? number(line, 1) : 0.0);
}

// Answers whether it is done.
bool Script::perform(Viewer& viewer, const Line& line) {
    const std::string& what = line.words[0];
    if (what == "wait") return wait(viewer, line);
    if (what == "timeout") return m_timeout = number(line, 1), true;
    static const std::set<std::string> early = {"drop", "expect", "key", "screenshot"}, always = {"quit", "close"};
    if (!viewer.shown() && !always.contains(what) && !(viewer.isIdle() && early.contains(what)))
        return false;  // all else is for a picture
    if (what == "expect") {
        if (const std::string wrong = complaint(viewer, line); !wrong.empty()) fail(wrong);
        return true;
    }
    if (what == "move" || what == "click" || what == "doubleclick" || what == "drag") return point(viewer, line), true;
    if (what == "slide" || what == "back") return slide(viewer, line), true;
    if (what == "key") return key(word(line, 1), true), key(word(line, 1), false), true;
    if (what == "measure") return measure(viewer), true;
    if (what == "report") return report(viewer), true;
    if (what == "random") {
        if (line.words.size() > 2) m_random.seed(static_cast<unsigned>(number(line, 2)));
        return random(static_cast<unsigned>(number(line, 1))), true;
    }
    if (what == "hold") {
        if (m_settling == 0 && m_waiting.seconds() < 0.001) key(word(line, 1), true);
        if (m_waiting.seconds() < number(line, 2)) return false;
        return key(word(line, 1), false), true;
    }
    if (what == "screenshot") return viewer.screenshot(word(line, 1)), m_settling = 2, true;
    if (what == "close") {
        SDL_Event event{};
        event.type = SDL_QUIT;
        return later(event), true;
    }
    if (what == "resize")
        return viewer.window().resize(static_cast<int>(number(line, 1)), static_cast<int>(number(line, 2))), true;
    if (what == "drop") {
        SDL_Event event{};
        event.type = SDL_DROPFILE;
        event.drop.file = SDL_strdup(word(line, 1).c_str());
        return later(event), true;
    }
    if (what == "wheel" || what == "type") {
        SDL_Event event{};
        event.type = what == "wheel" ? SDL_MOUSEWHEEL : SDL_TEXTINPUT;
        if (what == "wheel")
            event.wheel.preciseY = number(line, 1), event.wheel.y = static_cast<Sint32>(number(line, 1));
        else
            std::snprintf(event.text.text, sizeof event.text.text, "%s", word(line, 1).c_str());
        return later(event), true;
    }
    change(viewer, line);
    return true;
}

// Over what is there, in place.
static void copyFile(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
}

void Script::change(Viewer& viewer, const Line& line) {
    const std::string &what = line.words[0], &first = line.words.size() > 1 ? line.words[1] : what;
    Document& document = viewer.document();
    const auto classCalled = [&](const std::string& name) -> const ObjectClass& {
        const ObjectClass* object = viewer.scene()->registry->find(name);
        if (!object) fail(viewer.scene()->registry->whyMissing(name));
        return *object;
    };
    try {
        document.settle();
        if (what == "set") document.set(first, valueIn(word(line, 2)));
        if (what == "reset") document.reset(first);
        if (what == "class") document.setClass(first, classCalled(word(line, 2)));
        if (what == "light")
            document.addLight(classCalled(first), {{"position", valueOf(document.eye().view.position)}});
        if (what == "delete") document.removeLight(first);
        if (what == "save") viewer.save(first);
        if (what == "bring") viewer.bringBack(static_cast<std::size_t>(number(line, 1)) - 1);
        if (what == "copy") copyFile(first, word(line, 2));
        if (what == "picture") viewer.writePicture(first);
        if (what == "search") viewer.panel().search(first);
    } catch (const std::exception& e) {
        fail(e.what());
    }
}

bool Script::wait(const Viewer& viewer, const Line& line) {
    const std::string& what = line.words[1];
    const Shown* shown = viewer.shown();
    if (what == "loaded") return viewer.scene() && shown;
    if (what == "passes") return shown && !shown->coarse() && shown->passes >= number(line, 2);
    if (what == "done") return shown && !shown->coarse() && shown->passes >= shown->frame.samples;
    if (what == "loads") return static_cast<float>(viewer.loads()) >= number(line, 2);
    if (what == "seconds") return m_waiting.seconds() >= number(line, 2);
    if (what == "message")
        return std::any_of(viewer.messages().begin(), viewer.messages().end(),
                           [&](const std::string& m) { return m.find(word(line, 2)) != m.npos; });
    return shown && complaint(viewer, line).empty();
}

// X Y R G B TOLERANCE, of what the display shows, from 0 to 255.
static std::string pixelComplaint(const Shown& shown, const std::array<float, 6>& wanted) {
    const auto x = static_cast<std::size_t>(wanted[0]), y = static_cast<std::size_t>(wanted[1]);
    const std::size_t at =
        4 * (y * shown.height / shown.frame.whole.height * shown.width + x * shown.width / shown.frame.whole.width);
    if (at + 3 >= shown.rgba.size()) return "the picture has no such pixel";
    for (std::size_t c = 0; c < 3; ++c)
        if (std::abs(shown.rgba[at + c] - wanted[2 + c]) > wanted[5])
            return fmt::format("found {} {} {}", shown.rgba[at], shown.rgba[at + 1], shown.rgba[at + 2]);
    return {};
}

std::string Script::complaint(const Viewer& viewer, const Line& line) const {
    const std::string &what = word(line, 1), &wanted = word(line, 2);
    const auto is = [&](const std::string& found, const std::string& expected) {
        return found == expected ? "" : fmt::format("expected {} '{}', found '{}'", what, expected, found);
    };
    const auto yes = [](bool so) { return so ? "yes" : "no"; };
    const auto& pick = viewer.pick();
    const Document& document = viewer.document();
    if (what == "picked") return is(pick ? pick->object : "nothing", wanted);
    if (what == "shader") return is(pick ? pick->shader : "nothing", wanted);
    if (what == "layer") return is(showsNames()[static_cast<std::size_t>(viewer.look().shows)], wanted);
    if (what == "dirty") return is(yes(document.isDirty()), wanted);
    if (what == "asked") return is(yes(viewer.asksToSave()), wanted);
    if (what == "display") return is(viewer.window().display().name(), wanted);
    if (what == "scene") return is(viewer.scene() ? viewer.scene()->file : "nothing", wanted);
    if (what == "clipboard") {
        char* text = SDL_GetClipboardText();
        const std::string found = text ? text : "";
        SDL_free(text);
        return found.find(wanted) != found.npos ? "" : fmt::format("expected '{}' in '{}'", wanted, found);
    }
    if (what == "value" || what == "set") {
        const ParameterState* state = document.state(wanted);
        if (!state) return fmt::format("the scene has no '{}'", wanted);
        return is(what == "set" ? yes(state->set) : textOf(state->value), word(line, 3));
    }
    if (what == "recent") {
        const auto& files = viewer.recentFiles();
        return is(files.empty() ? "nothing" : std::filesystem::path(files.front()).filename().string(), wanted);
    }
    if (what == "hint") return is(yes(viewer.showsHint()), wanted);
    if (what == "chooser") return is(yes(viewer.choosesFile()), wanted);
    if (what == "kept") return is(std::to_string(viewer.keptCount()), wanted);
    if (what == "compared") {  // same or other pixels, of as many samples
        const Shown *one = viewer.shown(), *other = viewer.other();
        const bool both = one && other && !one->coarse() && !other->coarse() && one->passes == other->passes &&
                          one->passes == one->frame.samples;
        return is(!both ? "nothing" : one->rgba == other->rgba ? "same" : "differs", wanted);
    }
    if (what == "pixel" && viewer.shown())
        return pixelComplaint(*viewer.shown(), {number(line, 2), number(line, 3), number(line, 4), number(line, 5),
                                                number(line, 6), number(line, 7)});
    fail(fmt::format("'{} {}': there is no such thing to {}", line.words[0], what, line.words[0]));
}

// ---- Measuring

void Script::measure(const Viewer& viewer) {
    m_measuring = {};
    m_updates = viewer.updates();
}

void Script::report(const Viewer& viewer) const {
    RenderThread::Pulse pulse = const_cast<Viewer&>(viewer).thread().pulse();
    std::vector<double>& times = pulse.cancelling;
    std::sort(times.begin(), times.end());
    const double seconds = m_measuring.seconds();
    const nlohmann::ordered_json json = {
        {"seconds", seconds},
        {"updates_per_second", static_cast<double>(viewer.updates() - m_updates) / seconds},
        {"divider", pulse.moving},
        {"cancelled", times.size()},
        {"cancel_median_ms", times.empty() ? 0.0 : 1000.0 * times[times.size() / 2]},
        {"cancel_worst_ms", times.empty() ? 0.0 : 1000.0 * times.back()},
        {"longest_wait_ms", 1000.0 * viewer.longestWait()}};
    std::printf("%s\n", json.dump().c_str());
    std::fflush(stdout);
}

}  // namespace oxbeam
