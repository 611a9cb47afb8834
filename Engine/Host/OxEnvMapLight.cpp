#include "Oxbeam/OxEnvMapLight.h"

#include "Engine/Textures/Texture.h"
#include "Oxbeam/OxFunctions.h"
#include "Sampling/AngularMap.h"

#include <algorithm>
#include <cmath>

using oxbeam::Texture;

// ---- EnvElementarLight

EnvElementarLight::EnvElementarLight(OxDirectionalLight* light)
    : m_light(light), intensity(light->intensity), pbTree(nullptr), m_sampler(0) {}

EnvElementarLight::~EnvElementarLight() { delete m_light; }

// ---- OxEnvMapLight

OxEnvMapLight::OxEnvMapLight() { OxEnvMapLight::Init(); }

OxEnvMapLight::~OxEnvMapLight() = default;

void OxEnvMapLight::Init() {
    type = OX_ENVIRONMENT_LIGHT;
    intensity = White;
    m_textureId = Ox_NOTEXTURE;
    m_numLights = 16;
    m_upDirection = 1;
}

void OxEnvMapLight::Register() {
    oxsDeclareMember(this, "texture", m_textureId);
    oxsDeclareMember(this, "numLights", m_numLights);
    oxsDeclareMember(this, "upDirection", m_upDirection);
    oxsDeclareMember(this, "intensity", intensity);
}

bool OxEnvMapLight::Illuminate(const R3&, R3&, float&, R3&, OxState*, void*) { return false; }

void OxEnvMapLight::setNumLights(int count) { m_numLights = count; }

void OxEnvMapLight::setTextureId(int id) { m_textureId = id; }

void OxEnvMapLight::setUpDirection(unsigned axis) { m_upDirection = axis; }

EnvElementarLight* OxEnvMapLight::getNewElementarLight() { return new EnvElementarLight(new OxDirectionalLight); }

// ---- The energy of a map

namespace {

// Sums over a map's texels, for any rectangle in four look-ups (F. Crow, "Summed-area tables for texture mapping", 1984).
class EnergyMap {
public:
    struct Sum {
        double luminance = 0.0;
        double color[3] = {};
        double direction[3] = {};  // weighted by luminance

        Sum& add(const Sum& other, double factor) {
            luminance += factor * other.luminance;
            for (int i = 0; i < 3; ++i) {
                color[i] += factor * other.color[i];
                direction[i] += factor * other.direction[i];
            }
            return *this;
        }
    };

    explicit EnergyMap(const Texture& map)
        : m_width(std::min(map.width(), MaxSide)), m_height(std::min(map.height(), MaxSide)),
          m_sums(std::size_t{m_width + 1} * (m_height + 1)) {
        for (unsigned y = 0; y < m_height; ++y)
            for (unsigned x = 0; x < m_width; ++x)
                at(x + 1, y + 1) = texel(map, x, y).add(at(x, y + 1), 1).add(at(x + 1, y), 1).add(at(x, y), -1);
    }

    unsigned width() const { return m_width; }
    unsigned height() const { return m_height; }

    Sum rectangle(unsigned x0, unsigned y0, unsigned x1, unsigned y1) const {
        Sum sum = at(x1, y1);
        return sum.add(at(x0, y1), -1).add(at(x1, y0), -1).add(at(x0, y0), 1);
    }

private:
    // A light per region needs no finer picture; larger maps are sampled.
    static constexpr unsigned MaxSide = 1024;

    // Solid angle of a place at radius r of the circle: its angle to the axis is pi r, so that a piece r dr dphi of the
    // disk covers sin(pi r) pi dr dphi of the sphere.
    Sum texel(const Texture& map, unsigned x, unsigned y) const {
        Sum sum;
        const float s = (static_cast<float>(x) + 0.5f) / static_cast<float>(m_width);
        const float t = (static_cast<float>(y) + 0.5f) / static_cast<float>(m_height);
        R3 direction;
        if (!AngularMapDirection(s, t, direction)) return sum;
        const double px = 2.0 * s - 1.0, py = 2.0 * t - 1.0, r = std::sqrt(px * px + py * py), pi = 3.14159265358979;
        const double density = r > 1e-9 ? pi * std::sin(pi * r) / r : pi * pi;
        const double solidAngle = density * 4.0 / (static_cast<double>(m_width) * m_height);
        const R3 radiance = map.lookUp(s, t, OX_GL_CLAMP_TO_EDGE, OX_GL_CLAMP_TO_EDGE, OX_GL_NEAREST).rgb();
        if (!IsFinite(radiance)) return sum;
        sum.luminance = std::max(0.0, static_cast<double>(Intensity(radiance)) * solidAngle);
        for (unsigned i = 0; i < 3; ++i) {
            sum.color[i] = static_cast<double>(radiance[i]) * solidAngle;
            sum.direction[i] = static_cast<double>(direction[i]) * sum.luminance;
        }
        return sum;
    }

    Sum& at(unsigned x, unsigned y) { return m_sums[std::size_t{y} * (m_width + 1) + x]; }
    const Sum& at(unsigned x, unsigned y) const { return m_sums[std::size_t{y} * (m_width + 1) + x]; }

    unsigned m_width, m_height;
    std::vector<Sum> m_sums;
};

// A rectangle of texels that is to become `lights` regions.
struct Region {
    unsigned x0, y0, x1, y1;
    unsigned lights;
};

// How far apart a rectangle's light comes from: nothing where it is all from one direction.
double spread(const EnergyMap& map, const Region& r) {
    const EnergyMap::Sum sum = map.rectangle(r.x0, r.y0, r.x1, r.y1);
    const double* d = sum.direction;
    return sum.luminance - std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
}

// Cuts where the energy on either side is as the number of lights that each side is to get.
std::pair<Region, Region> cut(const EnergyMap& map, const Region& r, bool across) {
    const unsigned half = r.lights / 2;
    const unsigned from = across ? r.x0 : r.y0, to = across ? r.x1 : r.y1;
    const double share = map.rectangle(r.x0, r.y0, r.x1, r.y1).luminance * half / r.lights;
    unsigned low = from, high = to;  // the first place at which the share is reached, by bisection
    while (low < high) {
        const unsigned middle = (low + high) / 2;
        const double energy = across ? map.rectangle(r.x0, r.y0, middle, r.y1).luminance
                                     : map.rectangle(r.x0, r.y0, r.x1, middle).luminance;
        if (energy < share)
            low = middle + 1;
        else
            high = middle;
    }
    const unsigned place = to - from < 2 ? to : std::clamp(low, from + 1, to - 1);
    if (across) return {{r.x0, r.y0, place, r.y1, half}, {place, r.y0, r.x1, r.y1, r.lights - half}};
    return {{r.x0, r.y0, r.x1, place, half}, {r.x0, place, r.x1, r.y1, r.lights - half}};
}

// Of the two ways to cut, the one that leaves each part's light more of one direction: towards the rim of the map a
// short side in the picture is a long way on the sphere.
std::pair<Region, Region> bestCut(const EnergyMap& map, const Region& r) {
    const auto across = cut(map, r, true), along = cut(map, r, false);
    const auto total = [&](const auto& parts) { return spread(map, parts.first) + spread(map, parts.second); };
    return total(across) <= total(along) ? across : along;
}

std::vector<Region> equalRegions(const EnergyMap& map, unsigned count) {
    std::vector<Region> open = {{0, 0, map.width(), map.height(), count}}, done;
    while (!open.empty()) {
        const Region region = open.back();
        open.pop_back();
        if (region.lights <= 1) {
            done.push_back(region);
            continue;
        }
        const auto [first, second] = bestCut(map, region);
        open.push_back(second);
        open.push_back(first);
    }
    return done;
}

}  // namespace

// Regions without energy get a light that shines not at all, so that there are as many lights as were asked for.
void OxEnvMapLight::split() {
    m_lights.clear();
    m_directions.clear();
    const auto* texture = static_cast<const Texture*>(TextureList::current->ByID(m_textureId));
    if (!texture || m_numLights < 1) return;
    const EnergyMap map(*texture);
    const AngularMapFrame frame = AngularMapFrame::of(m_upDirection);
    const float perX = 1.0f / static_cast<float>(map.width()), perY = 1.0f / static_cast<float>(map.height());
    for (const Region& region : equalRegions(map, static_cast<unsigned>(m_numLights))) {
        const EnergyMap::Sum sum = map.rectangle(region.x0, region.y0, region.x1, region.y1);
        std::unique_ptr<EnvElementarLight> light(getNewElementarLight());
        light->border = {static_cast<float>(region.x0) * perX, static_cast<float>(region.x1) * perX,
                         static_cast<float>(region.y0) * perY, static_cast<float>(region.y1) * perY};
        R3 towards, color;
        for (unsigned i = 0; i < 3; ++i) {
            towards[i] = static_cast<float>(sum.direction[i]);
            color[i] = static_cast<float>(sum.color[i]);
        }
        const float length = Length(towards);
        towards = length > 0.0f ? towards * (1.0f / length) : R3(0.0f, 0.0f, 1.0f);
        const float r = std::acos(std::clamp(towards.z, -1.0f, 1.0f)) / 3.14159265f;
        const float side = std::sqrt(towards.x * towards.x + towards.y * towards.y);
        const float scale = side > 0.0f ? 0.5f * r / side : 0.0f;
        light->direction2D = light->perturbed_direction = R2(0.5f + scale * towards.x, 0.5f + scale * towards.y);
        light->intensity = color * intensity;
        m_directions.push_back(-frame.toWorld(towards));
        light->m_light->intensity = light->intensity;
        m_lights.push_back(std::move(light));
    }
}

void OxEnvMapLight::NewFrame() {
    const Settings settings{m_textureId, m_numLights, m_upDirection, intensity};
    if (!(settings == m_splitFor)) split();
    m_splitFor = settings;
    for (std::size_t i = 0; i < m_lights.size(); ++i) {
        OxDirectionalLight* light = m_lights[i]->m_light;
        light->direction = m_directions[i];  // brought to unit length again and again, it would wander
        light->NewFrame();
        oxsAddLight(light);
    }
}
