// A world set up for tracing rays.
#pragma once

#include "Engine/World/World.h"
#include "Oxbeam/OxContext.h"
#include "Oxbeam/OxState.h"

namespace oxbeam {

// Which sample of a pixel is taken, and by whom.
struct PrimarySample {
    unsigned thread, pass;
    R2 place;  // in the pixel
};

// While it exists, the services that take no state answer from this world, whose geometry must be built. There is one
// at a time in a process; a second one waits for the first to end, and on the same thread, where that would be for
// ever, throws std::logic_error. It runs NewFrame on every object.
class OXBEAM_API Session {
public:
    // Rays are traced by the world's geometry, or by another intersector that stands in for it; those that hit nothing
    // are shaded by the world's environment, or by a shader that stands in for that.
    explicit Session(World& world, Intersector* standIn = nullptr, OxShader* environment = nullptr);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Runs NewFrame again, after parameters have changed.
    void newFrame();
    // A state for a primary ray of a rendering thread, with the package's record attached; the ray itself is not set.
    // The thread's record must have been seeded by the rendering object's initTile.
    OxState primaryState(unsigned thread = 0, unsigned pass = 0) const;
    // The two steps of it, for rays that are shot before they have a record.
    OxState stateWithoutRecord() const;
    void attachRecord(OxState& state, unsigned thread, unsigned pass) const;
    Intersector& intersector() const { return m_intersector; }
    // By oxsBlockLight, for this frame.
    static bool hasPromisedToBlockLight(const OxShader& shader);
    // Shoots a state's ray and shades what it meets: the colour that comes back along it.
    static R3 trace(OxState& state);
    // The second half of it: shades the hit in the state, or the environment where there is none.
    static R3 shade(OxState& state);

private:
    // The process' one session, while it exists.
    struct Turn {
        Turn();
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
    };

    bool castersBlockLight() const;

    Turn m_turn;
    World& m_world;
    Intersector& m_intersector;
    OxShader* m_environment;  // instead of the world's, or null
    OxContext m_context;
};

}  // namespace oxbeam
