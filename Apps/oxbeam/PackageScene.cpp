#include "Apps/oxbeam/PackageScene.h"

#include "Engine/Packages/Overrides.h"
#include "Engine/Packages/ParameterValue.h"
#include "Engine/Scene/Shapes.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace oxbeam {

// ---- The object

// What was allocated last beside an object, so that it has its pages for itself.
static void* volatile s_beside = nullptr;

// A new thread has memory of its own, of which nobody has had any yet: what it asks for lies one behind the other.
ApartObject::ApartObject(const ObjectClass& object, int filled) {
    constexpr std::size_t pages = 4 * 4096;
    std::exception_ptr failure;
    std::thread([&] {
        try {
            constexpr std::size_t room = 96 * 1024;  // less than what the system is given back at once
            void* before = std::malloc(room);
            std::memset(before, filled, room);
            asm volatile("" : : "r"(before) : "memory");  // or nobody would need the bytes
            std::free(before);
            s_beside = std::malloc(pages);  // stays, as the one behind the object
            m_object = object.factory();
            s_beside = std::malloc(pages);
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure) std::rethrow_exception(failure);
    if (!m_object) return;
    m_object->Init();
    auto* block = static_cast<std::byte*>(dynamic_cast<void*>(m_object));
    m_size = malloc_usable_size(block) - static_cast<std::size_t>(reinterpret_cast<std::byte*>(m_object) - block);
}

// ---- The scene

// A class of which the next object is one that is there already.
static OxLoadableObject* s_next = nullptr;

static const ObjectClass& standIn(const ObjectClass& object, const ApartObject& made) {
    s_next = made.get();
    auto& same = *new ObjectClass;
    same.name = object.name;
    same.package = object.package;
    same.kind = object.kind;
    same.parameters = object.parameters;
    same.type = object.type;
    same.packetForm = object.packetForm;
    same.packetsInherited = object.packetsInherited;
    same.factory = [] { return s_next; };
    return same;
}

PackageScene::PackageScene(const ObjectClass& object, const Registry& registry)
    : m_registry(registry), m_tested(object), m_object(object), m_world(new World) {
    m_complete = m_object.get() && object.kind != ObjectKind::Unknown &&
                 (object.kind == ObjectKind::RenderingObject || partner(ObjectKind::RenderingObject));
    if (!m_complete) return;
    addObjects(standIn(object, m_object));
    addMeshes();
    m_world->image = {64, 48};
    m_world->view = View{R3(0.0f, 1.5f, 4.0f), R3(), R3(0.0f, 1.0f, 0.0f)};
}

// Surfaces that need nothing but light come first; no surface of Kel's is shaded without its own rendering object.
const ObjectClass* PackageScene::partner(ObjectKind kind) const {
    const ObjectClass* best = nullptr;
    int most = -1;
    for (const ObjectClass* object : m_registry.all()) {
        if (object->kind != kind) continue;
        // A light may answer packets, too.
        const int rank = 8 * (m_tested.kind == ObjectKind::Light && object->packetForm) +
                         4 * (object->package == m_tested.package) + 2 * object->name.ends_with("Diffuse") +
                         object->name.ends_with("Phong");
        if (rank > most) best = object, most = rank;
    }
    return best;
}

// A light of the same package that answers packets, or else the host's, which does not.
const ObjectClass& PackageScene::packetLight() const {
    for (const ObjectClass* object : m_registry.all())
        if (object->kind == ObjectKind::Light && object->package == m_tested.package)
            if (overrides(dynamic_cast<const OxLight&>(*object->make()), &OxLight::Illuminate4)) return *object;
    return *m_registry.find("OxPointLight");
}

static void write(const ObjectClass& object, OxLoadableObject& target, const char* name, const ParameterValue& value) {
    Diagnostics unsaid;
    if (object.find(name)) ParameterWriter(object, "", unsaid, {}).write(target, name, {}, value);
}

void PackageScene::addObjects(const ObjectClass& object) {
    World& world = *m_world;
    const auto is = [&](ObjectKind kind) { return object.kind == kind; };
    const ObjectClass* ro = is(ObjectKind::RenderingObject) ? &object : partner(ObjectKind::RenderingObject);
    if (!ro) return;
    write(*ro, world.setRenderingObject(*ro), "receiveShadow", {true, {}});
    world.renderingObject->m_recursionLimit = 4;
    world.setCamera(is(ObjectKind::Camera) ? object : *m_registry.find("OxPerspectiveCamera"));
    // What does not say what it shades is a surface here, and where it is asked for nothing else that is enough.
    const ObjectClass* plain = partner(ObjectKind::Surface);
    world.addShader(is(ObjectKind::Surface) || is(ObjectKind::Shader) || !plain ? object : *plain);
    const ObjectClass& background = *m_registry.find("OxBackground");
    OxShader& sky = world.setEnvironment(is(ObjectKind::Environment) ? object : background);
    if (!is(ObjectKind::Environment))
        write(background, sky, "background", {std::vector<ParameterValue::Number>{0.25, 0.5, 0.75}, {}});
    const ObjectClass& other = object.packetForm ? packetLight() : *m_registry.find("OxPointLight");
    OxLight& light = world.addLight(is(ObjectKind::Light) ? object : other);
    if (!is(ObjectKind::Light))
        write(other, light, "position", {std::vector<ParameterValue::Number>{2.0, 4.0, 3.0}, {}});
}

void PackageScene::addMeshes() {
    Matrix floor;
    for (unsigned i = 0; i < 3; ++i) floor.m[i][i] = 3.0f;
    floor.m[1][3] = -1.0f;
    m_world->geometry.addInstance(m_world->geometry.addMesh(sphereMesh(16)), {}, 0);
    m_world->geometry.addInstance(m_world->geometry.addMesh(planeMesh()), floor, 0);
    m_world->geometry.build();
}

}  // namespace oxbeam
