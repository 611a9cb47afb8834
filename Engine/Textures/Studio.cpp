#include "Engine/Textures/Studio.h"

#include "Sampling/Frame.h"

#include <algorithm>
#include <array>

namespace oxbeam {

namespace {

// A bright rectangle as seen from the middle of the room.
struct SoftBox {
    R3 towards;
    float halfWidth, halfHeight;  // tangents of the half-angles
    float brightness;

    // 1 in its middle, fading over its rim.
    float covers(const R3& direction) const {
        const R3 axis = Normalize(towards);
        const R3 right = Normalize(Cross(axis, std::fabs(axis.y) > 0.9f ? R3(0.0f, 0.0f, 1.0f) : R3(0.0f, 1.0f, 0.0f)));
        const R3 up = Cross(right, axis);
        const float depth = Dot(direction, axis);
        if (depth <= 0.0f) return 0.0f;
        const float x = std::fabs(Dot(direction, right)) / depth / halfWidth;
        const float y = std::fabs(Dot(direction, up)) / depth / halfHeight;
        return std::clamp((1.0f - std::max(x, y)) / 0.15f, 0.0f, 1.0f);
    }
};

R3 seenAlong(const R3& direction) {
    static const std::array<SoftBox, 4> boxes = {{{R3(-0.2f, 1.0f, 0.3f), 0.7f, 0.45f, 2.4f},
                                                  {R3(-1.0f, 0.45f, 0.5f), 0.5f, 0.7f, 2.0f},
                                                  {R3(1.0f, 0.35f, 0.6f), 0.25f, 0.8f, 1.2f},
                                                  {R3(0.2f, 0.4f, -1.0f), 1.2f, 0.2f, 1.6f}}};
    const float height = 0.5f + 0.5f * direction.y;
    float brightness = 0.16f + 0.42f * height;
    for (const SoftBox& box : boxes) brightness += (box.brightness - brightness) * box.covers(direction);
    return White * brightness;
}

}  // namespace

std::unique_ptr<Texture> studioPicture() {
    constexpr float turn = 6.28318531f;
    constexpr unsigned width = 512, height = 256;
    std::vector<float> texels;
    texels.reserve(std::size_t{3} * width * height);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x) {
            const float latitude = 0.5f * turn * ((static_cast<float>(y) + 0.5f) / height - 0.5f);
            const float longitude = turn * ((static_cast<float>(x) + 0.5f) / width - 0.5f);
            const float level = std::cos(latitude);
            const R3 seen =
                seenAlong(R3(level * std::sin(longitude), std::sin(latitude), -level * std::cos(longitude)));
            texels.insert(texels.end(), {seen.x, seen.y, seen.z});
        }
    return std::make_unique<Texture>(width, height, 3u, std::move(texels), ColorSpace::Linear);
}

}  // namespace oxbeam
