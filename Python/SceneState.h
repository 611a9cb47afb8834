// A scene as Python holds it.
#pragma once

#include "Engine/Provenance/Provenance.h"
#include "Engine/World/World.h"
#include "Python/Picture.h"

#include <array>
#include <map>
#include <memory>
#include <string>

namespace oxbeam::python {

// All of it belongs to who has the interpreter's lock, and the world, while that is given away, to who is using it.
class SceneState {
public:
    // `inputs` are those that the world was loaded from.
    SceneState(std::string file, std::unique_ptr<World> world, Inputs inputs)
        : m_file(std::move(file)), m_world(std::move(world)), m_inputs(std::move(inputs)), m_loaded(stateOf(*m_world)) {
    }

    // Throws Closed, and std::logic_error while it renders. What it answers is good until Python runs again.
    World& world() const;
    void close();
    const std::string& file() const { return m_file; }
    // What a picture that is rendered so is made from, with all changes since the world was loaded.
    Inputs inputs(const RenderOptions& options) const;
    // Python brought something of its own: "texture.wood", or "object 7", of contents with such a hash.
    void note(const std::string& what, std::uint64_t hash) { m_given[what] = hash; }
    void forget(const std::string& what) { m_given.erase(what); }
    bool isOpen() const { return m_world != nullptr; }

    // Keeps everybody else out while the interpreter's lock is given away.
    class Use {
    public:
        explicit Use(SceneState& state) : world(state.world()), m_state(state) { state.m_used = true; }
        ~Use() { m_state.m_used = false; }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        World& world;

    private:
        SceneState& m_state;
    };

    std::shared_ptr<Picture> last;  // that was rendered, whole or not

private:
    std::string m_file;
    std::unique_ptr<World> m_world;  // null once it is closed
    Inputs m_inputs;
    std::uint64_t m_loaded;  // state
    std::map<std::string, std::uint64_t> m_given;
    bool m_used = false;
};

using Scene = std::shared_ptr<SceneState>;
using SceneClass = py::class_<SceneState, Scene>;

// A concern each.
void bindParameters(SceneClass& scene);
void bindPlacements(SceneClass& scene);
void bindRender(SceneClass& scene);
void bindIntersect(SceneClass& scene);
void bindTextures(SceneClass& scene);
void bindImage(SceneClass& scene);

void bindScene(py::module_& module);

// What notes call an object, by its number from 0.
inline std::string objectNote(unsigned instance) { return "object " + std::to_string(instance + 1); }

// The threads that are worked on: those that were asked for, or those that the scene and the machine give. Throws
// Error(Usage).
unsigned threadsFor(const World& world, const std::optional<std::int64_t>& wanted);

// Of width and height. Throws Error(Usage).
ImageSize imageSizeFrom(const std::array<std::int64_t, 2>& size);

}  // namespace oxbeam::python
