#include "Engine/Render/ViewMatrices.h"

namespace oxbeam {

ViewMatrices viewMatrices(const World& world) {
    const View view = world.viewInForce();
    const R2 window = world.imageWindow();
    const R3 z = Normalize(view.lookAt - view.position), x = Normalize(Cross(z, view.lookUp)), y = Cross(x, z);
    const R3 shift(-Dot(view.position, x), -Dot(view.position, y), -Dot(view.position, z));
    ViewMatrices matrices{};
    for (unsigned row = 0; row < 4; ++row) {
        const R3 p = row < 3 ? R3(x[row], y[row], z[row]) : shift;
        const float w = row < 3 ? 0.0f : 1.0f;
        float* camera = &matrices.worldToCamera[std::size_t{4} * row];
        float* ndc = &matrices.worldToNDC[std::size_t{4} * row];
        camera[0] = p.x, camera[1] = p.y, camera[2] = p.z, camera[3] = w;
        // To be divided by the last, the depth; the third is then 0 at depth 1 and 1 at infinity.
        ndc[0] = 0.5f * (p.x / window.x + p.z), ndc[1] = 0.5f * (p.z - p.y / window.y), ndc[2] = p.z - w, ndc[3] = p.z;
    }
    return matrices;
}

}  // namespace oxbeam
