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

OxRenderingObject& World::setRenderingObject(const ObjectClass& object) {
    renderingObject = &dynamic_cast<OxRenderingObject&>(places.add("render", object));
    return *renderingObject;
}

OxCamera& World::addCamera(const ObjectClass& object, std::string place) {
    return dynamic_cast<OxCamera&>(places.add(std::move(place), object));
}

OxCamera& World::setCamera(const ObjectClass& object, std::string place) {
    return *(camera = &addCamera(object, std::move(place)));
}

template <class T>
static const T* member(const OxLoadableObject& object, const ParameterDeclaration* p) {
    if (!p || p->size != static_cast<int>(sizeof(T))) return nullptr;
    return reinterpret_cast<const T*>(memberOf(object, *p));
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

// Says also what packets and layers must know of it.
OxShader& World::knownShader(OxLoadableObject& made, const ObjectClass& object) {
    auto& shader = dynamic_cast<OxShader&>(made);
    m_packetShaders.erase(&shader);  // another one may have been where it is
    if (overrides(shader, &OxShader::Shade4) && !object.packetsInherited) m_packetShaders.insert(&shader);
    m_baseColors[&shader] = declaredBaseColor(object, shader);
    return shader;
}

OxShader& World::setEnvironment(const ObjectClass& object) {
    return *(environment = &knownShader(places.add("environment", object), object));
}

static std::string lightPlace(std::size_t number) { return "light." + std::to_string(number); }

OxLight& World::addLight(const ObjectClass& object) {
    lights.push_back(&dynamic_cast<OxLight&>(places.add(lightPlace(lights.size()), object)));
    return *lights.back();
}

OxShader& World::addShader(const ObjectClass& object, std::string place) {
    for (std::size_t number = shaders.size(); place.empty() || places.has(place); ++number)
        place = "shader." + std::to_string(number);
    shaders.push_back(&knownShader(places.add(std::move(place), object), object));
    return *shaders.back();
}

// ---- Changes

// Wherever the world speaks of an object, it speaks of another that stands in its place.
void World::replace(OxLoadableObject* before, OxLoadableObject* now, const ObjectClass& object) {
    const auto follow = [&]<class T>(T*& pointer) {
        if (pointer && static_cast<OxLoadableObject*>(pointer) == before) pointer = &dynamic_cast<T&>(*now);
    };
    follow(renderingObject);
    follow(camera);
    for (OxLight*& light : lights) follow(light);
    const bool shades = dynamic_cast<OxShader*>(now) != nullptr;
    if (shades) knownShader(*now, object);
    const OxShader* gone = nullptr;
    const auto followShader = [&](OxShader*& shader) {
        if (!shader || static_cast<OxLoadableObject*>(shader) != before) return;
        gone = shader;
        follow(shader);
    };
    followShader(environment);
    for (OxShader*& shader : shaders) followShader(shader);
    if (!gone) return;
    m_packetShaders.erase(gone);
    m_baseColors.erase(gone);
}

void World::setClass(std::string_view place, const ObjectClass& object) {
    const std::unique_ptr<OxLoadableObject> before = places.setClass(place, object);
    replace(before.get(), &places.objectAt(place), object);
}

void World::removeLight(std::string_view place) {
    const auto found = std::find(lights.begin(), lights.end(), &places.objectAt(place));
    if (found == lights.end()) throw NoSuchName(labelOf(place) + " is no light");
    auto number = static_cast<std::size_t>(found - lights.begin());
    lights.erase(found);
    places.remove(place);
    for (; number < lights.size(); ++number) places.rename(lightPlace(number + 1), lightPlace(number));
}

std::optional<float> World::focalDistance(const CameraView& on, const std::optional<View>& from) const {
    std::optional<R3> point = on.focus;
    Bounds bounds;
    for (const unsigned instance : on.focusOn)
        if (geometry.isThere(instance)) bounds.add(geometry.instanceBounds(instance));
    if (!bounds.empty) point = bounds.center();
    if (!from || !point) return std::nullopt;
    const float distance = Dot(*point - from->position, Normalize(from->lookAt - from->position));
    return distance > 0.0f ? std::optional(distance) : std::nullopt;
}

// What is not the distance that it was given here, once it was.
bool World::hasOwnFocus(std::string_view place, const CameraView& own) const {
    static constexpr const char* name = "focalDistance";
    if (!own.focusedAt || !places.classAt(place).find(name)) return false;
    const std::string path = std::string(place) + '.' + name;
    const ParameterValue value = places.get(path);
    const auto* distance = std::get_if<double>(&value.data);
    return distance && places.isSet(path) && static_cast<float>(*distance) != own.focusedAt;
}

// What an eye passes by stays as sharp as it is far away, whatever the frame before has seen.
static View behind(const View& view) { return {view.position, 2.0f * view.position - view.lookAt, view.lookUp}; }

void World::focusCamera() {
    for (auto& [place, own] : cameraViews) {
        if (!places.has(place) || &places.objectAt(place) != camera || hasOwnFocus(place, own)) continue;
        auto distance = focalDistance(own, view);
        if (!distance && view) distance = focalDistance(own, behind(*view));
        if (!distance) continue;
        own.focusedAt = distance;
        camera->setFocalDistance(*distance);
    }
}

void World::chooseCamera(std::string_view place) {
    auto* chosen = dynamic_cast<OxCamera*>(&places.objectAt(place));
    if (!chosen) throw NoSuchName(labelOf(place) + " is no camera");
    camera = chosen;
    const auto own = cameraViews.find(place);
    if (own == cameraViews.end()) return;
    view = own->second.view;
    fov = own->second.fov;
    focusCamera();
}

void World::setPicture(std::string_view texture, std::unique_ptr<Texture> picture) {
    const auto at = texture.rfind("texture.");
    const std::string name(at == texture.npos ? texture : texture.substr(at + std::string_view("texture.").size()));
    const std::string scope(at == texture.npos || at == 0 ? "" : texture.substr(0, at - 1));
    if (at == texture.npos || !textureNames.find(scope, name))
        throw NoSuchName("the scene has no '" + std::string(texture) + "'" +
                         didYouMean(name, textureNames.names(scope)));
    textureNames.setPicture(scope, name, std::move(picture));
    places.textureChanged(scope, name);
}

// While a scene is read, who is asked for has just come.
unsigned World::shaderNumber(std::string_view place) const {
    const auto found = std::find(shaders.rbegin(), shaders.rend(), &places.objectAt(place));
    if (found == shaders.rend()) throw NoSuchName(labelOf(place) + " is no surface");
    return static_cast<unsigned>(shaders.rend() - found) - 1;
}

// What a camera is focused on is a setting like those that it was given by name.
void World::beginFrame() {
    focusCamera();
    textureNames.beginFrame();
    places.beginFrame([&](OxLoadableObject* before, OxLoadableObject* now, const ObjectClass& object) {
        replace(before, now, object);
    });
}

std::set<std::string> World::packages() const {
    std::set<std::string> all;
    for (const Place& place : places.all()) all.insert(place.object->package);
    return all;
}

// ---- What surfaces say of themselves

BaseColor World::baseColor(const OxShader* shader) const {
    const auto found = m_baseColors.find(shader);
    return found == m_baseColors.end() ? BaseColor() : found->second;
}

std::string World::objectName(unsigned instance) const {
    if (!geometry.isThere(instance)) return {};
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

// Once anybody has set it, it stays; so does what a package's rendering object begins with.
std::optional<float> World::ownEpsilon() const {
    static constexpr const char* path = "render.rayEpsilon";
    const ParameterDeclaration* p = parameterAt(places.all(), path);
    if (!p || (p->followed && !places.isSet(path))) return std::nullopt;
    const ParameterValue value = places.get(path);
    const auto* number = std::get_if<double>(&value.data);
    return number ? std::optional(static_cast<float>(*number)) : std::nullopt;
}

// Some hundred times the rounding error of a coordinate of the scene: below what a picture shows, and above what a hit
// point is off by. ParameterDeclaration::followed says it in words.
float World::epsilon() const {
    if (rayEpsilon) return *rayEpsilon;
    if (const auto own = ownEpsilon()) return *own;
    const Bounds& bounds = geometry.bounds();
    if (bounds.empty) return 0.01f;
    const auto farthest = [](const R3& p) { return std::max({std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)}); };
    const float size = std::max({2.0f * bounds.radius(), farthest(bounds.lower), farthest(bounds.upper)});
    return std::clamp(1e-5f * size, 1e-30f, 1e9f);
}

}  // namespace oxbeam
