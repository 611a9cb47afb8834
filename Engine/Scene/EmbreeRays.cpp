// How the intersector has rays traced: one by one, in blocks of primary rays, in streams and in packets.
#include "Engine/Scene/EmbreeIntersector.h"
#include "Engine/Scene/HitPoint.h"
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/ABSP.h"
#include "Oxbeam/OxState.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

namespace oxbeam {

// ---- Single rays

// No component of the vectors is farther out than the limit, and none is NaN, which fails every comparison.
static sse_t within(sse_t v, sse_t limit) { return _mm_cmple_ps(_mm_andnot_ps(_mm_set1_ps(-0.0f), v), limit); }

// The four floats that a query begins with and the four that follow, gathered one by one: wider loads would have to
// wait for the narrower stores that have just set the ray, and a wide store is what the kernel can load at once.
static sse_t gather(const R3& v, float w) { return _mm_set_ps(w, v.z, v.y, v.x); }

// A float that the kernel has just stored, alone as it was stored: a load of two, as compilers like to make of it,
// would wait for both stores too.
static float stored(const volatile float& value) { return value; }

// The hit in the space of the world. The normal of an instance keeps its side where the placement mirrors.
static HitPoint pointOf(const Instance& instance, const GeometryObject& object, unsigned triangle, sse_t origin,
                        sse_t direction, HitPoint found) {
    const auto& mesh = static_cast<const ABSP&>(object);
    const Oxuint* const corner = &mesh.indices[3 * std::size_t{triangle}];
    const R3* const positions = mesh.positions.data();
    const R3 &a = positions[corner[0]], &b = positions[corner[1]], &c = positions[corner[2]];
    if (!instance.hasXfm) [[likely]]
        return hitPoint({a, b, c}, origin, direction, found);
    const Matrix& toWorld = instance.meshToWorldXfm;
    const std::array<R3, 4> p = {TransformPoint(toWorld, a), TransformPoint(toWorld, b), TransformPoint(toWorld, c)};
    found.normal = TransformVector(instance.normalXfm, found.normal);
    HitPoint point = hitPoint({p[0], p[1], p[2]}, origin, direction, found);
    if (Dot(point.normal, found.normal) < 0.0f) point.normal = -point.normal;
    return point;
}

// Writes to a state whose ray is the query's.
inline void EmbreeIntersector::takeHit(OxState& state, const Found& ids, sse_t origin, sse_t direction,
                                       const HitPoint& found) const {
    const Ray& ray = state.ray;
    const bool instanced = ids.instance != m_worldSpace;
    const unsigned number = instanced ? ids.instance : ids.geometry;
    const Instance& instance = *m_instances[number];
    Intersection& hit = state.hit;
    hit.tri = static_cast<int>(ids.triangle);
    hit.inst = static_cast<int>(number);
    state.instance = &instance;
    state.object = m_scene->objects[instance.object];
    const HitPoint point = pointOf(instance, *state.object, ids.triangle, origin, direction, found);
    hit.dist = std::clamp(point.distance, std::max(ray.minHitDist, ray.minDist), ray.maxDist);
    hit.u = point.u;
    hit.v = point.v;
    hit.w = 1.0f - point.u - point.v;
    hit.normal = point.normal;
}

// A ray as the kernel reads it: origin and start, direction and time. False where it cannot be traced.
inline bool EmbreeIntersector::read(const Ray& ray, sse_t& origin, sse_t& direction) const {
    const float tnear = std::max(ray.minHitDist, ray.minDist);
    origin = gather(ray.origin, tnear);
    direction = gather(ray.direction, 0.0f);
    const sse_t limit = _mm_set1_ps(m_farthestOut);
    const bool traceable = _mm_movemask_ps(_mm_and_ps(within(origin, limit), within(direction, limit))) == 15;
    if (traceable && tnear >= 0.0f && ray.maxDist >= tnear) [[likely]]
        return true;
    // An interval that is merely empty, as where a light is nearer than the epsilon, is no fault of the ray.
    if (!(ray.maxDist < tnear)) ++ThreadRecord::mine().refusedRays;
    return false;
}

static void fill(RTCRay& query, const Ray& ray, sse_t origin, sse_t direction) {
    _mm_store_ps(&query.org_x, origin);     // and tnear
    _mm_store_ps(&query.dir_x, direction);  // and time
    query.tfar = ray.maxDist;
    query.mask = ray.visibilityMask;
    query.id = 0;
    query.flags = 0;
}

bool EmbreeIntersector::Intersect(OxState& state) {
    sse_t origin, direction;
    state.hit.tri = TRI_NONE;
    if (!read(state.ray, origin, direction)) [[unlikely]]
        return false;
    RTCRayHit query;
    fill(query.ray, state.ray, origin, direction);
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    rtcIntersect1(m_root, &context, &query);
    if (query.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;
    takeHit(state, {query.hit.geomID, query.hit.instID[0], query.hit.primID}, origin, direction,
            {stored(query.ray.tfar),
             stored(query.hit.u),
             stored(query.hit.v),
             {stored(query.hit.Ng_x), stored(query.hit.Ng_y), stored(query.hit.Ng_z)}});
    return true;
}

bool EmbreeIntersector::occluded(const Ray& ray) const {
    sse_t origin, direction;
    if (!read(ray, origin, direction)) [[unlikely]]
        return false;
    RTCRay query;
    fill(query, ray, origin, direction);
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    rtcOccluded1(m_root, &context, &query);
    return stored(query.tfar) < 0.0f;
}

// ---- Blocks of primary rays

// Of rays that take much the same way.
static RTCIntersectContext coherent() {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    context.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
    return context;
}

// Fills in the rays of a block, and says which of them are there and can be traced: as lanes, all bits set.
void EmbreeIntersector::fillBlock(RTCRayHit8& query, const Block& block, const Ray& any, int (&valid)[8]) const {
    const sse_t limit = _mm_set1_ps(m_farthestOut), zero = _mm_setzero_ps();
    const ISSEVec4 origin(block.origin);
    const sse_t near =
        _mm_and_ps(within(origin.t[0], limit), _mm_and_ps(within(origin.t[1], limit), within(origin.t[2], limit)));
    const __m128i none = _mm_set1_epi32(-1), mask = _mm_set1_epi32(static_cast<int>(any.visibilityMask));
    const auto set = [](unsigned* lanes, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(lanes), v); };
    for (unsigned row = 0, i = 0; row < 2; ++row, i += 4) {
        const sse_t* const d = block.directions[row].t;
        const sse_t good =
            _mm_and_ps(_mm_and_ps(near, within(d[0], limit)), _mm_and_ps(within(d[1], limit), within(d[2], limit)));
        for (unsigned k = 0; k < 4; ++k) valid[i + k] = block.states[i + k] && std::bit_cast<int>(good[k]) ? -1 : 0;
        _mm_store_ps(query.ray.org_x + i, origin.t[0]), _mm_store_ps(query.ray.dir_x + i, d[0]);
        _mm_store_ps(query.ray.org_y + i, origin.t[1]), _mm_store_ps(query.ray.dir_y + i, d[1]);
        _mm_store_ps(query.ray.org_z + i, origin.t[2]), _mm_store_ps(query.ray.dir_z + i, d[2]);
        _mm_store_ps(query.ray.tnear + i, _mm_set1_ps(any.minHitDist)), _mm_store_ps(query.ray.time + i, zero);
        _mm_store_ps(query.ray.tfar + i, _mm_set1_ps(RayInfinity));
        set(query.ray.mask + i, mask), set(query.ray.id + i, _mm_setzero_si128());
        set(query.ray.flags + i, _mm_setzero_si128());
        set(query.hit.geomID + i, none), set(query.hit.instID[0] + i, none);
    }
}

void EmbreeIntersector::intersect(const Block& block) {
    const auto there = std::find_if(block.states.begin(), block.states.end(), [](auto* state) { return state; });
    if (there == block.states.end()) return;
    alignas(32) int valid[8];
    RTCRayHit8 query;
    fillBlock(query, block, (*there)->ray, valid);
    RTCIntersectContext context = coherent();
    rtcIntersect8(valid, m_root, &context, &query);
    for (unsigned i = 0; i < 8; ++i) {
        if (!block.states[i]) continue;
        if (!valid[i]) [[unlikely]]
            ++ThreadRecord::mine().refusedRays;
        block.states[i]->hit.tri = TRI_NONE;
        if (query.hit.geomID[i] == RTC_INVALID_GEOMETRY_ID) continue;
        const RTCHit8& hit = query.hit;
        OxState& state = *block.states[i];
        takeHit(state, {hit.geomID[i], hit.instID[0][i], hit.primID[i]}, gather(state.ray.origin, 0.0f),
                gather(state.ray.direction, 0.0f),
                {query.ray.tfar[i], hit.u[i], hit.v[i], {hit.Ng_x[i], hit.Ng_y[i], hit.Ng_z[i]}});
    }
}

// ---- Streams

// Where all go the same way they take the same way through the structure, or nearly; the kernel is told, since it would
// make others slower by it. Lanes that are not there repeat one that is.
inline bool EmbreeIntersector::fillEight(RTCRayHit8& query, const RayStream& rays, std::size_t first, unsigned count,
                                         int (&valid)[8]) const {
    const auto reaches = [this](float x) { return std::fabs(x) <= m_farthestOut; };
    unsigned signs = 0, all = 7;
    for (unsigned i = 0; i < 8; ++i) {
        const std::size_t ray = first + std::min(i, count - 1);
        const R3 origin = rays.origins[rays.origins.size() == 1 ? 0 : ray], direction = rays.directions[ray];
        bool good = i < count;
        for (unsigned k = 0; k < 3; ++k) good = good && reaches(origin[k]) && reaches(direction[k]);
        valid[i] = good ? -1 : 0;
        query.ray.org_x[i] = origin.x, query.ray.org_y[i] = origin.y, query.ray.org_z[i] = origin.z;
        query.ray.dir_x[i] = direction.x, query.ray.dir_y[i] = direction.y, query.ray.dir_z[i] = direction.z;
        query.ray.tnear[i] = query.ray.time[i] = 0.0f;
        query.ray.tfar[i] = RayInfinity;
        query.ray.mask[i] = RAY_PRIMARY;
        query.ray.id[i] = query.ray.flags[i] = 0;
        query.hit.geomID[i] = query.hit.instID[0][i] = RTC_INVALID_GEOMETRY_ID;
        const unsigned own = (direction.x < 0.0f) | (direction.y < 0.0f) << 1 | (direction.z < 0.0f) << 2;
        signs |= own, all &= own;
    }
    return signs == all;
}

// Also of a triangle so small or large that a square of its area is no number any more.
static R3 unit(R3 v) {
    float square = Dot(v, v);
    if (!(square > 1e-30f && square < 1e30f)) [[unlikely]] {
        const float largest = std::max({std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)});
        if (!(largest > 0.0f && std::isfinite(largest))) return {};
        v = v / largest;
        square = Dot(v, v);
    }
    return v * (1.0f / std::sqrt(square));
}

// The kernel's word for it, but for the distance: that of the triangle's plane, in the arithmetic of every processor.
void EmbreeIntersector::takeHit(const RTCRayHit8& query, unsigned lane, const StreamHits& hits, std::size_t ray) const {
    const RTCHit8& hit = query.hit;
    if (hit.geomID[lane] == RTC_INVALID_GEOMETRY_ID) {
        hits.distance[ray] = std::numeric_limits<float>::infinity();
        hits.object[ray] = 0;
        hits.triangle[ray] = TRI_NONE;
        hits.normal[ray] = R3();
        return;
    }
    const unsigned number = hit.instID[0][lane] != m_worldSpace ? hit.instID[0][lane] : hit.geomID[lane];
    const Instance& instance = *m_instances[number];
    const auto& mesh = static_cast<const ABSP&>(*m_scene->objects[instance.object]);
    R3 corner = mesh.positions[mesh.indices[3 * std::size_t{hit.primID[lane]}]];
    R3 normal(hit.Ng_x[lane], hit.Ng_y[lane], hit.Ng_z[lane]);
    if (instance.hasXfm) {
        corner = TransformPoint(instance.meshToWorldXfm, corner);
        normal = TransformVector(instance.normalXfm, normal);
    }
    const RTCRay8& r = query.ray;
    const R3 way = corner - R3(r.org_x[lane], r.org_y[lane], r.org_z[lane]);
    const float distance = Dot(way, normal) / Dot(R3(r.dir_x[lane], r.dir_y[lane], r.dir_z[lane]), normal);
    hits.distance[ray] = std::isfinite(distance) ? std::max(distance, 0.0f) : r.tfar[lane];
    hits.object[ray] = number + 1;
    hits.triangle[ray] = static_cast<int>(hit.primID[lane]);
    hits.normal[ray] = unit(normal);
}

void EmbreeIntersector::intersect(const RayStream& rays, std::size_t first, std::size_t count,
                                  const StreamHits& hits) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    alignas(32) int valid[8];
    RTCRayHit8 query;
    for (std::size_t done = 0; done < count; done += 8) {
        const auto lanes = static_cast<unsigned>(std::min<std::size_t>(count - done, 8));
        const bool together = fillEight(query, rays, first + done, lanes, valid);
        context.flags = together ? RTC_INTERSECT_CONTEXT_FLAG_COHERENT : RTC_INTERSECT_CONTEXT_FLAG_INCOHERENT;
        rtcIntersect8(valid, m_root, &context, &query);
        for (unsigned i = 0; i < lanes; ++i) takeHit(query, i, hits, first + done + i);
    }
}

// ---- Packets

// The same for four rays: all bits set in the lanes that can be traced.
static sse_t readable(const ISSERay4& ray, sse_t limit) {
    const sse_t tnear = _mm_set1_ps(ray.minHitDist);
    sse_t good = _mm_and_ps(_mm_cmpge_ps(tnear, _mm_setzero_ps()), _mm_cmpge_ps(ray.maxDist, tnear));
    for (const ISSEVec4* v : {&ray.origin, &ray.direction})
        for (const sse_t component : v->t) good = _mm_and_ps(good, within(component, limit));
    return good;
}

// The others are counted as misses.
static __m128i traceable4(const ISSERay4& ray, Oxuint kind, sse_t limit) {
    const sse_t good = readable(ray, limit);
    const auto bad = ~static_cast<unsigned>(_mm_movemask_ps(good)) & 15u;
    ThreadRecord& record = ThreadRecord::mine();
    record.countRays(kind, 4);
    if (bad != 0) [[unlikely]]
        record.refusedRays += static_cast<unsigned>(std::popcount(bad));
    return _mm_castps_si128(good);
}

// Fills in four rays of a query, from one of its lanes on.
template <class Query>
static void fill(Query& query, const ISSERay4& ray, Oxuint kind, unsigned lane = 0) {
    _mm_store_ps(query.org_x + lane, ray.origin.t[0]), _mm_store_ps(query.org_y + lane, ray.origin.t[1]);
    _mm_store_ps(query.org_z + lane, ray.origin.t[2]), _mm_store_ps(query.tnear + lane, _mm_set1_ps(ray.minHitDist));
    _mm_store_ps(query.dir_x + lane, ray.direction.t[0]), _mm_store_ps(query.dir_y + lane, ray.direction.t[1]);
    _mm_store_ps(query.dir_z + lane, ray.direction.t[2]), _mm_store_ps(query.time + lane, _mm_setzero_ps());
    _mm_store_ps(query.tfar + lane, ray.maxDist);
    std::fill_n(query.mask + lane, 4, kind);
    std::fill_n(query.id + lane, 4, 0u);
    std::fill_n(query.flags + lane, 4, 0u);
}

template <class Number>
static __m128i load(const Number* lanes) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(lanes));
}
static void store(int* lanes, __m128i values) { _mm_store_si128(reinterpret_cast<__m128i*>(lanes), values); }

// Writes to a packet what its rays hit, which are those of the query from a lane on. All lanes at once, the values of those
// without a hit too: nobody reads them.
template <class Query>
bool EmbreeIntersector::takeHits(OxState4& state4, const Query& query, unsigned lane) const {
    ISSEIntersection4& hit = *state4.hit4;
    const unsigned *geometries = query.hit.geomID + lane, *instances = query.hit.instID[0] + lane;
    const unsigned* triangles = query.hit.primID + lane;
    const __m128i none = _mm_set1_epi32(-1);  // both Embree's word for it and the triangle's
    const __m128i geometry = load(geometries), instance = load(instances);
    const __m128i missed = _mm_cmpeq_epi32(geometry, none);
    const __m128i direct = _mm_cmpeq_epi32(instance, _mm_set1_epi32(static_cast<int>(m_worldSpace)));
    store(hit.tri, _mm_or_si128(missed, load(triangles)));
    store(hit.inst, _mm_or_si128(_mm_and_si128(direct, geometry), _mm_andnot_si128(direct, instance)));
    hit.normal = {_mm_load_ps(query.hit.Ng_x + lane), _mm_load_ps(query.hit.Ng_y + lane),
                  _mm_load_ps(query.hit.Ng_z + lane)};
    sse_t distance = _mm_load_ps(query.ray.tfar + lane);
    sse_t u = _mm_load_ps(query.hit.u + lane), v = _mm_load_ps(query.hit.v + lane);
    const ISSERay4& ray = *state4.ray4;
    const int hits = ~_mm_movemask_ps(_mm_castsi128_ps(missed)) & 15;
    for (unsigned i = 0; hits >> i != 0; ++i) {
        if (!(hits >> i & 1)) continue;
        const Instance& own = *m_instances[instances[i] != m_worldSpace ? instances[i] : geometries[i]];
        const HitPoint point =
            pointOf(own, *m_scene->objects[own.object], triangles[i], gather(ray.origin.lane(i), 0.0f),
                    gather(ray.direction.lane(i), 0.0f), {distance[i], u[i], v[i], hit.normal.lane(i)});
        distance[i] = std::clamp(point.distance, ray.minHitDist, ray.maxDist[i]);
        u[i] = point.u, v[i] = point.v;
        hit.normal.setLane(i, point.normal);
    }
    _mm_store_ps(hit.dist, distance);
    _mm_store_ps(hit.u, u);
    _mm_store_ps(hit.v, v);
    _mm_store_ps(hit.w, _mm_sub_ps(_mm_sub_ps(_mm_set1_ps(1.0f), u), v));
    return hits != 0;
}

template <class Query>
static void expectNothing(Query& query, unsigned lanes) {
    std::fill_n(query.hit.geomID, lanes, RTC_INVALID_GEOMETRY_ID);
    std::fill_n(query.hit.instID[0], lanes, RTC_INVALID_GEOMETRY_ID);
}

bool EmbreeIntersector::Intersect4(OxState4& state4) {
    alignas(16) int valid[4];
    store(valid, traceable4(*state4.ray4, RAY_PRIMARY, _mm_set1_ps(m_farthestOut)));
    RTCRayHit4 query;
    fill(query.ray, *state4.ray4, RAY_PRIMARY);
    expectNothing(query, 4);
    RTCIntersectContext context = coherent();
    rtcIntersect4(valid, m_root, &context, &query);
    return takeHits(state4, query, 0);
}

void EmbreeIntersector::intersect(OxState4& first, OxState4& second) {
    alignas(32) int valid[8];
    RTCRayHit8 query;
    const sse_t limit = _mm_set1_ps(m_farthestOut);
    store(valid, traceable4(*first.ray4, RAY_PRIMARY, limit));
    store(valid + 4, traceable4(*second.ray4, RAY_PRIMARY, limit));
    fill(query.ray, *first.ray4, RAY_PRIMARY);
    fill(query.ray, *second.ray4, RAY_PRIMARY, 4);
    expectNothing(query, 8);
    RTCIntersectContext context = coherent();
    rtcIntersect8(valid, m_root, &context, &query);
    takeHits(first, query, 0);
    takeHits(second, query, 4);
}

void EmbreeIntersector::Occluded4(OxState4& state4) {
    alignas(16) int valid[4];
    store(valid, traceable4(*state4.ray4, RAY_SHADOW, _mm_set1_ps(m_farthestOut)));
    RTCRay4 query;
    fill(query, *state4.ray4, RAY_SHADOW);
    RTCIntersectContext context = coherent();
    rtcOccluded4(valid, m_root, &context, &query);
    const sse_t traced = _mm_castsi128_ps(_mm_load_si128(reinterpret_cast<const __m128i*>(valid)));
    const sse_t occluded = _mm_and_ps(traced, _mm_cmplt_ps(_mm_load_ps(query.tfar), _mm_setzero_ps()));
    int(&tri)[4] = state4.hit4->tri;
    store(tri, _mm_andnot_si128(_mm_castps_si128(occluded), _mm_load_si128(reinterpret_cast<const __m128i*>(tri))));
}

unsigned EmbreeIntersector::occluded(const std::array<ISSERay4, 2>& rays, unsigned& lanes) const {
    alignas(32) int valid[8];
    RTCRay8 query;
    const sse_t limit = _mm_set1_ps(m_farthestOut);
    lanes &= static_cast<unsigned>(_mm_movemask_ps(readable(rays[0], limit)) | _mm_movemask_ps(readable(rays[1], limit))
                                                                                   << 4);
    for (unsigned i = 0; i < 8; ++i) valid[i] = lanes >> i & 1u ? -1 : 0;
    for (unsigned half = 0; half < 2; ++half) fill(query, rays[half], RAY_SHADOW, 4 * half);
    RTCIntersectContext context = coherent();
    rtcOccluded8(valid, m_root, &context, &query);
    const auto hit = [&](unsigned half) { return _mm_movemask_ps(_mm_load_ps(query.tfar + 4 * half)); };  // -infinity
    return lanes & static_cast<unsigned>(hit(0) | hit(1) << 4);
}

}  // namespace oxbeam
