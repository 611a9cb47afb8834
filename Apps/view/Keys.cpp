#include "Apps/view/Keys.h"

#include <algorithm>
#include <utility>

namespace oxbeam {

const std::vector<Key>& keys() {
    using enum Action;
    static const std::vector<Key> all = {
        {SDLK_F1, false, false, Help, "F1", "this list"},
        {SDLK_f, false, false, Frame, "F", "frame what is picked, or everything"},
        {SDLK_1, false, false, View, "1 to 7", "look from iso, front, left, top, right, back, bottom"},
        {SDLK_o, true, false, Open, "Ctrl-O", "open a scene or a model; files can be dropped onto the window too"},
        {SDLK_z, true, false, Undo, "Ctrl-Z", "undo the last change"},
        {SDLK_z, true, true, Redo, "Ctrl-Shift-Z", "redo it"},
        {SDLK_s, true, false, Save, "Ctrl-S", "write the changes into the scene file"},
        {SDLK_s, true, true, SaveAs, "Ctrl-Shift-S", "the same under a new name"},
        {SDLK_p, false, false, Picture, "P", "write a picture"},
        {SDLK_c, true, false, CopyCommand, "Ctrl-C", "copy the command line that renders just this"},
        {SDLK_l, false, false, Layer, "L", "the next layer: color, depth, normal, albedo, object"},
        {SDLK_COMMA, false, false, ExposureDown, ",", "a third of an EV darker"},
        {SDLK_PERIOD, false, false, ExposureUp, ".", "a third of an EV brighter"},
        {SDLK_t, false, false, Curve, "T", "the next tone curve"},
        {SDLK_z, false, false, ActualSize, "Z", "a pixel of the picture for one of the screen, or all of it"},
        {SDLK_h, false, false, Histogram, "H", "histogram"},
        {SDLK_m, false, false, Messages, "M", "all messages"},
        {SDLK_k, false, false, Keep, "K", "keep the present state; a click on its picture brings it back"},
        {SDLK_c, false, false, Compare, "C", "compare with the state that was kept last, and no more"},
        {SDLK_g, false, false, Handles, "G", "handles of lights and objects"},
        {SDLK_DELETE, false, false, Delete, "Delete", "delete the light whose handle was clicked"},
        {SDLK_TAB, false, false, Panel, "Tab", "panel"},
        {SDLK_F2, false, false, Theme, "F2", "light or dark"},
        {SDLK_q, true, false, Quit, "Ctrl-Q", "quit"},
    };
    return all;
}

const std::vector<Gesture>& gestures() {
    static const std::vector<Gesture> all = {
        {"left drag", "turn about the middle"},
        {"middle drag, Shift-left drag", "move the picture"},
        {"wheel", "come nearer"},
        {"two fingers", "turn; with Shift move, with Ctrl come nearer"},
        {"right drag", "look around"},
        {"W A S D, E Q", "fly, up and down"},
        {"click", "pick, which shows handles for moving it along axes and on planes"},
        {"double click", "turn about what is there from now on"},
        {"Shift-click", "focus there, with a lens"},
    };
    return all;
}

const Key* keyFor(const SDL_Keysym& pressed) {
    SDL_Keycode code = pressed.sym;
    if (code >= SDLK_1 && code <= SDLK_7) code = SDLK_1;
    const bool control = pressed.mod & (KMOD_CTRL | KMOD_GUI), shift = pressed.mod & KMOD_SHIFT;
    const auto found = std::find_if(keys().begin(), keys().end(), [&](const Key& key) {
        return key.code == code && key.control == control && key.shift == shift;
    });
    return found == keys().end() ? nullptr : &*found;
}

SDL_Keysym parseKey(const std::string& text) {
    SDL_Keysym key{};
    std::string rest = text;
    for (const auto& [prefix, modifier] : {std::pair("ctrl+", KMOD_LCTRL), std::pair("shift+", KMOD_LSHIFT)})
        if (rest.starts_with(prefix)) {
            key.mod = static_cast<Uint16>(key.mod | modifier);
            rest.erase(0, std::string(prefix).size());
        }
    key.sym = SDL_GetKeyFromName(rest.c_str());
    key.scancode = SDL_GetScancodeFromKey(key.sym);
    return key;
}

}  // namespace oxbeam
