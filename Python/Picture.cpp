#include "Python/Picture.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Python/Errors.h"
#include "Python/Values.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <span>

namespace oxbeam::python {

Picture::Picture(const World& world, RenderResult result, std::vector<Aov> wanted, const Making& making)
    : film(std::move(result.film)), whole(world.image), tone(world.tone), aovs(std::move(wanted)),
      statistics(std::move(result.statistics)), attributes(attributesOf(viewMatrices(world), making)),
      complete(result.complete), seconds(making.seconds) {
    if (has(Aov::Object)) attributes["oxbeam:objects"] = objectNames(world);
    film.develop();
}

// ---- Arrays

// Looks at a member of each pixel's record. It holds the picture, and cannot be written to.
template <class T, class Record>
static py::array look(const py::object& picture, std::span<const Record>, const void* member, unsigned numbers) {
    const Window& window = picture.cast<const Picture&>().film.window();
    constexpr auto record = static_cast<py::ssize_t>(sizeof(Record)), number = static_cast<py::ssize_t>(sizeof(T));
    const py::ssize_t width = window.width(), height = window.height();
    std::vector<py::ssize_t> shape = {height, width}, strides = {width * record, record};
    if (numbers > 1) shape.push_back(numbers), strides.push_back(number);
    py::array array(py::dtype::of<T>(), shape, strides, member, picture);
    array.attr("setflags")(py::arg("write") = false);
    return array;
}

static const Picture& requireLayer(const py::object& picture, Aov aov) {
    const auto& p = picture.cast<const Picture&>();
    if (p.has(aov)) return p;
    const std::string& name = aovNames()[static_cast<std::size_t>(aov)];
    throw py::attribute_error(fmt::format("this picture has no {}; render it with aovs=['{}']", name, name));
}

static py::array rgb(const py::object& picture) {
    const auto pixels = picture.cast<const Picture&>().film.sums();
    return look<float>(picture, pixels, &pixels[0].sum, 3);
}

static py::array samples(const py::object& picture) {
    const auto pixels = picture.cast<const Picture&>().film.sums();
    return look<unsigned>(picture, pixels, &pixels[0].samples, 1);
}

static py::array alpha(const py::object& picture) {
    const auto alphas = picture.cast<const Picture&>().film.alphaSums();
    if (alphas.empty())
        throw py::attribute_error("this picture has no alpha; the scene wants background = \"transparent\" for it");
    return look<float>(picture, alphas, alphas.data(), 1);
}

static py::array depth(const py::object& picture) {
    const auto aovs = requireLayer(picture, Aov::Depth).film.aovSums();
    return look<float>(picture, aovs, &aovs[0].depth, 1);
}

static py::array normal(const py::object& picture) {
    const auto aovs = requireLayer(picture, Aov::Normal).film.aovSums();
    return look<float>(picture, aovs, &aovs[0].normal, 3);
}

static py::array albedo(const py::object& picture) {
    const auto aovs = requireLayer(picture, Aov::Albedo).film.aovSums();
    return look<float>(picture, aovs, &aovs[0].albedo, 3);
}

static py::array object(const py::object& picture) {
    const auto aovs = requireLayer(picture, Aov::Object).film.aovSums();
    return look<unsigned>(picture, aovs, &aovs[0].object, 1);
}

// ---- Files

static ImageOptions optionsOf(const Picture& picture, unsigned bits) {
    ImageOptions options{bits, picture.tone};
    const Film& film = picture.film;
    if (film.hasAlpha()) options.alpha = {{"A"}, [&film](std::size_t i, float* to) { *to = film.alpha(i); }};
    options.placement = {film.window(), picture.whole};
    options.attributes = picture.attributes;
    for (const Aov aov : picture.aovs) options.layers.push_back(layerOf(aov, film));
    return options;
}

static void save(const Picture& picture, const py::object& path, const py::object& depth, const py::object& stops,
                 const py::object& toned) {
    const auto file = argument<std::filesystem::path>("file", path);
    const auto bits = argument<std::int64_t>("bits", depth);
    const auto exposure = argument<std::optional<float>>("exposure", stops);
    const auto curve = argument<std::optional<std::string>>("tone", toned);
    if (bits != 8 && bits != 16) throw Error(ExitStatus::Usage, fmt::format("bits={}: expected 8 or 16", bits));
    ImageOptions options = optionsOf(picture, static_cast<unsigned>(bits));
    checkImageFormat(file, options);
    if ((exposure || curve) && !isForDisplay(file))
        throw Error(ExitStatus::Usage, fmt::format("{}: '{}' keeps the light as it is; expected a name that ends in "
                                                   ".png, .jpg or .tif",
                                                   exposure ? "exposure" : "tone", file.string()));
    if (options.alpha && !hasRoomForAlpha(file))
        throw Error(ExitStatus::Usage, fmt::format("a transparent background: '{}' has no room for alpha; expected a "
                                                   "name that ends in .png, .tif or .exr",
                                                   file.string()));
    if (exposure) options.tone.exposure = exposureFrom(*exposure);
    if (curve) options.tone.curve = curveFrom(*curve);
    const py::gil_scoped_release release;
    writeImage(file, picture.film.window().width(), picture.film.window().height(), picture.film.pixels(), options);
}

namespace {

class MemorySink final : public FileSink {
public:
    std::string bytes;

    void write(std::span<const unsigned char> part) override {
        bytes.resize(std::max(bytes.size(), m_position + part.size()));
        std::copy(part.begin(), part.end(), bytes.begin() + static_cast<std::ptrdiff_t>(m_position));
        m_position += part.size();
    }
    void seek(std::uint64_t position) override { m_position = position; }
    std::uint64_t position() const override { return m_position; }
    std::uint64_t size() const override { return bytes.size(); }
    void finish() override {}

private:
    std::size_t m_position = 0;
};

}  // namespace

static py::bytes png(const Picture& picture) {
    MemorySink sink;
    {
        const py::gil_scoped_release release;
        writeImage(sink, "picture.png", picture.film.window().width(), picture.film.window().height(),
                   picture.film.pixels(), optionsOf(picture, 8));
    }
    return {sink.bytes};
}

// ---- What is said of it

static py::dict statistics(const Picture& picture) {
    using namespace py::literals;
    const RenderStatistics& s = picture.statistics;
    const RayCounts& r = s.rays;
    py::dict rays("primary"_a = r.primary, "shadow"_a = r.shadow, "transparency"_a = r.transparency,
                  "refraction"_a = r.refraction, "reflection"_a = r.reflection, "other"_a = r.other,
                  "total"_a = r.total());
    return py::dict("seconds"_a = picture.seconds, "passes"_a = s.passes, "rays"_a = rays,
                    "refused_rays"_a = s.refusedRays, "bad_samples"_a = s.badSamples,
                    "bad_samples_of"_a = s.badSamplesOf, "overflowed_pixels"_a = s.overflowedPixels);
}

static py::tuple crop(const Picture& picture) {
    const Window& w = picture.film.window();
    return py::make_tuple(w.x0, w.y0, w.x1, w.y1);
}

void bindPicture(py::module_& module) {
    py::options options;
    options.disable_function_signatures();
    py::class_<Picture, std::shared_ptr<Picture>>(module, "Picture",
                                                  "A picture that was rendered.\n\nIts arrays look at the memory that "
                                                  "it was rendered into: rows from the top, not "
                                                  "to be written to, and good for as long as they are held.",
                                                  withoutNew())
        .def_property_readonly("rgb", &rgb, "Linear colours: float32, height x width x 3.")
        .def_property_readonly("alpha", &alpha, "0 to 1, where the scene's background is transparent: height x width.")
        .def_property_readonly("depth", &depth, "Along the way that the camera looks; infinity where nothing is.")
        .def_property_readonly("normal", &normal, "Shading normals, averaged: height x width x 3.")
        .def_property_readonly("albedo", &albedo, "Colours before any light falls on them: height x width x 3.")
        .def_property_readonly("object", &object,
                               "Numbers of objects from 1, and 0 where none is: see Scene.instances.")
        .def_property_readonly("samples", &samples, "How many samples each pixel has: uint32.")
        .def_property_readonly(
            "size", [](const Picture& p) { return py::make_tuple(p.film.window().width(), p.film.window().height()); },
            "Width and height.")
        .def_property_readonly("crop", &crop, "The part of the whole picture that it is: x0, y0, x1, y1.")
        .def_property_readonly(
            "passes", [](const Picture& p) { return p.statistics.passes; }, "Samples that every pixel has.")
        .def_readonly("complete", &Picture::complete, "False where it was interrupted.")
        .def_property_readonly("statistics", &statistics, "Seconds, rays by their kind, and what went wrong.")
        .def(
            "save", &save, py::arg("file"), py::kw_only(), py::arg("bits") = 8u, py::arg("exposure") = py::none(),
            py::arg("tone") = py::none(),
            "save(file, *, bits=8, exposure=None, tone=None)\n\nWrites EXR or HDR with linear colours, or PNG, JPEG or "
            "TIFF as sRGB, which the file's ending says. `bits` (8 or 16) is of PNG and TIFF; `exposure` (stops) and "
            "`tone` (a curve) are of pictures for displays, and the scene's where they are not given. EXR has the "
            "layers "
            "too, and says what the picture was made from.")
        .def("_repr_png_", &png)
        .def("__repr__", [](const Picture& p) {
            return fmt::format("<oxbeam.Picture {} x {}, {} passes{}>", p.film.window().width(),
                               p.film.window().height(), p.statistics.passes, p.complete ? "" : ", interrupted");
        });
}

}  // namespace oxbeam::python
