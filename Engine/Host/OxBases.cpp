// Default bodies of the interface's base classes.
#include "Engine/Host/ShadingNormal.h"
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/OxCamera.h"
#include "Oxbeam/OxContext.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Oxbeam/OxSampler.h"
#include "Oxbeam/OxShader.h"
#include "Oxbeam/OxTexture.h"

#include <iostream>

static void notImplemented(const char* signature) {
    std::cout << "function '" << signature << "' not yet implemented" << std::endl;
}

// ---- OxLoadableObject

OxLoadableObject::~OxLoadableObject() = default;

char* OxLoadableObject::GetShaderInfo() {
    static const char info[] = "GetShaderInfo from class OxLoadableObject. No Info.";
    return const_cast<char*>(info);
}

void OxLoadableObject::NewFrame() {}

void OxLoadableObject::Register() {}

void OxLoadableObject::Init() {}

// ---- OxShader

Oxvoid OxShader::Shade(OxState*) { notImplemented(__PRETTY_FUNCTION__); }

Oxvoid OxShader::Shade4(OxState4&) {}

Oxvoid OxShader::EvalBRDF(ProgBRDF&, OxState&) {}

bool OxShader::LightTransparency(OxState*) { return false; }

// ---- OxLight

bool OxLight::Illuminate(const R3&, R3&, float&, R3&, OxState*, void*) {
    notImplemented(__PRETTY_FUNCTION__);
    return true;
}

bool OxLight::Illuminate4(const ISSEVec4&, ISSEVec4&, sse_t&, ISSEVec4&, OxState4&, void*) {
    notImplemented(__PRETTY_FUNCTION__);
    return true;
}

void OxLight::SamplePosition(R3&, float, float) const { notImplemented(__PRETTY_FUNCTION__); }

void OxLight::SampleDirection(R3&, float, float) const { notImplemented(__PRETTY_FUNCTION__); }

void OxLight::GetIWE(const R3&, const R3&, R3&) const { notImplemented(__PRETTY_FUNCTION__); }

R3 OxLight::GetNormal(const R3&) const {
    notImplemented(__PRETTY_FUNCTION__);
    return zeroVector;
}

float OxLight::GetSampleProbability() const {
    notImplemented(__PRETTY_FUNCTION__);
    return 1.0f;
}

void OxLight::AsPointLight(R3&, R3&, float&) const { notImplemented(__PRETTY_FUNCTION__); }

void OxLight::EstimateImportance(float&, float&) const { notImplemented(__PRETTY_FUNCTION__); }

float OxLight::GetIlluminanceAngle() const { return 0.0f; }

// ---- OxCamera

void OxCamera::InitCamera(const R3&, const R3&, const R3&, unsigned, unsigned, float, float, float, float, float) {
    notImplemented(__PRETTY_FUNCTION__);
}

bool OxCamera::InitPrimaryRay(OxState*, int, int, const float*) const {
    notImplemented(__PRETTY_FUNCTION__);
    return true;
}

void OxCamera::setFocalDistance(float) {}

bool OxCamera::InitPrimaryRays(int, int, unsigned, const float*, const float*, const float*, ISSERay4*) const {
    notImplemented(__PRETTY_FUNCTION__);
    return true;
}

// ---- OxRenderingObject

void OxRenderingObject::Register() {
    oxsDeclareMember(this, "multiThreading", m_multiThreading);
    oxsDeclareMember(this, "numThreads", m_numThreads);
    oxsDeclareMember(this, "recursionLimit", m_recursionLimit);
    oxsDeclareMember(this, "rayEpsilon", m_rayEpsilon);
    oxsDeclareMember(this, "samplesPerPixel", m_samplesPerPixel);
}

void OxRenderingObject::initRay(const OxState&, unsigned, unsigned) {}

void OxRenderingObject::initRay4(OxState4&, unsigned, unsigned) {}

void OxRenderingObject::initTile(unsigned, unsigned) {}

// ---- OxSampler

OxSampler::~OxSampler() = default;

OxMersenneTwisterSampler::OxMersenneTwisterSampler(int seed) : m_seed(static_cast<unsigned>(seed)) {}

OxSampler* OxMersenneTwisterSampler::clone() const { return new OxMersenneTwisterSampler(*this); }

float OxMersenneTwisterSampler::nextSample(int) {
    if (m_next == Size) [[unlikely]]
        makeSamples();
    return m_samples[m_next++];
}

static void seedState(std::uint32_t* state, unsigned size, unsigned seed) {
    state[0] = seed;
    for (std::uint32_t i = 1; i < size; ++i) state[i] = 1812433253u * (state[i - 1] ^ state[i - 1] >> 30) + i;
}

// The generator's recurrence and tempering, as its authors publish them, in loops that a compiler turns into vector
// instructions. The upper 24 bits are what a float holds without rounding up to 1.
void OxMersenneTwisterSampler::makeSamples() {
    if (!m_seeded) seedState(m_state, Size, m_seed);
    m_seeded = true;
    constexpr unsigned shift = 397;
    const auto twisted = [](std::uint32_t high, std::uint32_t low) {
        const std::uint32_t y = (high & 0x80000000u) | (low & 0x7fffffffu);
        return y >> 1 ^ ((0u - (y & 1u)) & 0x9908b0dfu);
    };
    std::uint32_t* const x = m_state;
    for (unsigned i = 0; i < Size - shift; ++i) x[i] = x[i + shift] ^ twisted(x[i], x[i + 1]);
    for (unsigned i = Size - shift; i < Size - 1; ++i) x[i] = x[i + shift - Size] ^ twisted(x[i], x[i + 1]);
    x[Size - 1] = x[shift - 1] ^ twisted(x[Size - 1], x[0]);
    for (unsigned i = 0; i < Size; ++i) {
        std::uint32_t y = x[i];
        y ^= y >> 11;
        y ^= y << 7 & 0x9d2c5680u;
        y ^= y << 15 & 0xefc60000u;
        y ^= y >> 18;
        m_samples[i] = static_cast<float>(static_cast<std::int32_t>(y >> 8)) * 0x1p-24f;
    }
    m_next = 0;
}

void OxMersenneTwisterSampler::setSeed(unsigned seed) {
    m_seed = seed;
    m_seeded = false;
    m_next = Size;
    oxbeam::ThreadRecord::mine().sampler = this;
}

// ---- Scene and textures

GeometryObject::~GeometryObject() = default;

Intersector::~Intersector() = default;

void ABSP::GetTriangleVertices(int triangle, R3& a, R3& b, R3& c) const {
    const Oxuint* corner = &indices[3 * static_cast<std::size_t>(triangle)];
    c = positions[corner[0]];
    a = positions[corner[1]];
    b = positions[corner[2]];
}

R3 ABSP::GetNormal(int triangle, float u, float v) const { return oxbeam::meshNormal(*this, triangle, u, v); }

R3 ABSP::GetGeometricNormal(int triangle) const { return oxbeam::geometricNormal(*this, triangle); }

const OxContext* OxContext::current = nullptr;

TextureList* TextureList::current = nullptr;

TextureObject::~TextureObject() = default;

static bool isWrapMode(Oxint value) {
    return value == OX_GL_REPEAT || value == OX_GL_CLAMP_TO_EDGE || value == OX_GL_MIRRORED_REPEAT;
}

void TextureObject::TexParameteri(Oxuint target, Oxuint parameter, Oxint value) {
    if (target != OX_GL_TEXTURE_2D) return;
    if (parameter == OX_GL_TEXTURE_MIN_FILTER && (value == OX_GL_NEAREST || value == OX_GL_LINEAR)) filterMode = value;
    if (parameter == OX_GL_TEXTURE_WRAP_S && isWrapMode(value)) m_wrapS = value;
    if (parameter == OX_GL_TEXTURE_WRAP_T && isWrapMode(value)) m_wrapT = value;
}
