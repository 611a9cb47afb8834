#include "Apps/view/Display.h"

#include <SDL_opengl.h>
#include <backends/imgui_impl_opengl3.h>
#include <backends/imgui_impl_sdl.h>

#include <algorithm>
#include <bit>
#include <map>
#include <utility>

namespace oxbeam {

namespace {

// Through SDL, so that the program starts where there is no such library.
struct Functions {
#define OXBEAM_GL(result, name, ...)                                                                                   \
    result(APIENTRY* name)(__VA_ARGS__) =                                                                              \
        reinterpret_cast<result(APIENTRY*)(__VA_ARGS__)>(SDL_GL_GetProcAddress("gl" #name))
    OXBEAM_GL(void, GenTextures, GLsizei, GLuint*);
    OXBEAM_GL(void, DeleteTextures, GLsizei, const GLuint*);
    OXBEAM_GL(void, BindTexture, GLenum, GLuint);
    OXBEAM_GL(void, TexParameteri, GLenum, GLenum, GLint);
    OXBEAM_GL(void, TexImage2D, GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum, const void*);
    OXBEAM_GL(void, PixelStorei, GLenum, GLint);
    OXBEAM_GL(void, Viewport, GLint, GLint, GLsizei, GLsizei);
    OXBEAM_GL(void, ClearColor, GLclampf, GLclampf, GLclampf, GLclampf);
    OXBEAM_GL(void, Clear, GLbitfield);
    OXBEAM_GL(void, ReadPixels, GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, void*);
    OXBEAM_GL(void, Finish);
    // Of OpenGL 3.2; null where there is only 3.0.
    OXBEAM_GL(GLsync, FenceSync, GLenum, GLbitfield);
    OXBEAM_GL(GLenum, ClientWaitSync, GLsync, GLbitfield, GLuint64);
    OXBEAM_GL(void, DeleteSync, GLsync);
#undef OXBEAM_GL
};

class OpenGlDisplay : public Display {
public:
    OpenGlDisplay(SDL_Window* window, SDL_GLContext context) : m_window(window), m_context(context) {
        SDL_GL_SetSwapInterval(1);
        ImGui_ImplSDL2_InitForOpenGL(window, context);
        ImGui_ImplOpenGL3_Init("#version 130");
    }
    ~OpenGlDisplay() override {
        for (const auto& [slot, texture] : m_textures) m_gl.DeleteTextures(1, &texture);
        if (m_presented) m_gl.DeleteSync(m_presented);
        ImGui_ImplOpenGL3_Shutdown();
        ImGui_ImplSDL2_Shutdown();
        SDL_GL_DeleteContext(m_context);
    }

    const char* name() const override { return "OpenGL 3"; }
    void newFrame() override {
        ImGui_ImplOpenGL3_NewFrame();
        ImGui_ImplSDL2_NewFrame();
    }
    ImTextureID picture(unsigned slot, unsigned width, unsigned height, const std::uint8_t* rgba,
                        bool smooth) override {
        GLuint& texture = m_textures[slot];
        if (!texture) m_gl.GenTextures(1, &texture);
        m_gl.BindTexture(GL_TEXTURE_2D, texture);
        for (const GLenum edge : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
            m_gl.TexParameteri(GL_TEXTURE_2D, edge, GL_CLAMP_TO_EDGE);
        m_gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        m_gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, smooth ? GL_LINEAR : GL_NEAREST);
        m_gl.PixelStorei(GL_UNPACK_ALIGNMENT, 4);
        m_gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, static_cast<GLsizei>(width), static_cast<GLsizei>(height), 0,
                        GL_RGBA, GL_UNSIGNED_BYTE, rgba);
        return std::bit_cast<ImTextureID>(std::uintptr_t{texture});
    }
    void draw(ImDrawData* data, const ImVec4& background) override {
        SDL_GL_GetDrawableSize(m_window, &m_width, &m_height);
        m_gl.Viewport(0, 0, m_width, m_height);
        m_gl.ClearColor(background.x, background.y, background.z, 1.0f);
        m_gl.Clear(GL_COLOR_BUFFER_BIT);
        ImGui_ImplOpenGL3_RenderDrawData(data);
    }
    Pixels read() override {
        Pixels pixels{static_cast<unsigned>(m_width), static_cast<unsigned>(m_height), {}};
        const std::size_t row = std::size_t{3} * pixels.width;
        std::vector<std::uint8_t> upsideDown(row * pixels.height);
        m_gl.PixelStorei(GL_PACK_ALIGNMENT, 1);
        m_gl.ReadPixels(0, 0, m_width, m_height, GL_RGB, GL_UNSIGNED_BYTE, upsideDown.data());
        for (std::size_t y = pixels.height; y-- > 0;)
            pixels.rgb.insert(pixels.rgb.end(), &upsideDown[y * row], &upsideDown[y * row] + row);
        return pixels;
    }
    // Where presenting waits for no screen, frames would come faster than they are drawn, and all that wait for it take
    // memory, which a renderer in software never gives back to the system: no more than one is to wait.
    void present() override {
        SDL_GL_SwapWindow(m_window);
        if (!m_gl.FenceSync) return m_gl.Finish();
        constexpr GLuint64 second = 1'000'000'000;
        const GLsync before = std::exchange(m_presented, m_gl.FenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0));
        if (!before) return;
        m_gl.ClientWaitSync(before, GL_SYNC_FLUSH_COMMANDS_BIT, second);
        m_gl.DeleteSync(before);
    }

private:
    SDL_Window* m_window;
    SDL_GLContext m_context;
    Functions m_gl;
    GLsync m_presented = nullptr;           // reached when the last frame has been drawn
    std::map<unsigned, GLuint> m_textures;  // by slot
    int m_width = 0, m_height = 0;
};

}  // namespace

std::unique_ptr<Display> openGlDisplay(SDL_Window* window) {
    const SDL_GLContext context = SDL_GL_CreateContext(window);
    if (!context) return nullptr;
    return std::make_unique<OpenGlDisplay>(window, context);
}

}  // namespace oxbeam
