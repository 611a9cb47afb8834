// Arrays of rays, and what they hit.
#include "Engine/Scene/RayStream.h"
#include "Python/Aside.h"
#include "Python/SceneState.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace oxbeam::python {

using Vectors = py::array_t<float, py::array::c_style>;

static std::span<const R3> vectorsOf(const Vectors& array) {
    if (array.ndim() != 2 || array.shape(1) != 3) throw py::value_error("expected an array of 3 columns");
    return {reinterpret_cast<const R3*>(array.data()), static_cast<std::size_t>(array.shape(0))};
}

static py::tuple intersect(SceneState& scene, const Vectors& origins, const Vectors& directions,
                           const std::optional<std::int64_t>& threads) {
    const RayStream rays{vectorsOf(origins), vectorsOf(directions)};
    if (rays.origins.size() != 1 && rays.origins.size() != rays.directions.size())
        throw py::value_error("expected as many origins as directions, or one");
    const auto count = static_cast<py::ssize_t>(rays.directions.size());
    py::array_t<float> distance(count), normal({count, py::ssize_t{3}});
    py::array_t<unsigned> object(count);
    py::array_t<int> triangle(count);
    const StreamHits hits{distance.mutable_data(), object.mutable_data(), triangle.mutable_data(),
                          reinterpret_cast<R3*>(normal.mutable_data())};
    const SceneState::Use use(scene);
    requireThreads();
    const unsigned number = threadsFor(use.world, threads);
    std::atomic<bool> stop{false};
    runAside(
        [&] {
            Workers workers(number);
            workers.within([&] { use.world.geometry.build(SceneGeometry::defaultIsa(), &stop); });
            oxbeam::intersect(use.world.geometry, workers, rays, hits, &stop);
        },
        stop);
    return py::make_tuple(distance, object, triangle, normal);
}

void bindIntersect(SceneClass& scene) { scene.def("intersect", &intersect); }

}  // namespace oxbeam::python
