// Primary rays four at a time, where the objects of a frame offer it.
#pragma once

#include "Engine/Render/Aovs.h"
#include "Engine/Render/Session.h"
#include "Engine/World.h"

#include <string>
#include <vector>

namespace oxbeam {

// A fast path for previews: shaders that treat four hits at once leave things out that they do for single rays. What a
// frame's objects offer is found out once; whatever they do not is shaded ray by ray, with the bits that it has
// without packets.
class OXBEAM_API PacketPath {
public:
    // Looks at the objects of a session's world; all that is given must outlive it. A sampler only where AOVs are kept.
    PacketPath(const World& world, const Session& session, const AovSampler* aovs);

    // Why no packet can be shaded at all, in words for the user; empty where some can.
    const std::string& whyNot() const { return m_whyNot; }

    // Colours of the pixels from (x, y) to (x + 3, y), each sampled at `place`; and their AOVs, null without a sampler.
    void trace(unsigned thread, unsigned x, unsigned y, unsigned pass, const R2& place, R3 colors[4],
               AovSample aovs[4]) const;

private:
    struct Packet;

    void shadeTogether(Packet& packet, R3 colors[4]) const;
    void sampleAovs(const Packet& packet, AovSample aovs[4]) const;
    R3 traceSingle(OxState& state, AovSample* aovs) const;

    const World& m_world;
    const Session& m_session;
    const AovSampler* m_aovs;
    std::vector<bool> m_surfaces;  // by the context's numbers: shades packets
    bool m_environment = false;    // the environment does
    std::string m_whyNot;
};

}  // namespace oxbeam
