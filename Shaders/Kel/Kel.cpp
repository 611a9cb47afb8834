#include "Kel.h"

KelRay::KelRay(OxSampler* sampler_) : sampler(sampler_) {}

KelRay::KelRay(const KelRay& other)
    : m_ro(other.m_ro), depth(other.depth), insideFlag(other.insideFlag), opacity(other.opacity),
      pattern(other.pattern), sampler(other.sampler), m_deleteSampler(false) {}

KelRay& KelRay::operator=(const KelRay& other) {
    if (this == &other) return *this;
    setSampler(other.sampler);
    m_deleteSampler = false;
    m_ro = other.m_ro;
    depth = other.depth;
    insideFlag = other.insideFlag;
    opacity = other.opacity;
    pattern = other.pattern;
    return *this;
}

KelRay::~KelRay() {
    if (m_deleteSampler) delete sampler;
}

void KelRay::setSeed(unsigned seed) {
    if (!sampler) sampler = new OxMersenneTwisterSampler(0);
    sampler->setSeed(seed);
}

void KelRay::setSampler(OxSampler* newSampler) {
    if (m_deleteSampler && sampler != newSampler) delete sampler;
    sampler = newSampler;
}
