// The services that packages call, and the exported copy of those that are inlined into callers.
#define OXBEAM_EMIT_SERVICES
#include "Oxbeam/OxFunctions.h"

#include "Engine/Host/KnownHit.h"
#include "Engine/Host/ShadingNormal.h"
#include "Engine/Host/ShadowAnswers.h"
#include "Engine/Host/ShadowPromises.h"
#include "Engine/Host/Texels.h"
#include "Engine/Scene/EmbreeIntersector.h"
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/FastOxS4.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Oxbeam/OxShader.h"
#include "Sampling/Frame.h"

using oxbeam::combined, oxbeam::textureCoordinates, oxbeam::textureOf;
using oxbeam::KnownHit, oxbeam::meshOf, oxbeam::Texture, oxbeam::ThreadRecord;

oxbeam::ShadowPromises oxbeam::ShadowPromises::current;

// ---- Setting up and shooting rays

Oxvoid oxsInitState(const OxState* parent, OxState* child) {
    child->scene = parent->scene;
    child->intersector = parent->intersector;
    child->m_ro = parent->m_ro;
    child->ray.minHitDist = parent->m_ro ? parent->m_ro->m_rayEpsilon : parent->ray.minHitDist;
    child->ray.depth = parent->ray.depth + 1;
    child->ray.visibilityMask = parent->ray.visibilityMask;
    child->ray.clippingMask = parent->ray.clippingMask;
    child->ray.privatePtr = parent->ray.privatePtr;
}

bool oxsShootRay(OxState* state) {
    ThreadRecord::mine().countRays(state->ray.visibilityMask, 1);
    return state->intersector->Intersect(*state);
}

bool oxsShootShadowRay(OxState* state, bool& blocks) {
    const oxbeam::EmbreeIntersector* kernel = oxbeam::ShadowPromises::current.kernel;
    blocks = kernel && state->intersector == kernel;
    if (!blocks) return oxsShootRay(state);
    ThreadRecord& record = ThreadRecord::mine();
    record.countRays(state->ray.visibilityMask, 1);
    const int light = record.shadows ? record.shadows->find(state->ray) : -1;
    if (light < 0) return kernel->occluded(state->ray);
    ++record.shadowsAsked[static_cast<unsigned>(light)];
    return record.shadows->blocked >> light & 1u;
}

Oxvoid oxsBlockLight(const OxShader* shader, const std::type_info& type) {
    oxbeam::ShadowPromises& promises = oxbeam::ShadowPromises::current;
    if (promises.begun && typeid(*shader) == type) promises.blocking.insert(shader);
}

Oxvoid oxsExpectShadowRays(const OxShader* shader, const std::type_info& type, float offset) {
    oxbeam::ShadowPromises& promises = oxbeam::ShadowPromises::current;
    if (promises.begun && typeid(*shader) == type && offset >= 0.0f) promises.offsets[shader] = offset;
}

Oxvoid oxsShadeEnvironment(OxState* state) { OxContext::current->environment->Shade(state); }

// ---- The hit

// Texture coordinates of the hit; a mesh without any shows every triangle's barycentric weights.
Oxvoid oxsLoadGeometry(OxState* state) {
    if (state->object) state->hit.txtCoord = textureCoordinates(*state);
}

Oxvoid oxsFindShadingNormal(const OxState* state, R3& normal) {
    const KnownHit* known = ThreadRecord::mine().hit;
    normal = known && known->knows(*state) ? known->normal : oxbeam::shadingNormal(*state);
}

// Derivatives of the world position by the texture coordinates over the hit triangle; false where the mesh has no
// coordinates, or the triangle's coincide.
static bool textureAxes(const OxState* state, R3& ds, R3& dt) {
    const ABSP& mesh = meshOf(*state);
    if (mesh.texCoords.empty()) return false;
    const Oxuint* corner = &mesh.indices[3 * static_cast<std::size_t>(state->hit.tri)];
    const R2 t0 = mesh.texCoords[corner[0]], t1 = mesh.texCoords[corner[1]], t2 = mesh.texCoords[corner[2]];
    const float s1 = t1.x - t0.x, s2 = t2.x - t0.x, r1 = t1.y - t0.y, r2 = t2.y - t0.y;
    const float determinant = s1 * r2 - s2 * r1;
    if (!(std::fabs(determinant) > 1e-20f)) return false;
    const R3 e1 = mesh.positions[corner[1]] - mesh.positions[corner[0]];
    const R3 e2 = mesh.positions[corner[2]] - mesh.positions[corner[0]];
    ds = (e1 * r2 - e2 * r1) * (1.0f / determinant);
    dt = (e2 * s1 - e1 * s2) * (1.0f / determinant);
    if (state->instance->hasXfm) {
        ds = TransformVector(state->instance->meshToWorldXfm, ds);
        dt = TransformVector(state->instance->meshToWorldXfm, dt);
    }
    return true;
}

// The normal as the bumps of a texture bend it, before it is turned to the ray; `own` where they do not.
static R3 bentNormal(const OxState* state, const Texture& bumps, const R3& own) {
    const bool flat = bumps.width() * bumps.height() == 1 && bumps.bumpKind == oxbeam::BumpKind::Height;
    R3 ds, dt;
    if (flat || !textureAxes(state, ds, dt)) return own;
    const R3 tangent = ds - Dot(ds, own) * own, bitangent = dt - Dot(dt, own) * own;
    const R2 st = textureCoordinates(*state);
    const R3 local = bumps.tangentNormal(st.x, st.y);
    const R3 bent = local.x * Normalize(tangent) + local.y * Normalize(bitangent) + local.z * own;
    return IsFinite(bent) ? Normalize(bent) : own;
}

static float fraction(float x) { return x - std::floor(x); }

// Two numbers in [0, 1) that belong to a pixel and a ray's depth: the finalizer of A. Appleby's MurmurHash3 (2011).
static R2 pixelNumbers(std::uint32_t pixel, int depth) {
    std::uint64_t h = std::uint64_t{pixel} << 32 | static_cast<std::uint32_t>(depth);
    h = (h ^ h >> 33) * 0xff51afd7ed558ccdu;
    h = (h ^ h >> 33) * 0xc4ceb9fe1a85ec53u;
    h ^= h >> 33;
    return {static_cast<float>(h & 0xffffff) / 0x1p24f, static_cast<float>(h >> 40) / 0x1p24f};
}

// The mirror, among those that a rough surface is made of, which a pass sees at a pixel: n and its slope. Slopes are
// distributed as those of P. Beckmann and A. Spizzichino, "The scattering of electromagnetic waves from rough surfaces"
// (1963). Of two opposite ones each is seen as often as it faces the ray, as E. Heitz and E. d'Eon found for all of them,
// "Importance sampling microfacet-based BSDFs using the distribution of visible normals" (2014). Passes follow a sequence
// of low discrepancy, by twos: where both face the ray alike, what the tilt adds to the light of a matte surface in one
// pass, the next takes away.
static R3 facetSeen(const OxState* state, const R3& n, float spread) {
    const ThreadRecord& record = ThreadRecord::mine();
    const R2 start = pixelNumbers(record.pixel, state->ray.depth);
    const auto step = static_cast<float>(record.sampleIndex / 2 % 4096);
    const float u = fraction(start.x + step * 0.754877666f), v = fraction(start.y + step * 0.569840291f);
    const float slope = spread * std::sqrt(-std::log(1.0f - u)), phi = 6.28318531f * v;
    const R3 tilt = LocalFrame(n).toWorld(R3(slope * std::cos(phi), slope * std::sin(phi), 0.0f));
    const float level = -Dot(state->ray.direction, n), more = -Dot(state->ray.direction, tilt);
    const float one = std::max(level + more, 0.0f), other = std::max(level - more, 0.0f);
    const float choice = fraction(4096.0f * start.x + 0.5f * static_cast<float>(record.sampleIndex % 2));
    return Normalize(choice * (one + other) < one ? n + tilt : n - tilt);
}

// That mirror's normal, bent so far towards the ray that none is sent into the surface: as those of a smooth one are
// where it is seen nearly from its edge and its triangles stand for something round.
static R3 facetNormal(const OxState* state, const R3& n, float roughness) {
    constexpr float steepest = 0.4f;  // beyond it, most mirrors hide behind others
    constexpr float lowest = 0.02f;
    const R3 facet = facetSeen(state, n, std::min(roughness * roughness, steepest));
    const R3& D = state->ray.direction;
    const R3 outwards = Dot(D, state->hit.normal) > 0.0f ? -state->hit.normal : state->hit.normal;
    const R3 mirrored = D - 2.0f * Dot(D, facet) * facet;
    const float height = Dot(mirrored, outwards);
    if (height >= lowest && Dot(D, facet) < 0.0f) return facet;
    const R3 bent = Normalize(mirrored + std::max(lowest - height, 0.0f) * outwards) - D;
    return Dot(bent, bent) > 1e-12f ? Normalize(bent) : n;
}

// J. Blinn, "Simulation of wrinkled surfaces" (1978): height maps are turned into slopes, normal maps hold them.
Oxvoid oxsFindShadingBumpMapNormal(const OxState* state, R3& normal, Oxint textureId) {
    const Texture* bumps = textureId < 0 ? nullptr : textureOf(static_cast<Oxuint>(textureId));
    if (!bumps) return oxsFindShadingNormal(state, normal);
    const R3 own = Normalize(oxbeam::worldNormal(*state));
    normal = oxbeam::faceRay(*state, bentNormal(state, *bumps, own), own);
    if (bumps->roughness > 0.0f) normal = facetNormal(state, normal, bumps->roughness);
}

bool oxsHasVertexColors(const OxState* state) { return state->object && !meshOf(*state).colors.empty(); }

Oxvoid oxsInterpolateColor(const OxState* state, R3& color) {
    color = state->object ? oxbeam::vertexColor(*state) : White;
}

OxShader* oxsGetShader(const OxState* state) { return OxContext::current->shaders[oxbeam::shaderNumber(*state)]; }

const Instance* oxGetInstance(int instanceID) {
    const auto& instances = OxContext::current->scene->instances;
    return static_cast<unsigned>(instanceID) < instances.size() ? instances[static_cast<unsigned>(instanceID)]
                                                                : nullptr;
}

const GeometryObject* oxGetObject(const Instance* instance) {
    if (!instance || instance->placed) return instance ? instance->placed : nullptr;
    return OxContext::current->scene->objects[instance->object];
}

Oxvoid oxGetTriangleVertices(const GeometryObject* object, int triangle, R3* a, R3* b, R3* c) {
    *a = *b = *c = zeroVector;
    if (object && triangle >= 0) object->GetTriangleVertices(triangle, *a, *b, *c);
}

// ---- Textures

Oxvoid oxsApplyTexture(const OxState* state, Oxuint textureId, RGBAFloat& color) {
    const Texture* texture = textureOf(textureId);
    if (!texture || !state->object) return;
    const KnownHit* known = ThreadRecord::mine().hit;
    const bool knows = known && known->texture == texture && known->knows(*state);
    color = combined(texture->textureModel, color, knows ? known->texel : oxbeam::texelAt(*state, *texture));
}

Oxvoid oxsApplyTexture(const OxState* state, Oxuint textureId, R3& color) {
    RGBAFloat fragment(color, 1.0f);
    oxsApplyTexture(state, textureId, fragment);
    color = fragment.rgb();
}

Oxvoid oxsGetTexelByST(const OxState*, float s, float t, Oxuint textureId, Oxuint wrapS, Oxuint wrapT, Oxuint filter,
                       Oxuint mode, R3& texel) {
    const Texture* texture = textureOf(textureId);
    if (!texture) return;
    texel = combined(mode, RGBAFloat(texel, 1.0f), texture->lookUp(s, t, wrapS, wrapT, filter)).rgb();
}

float oxsGetTexelAlphaValue(const OxState* state, Oxuint textureId) {
    const Texture* texture = textureOf(textureId);
    if (!texture || !state->object || !texture->hasTransparency()) return 1.0f;
    const R2 st = textureCoordinates(*state);
    return texture->alphaAt(st.x, st.y);
}

Oxuint oxsGetTextureModel(const OxState*, Oxuint textureId) {
    const Texture* texture = textureOf(textureId);
    return texture ? texture->textureModel : static_cast<Oxuint>(OX_GL_MODULATE);
}

// ---- Lights

Oxvoid oxsGlobalLights(const std::vector<OxLight*>*& lights) { lights = &OxContext::current->lights; }

Oxuint oxsGlobalLights(Oxvoid*** lights) {
    const auto& handles = OxContext::current->lightHandles;
    *lights = const_cast<Oxvoid**>(handles.data());
    return static_cast<Oxuint>(handles.size());
}

// The context belongs to the session that prepares the frame; to everybody else it is constant.
Oxvoid oxsAddLight(OxLight* light) {
    auto* context = const_cast<OxContext*>(OxContext::current);
    context->lights.push_back(light);
    context->lightHandles.push_back(light);
}

// ---- The frame

OxCamera* oxGetCamera() { return OxContext::current ? OxContext::current->camera : nullptr; }

Oxuint oxGetSampleIndex() { return oxbeam::ThreadRecord::mine().sampleIndex; }
