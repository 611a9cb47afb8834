// What stands in a scene, and meshes from NumPy.
#include "Engine/System/Hash.h"
#include "Python/Aside.h"
#include "Python/SceneState.h"
#include "Python/Values.h"

#include <fmt/format.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <span>

namespace oxbeam::python {

// Of four rows or three, as NumPy has them.
using Rows = std::array<std::array<float, 4>, 3>;

static Matrix matrixFrom(const Rows& rows) {
    Matrix matrix;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 4; ++j) matrix.m[i][j] = rows[i][j];
    return matrix;
}

static Rows rowsOf(const Matrix& matrix) {
    Rows rows{};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 4; ++j) rows[i][j] = matrix.m[i][j];
    return rows;
}

static Rows transformOf(const SceneState& scene, const std::string& place) {
    return rowsOf(scene.world().placements.at(place).toWorld);
}

static void move(SceneState& scene, const std::string& place, const Rows& rows) {
    scene.world().placements.move(place, matrixFrom(rows));
}

static void setShader(SceneState& scene, const std::string& place, const std::string& shader) {
    World& world = scene.world();
    world.placements.setShader(place, world.shaderNumber(shader));
}

// Kinds of rays. Parts of one placement see the same.
static std::vector<std::string> visibility(const SceneState& scene, const std::string& place) {
    const World& world = scene.world();
    const std::vector<Placed::Part>& parts = world.placements.at(place).parts;
    const Oxuint mask = parts.empty() ? 0u : world.geometry.scene().instances[parts.front().instance]->visibilityMask;
    std::vector<std::string> kinds;
    for (unsigned i = 0; i < rayKindNames().size(); ++i)
        if (mask >> i & 1) kinds.push_back(rayKindNames()[i]);
    return kinds;
}

static void setVisibility(SceneState& scene, const std::string& place, const std::vector<std::string>& kinds) {
    Oxuint mask = 0;
    for (const std::string& kind : kinds) mask |= 1u << indexOf("visible_to", kind, rayKindNames());
    scene.world().placements.setVisibility(place, kinds.size() == rayKindNames().size() ? Oxuint{RAY_ALL} : mask);
}

// By the numbers that pictures and hits have.
static std::vector<unsigned> numbersOf(const SceneState& scene, const std::string& place) {
    std::vector<unsigned> numbers;
    for (const Placed::Part& part : scene.world().placements.at(place).parts) numbers.push_back(part.instance + 1);
    return numbers;
}

// ---- Meshes

template <class T>
using Array = py::array_t<T, py::array::c_style | py::array::forcecast>;

// Of rows with as many columns as an element has numbers. The memory is laid out as the engine's, so that it is copied at
// one go.
template <class Element, class T>
static std::vector<Element> elementsOf(const Array<T>& array, const char* what) {
    constexpr py::ssize_t columns = sizeof(Element) / sizeof(T);
    if (array.ndim() != 2 || array.shape(1) != columns)
        throw py::value_error(fmt::format("{}: expected an array of {} columns", what, columns));
    std::vector<Element> elements(static_cast<std::size_t>(array.shape(0)));
    std::copy_n(array.data(), array.size(), reinterpret_cast<T*>(elements.data()));
    return elements;
}

static void requireIndices(const std::vector<std::array<Oxuint, 3>>& faces, std::size_t vertices) {
    for (const auto& face : faces)
        for (const Oxuint index : face)
            if (index >= vertices)
                throw py::value_error(fmt::format("a face has the vertex {}, of {} from 0", index, vertices));
}

static void requireAsMany(std::size_t number, std::size_t vertices, const char* what) {
    if (number != 0 && number != vertices)
        throw py::value_error(fmt::format("{} {} for {} vertices; expected as many", number, what, vertices));
}

static std::uint64_t hashOf(const MeshData& mesh) {
    std::uint64_t hash = 0;
    const auto add = [&hash](const auto& elements) {
        hash = oxbeam::hashOf(std::as_bytes(std::span(elements)), hash) + elements.size();
    };
    add(mesh.positions), add(mesh.normals), add(mesh.texCoords), add(mesh.indices);
    return hash;
}

static std::string addMesh(SceneState& scene, const std::string& name, const Array<float>& vertices,
                           const Array<Oxuint>& faces, const std::optional<Array<float>>& normals,
                           const std::optional<Array<float>>& uv, const std::string& shader, const Rows& transform) {
    MeshData mesh;
    mesh.name = name;
    mesh.positions = elementsOf<R3>(vertices, "vertices");
    if (normals) mesh.normals = elementsOf<R3>(*normals, "normals");
    if (uv) mesh.texCoords = elementsOf<R2>(*uv, "uv");
    const auto corners = elementsOf<std::array<Oxuint, 3>>(faces, "faces");
    requireIndices(corners, mesh.positions.size());
    requireAsMany(mesh.normals.size(), mesh.positions.size(), "normals");
    requireAsMany(mesh.texCoords.size(), mesh.positions.size(), "texture coordinates");
    mesh.indices.reserve(3 * corners.size());
    for (const auto& face : corners) mesh.indices.insert(mesh.indices.end(), face.begin(), face.end());

    const std::uint64_t hash = hashOf(mesh);
    World& world = scene.world();
    const unsigned number =
        shader.empty() && !world.shaders.empty() ? 0 : world.shaderNumber(shader.empty() ? "shader" : shader);
    std::string place = world.placements.addMesh(std::move(mesh), number, matrixFrom(transform));
    const unsigned instance = world.placements.at(place).parts.front().instance;
    if (!name.empty()) world.nameObject(instance, name);
    scene.note(objectNote(instance), hash);
    return place;
}

void bindPlacements(SceneClass& scene) {
    scene.def("transform", &transformOf)
        .def("move", &move)
        .def("set_shader", &setShader)
        .def("visibility", &visibility)
        .def("set_visibility", &setVisibility)
        .def("numbers", &numbersOf)
        .def("add_mesh", &addMesh);
}

}  // namespace oxbeam::python
