#include "Engine/World/World.h"

#include "Engine/Packages/Overrides.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

const std::vector<std::string>& backgroundNames() {
    static const std::vector<std::string> names = {"environment", "transparent"};
    return names;
}

World::World() = default;

World::~World() = default;

OxLoadableObject& World::make(const ObjectClass& object) {
    m_packages.insert(object.package);
    m_objects.push_back(object.make());
    return *m_objects.back();
}

OxRenderingObject& World::setRenderingObject(const ObjectClass& object) {
    renderingObject = &dynamic_cast<OxRenderingObject&>(make(object));
    return *renderingObject;
}

OxCamera& World::setCamera(const ObjectClass& object) {
    camera = &dynamic_cast<OxCamera&>(make(object));
    return *camera;
}

// Declarations are counted from the start of the object as one that can be loaded.
template <class T>
static const T* member(const OxLoadableObject& object, const ParameterDeclaration* p) {
    if (!p || p->size != static_cast<int>(sizeof(T))) return nullptr;
    return reinterpret_cast<const T*>(reinterpret_cast<const std::byte*>(&object) + p->offset);
}

// The names that surfaces commonly declare it under.
static BaseColor declaredBaseColor(const ObjectClass& object, const OxLoadableObject& made) {
    const auto first = [&](std::initializer_list<const char*> names) {
        const ParameterDeclaration* found = nullptr;
        for (const char* name : names)
            if (!found) found = object.find(name);
        return found;
    };
    return {member<R3>(made, first({"diffuseColor", "baseColor", "diffuse", "albedo"})),
            member<Oxint>(made, first({"texture", "texture0", "diffuseTexture", "baseColorTexture"}))};
}

OxShader& World::makeShader(const ObjectClass& object) {
    auto& shader = dynamic_cast<OxShader&>(make(object));
    if (overrides(shader, &OxShader::Shade4) && !object.packetsInherited) m_packetShaders.insert(&shader);
    m_baseColors[&shader] = declaredBaseColor(object, shader);
    return shader;
}

OxShader& World::setEnvironment(const ObjectClass& object) { return *(environment = &makeShader(object)); }

OxLight& World::addLight(const ObjectClass& object) {
    lights.push_back(&dynamic_cast<OxLight&>(make(object)));
    return *lights.back();
}

OxShader& World::addShader(const ObjectClass& object) {
    shaders.push_back(&makeShader(object));
    return *shaders.back();
}

BaseColor World::baseColor(const OxShader* shader) const {
    const auto found = m_baseColors.find(shader);
    return found == m_baseColors.end() ? BaseColor() : found->second;
}

std::string World::objectName(unsigned instance) const {
    const auto found = m_objectNames.find(instance);
    return found != m_objectNames.end() ? found->second
                                        : geometry.meshName(geometry.scene().instances[instance]->object);
}

R2 World::imageWindow() const {
    const float top = std::tan(0.5f * fov * 3.14159265f / 180.0f);
    return {top * static_cast<float>(image.width) / static_cast<float>(image.height), top};
}

View World::framingView(const Bounds& bounds) const {
    View framing;
    if (bounds.empty) return framing;
    const float aspect = static_cast<float>(image.width) / static_cast<float>(image.height);
    const float halfAngle = 0.5f * fov * 3.14159265f / 180.0f;
    const float narrow = aspect < 1.0f ? std::atan(std::tan(halfAngle) * aspect) : halfAngle;
    const float distance = std::max(bounds.radius(), 1e-6f) / std::sin(narrow);
    framing.lookAt = bounds.center();
    framing.position = framing.lookAt + distance * Normalize(R3(0.5f, 0.45f, 1.0f));
    return framing;
}

// Some hundred times the rounding error of a coordinate of the scene: below what a picture shows, and above what a hit
// point is off by.
float World::epsilon() const {
    if (rayEpsilon) return *rayEpsilon;
    const Bounds& bounds = geometry.bounds();
    if (bounds.empty) return 0.01f;
    const auto farthest = [](const R3& p) { return std::max({std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)}); };
    const float size = std::max({2.0f * bounds.radius(), farthest(bounds.lower), farthest(bounds.upper)});
    return std::clamp(1e-5f * size, 1e-30f, 1e9f);
}

}  // namespace oxbeam
