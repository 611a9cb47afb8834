// The line below the picture, and what lies over it.
#pragma once

#include "Apps/view/Navigation.h"
#include "Apps/view/Picking.h"
#include "Apps/view/RenderThread.h"

#include <imgui.h>

namespace oxbeam {

// Passes, rays per second and time left; what is under the pointer; the last message.
void drawStatusBar(const ImVec2& at, const ImVec2& size, const RenderThread::Pulse& pulse, const std::string& pointed,
                   const std::string& message);
// Which way the axes of the world go, around a place.
void drawAxes(const Eye& eye, const ImVec2& center, float length);
// Names and values of what is picked.
void drawPick(const Pick& pick, const ImVec2& at);
// Of what is shown, by channel.
void drawHistogram(const Shown& shown, const ImVec2& at, const ImVec2& size);
// The last first; `open` becomes false where it is closed.
void drawMessages(const std::vector<std::string>& messages, bool& open);
// All keys; `open` becomes false where it is closed.
void drawHelp(bool& open);

}  // namespace oxbeam
