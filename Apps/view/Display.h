// What draws the window: OpenGL 3, or SDL's own renderer where there is none.
#pragma once

#include <SDL.h>
#include <imgui.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace oxbeam {

struct Pixels {
    unsigned width = 0, height = 0;
    std::vector<std::uint8_t> rgb;
};

class Display {
public:
    virtual ~Display() = default;

    virtual const char* name() const = 0;
    virtual void newFrame() = 0;
    // Places for pictures; one for each that is kept, from Kept on.
    enum Slot : unsigned { Main, Other, Kept };
    // Takes the picture over into a texture of its own, which the next one of the slot replaces. Smooth: interpolated where
    // it is larger than it has pixels.
    virtual ImTextureID picture(unsigned slot, unsigned width, unsigned height, const std::uint8_t* rgba,
                                bool smooth) = 0;
    virtual void draw(ImDrawData* data, const ImVec4& background) = 0;
    // What has been drawn and is not presented yet.
    virtual Pixels read() = 0;
    virtual void present() = 0;
};

// Each for a window that was made for it, which must outlive it; null where there is no such thing.
std::unique_ptr<Display> openGlDisplay(SDL_Window* window);
std::unique_ptr<Display> plainDisplay(SDL_Window* window);

}  // namespace oxbeam
