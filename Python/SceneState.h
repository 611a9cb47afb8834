// A scene as Python holds it.
#pragma once

#include "Engine/World/World.h"
#include "Python/Picture.h"

#include <memory>
#include <string>

namespace oxbeam::python {

// All of it belongs to who has the interpreter's lock, and the world, while that is given away, to who is using it.
class SceneState {
public:
    SceneState(std::string file, std::unique_ptr<World> world) : m_file(std::move(file)), m_world(std::move(world)) {}

    // Throws Closed, and std::logic_error while it renders. What it answers is good until Python runs again.
    World& world() const;
    void close();
    const std::string& file() const { return m_file; }
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
    bool m_used = false;
};

using Scene = std::shared_ptr<SceneState>;
using SceneClass = py::class_<SceneState, Scene>;

// A concern each.
void bindParameters(SceneClass& scene);
void bindPlacements(SceneClass& scene);
void bindRender(SceneClass& scene);
void bindIntersect(SceneClass& scene);

void bindScene(py::module_& module);

// The threads that are worked on: those that were asked for, or those that the scene and the machine give. Throws
// Error(Usage).
unsigned threadsFor(const World& world, const std::optional<std::int64_t>& wanted);

}  // namespace oxbeam::python
