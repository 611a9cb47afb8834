#include "KelFresnel.h"

#include <cmath>

// The angle that entry i is made for.
static float thetaOf(int i) { return std::acos(static_cast<float>(i) * 0.0009765625f); }

// Within 0 to 1; NaN is 0.
static float clamped(float value) { return value > 1.0f ? 1.0f : value > 0.0f ? value : 0.0f; }

// ---- Base

void GenericFresnelTermBuffer::storeIndex(float index) {
    bindex[0] = index;
    bindex[1] = 1.0f / index;
}

void GenericFresnelTermBuffer::setBIndex(float index) {
    if (index == bindex[0]) return;
    storeIndex(index);
    rebuildFresnelTable();
}

// ---- Exact

FesnelTermBufferTyp1::FesnelTermBufferTyp1(float index) {
    storeIndex(index);
    FesnelTermBufferTyp1::rebuildFresnelTable();
}

float FesnelTermBufferTyp1::fresnelC(float theta) { return std::cos(theta); }

float FesnelTermBufferTyp1::fresnelG(float c, int inside) const {
    const float n = bindex[inside];
    return std::sqrt(n * n + c * c - 1.0f);
}

void FesnelTermBufferTyp1::rebuildFresnelTable() {
    for (int inside = 0; inside < 2; ++inside)
        for (int i = 0; i < 1024; ++i) {
            const float c = fresnelC(thetaOf(i));
            const float g = fresnelG(c, inside);
            const float term1 = 0.5f * ((g - c) * (g - c)) / ((g + c) * (g + c));
            const float p = c * (g + c) - 1.0f, q = c * (g - c) + 1.0f;
            const float value = term1 * ((p * p) / (q * q) + 1.0f);
            fresnelTable[inside][i] = std::isnan(value) ? 1.0f : value;  // total reflection
        }
}

// ---- Schlick

FesnelTermBufferTyp2::FesnelTermBufferTyp2(float index) {
    storeIndex(index);
    FesnelTermBufferTyp2::rebuildFresnelTable();
}

float FesnelTermBufferTyp2::F0(int inside) const {
    const float n = bindex[inside];
    return ((1.0f - n) * (1.0f - n)) / ((n + 1.0f) * (n + 1.0f));
}

float FesnelTermBufferTyp2::fresnelTermApprox(float c, int inside) const {
    const float f0 = F0(inside), m = 1.0f - c;
    return f0 + (1.0f - f0) * (m * m * m * m * m);
}

void FesnelTermBufferTyp2::rebuildFresnelTable() {
    for (int i = 0; i < 1024; ++i)
        for (int inside = 0; inside < 2; ++inside)
            fresnelTable[inside][i] = clamped(fresnelTermApprox(std::cos(thetaOf(i)), inside));
}

// ---- Empirical

FesnelTermBufferTyp3::FesnelTermBufferTyp3(float bindex_, float bias_, float scale_, float index_)
    : bias(bias_), scale(scale_), index(index_) {
    storeIndex(bindex_);
    FesnelTermBufferTyp3::rebuildFresnelTable();
}

void FesnelTermBufferTyp3::setBIndex(float newIndex) { setApproxBIndex(newIndex, 0.0f, 1.0f, 4.0f); }

void FesnelTermBufferTyp3::setApproxBIndex(float newBindex, float newBias, float newScale, float newIndex) {
    if (newBindex == bindex[0] && newBias == bias && newScale == scale && newIndex == index) return;
    storeIndex(newBindex);
    bias = newBias;
    scale = newScale;
    index = newIndex;
    rebuildFresnelTable();
}

void FesnelTermBufferTyp3::rebuildFresnelTable() {
    for (int i = 0; i < 1024; ++i)
        for (int inside = 0; inside < 2; ++inside)
            fresnelTable[inside][i] = clamped((1.0f - std::pow(std::cos(thetaOf(i)), index)) * scale + bias);
}
