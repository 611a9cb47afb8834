// Shadow rays of neighbouring pixels, traced together before the pixels are shaded.
#pragma once

#include "Engine/Host/ShadowAnswers.h"
#include "Engine/Render/PixelBlocks.h"

#include <array>
#include <optional>
#include <vector>

class OxLight;

namespace oxbeam {

class OXBEAM_API ShadowsAhead {
public:
    // By row and column.
    using Answers = std::array<std::array<ShadowAnswers, TileSize>, 2>;

    // Rays of a tile, by lights. Those that hardly anybody asks for are left out of its rest.
    using Traced = std::array<unsigned, ShadowAnswers::MostLights>;

    // Of the frame in force.
    explicit ShadowsAhead(const Session& session);

    // There is something to be traced.
    bool any() const { return m_kernel && !m_aims.empty() && m_anySays; }
    // For two rows of a tile whose primary rays have been shot, of which the second may be missing. The calling thread's
    // record tells what was asked for so far.
    void trace(const PixelBlocks::Rows& rows, unsigned width, unsigned height, Traced& traced, Answers& answers) const;

private:
    // How rays go to a light.
    struct Aim {
        R3 to;           // a point; of a directional light, the direction
        bool endless;    // directional
        R3 axis;         // of a spot light's cone
        float cosAngle;  // half of the cone's; -2 where there is none
    };
    // Four pixels' hits.
    struct Points {
        ISSEVec4 position, normal;
        sse_t seen;      // the normal along the ray that hit it
        sse_t offset;    // of the surface's shadow rays
        unsigned there;  // as bits: those of surfaces that have said how their rays run
    };

    static std::optional<Aim> aimOf(const OxLight& light);
    float offsetOf(const OxState& state) const;
    Points pointsOf(const OxState* four) const;
    unsigned aim(const Aim& aim, const Points& points, ISSERay4& rays) const;
    unsigned wanted(const Traced& traced) const;
    void traceBlock(const std::array<Points, 2>& points, unsigned wanted, Traced& traced, Answers& answers,
                    unsigned left) const;

    const EmbreeIntersector* m_kernel;
    float m_minHitDist;
    std::vector<Aim> m_aims;       // of the frame's lights
    std::vector<float> m_offsets;  // by the context's shaders; negative where nothing was said
    bool m_anySays = false;
};

}  // namespace oxbeam
