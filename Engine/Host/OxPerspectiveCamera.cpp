#include "Oxbeam/OxPerspectiveCamera.h"

#include "Oxbeam/OxFunctions.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>camera</type>"
    "<package>Oxbeam</package>"
    "<id>OxPerspectiveCamera</id>"
    "<longname>Perspective camera</longname>"
    " </ShaderInfo>";

char* OxPerspectiveCamera::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void OxPerspectiveCamera::InitCamera(const R3& eye, const R3& at, const R3& up, unsigned imgSizeX, unsigned imgSizeY,
                                     float left, float right, float bottom, float top, float distance) {
    position = eye;
    lookAt = at;
    lookUp = up;
    const R3 zAxis = Normalize(at - eye);
    const R3 xAxis = Normalize(Cross(zAxis, up));  // to the right
    const R3 yAxis = Cross(xAxis, zAxis);          // upwards
    m_corner = distance * zAxis + left * xAxis + top * yAxis;
    m_stepX = ((right - left) / static_cast<float>(imgSizeX)) * xAxis;
    m_stepY = ((bottom - top) / static_cast<float>(imgSizeY)) * yAxis;
}

bool OxPerspectiveCamera::InitPrimaryRay(OxState* state, int x, int y, const float* pattern) const {
    const float dx = static_cast<float>(x) + pattern[0];
    const float dy = static_cast<float>(y) + pattern[1];
    oxsSetRay(state, position, direction(dx, dy), RayInfinity);
    return true;
}

bool OxPerspectiveCamera::InitPrimaryRays(int x, int y, unsigned width, const float* patternX, const float* patternY,
                                          const float* maxDist, ISSERay4* ray4) const {
    const auto column = [&](unsigned i) { return static_cast<float>(x + static_cast<int>(i % width)); };
    const auto row = [&](unsigned i) { return static_cast<float>(y + static_cast<int>(i / width)); };
    const sse_t dx = _mm_add_ps(_mm_setr_ps(column(0), column(1), column(2), column(3)), _mm_loadu_ps(patternX));
    const sse_t dy = _mm_add_ps(_mm_setr_ps(row(0), row(1), row(2), row(3)), _mm_loadu_ps(patternY));
    ray4->origin = ISSEVec4(position);
    ray4->direction = directions(dx, dy);
    ray4->maxDist = _mm_loadu_ps(maxDist);
    return true;
}
