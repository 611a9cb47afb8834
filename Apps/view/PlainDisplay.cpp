#include "Apps/view/Display.h"

#include <backends/imgui_impl_sdl.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace oxbeam {

namespace {

struct DestroyTexture {
    void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
};
using TexturePointer = std::unique_ptr<SDL_Texture, DestroyTexture>;

class PlainDisplay : public Display {
public:
    PlainDisplay(SDL_Window* window, SDL_Renderer* renderer) : m_renderer(renderer) {
        ImGui_ImplSDL2_InitForSDLRenderer(window);
        ImGui::GetIO().BackendFlags |= ImGuiBackendFlags_RendererHasVtxOffset;
    }
    ~PlainDisplay() override {
        m_pictures.clear();
        m_font.reset();
        ImGui_ImplSDL2_Shutdown();
        SDL_DestroyRenderer(m_renderer);
    }

    const char* name() const override { return "SDL renderer"; }
    void newFrame() override {
        if (!m_font) makeFont();
        ImGui_ImplSDL2_NewFrame();
    }
    ImTextureID picture(unsigned slot, unsigned width, unsigned height, const std::uint8_t* rgba,
                        bool smooth) override {
        TexturePointer& picture = m_pictures[slot];
        picture = texture(width, height, rgba, SDL_BLENDMODE_NONE);
        SDL_SetTextureScaleMode(picture.get(), smooth ? SDL_ScaleModeLinear : SDL_ScaleModeNearest);
        return picture.get();
    }
    void draw(ImDrawData* data, const ImVec4& background) override {
        const auto byte = [](float share) { return static_cast<Uint8>(std::lround(255.0f * share)); };
        SDL_RenderSetClipRect(m_renderer, nullptr);
        SDL_SetRenderDrawColor(m_renderer, byte(background.x), byte(background.y), byte(background.z), 255);
        SDL_RenderClear(m_renderer);
        for (int i = 0; i < data->CmdListsCount; ++i) {
            const ImDrawList& list = *data->CmdLists[i];
            for (const ImDrawCmd& command : list.CmdBuffer) drawCommand(list, command, data->FramebufferScale);
        }
    }
    Pixels read() override {
        int width = 0, height = 0;
        SDL_GetRendererOutputSize(m_renderer, &width, &height);
        Pixels pixels{static_cast<unsigned>(width), static_cast<unsigned>(height), {}};
        pixels.rgb.resize(std::size_t{3} * pixels.width * pixels.height);
        SDL_RenderReadPixels(m_renderer, nullptr, SDL_PIXELFORMAT_RGB24, pixels.rgb.data(), 3 * width);
        return pixels;
    }
    void present() override { SDL_RenderPresent(m_renderer); }

private:
    TexturePointer texture(unsigned width, unsigned height, const void* rgba, SDL_BlendMode blending) {
        const int w = static_cast<int>(width), h = static_cast<int>(height);
        TexturePointer made(SDL_CreateTexture(m_renderer, SDL_PIXELFORMAT_RGBA32, SDL_TEXTUREACCESS_STATIC, w, h));
        SDL_UpdateTexture(made.get(), nullptr, rgba, 4 * w);
        SDL_SetTextureBlendMode(made.get(), blending);
        return made;
    }
    void makeFont() {
        unsigned char* rgba = nullptr;
        int width = 0, height = 0;
        ImGui::GetIO().Fonts->GetTexDataAsRGBA32(&rgba, &width, &height);
        m_font = texture(static_cast<unsigned>(width), static_cast<unsigned>(height), rgba, SDL_BLENDMODE_BLEND);
        ImGui::GetIO().Fonts->SetTexID(m_font.get());
    }
    void drawCommand(const ImDrawList& list, const ImDrawCmd& command, const ImVec2& scale) {
        if (command.UserCallback) return;
        const auto pixel = [](float place, float by) { return static_cast<int>(place * by); };
        const ImVec4& c = command.ClipRect;
        const SDL_Rect clip = {std::max(0, pixel(c.x, scale.x)), std::max(0, pixel(c.y, scale.y)),
                               pixel(c.z - c.x, scale.x), pixel(c.w - c.y, scale.y)};
        if (clip.w <= 0 || clip.h <= 0) return;
        SDL_RenderSetClipRect(m_renderer, &clip);
        const ImDrawVert* first = list.VtxBuffer.Data + command.VtxOffset;
        SDL_RenderGeometryRaw(m_renderer, static_cast<SDL_Texture*>(command.GetTexID()), &first->pos.x, sizeof *first,
                              reinterpret_cast<const SDL_Color*>(&first->col), sizeof *first, &first->uv.x,
                              sizeof *first, list.VtxBuffer.Size - static_cast<int>(command.VtxOffset),
                              list.IdxBuffer.Data + command.IdxOffset, static_cast<int>(command.ElemCount),
                              sizeof(ImDrawIdx));
    }

    SDL_Renderer* m_renderer;
    TexturePointer m_font;
    std::map<unsigned, TexturePointer> m_pictures;  // by slot
};

}  // namespace

std::unique_ptr<Display> plainDisplay(SDL_Window* window) {
    SDL_Renderer* renderer = SDL_CreateRenderer(window, -1, SDL_RENDERER_ACCELERATED | SDL_RENDERER_PRESENTVSYNC);
    if (!renderer) renderer = SDL_CreateRenderer(window, -1, SDL_RENDERER_SOFTWARE);
    if (!renderer) return nullptr;
    return std::make_unique<PlainDisplay>(window, renderer);
}

}  // namespace oxbeam
