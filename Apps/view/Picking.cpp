#include "Apps/view/Picking.h"

#include "Apps/view/Navigation.h"

#include <cmath>

namespace oxbeam {

static std::optional<std::size_t> pixelAt(const Shown& shown, float x, float y) {
    const ImageSize& whole = shown.frame.whole;
    if (!(x >= 0.0f && y >= 0.0f && x < static_cast<float>(whole.width) && y < static_cast<float>(whole.height)))
        return std::nullopt;
    const auto part = [](float at, unsigned side, unsigned of) {
        return std::min(static_cast<unsigned>(at * static_cast<float>(side) / static_cast<float>(of)), side - 1);
    };
    return std::size_t{part(y, shown.height, whole.height)} * shown.width + part(x, shown.width, whole.width);
}

std::optional<Pick> pickAt(const Shown& shown, const SceneInfo& scene, float x, float y) {
    const auto pixel = pixelAt(shown, x, y);
    if (!pixel || shown.film->sums()[*pixel].samples == 0) return std::nullopt;
    const AovSample& aov = shown.film->aovSums()[*pixel];
    if (!aov.object || aov.object > scene.instances.size() || !std::isfinite(aov.depth)) return std::nullopt;
    const InstanceInfo& instance = scene.instances[aov.object - 1];
    const Eye eye = Eye::of(shown.frame.view, shown.frame.fov);
    const auto place = [&](std::size_t at, unsigned side) {
        return 2.0f * (static_cast<float>(at) + 0.5f) / static_cast<float>(side) - 1.0f;
    };
    const R2 at(place(*pixel % shown.width, shown.width), place(*pixel / shown.width, shown.height));
    Pick pick{aov.object - 1,
              instance.name,
              instance.mesh,
              instance.shader,
              0.0f,
              eye.pointAt(at, aov.depth, shown.frame.whole),
              {}};
    pick.distance = Length(pick.position - eye.view.position);
    if (Length(aov.normal) > 0.0f) pick.normal = Normalize(aov.normal);
    return pick;
}

std::optional<R3> lightAt(const Shown& shown, float x, float y) {
    const auto pixel = pixelAt(shown, x, y);
    if (!pixel || shown.film->sums()[*pixel].samples == 0) return std::nullopt;
    return shown.film->share(*pixel) * shown.film->sums()[*pixel].sum;
}

std::vector<std::pair<unsigned, unsigned>> outlineOf(const Shown& shown, unsigned instance) {
    std::vector<std::pair<unsigned, unsigned>> outline;
    const auto aovs = shown.film->aovSums();
    const auto has = [&](unsigned x, unsigned y) {
        return x < shown.width && y < shown.height && aovs[std::size_t{y} * shown.width + x].object == instance + 1;
    };
    for (unsigned y = 0; y < shown.height; ++y)
        for (unsigned x = 0; x < shown.width; ++x)
            if (has(x, y) && !(has(x - 1, y) && has(x + 1, y) && has(x, y - 1) && has(x, y + 1)))
                outline.emplace_back(x, y);
    return outline;
}

}  // namespace oxbeam
