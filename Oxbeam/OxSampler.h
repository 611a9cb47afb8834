// Sources of random numbers.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <cstdint>

class OXBEAM_API OxSampler {
public:
    virtual ~OxSampler();
    // A sampler of the same kind in the same state; the caller owns it.
    virtual OxSampler* clone() const = 0;
    // The next sample of a dimension, in [0, 1).
    virtual float nextSample(int dimension) = 0;
    virtual void setSeed(unsigned seed) = 0;
};

// M. Matsumoto and T. Nishimura, "Mersenne Twister" (1998). All dimensions draw from one sequence.
class OXBEAM_API OxMersenneTwisterSampler : public OxSampler {
public:
    explicit OxMersenneTwisterSampler(int seed);

    OxSampler* clone() const override;
    float nextSample(int dimension) override;
    void setSeed(unsigned seed) override;
    void setSeed(int seed) { setSeed(static_cast<unsigned>(seed)); }

private:
    static constexpr unsigned Size = 624;  // numbers that are made at a time

    void makeSamples();

    unsigned m_seed;
    bool m_seeded = false;  // not before the first number is drawn: most tiles draw none
    unsigned m_next = Size;
    std::uint32_t m_state[Size] = {};
    float m_samples[Size] = {};
};
