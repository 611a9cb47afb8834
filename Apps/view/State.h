// All of a scene that can be changed in the window, as values that stand for themselves.
#pragma once

#include "Apps/view/RenderThread.h"

#include <map>
#include <string>
#include <vector>

namespace oxbeam {

struct State {
    std::vector<ObjectInfo> objects;
    std::map<std::string, Matrix> placements;  // by place: "mesh.0"
    Tone tone;

    static State of(const SceneInfo& scene);

    const ObjectInfo* object(const std::string& place) const;
    // Of "shader.table.shininess"; null where there is no such parameter.
    const ParameterState* value(const std::string& path) const;
};

bool operator==(const ObjectInfo& a, const ObjectInfo& b);
bool operator==(const State& a, const State& b);

std::vector<ObjectInfo> lightsAmong(const std::vector<ObjectInfo>& objects);
void replaceLights(std::vector<ObjectInfo>& objects, const std::vector<ObjectInfo>& lights);
// They are of the same classes, one by one.
bool sameKinds(const std::vector<ObjectInfo>& a, const std::vector<ObjectInfo>& b);
// "shader.table" and "shininess".
std::pair<std::string, std::string> splitPath(const std::string& path);

// What makes a world of the one state one of the other.
std::vector<RenderThread::Posted> differences(const State& from, const State& to);
RenderThread::Posted valueChange(const std::string& path, const ParameterState& state);
RenderThread::Posted placementChange(const std::string& place, const Matrix& toWorld);

// Another state of the same file, of which something else was `was` than is `now`: what it has of its own it keeps, and
// takes over all else. What there is no place for any more is named in `lost`.
class Rebase {
public:
    Rebase(const State& was, const State& now, const Registry& registry)
        : m_was(was), m_now(now), m_registry(registry) {}

    State of(const State& state);
    // The parts of it. An object of a class that there is no more has none.
    std::vector<ObjectInfo> lights(const std::vector<ObjectInfo>& lights);
    ObjectInfo object(const ObjectInfo& object);
    ParameterState value(const std::string& path, const ParameterState& state) const;
    Matrix placement(const std::string& place, const Matrix& toWorld) const;
    Tone tone(const Tone& tone) const { return tone == m_was.tone ? m_now.tone : tone; }

    std::set<std::string> lost;

private:
    const ObjectClass* classNow(const ObjectInfo& object);

    const State& m_was;
    const State& m_now;
    const Registry& m_registry;
};

}  // namespace oxbeam
