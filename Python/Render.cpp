// Rendering, and what interrupts it.
#include "Engine/Render/Advice.h"
#include "Engine/System/Interruption.h"
#include "Engine/System/Stopwatch.h"
#include "Python/Aside.h"
#include "Python/Errors.h"
#include "Python/SceneState.h"
#include "Python/Values.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace oxbeam::python {

unsigned threadsFor(const World& world, const std::optional<std::int64_t>& wanted) {
    constexpr unsigned most = OxRenderingObject::MaxThreads;
    if (wanted && (*wanted < 1 || *wanted > most))
        throw Error(ExitStatus::Usage, fmt::format("threads={}: expected 1 to {}", *wanted, most));
    if (wanted) return static_cast<unsigned>(*wanted);
    const OxRenderingObject& ro = *world.renderingObject;
    if (ro.m_multiThreading == 0) return 1;
    return ro.m_numThreads > 0 ? static_cast<unsigned>(ro.m_numThreads) : std::min(availableThreads(), most);
}

namespace {

using Number = std::int64_t;

struct Wish {
    std::optional<Number> samples;
    std::optional<std::array<Number, 2>> size;
    std::vector<std::string> aovs;
    std::optional<Number> threads;
    std::optional<std::array<Number, 4>> crop;
    std::optional<double> seconds;
    bool packets = false;
    std::string command;

    explicit Wish(const py::dict& given) {
        takeFrom(given, "samples", samples);
        takeFrom(given, "size", size);
        takeFrom(given, "aovs", aovs);
        takeFrom(given, "threads", threads);
        takeFrom(given, "crop", crop);
        takeFrom(given, "seconds", seconds);
        takeFrom(given, "packets", packets);
        takeFrom(given, "command", command);
    }
};

// The scene's own size comes back when the picture is there.
class Sized {
public:
    Sized(World& world, const std::optional<std::array<Number, 2>>& size) : m_world(world), m_before(world.image) {
        if (size) world.image = imageSizeFrom(*size);
    }
    ~Sized() { m_world.image = m_before; }
    Sized(const Sized&) = delete;
    Sized& operator=(const Sized&) = delete;

private:
    World& m_world;
    ImageSize m_before;
};

}  // namespace

static std::vector<Aov> aovsFrom(const std::vector<std::string>& names) {
    std::vector<Aov> aovs;
    for (const std::string& name : names) {
        const auto found = std::find(aovNames().begin(), aovNames().end(), name);
        if (found == aovNames().end())
            throw Error(ExitStatus::Usage, fmt::format("aovs: no layer is called '{}'; expected some of {}{}", name,
                                                       fmt::join(aovNames(), ", "), didYouMean(name, aovNames())));
        const auto aov = static_cast<Aov>(found - aovNames().begin());
        if (std::find(aovs.begin(), aovs.end(), aov) == aovs.end()) aovs.push_back(aov);
    }
    return aovs;
}

static Window cropFrom(const std::array<Number, 4>& crop, const ImageSize& image) {
    const auto [x0, y0, x1, y1] = crop;
    if (x0 < 0 || y0 < 0 || x0 >= x1 || y0 >= y1 || x1 > image.width || y1 > image.height)
        throw Error(ExitStatus::Usage,
                    fmt::format("crop={}: expected x0, y0, x1, y1 with x0 < x1 <= {} and y0 < y1 <= {}", crop,
                                image.width, image.height));
    const auto pixel = [](Number n) { return static_cast<unsigned>(n); };
    return {pixel(x0), pixel(y0), pixel(x1), pixel(y1)};
}

// As of scene files: what would run out of stack.
static void requireEnd(const World& world) {
    if (world.renderingObject->m_recursionLimit > MaxRecursionLimit)
        throw Error(ExitStatus::Usage, fmt::format("recursionLimit of 'render' is {}; expected 0 to {}",
                                                   world.renderingObject->m_recursionLimit, MaxRecursionLimit));
}

static RenderOptions optionsFrom(const Wish& wish, const World& world, const std::vector<Aov>& aovs) {
    RenderOptions options;
    const Number scenes = world.renderingObject->m_samplesPerPixel;
    const Number samples = wish.samples.value_or(wish.seconds ? MaxSamples : scenes);
    if (samples < 1 || samples > MaxSamples)
        throw Error(ExitStatus::Usage, fmt::format("samples={}: expected 1 to {}", samples, MaxSamples));
    if (wish.seconds && !(*wish.seconds > 0.0))
        throw Error(ExitStatus::Usage, fmt::format("seconds={}: expected more than 0", *wish.seconds));
    options.samples = static_cast<unsigned>(samples);
    options.seconds = wish.seconds;
    if (wish.crop) options.crop = cropFrom(*wish.crop, world.image);
    options.packets = wish.packets;
    options.aovs = std::any_of(aovs.begin(), aovs.end(), [](Aov aov) { return aov != Aov::Samples; });
    options.alpha = world.transparentBackground;
    return options;
}

static void warnOf(const RenderStatistics& s) {
    if (s.refusedRays)
        warn(fmt::format("{} rays were not finite or too far out, and counted as misses", s.refusedRays));
    if (s.badSamples) warn(fmt::format("{} samples were not finite, and counted as black", s.badSamples));
    if (s.overflowedPixels)
        warn(fmt::format("the samples of {} pixels add up to more than a number holds, and were limited to that",
                         s.overflowedPixels));
    if (!s.packetsRefused.empty()) warn(fmt::format("packets=True has no effect: {}", s.packetsRefused));
}

// By what it was loaded from and what is other since then.
Inputs SceneState::inputs(const RenderOptions& options) const {
    Inputs inputs = m_inputs;
    addRendering(inputs, *m_world, options);
    if (const std::uint64_t now = stateOf(*m_world); now != m_loaded) inputs["changes"] = hashText(now);
    for (const auto& [what, hash] : m_given) inputs["given " + what] = hashText(hash);
    return inputs;
}

// Whoever caught the exception finds the picture in it, and else in the scene.
static void attachPicture(const py::error_already_set& error, const SceneState& scene) {
    if (scene.last && PyObject_SetAttrString(error.value().ptr(), "picture", py::cast(scene.last).ptr()) != 0)
        PyErr_Clear();  // one that takes none
}

static std::shared_ptr<Picture> render(SceneState& scene, const Wish& wish, const py::object& progress) {
    const std::vector<Aov> aovs = aovsFrom(wish.aovs);
    const Turn turn;
    const SceneState::Use use(scene);
    requireThreads();
    World& world = use.world;
    requireEnd(world);
    const Sized sized(world, wish.size);
    RenderOptions options = optionsFrom(wish, world, aovs);
    const Inputs inputs = scene.inputs(options);
    const unsigned threads = threadsFor(world, wish.threads);
    std::atomic<bool> stop{false};
    std::atomic<double> done{0.0};
    options.stop = &stop;
    options.progress = [&](const Progress& p) { done = p.done; };

    scene.last = nullptr;
    std::optional<RenderResult> result;
    Stopwatch clock;
    std::optional<std::string> advice;
    const auto work = [&] {
        Workers workers(threads);
        workers.within([&] { world.geometry.build(SceneGeometry::defaultIsa(), &stop); });
        advice = adviceOnEye(world);
        clock = Stopwatch();
        result.emplace(oxbeam::render(world, workers, options));
    };
    const auto tick = [&] {
        if (!progress.is_none()) progress(done.load());
    };
    const auto keep = [&] {
        if (!result) return;
        if (!advice) advice = adviceOnPicture(world, result->film, {});
        const Making making{wish.command, inputs, result->statistics.passes, clock.seconds()};
        scene.last = std::make_shared<Picture>(world, std::move(*result), aovs, making);
    };
    try {
        runAside(work, stop, tick);
    } catch (const py::error_already_set& error) {
        keep();
        attachPicture(error, scene);
        throw;
    }
    const std::exception_ptr failure = result->failure;
    keep();
    if (failure) std::rethrow_exception(failure);
    if (!scene.last->complete) throw Interruption("the process ends");
    if (!progress.is_none()) progress(1.0);
    warnOf(scene.last->statistics);
    if (advice) warn(*advice);
    return scene.last;
}

void bindRender(SceneClass& scene) {
    scene.def("render", [](SceneState& self, const py::dict& wish, const py::object& progress) {
        return render(self, Wish(wish), progress);
    });
}

}  // namespace oxbeam::python
