#include "Engine/Render/ShadowsAhead.h"

#include "Engine/Host/ShadingNormal.h"
#include "Engine/Host/ShadowPromises.h"
#include "Engine/Render/FourHits.h"
#include "Engine/Scene/EmbreeIntersector.h"
#include "Oxbeam/OxDirectionalLight.h"
#include "Oxbeam/OxPointLight.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Oxbeam/OxSpotLight.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace oxbeam {

// Fewer than these are traced as fast by themselves.
static constexpr int FewestTogether = 3;

// ---- The frame

// Lights that derive from the host's are taken to be where those would be. Of one that is not, two rows of each tile are
// traced in vain.
std::optional<ShadowsAhead::Aim> ShadowsAhead::aimOf(const OxLight& light) {
    constexpr float everywhere = -2.0f;
    if (const auto* point = dynamic_cast<const OxPointLight*>(&light))
        return Aim{point->position, false, {}, everywhere};
    if (const auto* sun = dynamic_cast<const OxDirectionalLight*>(&light))
        return Aim{-sun->direction, true, {}, everywhere};
    if (const auto* spot = dynamic_cast<const OxSpotLight*>(&light))
        return Aim{spot->position, false, spot->direction, spot->cos_maxAngle};
    return std::nullopt;
}

ShadowsAhead::ShadowsAhead(const Session& session)
    : m_kernel(ShadowPromises::current.kernel), m_minHitDist(session.stateWithoutRecord().m_ro->m_rayEpsilon) {
    if (!m_kernel) return;
    for (const OxLight* light : OxContext::current->lights)
        if (const auto aim = aimOf(*light); aim && m_aims.size() < ShadowAnswers::MostLights) m_aims.push_back(*aim);
    for (const OxShader* shader : OxContext::current->shaders) {
        const auto said = ShadowPromises::current.offsets.find(shader);
        m_offsets.push_back(said != ShadowPromises::current.offsets.end() ? said->second : -1.0f);
        m_anySays = m_anySays || m_offsets.back() >= 0.0f;
    }
}

// ---- Rays

float ShadowsAhead::offsetOf(const OxState& state) const {
    if (state.hit.tri < 0) return -1.0f;
    return m_offsets[shaderNumber(state)];
}

ShadowsAhead::Points ShadowsAhead::pointsOf(const OxState* four) const {
    const FourHits hits(four);
    const sse_t offset = _mm_setr_ps(offsetOf(four[0]), offsetOf(four[1]), offsetOf(four[2]), offsetOf(four[3]));
    const auto silent = static_cast<unsigned>(_mm_movemask_ps(offset));
    return {hits.position, hits.normal, Dot(hits.direction, hits.normal), offset, ~silent & 15u};
}

// As a light's Illuminate and a surface have it, in their order of operations. Answers the lanes that the light can
// reach: on the side that is seen, by the triangle's plane, and in its cone.
unsigned ShadowsAhead::aim(const Aim& aim, const Points& points, ISSERay4& rays) const {
    ISSEVec4 way(aim.to);
    sse_t distance = _mm_set1_ps(RayInfinity);
    if (!aim.endless) {
        way = way - points.position;
        distance = _mm_sqrt_ps(Dot(way, way));
        way = {_mm_div_ps(way.t[0], distance), _mm_div_ps(way.t[1], distance), _mm_div_ps(way.t[2], distance)};
        distance = _mm_sub_ps(distance, _mm_mul_ps(_mm_set1_ps(2.0f), points.offset));
    }
    rays.direction = way;
    rays.origin = points.position + points.offset * way;
    rays.maxDist = distance;
    rays.minHitDist = m_minHitDist;
    const sse_t lit = _mm_xor_ps(Dot(way, points.normal), points.seen);  // of opposite signs
    const sse_t outside = _mm_cmpgt_ps(Dot(way, ISSEVec4(aim.axis)), _mm_set1_ps(-aim.cosAngle));
    return points.there & static_cast<unsigned>(_mm_movemask_ps(_mm_andnot_ps(outside, lit)));
}

// Writes the rays of four lanes, each where its pixel's are.
static void keepRays(const ISSERay4& rays, unsigned light, ShadowAnswers* pixels) {
    sse_t start[4] = {rays.origin.t[0], rays.origin.t[1], rays.origin.t[2], _mm_set1_ps(rays.minHitDist)};
    sse_t way[4] = {rays.direction.t[0], rays.direction.t[1], rays.direction.t[2], rays.maxDist};
    _MM_TRANSPOSE4_PS(start[0], start[1], start[2], start[3]);
    _MM_TRANSPOSE4_PS(way[0], way[1], way[2], way[3]);
    for (unsigned i = 0; i < 4; ++i) pixels[i].rays[light] = {start[i], way[i]};
}

// Writes to four pixels which lights were traced, and which of these are blocked.
static void keepAnswers(__m128i traced, __m128i blocked, ShadowAnswers* pixels) {
    const __m128i low = _mm_unpacklo_epi32(traced, blocked), high = _mm_unpackhi_epi32(traced, blocked);
    static_assert(offsetof(ShadowAnswers, blocked) == offsetof(ShadowAnswers, open) + sizeof(unsigned));
    const auto keep = [&](unsigned i, __m128i both) { _mm_storeu_si64(&pixels[i].open, both); };
    keep(0, low), keep(1, _mm_unpackhi_epi64(low, low));
    keep(2, high), keep(3, _mm_unpackhi_epi64(high, high));
}

// The bit in those of four lanes that `lanes` has.
static __m128i inLanes(unsigned lanes, unsigned bit) {
    const __m128i own = _mm_setr_epi32(1, 2, 4, 8);
    const __m128i there = _mm_cmpeq_epi32(_mm_and_si128(_mm_set1_epi32(static_cast<int>(lanes)), own), own);
    return _mm_and_si128(there, _mm_set1_epi32(static_cast<int>(bit)));
}

void ShadowsAhead::traceBlock(const std::array<Points, 2>& points, unsigned wanted, Traced& traced, Answers& answers,
                              unsigned left) const {
    __m128i open[2] = {}, blocked[2] = {};
    for (unsigned light = 0; light < m_aims.size(); ++light) {
        if (!(wanted >> light & 1u)) continue;
        std::array<ISSERay4, 2> rays;
        unsigned lanes = aim(m_aims[light], points[0], rays[0]) | aim(m_aims[light], points[1], rays[1]) << 4;
        if (std::popcount(lanes) < FewestTogether) continue;
        const unsigned hit = m_kernel->occluded(rays, lanes);
        traced[light] += static_cast<unsigned>(std::popcount(lanes));
        for (unsigned row = 0; row < 2; ++row) {
            keepRays(rays[row], light, &answers[row][left]);
            open[row] = _mm_or_si128(open[row], inLanes(lanes >> 4 * row, 1u << light));
            blocked[row] = _mm_or_si128(blocked[row], inLanes(hit >> 4 * row, 1u << light));
        }
    }
    for (unsigned row = 0; row < 2; ++row) keepAnswers(open[row], blocked[row], &answers[row][left]);
}

// As bits.
unsigned ShadowsAhead::wanted(const Traced& traced) const {
    const auto& asked = ThreadRecord::mine().shadowsAsked;
    unsigned lights = 0;
    for (unsigned light = 0; light < m_aims.size(); ++light)
        lights |= (2 * asked[light] >= traced[light] ? 1u : 0u) << light;
    return lights;
}

void ShadowsAhead::trace(const PixelBlocks::Rows& rows, unsigned width, unsigned height, Traced& traced,
                         Answers& answers) const {
    const unsigned lights = wanted(traced);
    for (unsigned left = 0; left < width; left += 4) {
        std::array<Points, 2> points{pointsOf(&rows[0][left]), pointsOf(&rows[height - 1][left])};
        if (height == 1) points[1].there = 0;
        traceBlock(points, points[0].there | points[1].there ? lights : 0, traced, answers, left);
    }
}

}  // namespace oxbeam
