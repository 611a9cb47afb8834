// Primary rays four at a time, where the objects of a frame offer it.
#pragma once

#include "Engine/Render/Aovs.h"
#include "Engine/Render/Session.h"
#include "Engine/World/World.h"

#include <array>
#include <string>
#include <vector>

namespace oxbeam {

class EmbreeIntersector;

// A fast path for previews: shaders that treat four hits at once leave things out that they do for single rays. What a
// frame's objects offer is found out once; whatever they do not is shaded ray by ray, with the bits that it has
// without packets; random numbers are drawn in another order.
class OXBEAM_API PacketPath {
public:
    // Looks at the objects of a session's world; all that is given must outlive it. A sampler only where AOVs are kept.
    PacketPath(const World& world, const Session& session, const AovSampler* aovs);

    // Why no packet can be shaded at all, in words for the user; empty where some can.
    const std::string& whyNot() const { return m_whyNot; }

    // A value for each of two by two pixels, row by row: their rays meet the same things more often than those of four
    // pixels in a row.
    template <class T>
    using Block = std::array<T, 4>;
    static constexpr unsigned MostPackets = 8;

    // Colours of up to MostPackets blocks side by side, the first at (x, y), and their AOVs, null without a sampler.
    // All are shot before the first is shaded.
    void trace(const PrimarySample& sample, unsigned x, unsigned y, unsigned count, Block<R3>* colors,
               Block<AovSample>* aovs) const;

private:
    struct Packet;

    void aim(Packet& packet, unsigned x, unsigned y, const R2& place) const;
    void shoot(Packet* packets, unsigned count) const;
    void shadeTogether(Packet& packet, Block<R3>& colors) const;
    void sampleAovs(const Packet& packet, Block<AovSample>& aovs) const;
    R3 traceLane(const Packet& packet, unsigned i, const PrimarySample& sample, AovSample* aov) const;

    const World& m_world;
    const Session& m_session;
    EmbreeIntersector* m_kernel;  // null where something stands in for it
    const AovSampler* m_aovs;
    std::vector<bool> m_surfaces;  // by the context's numbers: shades packets
    bool m_environment = false;    // the environment does
    std::string m_whyNot;
};

}  // namespace oxbeam
