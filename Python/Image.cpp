// What a scene says of its pictures.
#include "Engine/Diagnostics/Error.h"
#include "Python/SceneState.h"
#include "Python/Values.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

namespace oxbeam::python {

using Size = std::array<std::int64_t, 2>;

ImageSize imageSizeFrom(const Size& size) {
    for (const std::int64_t side : size)
        if (side < 1 || side > MaxImageSide)
            throw Error(ExitStatus::Usage, fmt::format("size: expected width and height of 1 to {}, not {} x {}",
                                                       MaxImageSide, size[0], size[1]));
    return {static_cast<unsigned>(size[0]), static_cast<unsigned>(size[1])};
}

static void setFilterWidth(SceneState& scene, float width) {
    if (!(width >= LeastFilterWidth && width <= MostFilterWidth))
        throw Error(ExitStatus::Usage, fmt::format("filter_width: expected {:g} to {:g}, not {:g}", LeastFilterWidth,
                                                   MostFilterWidth, width));
    scene.world().filter.width = width;
}

static void setFilter(SceneState& scene, const std::string& name) {
    const auto kind = static_cast<PixelFilter::Kind>(indexOf("filter", name, pixelFilterNames()));
    scene.world().filter = {kind, usualWidth(kind)};
}

static void setBackground(SceneState& scene, const std::string& name) {
    scene.world().transparentBackground = indexOf("background", name, backgroundNames()) == 1;
}

static std::string camera(const SceneState& scene) {
    const World& world = scene.world();
    return world.places.placeOf(world.camera);
}

void bindImage(SceneClass& scene) {
    const auto world = [](const SceneState& s) -> const World& { return s.world(); };
    scene.def("size", [=](const SceneState& s) { return py::make_tuple(world(s).image.width, world(s).image.height); })
        .def("set_size", [](SceneState& s, const Size& size) { s.world().image = imageSizeFrom(size); })
        .def("exposure", [=](const SceneState& s) { return world(s).tone.exposure; })
        .def("set_exposure", [](SceneState& s, float stops) { s.world().tone.exposure = exposureFrom(stops); })
        .def("tone", [=](const SceneState& s) { return toneCurveNames()[static_cast<unsigned>(world(s).tone.curve)]; })
        .def("set_tone", [](SceneState& s, const std::string& name) { s.world().tone.curve = curveFrom(name); })
        .def("filter", [=](const SceneState& s) { return pixelFilterNames()[world(s).filter.kind]; })
        .def("set_filter", &setFilter)
        .def("filter_width", [=](const SceneState& s) { return world(s).filter.width; })
        .def("set_filter_width", &setFilterWidth)
        .def("background", [=](const SceneState& s) { return backgroundNames()[world(s).transparentBackground]; })
        .def("set_background", &setBackground)
        .def("camera", &camera)
        .def("set_camera", [](SceneState& s, const std::string& place) { s.world().chooseCamera(place); });
}

}  // namespace oxbeam::python
