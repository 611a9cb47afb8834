// The package's rendering object: global quality settings, and one record per rendering thread.
//
// Secondary rays are culled by importance: a ray is traced only while its weight in the pixel exceeds the accuracy
// of its kind (R. Hall and D. Greenberg, "A testbed for realistic image synthesis", 1983).
#pragma once

#include "Kel.h"
#include "Oxbeam/OxRenderingObject.h"

class OXBEAM_API KelRenderingObject : public OxRenderingObject {
public:
    float m_transparentAccuracy = 0.15f;  // rays whose weight would fall to this or below are not traced
    float m_reflectiveAccuracy = 0.15f;
    float m_refractiveAccuracy = 0.15f;  // also for all light that passes through surfaces
    Oxint m_softShadows = 0;             // switches for everything; on when exactly 1
    Oxint m_fuzzyLights = 0;
    Oxint m_glossySurfaces = 0;
    Oxint m_wireframe = 0;
    Oxint m_receiveShadow = 0;
    Oxint m_numFuzzySamples = 1;  // samples of fuzzy lights and glossy surfaces
    KelRay m_rays[MaxThreads];    // by thread id, which is not checked

    KelRenderingObject();

    char* GetShaderInfo() override;
    void Register() override;
    void initRay(const OxState& state, unsigned sample, unsigned threadID) override;
    void initRay4(OxState4& state4, unsigned sample, unsigned threadID) override;
    void initTile(unsigned threadID, unsigned tileID) override;

    float getRecursionLimit() const { return static_cast<float>(m_recursionLimit); }
    float getRayEpsilon() const { return m_rayEpsilon; }
    int getNumFuzzySamples() const { return m_numFuzzySamples; }
    bool glossySurfaces() const { return m_glossySurfaces == 1; }
    bool receiveShadow() const { return m_receiveShadow == 1; }
    bool fuzzyLights() const { return m_fuzzyLights == 1; }
    bool softShadows() const { return m_softShadows == 1; }
    bool wireframe() const { return m_wireframe == 1; }
    float transparentAccuracy() const { return m_transparentAccuracy; }
    float reflectiveAccuracy() const { return m_reflectiveAccuracy; }
    float refractiveAccuracy() const { return m_refractiveAccuracy; }
};
