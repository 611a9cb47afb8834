// What the benchmarks render: scenes that are made, not read, so that they are the same everywhere.
#pragma once

#include "Tests/Support/TestWorld.h"

namespace oxbeam::bench {

// A sphere of 70,000 triangles with bumps on a mirroring floor under three lights, all with hard shadows. `packets`: one
// that packets can shade, with lights that answer them and without the mirror, which they leave out.
struct PlainScene : test::TestWorld {
    explicit PlainScene(bool packets);
};

// All that a picture of a product has: textures with colours, alpha and bumps, soft shadows, surfaces that are seen
// through, glossy metal, and a photographed surrounding.
struct RichScene : test::TestWorld {
    RichScene();
};

// The sphere and the floor as a surface for many lights shades them, a few lights a pass.
struct ManyLightsScene : test::TestWorld {
    explicit ManyLightsScene(unsigned count);
};

}  // namespace oxbeam::bench
