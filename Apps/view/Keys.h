// The viewer's keys: one table for what they do, what F1 lists and what the manual says.
#pragma once

#include <SDL.h>

#include <string>
#include <vector>

namespace oxbeam {

enum class Action {
    Help,
    Frame,
    View,
    Layer,
    ExposureDown,
    ExposureUp,
    Curve,
    Open,
    Undo,
    Redo,
    Save,
    SaveAs,
    Picture,
    CopyCommand,
    ActualSize,
    Handles,
    Delete,
    Keep,
    Compare,
    Panel,
    Theme,
    Histogram,
    Messages,
    Quit
};

struct Key {
    SDL_Keycode code;
    bool control = false, shift = false;
    Action action = Action::Help;
    const char* name = "";  // as people say it
    const char* help = "";
};

// In the order in which they are listed.
const std::vector<Key>& keys();
// What is done with the pointer, in the same form.
struct Gesture {
    const char *name, *help;
};
const std::vector<Gesture>& gestures();

// The key that is meant, or null.
const Key* keyFor(const SDL_Keysym& pressed);

// "ctrl+shift+s", "F1", "w"; a code of 0 where there is no such key.
SDL_Keysym parseKey(const std::string& text);

}  // namespace oxbeam
