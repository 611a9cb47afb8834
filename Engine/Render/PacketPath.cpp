#include "Engine/Render/PacketPath.h"

#include "Engine/Host/KnownHit.h"
#include "Engine/Packages/Overrides.h"
#include "Engine/Scene/EmbreeIntersector.h"
#include "Oxbeam/FastOxS4.h"
#include "Oxbeam/OxFunctions.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <span>

namespace oxbeam {

PacketPath::PacketPath(const World& world, const Session& session, const AovSampler* aovs)
    : m_world(world), m_session(session), m_kernel(dynamic_cast<EmbreeIntersector*>(&session.intersector())),
      m_aovs(aovs) {
    const OxContext& context = *OxContext::current;
    const bool lit = std::all_of(context.lights.begin(), context.lights.end(),
                                 [](const OxLight* light) { return overrides(*light, &OxLight::Illuminate4); });
    for (const OxShader* shader : context.shaders) m_surfaces.push_back(lit && world.shadesPackets(shader));
    m_environment = world.shadesPackets(context.environment);
    if (!overrides(*context.camera, &OxCamera::InitPrimaryRays))
        m_whyNot = "the camera makes single rays only";
    else if (!m_environment && !lit)
        m_whyNot = "a light of the scene answers single rays only";
    else if (!m_environment && !std::count(m_surfaces.begin(), m_surfaces.end(), true))
        m_whyNot = "no shader of the scene shades more than single rays";
}

// Four rays, what they hit, and the lanes that are yet to be shaded.
struct PacketPath::Packet {
    ISSERay4 ray;
    ISSEIntersection4 hit;
    OxState4 state;
    int x = 0, y = 0;   // its first pixel
    bool shot = false;  // false: the camera makes no such packet
    unsigned hits = 0;  // lanes as bits
    unsigned todo = 15;

    Packet() {
        state.ray4 = &ray;
        state.hit4 = &hit;
    }
    Packet(const Packet&) = delete;
    Packet& operator=(const Packet&) = delete;

    // Calls a packet shader and takes over the colours of some lanes. A lane that it leaves unwritten, as shaders do
    // that find nothing to be done, is left to be shaded by itself.
    void shade(OxShader& shader, unsigned lanes, Block<R3>& colors) {
        state.colors = ISSEVec4(sse_t{} + NAN, sse_t{} + NAN, sse_t{} + NAN);
        shader.Shade4(state);
        for (unsigned i = 0; i < 4; ++i) {
            const R3 color = state.colors.lane(i);
            if (!(lanes >> i & 1u) || std::isnan(color.x)) continue;
            colors[i] = color;
            todo &= ~(1u << i);
        }
    }

    // Gives the lanes without a hit one that another lane has: shaders look at all four.
    void fillUp() {
        const auto from = static_cast<unsigned>(std::countr_zero(hits));
        for (unsigned i = 0; i < 4; ++i) {
            if (hits >> i & 1u) continue;
            ray.direction.setLane(i, ray.direction.lane(from));
            hit.dist[i] = hit.dist[from], hit.tri[i] = hit.tri[from], hit.inst[i] = hit.inst[from];
            hit.u[i] = hit.u[from], hit.v[i] = hit.v[from], hit.w[i] = hit.w[from];
            hit.normal.setLane(i, hit.normal.lane(from));
            state.object[i] = state.object[from];
            state.instance[i] = state.instance[from];
        }
    }

    // A lane's hit as that of a single ray.
    void giveHit(unsigned i, OxState& single) const {
        if (!(hits >> i & 1u)) return;
        single.hit.tri = hit.tri[i];
        single.hit.dist = hit.dist[i];
        single.hit.u = hit.u[i], single.hit.v = hit.v[i], single.hit.w = hit.w[i];
        single.hit.inst = hit.inst[i];
        single.hit.normal = hit.normal.lane(i);
        single.object = state.object[i];
        single.instance = state.instance[i];
    }
};

// The environment of the lanes without a hit, and the surface where the lanes with one share a shader, four at once.
void PacketPath::shadeTogether(Packet& packet, Block<R3>& colors) const {
    const OxContext& context = *OxContext::current;
    if (packet.hits != 15 && m_environment) packet.shade(*context.environment, ~packet.hits, colors);
    if (packet.hits == 0) return;
    const auto number = [&](unsigned i) {
        return packet.state.object[i]->GetShaderId4(packet.hit, i) + packet.state.instance[i]->shaderBias;
    };
    const auto first = number(static_cast<unsigned>(std::countr_zero(packet.hits)));
    if (!m_surfaces[first]) return;
    for (unsigned i = 0; i < 4; ++i)
        if (packet.hits >> i & 1u && number(i) != first) return;
    packet.fillUp();
    packet.shade(*context.shaders[first], packet.hits, colors);
}

// Before anything is shaded: that may change the hits.
void PacketPath::sampleAovs(const Packet& packet, Block<AovSample>& aovs) const {
    for (unsigned i = 0; i < 4; ++i) {
        OxState single;
        oxsSetRay(&single, packet.ray.origin.lane(i), packet.ray.direction.lane(i), RayInfinity);
        packet.giveHit(i, single);
        KnownHit unused;
        m_aovs->sample(single, aovs[i], unused);
    }
}

void PacketPath::aim(Packet& packet, unsigned x, unsigned y, const R2& place) const {
    const float placeX[4] = {place.x, place.x, place.x, place.x}, placeY[4] = {place.y, place.y, place.y, place.y};
    const float maxDist[4] = {RayInfinity, RayInfinity, RayInfinity, RayInfinity};
    packet.x = static_cast<int>(x);
    packet.y = static_cast<int>(y);
    packet.state.intersector = &m_session.intersector();
    oxs4Init(packet.state);
    packet.shot = m_world.camera->InitPrimaryRays(packet.x, packet.y, 2, placeX, placeY, maxDist, &packet.ray);
}

// Two at a time: they lie side by side.
void PacketPath::shoot(Packet* packets, unsigned count) const {
    for (unsigned k = 0; k < count; ++k) {
        if (m_kernel && k + 1 < count && packets[k].shot && packets[k + 1].shot) {
            m_kernel->intersect(packets[k].state, packets[k + 1].state);
            ++k;
        } else if (packets[k].shot) {
            m_session.intersector().Intersect4(packets[k].state);
        }
    }
    for (Packet& packet : std::span(packets, count)) {
        if (!packet.shot) continue;
        oxs4LoadGeometry(packet.state);
        for (unsigned i = 0; i < 4; ++i) packet.hits |= (packet.hit.tri[i] >= 0 ? 1u : 0u) << i;
    }
}

// A lane by itself. Its ray is made again as a single one, but not shot again.
R3 PacketPath::traceLane(const Packet& packet, unsigned i, const PrimarySample& sample, AovSample* aov) const {
    OxState state = m_session.primaryState(sample.thread, sample.pass);
    const float pattern[2] = {sample.place.x, sample.place.y};
    const int x = packet.x + static_cast<int>(i % 2), y = packet.y + static_cast<int>(i / 2);
    if (!m_world.camera->InitPrimaryRay(&state, x, y, pattern)) return Black;
    if (packet.shot) {
        packet.giveHit(i, state);
    } else {
        oxsShootRay(&state);
        KnownHit unused;
        if (aov) m_aovs->sample(state, *aov, unused);
    }
    return Session::shade(state);
}

void PacketPath::trace(const PrimarySample& sample, unsigned x, unsigned y, unsigned count, Block<R3>* colors,
                       Block<AovSample>* aovs) const {
    std::array<Packet, MostPackets> packets;
    for (unsigned k = 0; k < count; ++k) aim(packets[k], x + 2 * k, y, sample.place);
    shoot(packets.data(), count);
    for (unsigned k = 0; k < count; ++k) {
        Packet& packet = packets[k];
        m_world.renderingObject->initRay4(packet.state, sample.pass, sample.thread);
        if (packet.shot) {
            if (aovs) sampleAovs(packet, aovs[k]);
            shadeTogether(packet, colors[k]);
        }
        for (unsigned i = 0; i < 4; ++i)
            if (packet.todo >> i & 1u) colors[k][i] = traceLane(packet, i, sample, aovs ? &aovs[k][i] : nullptr);
    }
}

}  // namespace oxbeam
