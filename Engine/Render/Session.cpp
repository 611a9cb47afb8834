#include "Engine/Render/Session.h"

#include "Engine/Host/ShadowPromises.h"
#include "Engine/Packages/Overrides.h"
#include "Engine/Packages/Watch.h"
#include "Engine/Scene/EmbreeIntersector.h"
#include "Oxbeam/OxFunctions.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace oxbeam {

static std::mutex s_mutex;
static thread_local bool s_locked = false;  // by this thread

Session::Turn::Turn() {
    if (s_locked) throw std::logic_error("this thread has a session already; end that one first");
    s_mutex.lock();
    s_locked = true;
}

Session::Turn::~Turn() {
    ShadowPromises::current = {};
    OxContext::current = nullptr;
    TextureList::current = nullptr;
    s_locked = false;
    s_mutex.unlock();
}

Session::Session(World& world, Intersector* standIn, OxShader* environment)
    : m_world(world), m_intersector(standIn ? *standIn : world.geometry.intersector()), m_environment(environment) {
    OxContext::current = &m_context;
    TextureList::current = &world.textures;
    newFrame();
}

static void aimCamera(World& world) {
    const View view = world.viewInForce();
    const R2 window = world.imageWindow();
    world.camera->InitCamera(view.position, view.lookAt, view.lookUp, world.image.width, world.image.height, -window.x,
                             window.x, -window.y, window.y, 1.0f);
}

// The environment comes before the surfaces: it may add lights to the list that they read.
void Session::newFrame() {
    m_world.beginFrame();
    m_context.scene = &m_world.geometry.scene();
    m_context.shaders = m_world.shaders;
    m_context.lights = m_world.lights;
    m_context.lightHandles.assign(m_world.lights.begin(), m_world.lights.end());
    m_context.environment = m_environment ? m_environment : m_world.environment;
    m_context.camera = m_world.camera;

    m_world.renderingObject->m_rayEpsilon = m_world.epsilon();
    m_world.environment->m_ro = m_world.renderingObject;
    for (OxShader* shader : m_world.shaders) shader->m_ro = m_world.renderingObject;
    ShadowPromises::current = {true, {}, {}, nullptr};
    watchPackages([&] {
        aimCamera(m_world);
        m_world.renderingObject->NewFrame();
        m_world.camera->NewFrame();
        m_world.environment->NewFrame();
        for (OxLight* light : m_world.lights) light->NewFrame();
        for (OxShader* shader : m_world.shaders) shader->NewFrame();
    });
    ShadowPromises::current.begun = false;
    if (castersBlockLight()) ShadowPromises::current.kernel = dynamic_cast<EmbreeIntersector*>(&m_intersector);
    m_world.frameBegun();
}

// All that shadow rays can hit does, by promise or because its class does not answer whether light passes.
bool Session::castersBlockLight() const {
    const std::vector<const Instance*>& instances = m_context.scene->instances;
    return std::all_of(instances.begin(), instances.end(), [&](const Instance* instance) {
        if (!instance || !(instance->visibilityMask & RAY_SHADOW)) return true;
        const OxShader* shader = m_context.shaders[instance->shaderBias];
        return hasPromisedToBlockLight(*shader) || !overrides(*shader, &OxShader::LightTransparency);
    });
}

bool Session::hasPromisedToBlockLight(const OxShader& shader) {
    return ShadowPromises::current.blocking.contains(&shader);
}

OxState Session::primaryState(unsigned thread, unsigned pass) const {
    OxState state = stateWithoutRecord();
    attachRecord(state, thread, pass);
    return state;
}

OxState Session::stateWithoutRecord() const {
    OxState state;
    state.intersector = &m_intersector;
    state.scene = &m_world.geometry.scene();
    state.m_ro = m_world.renderingObject;
    state.ray.visibilityMask = RAY_PRIMARY;
    return state;
}

void Session::attachRecord(OxState& state, unsigned thread, unsigned pass) const {
    m_world.renderingObject->initRay(state, pass, thread);
}

R3 Session::trace(OxState& state) {
    oxsShootRay(&state);
    return shade(state);
}

R3 Session::shade(OxState& state) {
    if (state.hit.tri >= 0)
        oxsGetShader(&state)->Shade(&state);
    else
        oxsShadeEnvironment(&state);
    return state.color;
}

}  // namespace oxbeam
