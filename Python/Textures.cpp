// The textures of a scene, and pictures for them from NumPy or from files.
#include "Engine/System/Hash.h"
#include "Engine/Textures/TextureFile.h"
#include "Python/Aside.h"
#include "Python/Errors.h"
#include "Python/SceneState.h"
#include "Python/Values.h"

#include <fmt/format.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

namespace oxbeam::python {

static const std::string Prefix = "texture.";

static py::dict textures(const SceneState& scene) {
    World& world = scene.world();
    py::dict sizes;
    for (const std::string& path : world.textureNames.paths()) {
        const auto at = path.rfind(Prefix);
        const auto* named =
            world.textureNames.find(at == 0 ? "" : path.substr(0, at - 1), path.substr(at + Prefix.size()));
        const TextureObject* texture = named ? world.textures.ByID(named->id) : nullptr;
        if (texture) sizes[py::str(path)] = py::make_tuple(texture->width(), texture->height());
    }
    return sizes;
}

static std::optional<ColorSpace> spaceFrom(const std::string& name) {
    static const std::vector<std::string> names = {"linear", "srgb"};
    if (name.empty()) return std::nullopt;
    return indexOf("color_space", name, names) == 0 ? ColorSpace::Linear : ColorSpace::SRGB;
}

// A name of the scene's own is there from now on.
static void setPicture(SceneState& scene, const std::string& path, std::unique_ptr<Texture> picture,
                       std::uint64_t hash) {
    World& world = scene.world();
    const std::vector<std::string> known = world.textureNames.paths();
    const bool isNew = std::find(known.begin(), known.end(), path) == known.end();
    const std::string name = path.substr(std::min(Prefix.size(), path.size()));
    if (isNew && path.starts_with(Prefix) && !name.empty() && name.find('.') == name.npos)
        world.textureNames.define("", name);
    world.setPicture(path, std::move(picture));
    scene.note(path, hash);
}

static void setFile(SceneState& scene, const std::string& path, const std::filesystem::path& file,
                    const std::string& space) {
    scene.world();  // is there
    const std::optional<ColorSpace> chosen = spaceFrom(space);
    std::unique_ptr<Texture> picture;
    std::uint64_t hash = 0;
    {
        const Turn turn;
        runAside(
            [&] {
                picture = loadTexture(file, chosen);
                hash = hashOfFile(file);
            },
            Turn::stop());
    }
    const std::size_t mended = picture->mended();
    setPicture(scene, path, std::move(picture), hash);
    if (mended)
        warn(fmt::format("{}: {} numbers of the picture are not finite; they count as 0, infinities as 65504",
                         file.string(), mended));
}

// Rows of arrays are from the top, those of textures from the bottom.
template <class T>
static void setArray(SceneState& scene, const std::string& path, const py::array_t<T, py::array::c_style>& array,
                     const std::string& space) {
    if (array.ndim() != 3 || array.shape(2) < 1 || array.shape(2) > 4 || array.size() == 0 ||
        std::max(array.shape(0), array.shape(1)) > static_cast<py::ssize_t>(MaxImageSide))
        throw py::value_error(
            fmt::format("expected a picture of height x width x 1 to 4, with sides of 1 to {}", MaxImageSide));
    const auto size = [&](int axis) { return static_cast<std::size_t>(array.shape(axis)); };
    const std::size_t row = size(1) * size(2);
    std::vector<T> texels(size(0) * row);
    for (std::size_t y = 0; y < size(0); ++y)
        std::copy_n(array.data() + y * row, row, &texels[(size(0) - 1 - y) * row]);
    const std::uint64_t hash = hashOf(std::as_bytes(std::span(texels)));
    const ColorSpace usual = std::is_same_v<T, float> ? ColorSpace::Linear : ColorSpace::SRGB;
    auto picture =
        std::make_unique<Texture>(static_cast<unsigned>(size(1)), static_cast<unsigned>(size(0)),
                                  static_cast<unsigned>(size(2)), std::move(texels), spaceFrom(space).value_or(usual));
    setPicture(scene, path, std::move(picture), hash);
}

void bindTextures(SceneClass& scene) {
    scene.def("textures", &textures)
        .def("set_texture_file", &setFile)
        .def("set_texture", &setArray<std::uint8_t>, py::arg(), py::arg().noconvert(), py::arg())
        .def("set_texture", &setArray<std::uint16_t>, py::arg(), py::arg().noconvert(), py::arg())
        .def("set_texture", &setArray<float>, py::arg(), py::arg().noconvert(), py::arg());
}

}  // namespace oxbeam::python
