// A tiny scene around one object of a package that is to be tried, and that object where it can be watched.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Engine/World/World.h"

#include <cstddef>
#include <memory>

namespace oxbeam {

// An object in memory that nothing else shares pages with, which before that held one value all over. It is not
// destroyed: the process is not to live long.
class ApartObject {
public:
    explicit ApartObject(const ObjectClass& object, int filled = 0);

    OxLoadableObject* get() const { return m_object; }
    std::size_t size() const { return m_size; }  // bytes from there to the end of the object's memory

private:
    OxLoadableObject* m_object = nullptr;
    std::size_t m_size = 0;
};

// A sphere over a floor under a light, seen by a camera, with the object in its place. What else is needed is taken from
// the object's own package, then from the host or others. It is not taken down, either.
class PackageScene {
public:
    PackageScene(const ObjectClass& object, const Registry& registry);

    // False: nobody offers what it would take to render the object.
    bool complete() const { return m_complete; }
    World& world() { return *m_world; }
    const ApartObject& object() const { return m_object; }

private:
    const ObjectClass* partner(ObjectKind kind) const;
    const ObjectClass& packetLight() const;
    void addObjects(const ObjectClass& object);
    void addMeshes();

    const Registry& m_registry;
    const ObjectClass& m_tested;
    ApartObject m_object;
    World* m_world;
    bool m_complete = false;
};

}  // namespace oxbeam
