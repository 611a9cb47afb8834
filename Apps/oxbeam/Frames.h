// Which frames a command line renders, what their files are called, and what the scene is like in each.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Engine/World/Turntable.h"
#include "Engine/World/World.h"

#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// No sequence is longer, nor has a frame a higher number.
inline constexpr unsigned MostFrames = 1'000'000;

// ---- Files

// "turn.{frame:04}.png": {frame} stands for a frame's number, {frame:04} for it with zeros before it up to four digits.
inline constexpr const char* NamesOfFrames =
    "names of their own; expected {frame} in it, as picture.{frame:04}.png, or a name that ends in .gif or .mp4";
bool hasFrame(const std::string& file);
std::string fileOfFrame(const std::string& file, unsigned frame);

// ---- Frames

// That the options make sense, before anything is loaded. Throws Error(Usage).
void checkSequence(const RenderCommand& command);
// All that have to be rendered, in order, as far as the command line says it by itself: --frames, --turntable or --duration,
// and --only of those. Nothing where the scene's own animation has to say it. Throws Error(Usage).
std::optional<std::vector<unsigned>> framesAsked(const RenderCommand& command);

// Those of all frames, which are in order, that --only names; all where it names none. Throws Error(Usage).
std::vector<unsigned> onlyThose(const std::vector<unsigned>& all, const std::string& only);

// The frames of a scene that was loaded for a command.
class Frames {
public:
    // The world must outlive it, and its picture be chosen. Throws Error(Usage) where the two do not go together.
    Frames(const RenderCommand& command, World& world);

    // Those that have to be rendered, in order.
    const std::vector<unsigned>& numbers() const { return m_numbers; }
    // Whether it is a picture at all, and not one of some.
    bool isStill() const { return m_still; }
    // Has the world be as it is in a frame, from the next build and frame on. That depends on the command line but for
    // --frames, --only and --missing, and not on what was shown before: a frame has the same bits in any company.
    void show(unsigned number);
    // The options that decide what a frame is like, by their names: what it is made from beside the scene.
    std::vector<std::pair<std::string, std::string>> inputs(unsigned number) const;
    // The command for one frame: its files have the frame's names.
    static RenderCommand commandOf(const RenderCommand& command, unsigned number);

private:
    void spread();
    void requireNames(bool asked) const;

    const RenderCommand& m_command;
    World& m_world;
    std::vector<unsigned> m_numbers;
    std::string m_span;  // over which what is animated on the command line is
    std::optional<Turntable> m_turntable;
    bool m_still = false;
};

}  // namespace oxbeam
