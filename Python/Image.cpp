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

static void setFilterWidth(SceneState& scene, const py::object& pixels) {
    const auto width = argument<float>("filter_width", pixels);
    if (!(width >= LeastFilterWidth && width <= MostFilterWidth))
        throw Error(ExitStatus::Usage, fmt::format("filter_width: expected {:g} to {:g}, not {:g}", LeastFilterWidth,
                                                   MostFilterWidth, width));
    scene.world().filter.width = width;
}

static void setFilter(SceneState& scene, const py::object& name) {
    const auto kind =
        static_cast<PixelFilter::Kind>(indexOf("filter", argument<std::string>("filter", name), pixelFilterNames()));
    scene.world().filter = {kind, usualWidth(kind)};
}

static void setBackground(SceneState& scene, const py::object& name) {
    scene.world().transparentBackground =
        indexOf("background", argument<std::string>("background", name), backgroundNames()) == 1;
}

static void setSize(SceneState& scene, const py::object& size) {
    scene.world().image = imageSizeFrom(argument<Size>("size", size));
}

static void setExposure(SceneState& scene, const py::object& stops) {
    scene.world().tone.exposure = exposureFrom(argument<float>("exposure", stops));
}

static void setTone(SceneState& scene, const py::object& curve) {
    scene.world().tone.curve = curveFrom(argument<std::string>("tone", curve));
}

static void setCamera(SceneState& scene, const py::object& place) {
    const auto name = argument<std::string>("camera", place);
    scene.world().chooseCamera(name);
}

static std::string camera(const SceneState& scene) {
    const World& world = scene.world();
    return world.places.placeOf(world.camera);
}

void bindImage(SceneClass& scene) {
    const auto world = [](const SceneState& s) -> const World& { return s.world(); };
    scene.def("size", [=](const SceneState& s) { return py::make_tuple(world(s).image.width, world(s).image.height); })
        .def("set_size", &setSize)
        .def("exposure", [=](const SceneState& s) { return world(s).tone.exposure; })
        .def("set_exposure", &setExposure)
        .def("tone", [=](const SceneState& s) { return toneCurveNames()[static_cast<unsigned>(world(s).tone.curve)]; })
        .def("set_tone", &setTone)
        .def("filter", [=](const SceneState& s) { return pixelFilterNames()[world(s).filter.kind]; })
        .def("set_filter", &setFilter)
        .def("filter_width", [=](const SceneState& s) { return world(s).filter.width; })
        .def("set_filter_width", &setFilterWidth)
        .def("background", [=](const SceneState& s) { return backgroundNames()[world(s).transparentBackground]; })
        .def("set_background", &setBackground)
        .def("camera", &camera)
        .def("set_camera", &setCamera);
}

}  // namespace oxbeam::python
