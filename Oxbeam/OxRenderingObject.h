// Base of rendering objects: the global settings of a rendering, and what a package does at every tile and ray.
#pragma once

#include "Oxbeam/OxLoadableObject.h"

struct OxState;
struct OxState4;

class OXBEAM_API OxRenderingObject : public OxLoadableObject {
public:
    // A rendering thread's id is below this; packages keep one record per thread.
    static constexpr unsigned MaxThreads = 48;

    Oxuint m_recursionLimit = 25;  // rays of this depth are not traced
    float m_rayEpsilon = 0.01f;    // world units; follows the scene's size unless set, or Init gives another value
    Oxuint m_tilesPerFrame = 1;    // set by the host; multiplier that keeps the seeds of all passes apart
    Oxint m_samplesPerPixel = 16;  // passes over the picture
    Oxint m_multiThreading = 1;    // 0 renders on one thread
    Oxint m_numThreads = 0;        // rendering threads; 0 uses every processor there is

    void Register() override;

    // Before every primary ray is shaded, and before a camera of a package makes it: attaches the package's record to
    // the state. Nothing else in the state is of meaning yet.
    virtual void initRay(const OxState& state, unsigned sample, unsigned threadID);
    virtual void initRay4(OxState4& state4, unsigned sample, unsigned threadID);
    // Thread `threadID` starts tile `tileID` of the current pass.
    virtual void initTile(unsigned threadID, unsigned tileID);
};
