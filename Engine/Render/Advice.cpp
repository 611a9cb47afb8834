#include "Engine/Render/Advice.h"

#include "Engine/Host/KnownHit.h"
#include "Engine/Render/Aovs.h"
#include "Engine/Render/Session.h"
#include "Oxbeam/OxDirectionalLight.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxPointLight.h"
#include "Oxbeam/OxSpotLight.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace oxbeam {

namespace {

// Less than this is black to the eye, and 1 of 255 at most.
constexpr float Dark = 3e-4f;

// The way from the eye to each of some points of the picture.
class ViewRays {
public:
    explicit ViewRays(const World& world)
        : m_view(world.viewInForce()), m_window(world.imageWindow()),
          m_forward(Normalize(m_view.lookAt - m_view.position)), m_right(Normalize(Cross(m_forward, m_view.lookUp))),
          m_up(Cross(m_right, m_forward)) {}

    const R3& eye() const { return m_view.position; }
    // s and t from 0 to 1, from the left and from the top.
    R3 direction(float s, float t) const {
        return Normalize(m_forward + (m_window.x * (2.0f * s - 1.0f)) * m_right +
                         (m_window.y * (1.0f - 2.0f * t)) * m_up);
    }

private:
    View m_view;
    R2 m_window;
    R3 m_forward, m_right, m_up;
};

bool shoot(const World& world, const R3& from, const R3& direction, OxState& state) {
    state.intersector = &world.geometry.intersector();
    state.scene = &world.geometry.scene();
    state.m_ro = world.renderingObject;
    state.ray.visibilityMask = RAY_PRIMARY;
    state.ray.origin = from;
    state.ray.direction = direction;
    return state.intersector->Intersect(state) && state.hit.tri >= 0;
}

}  // namespace

// ---- The eye

// From inside, every way leads to the back of a face. Rooms are made of closed surfaces too, but there is something in
// them that shows its front.
std::optional<std::string> adviceOnEye(const World& world) {
    const ViewRays rays(world);
    const auto sees = [&](const R3& direction, std::string* name) {
        OxState state;
        if (!shoot(world, rays.eye(), direction, state)) return false;
        if (name) *name = world.objectName(static_cast<unsigned>(state.hit.inst));
        return Dot(state.hit.normal, direction) > 0.0f;
    };
    constexpr int columns = 12, rows = 8;
    for (int i = 0; i < columns * rows; ++i) {
        const int column = i % columns, row = i / columns;
        if (!sees(
                rays.direction((static_cast<float>(column) + 0.5f) / columns, (static_cast<float>(row) + 0.5f) / rows),
                nullptr))
            return std::nullopt;
    }
    for (int i = 0; i < 27; ++i) {
        const int x = i % 3 - 1, y = i / 3 % 3 - 1, z = i / 9 - 1;
        const R3 around(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
        // Off the axes, along which models have edges.
        if (i != 13 && !sees(Normalize(around + R3(0.013f, 0.029f, 0.037f)), nullptr)) return std::nullopt;
    }
    std::string name;
    sees(rays.direction(0.5f, 0.5f), &name);
    const R3& eye = rays.eye();
    return fmt::format("the eye, at [{:g}, {:g}, {:g}], is inside the surface of '{}' and sees its inner side only",
                       eye.x, eye.y, eye.z, name);
}

// ---- The picture

namespace {

// What light without shadows gives a surface there that faces it; nothing known of those that are no simple lights.
std::optional<float> arriving(const OxLight& light, const R3& point) {
    const auto fallen = [&](const auto& l) {
        const float d = Length(l.position - point);
        return Max(l.intensity) / std::max(1e-3f + l.atten0 + d * l.atten1 + d * d * l.atten2, 1e-12f);
    };
    if (const auto* l = dynamic_cast<const OxDirectionalLight*>(&light)) return Max(l->intensity);
    if (const auto* l = dynamic_cast<const OxPointLight*>(&light)) return fallen(*l);
    const auto* l = dynamic_cast<const OxSpotLight*>(&light);
    if (!l) return std::nullopt;
    return Dot(Normalize(point - l->position), Normalize(l->direction)) > std::cos(l->maxAngle) ? fallen(*l) : 0.0f;
}

// Points of the picture, with what is there and how it came out.
struct Findings {
    unsigned points = 0, clipped = 0, clippedSurfaces = 0, surfaces = 0, darkSurfaces = 0;
    unsigned colored = 0, darkColored = 0;  // surfaces whose own colour is not black
    float brightest = 0.0f;
    float arriving = 0.0f;     // the most, on surfaces
    bool simpleLights = true;  // all of them
};

void addSurface(const World& world, const AovSampler& sampler, const OxState& state, bool dark, Findings& found) {
    ++found.surfaces;
    found.darkSurfaces += dark;
    AovSample aovs;
    KnownHit known;
    sampler.sample(state, aovs, known);
    if (Max(aovs.albedo) >= Dark) ++found.colored, found.darkColored += dark;
    R3 point;
    oxsGetHitPosition(&state, point);
    float sum = 0.0f;
    for (const OxLight* light : world.lights) {
        const auto here = arriving(*light, point);
        found.simpleLights = found.simpleLights && here;
        sum += here.value_or(0.0f);
    }
    found.arriving = std::max(found.arriving, sum);
}

Findings lookAt(World& world, const Film& film, const std::function<R3(const R3&)>& shown) {
    const Session session(world);
    const AovSampler sampler(world);
    const ViewRays rays(world);
    const Window& window = film.window();
    constexpr unsigned columns = 96, rows = 54;
    Findings found;
    for (unsigned i = 0; i < columns * rows; ++i) {
        const unsigned x =
            static_cast<unsigned>((2 * (i % columns) + 1) * std::uint64_t{window.width()} / (2 * columns));
        const unsigned y = static_cast<unsigned>((2 * (i / columns) + 1) * std::uint64_t{window.height()} / (2 * rows));
        const std::size_t pixel = std::size_t{y} * window.width() + x;
        if (film.sums()[pixel].samples == 0) continue;
        const R3 color = film.sums()[pixel].sum * film.share(pixel), display = shown ? shown(color) : Black;
        const bool clips = std::min({display.x, display.y, display.z}) > 1.002f;
        OxState state;
        const R3 direction =
            rays.direction((static_cast<float>(window.x0 + x) + 0.5f) / static_cast<float>(world.image.width),
                           (static_cast<float>(window.y0 + y) + 0.5f) / static_cast<float>(world.image.height));
        const bool hit = shoot(world, rays.eye(), direction, state);
        ++found.points;
        found.clipped += clips;
        found.clippedSurfaces += clips && hit;
        found.brightest = std::max(found.brightest, Max(color));
        if (!hit || world.geometry.isEndless(static_cast<unsigned>(state.hit.inst))) continue;
        addSurface(world, sampler, state, Max(color) < Dark, found);
    }
    return found;
}

std::string causeOfBlack(const World& world, const Findings& found) {
    if (found.surfaces == 0) return "no surface is in it, and the environment is black";
    if (found.colored == 0) return "the surfaces' own colour, with textures and vertex colours, is black";
    if (world.lights.empty()) return "the scene has no light";
    if (found.simpleLights && found.arriving <= 0.0f) return "no light has an intensity, or a cone, that reaches it";
    if (found.simpleLights && found.arriving < 0.02f)
        return fmt::format("the lights are too weak or too far away; {:.2g} arrives where 1 is a white surface's white",
                           found.arriving);
    return "every light is behind the surfaces or in the shadow of one; is there a way in for the light?";
}

std::string causeOfWhite(const World& world, const Findings& found) {
    if (2 * found.clippedSurfaces < found.clipped) return "the environment is brighter than white";
    if (found.simpleLights && !world.lights.empty() && found.arriving > 1.0f)
        return fmt::format("the lights are too strong or too near; {:.2g} arrives where 1 is a white surface's white",
                           found.arriving);
    return "its surfaces send out more light than white does; lower the lights' intensity, ambient or emissive colours";
}

}  // namespace

std::optional<std::string> adviceOnPicture(World& world, const Film& film, const std::function<R3(const R3&)>& shown) {
    const Findings found = lookAt(world, film, shown);
    if (found.points == 0) return std::nullopt;
    if (found.brightest < Dark) return "the picture is black: " + causeOfBlack(world, found);
    // Black letters are no fault, nor is a white silhouette: its pixels have a share of what is behind.
    const bool any = found.colored > 0;
    if (found.surfaces > 0 &&
        10 * (any ? found.darkColored : found.darkSurfaces) >= 9 * (any ? found.colored : found.surfaces))
        return "all that the picture shows of surfaces is black: " + causeOfBlack(world, found);
    if (2 * found.clipped > found.points)
        return fmt::format("{}% of the picture is clipped to white: {}", 100 * found.clipped / found.points,
                           causeOfWhite(world, found));
    return std::nullopt;
}

}  // namespace oxbeam
