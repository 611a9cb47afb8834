// How the objects of a package behave: each stage runs in a process of its own, so that whatever an object does there,
// the others are still looked at.
#include "Apps/oxbeam/CheckPackage.h"
#include "Apps/oxbeam/PackageScene.h"
#include "Engine/Packages/ParameterValue.h"
#include "Engine/Packages/Trial.h"
#include "Engine/Packages/Watch.h"
#include "Engine/Render/Renderer.h"
#include "Engine/Render/Session.h"
#include "Oxbeam/FastOxS4.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/ProgBRDF.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <thread>

namespace oxbeam {

namespace {

// Longer than any object needs for a few thousand rays, on a machine that is busy with much else.
constexpr TrialLimits StageLimits{10, 60};

// Of these there may be more than one worth telling; of the other faults the first stands for all.
const std::string Unset = "unset";

// From within a stage.
void tell(const std::string& kind, const std::string& text, bool fault = true) {
    static std::set<std::string> told;
    if (told.insert(kind == Unset ? text : kind).second)
        reportFromTrial(nlohmann::json{{"kind", kind}, {"text", text}, {"fault", fault}}.dump(
            -1, ' ', false, nlohmann::json::error_handler_t::replace));
}

// What it says of itself without the package's path.
void tellThrown(const ObjectClass& object, const std::string& message) {
    const std::string own = object.package + ": ";
    tell("exception", message.substr(message.starts_with(own) ? own.size() : 0));
}

// ---- Memory

// Two objects over memory that held something else before.
void checkMemory(const ObjectClass& object, const TrialSteps& step) {
    step("while it is made and set to its defaults");
    const ApartObject one(object, 0x5A), other(object, 0xA5);
    if (one.get() == nullptr || other.get() == nullptr) return;
    for (const ParameterDeclaration& p : object.parameters) {
        const auto bytes = [&](const ApartObject& made) {
            return reinterpret_cast<const std::byte*>(made.get()) + p.offset;
        };
        if (std::memcmp(bytes(one), bytes(other), static_cast<std::size_t>(p.size)) != 0)
            tell(Unset, fmt::format("Init leaves '{}' unset", p.id));
    }
}

// ---- Every operation of its kind, the object in memory that nobody may write to

// Where the object lies, for the handler of a write to it.
struct Guarded {
    std::byte *begin = nullptr, *end = nullptr;  // the object
    std::byte *pageBegin = nullptr, *pageEnd = nullptr;
    const ObjectClass* object = nullptr;
    struct sigaction before {};  // whose the other crashes are
    std::string written;         // the member; nothing where none was
} s_guarded;

void permit(int protection) {
    mprotect(s_guarded.pageBegin, static_cast<std::size_t>(s_guarded.pageEnd - s_guarded.pageBegin), protection);
}

// The process has nothing else to lose: what is not safe in a handler is done all the same.
void onWrite(int number, siginfo_t* info, void*) {
    const auto* at = static_cast<const std::byte*>(info->si_addr);
    if (at < s_guarded.pageBegin || at >= s_guarded.pageEnd) {
        sigaction(number, &s_guarded.before, nullptr);
        return;
    }
    permit(PROT_READ | PROT_WRITE);
    if (at < s_guarded.begin || at >= s_guarded.end) return;
    const std::ptrdiff_t offset = at - s_guarded.begin;
    s_guarded.written = fmt::format("byte {} of it", offset);
    for (const ParameterDeclaration& p : s_guarded.object->parameters)
        if (offset >= p.offset && offset < p.offset + p.size) s_guarded.written = fmt::format("'{}'", p.id);
}

// No object is written to while this exists.
class ReadOnly {
public:
    explicit ReadOnly(const ApartObject& object, const ObjectClass& type) {
        auto* begin = reinterpret_cast<std::byte*>(object.get());
        const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        const auto down = [&](std::byte* p) { return p - reinterpret_cast<std::uintptr_t>(p) % page; };
        s_guarded = {begin, begin + object.size(), down(begin), down(begin + object.size() - 1) + page, &type, {}, {}};
        struct sigaction action {};
        action.sa_sigaction = onWrite;
        action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
        sigaction(SIGSEGV, &action, &s_guarded.before);
    }
    ~ReadOnly() { permit(PROT_READ | PROT_WRITE); }
    ReadOnly(const ReadOnly&) = delete;
    ReadOnly& operator=(const ReadOnly&) = delete;
};

class Operations {
public:
    Operations(const ObjectClass& object, const Registry& registry, const TrialSteps& step)
        : m_object(object), m_step(step), m_scene(object, registry) {}

    void run() {
        if (!m_scene.complete()) return;
        World& world = m_scene.world();
        m_step("in NewFrame");
        std::optional<Session> session;
        const auto begin = [&] { session.emplace(world); };
        if (!guarded(begin)) return;
        m_session = &*session;
        world.renderingObject->initTile(0, 0);
        std::optional<ReadOnly> readOnly;
        // A rendering object keeps a record for each thread, which is written to.
        if (m_object.kind != ObjectKind::RenderingObject) readOnly.emplace(m_scene.object(), m_object);
        const auto& tested = *m_scene.object().get();
        if (dynamic_cast<const OxShader*>(&tested)) askShader();
        if (dynamic_cast<const OxLight*>(&tested)) askLight();
        if (dynamic_cast<const OxCamera*>(&tested)) askCamera();
        if (dynamic_cast<const OxRenderingObject*>(&tested)) askRenderingObject();
        each("while it is rendered", [&] {
            for (unsigned y = 0; y < world.image.height; ++y)
                for (unsigned x = 0; x < world.image.width; ++x) {
                    OxState state = m_session->primaryState();
                    if (shoot(state, x, y)) Session::shade(state);
                    lookForChange();
                }
        });
        readOnly.reset();
    }

private:
    bool guarded(const std::function<void()>& work) {
        try {
            watchPackages([&] { work(); });
            return true;
        } catch (const std::exception& e) {
            tellThrown(m_object, e.what());
        } catch (...) {
            tell("exception", "it throws");
        }
        return false;
    }
    void each(const std::string& doing, const std::function<void()>& work) {
        m_step(doing);
        s_guarded.written.clear();
        if (s_guarded.pageBegin) permit(PROT_READ);
        guarded(work);
        if (s_guarded.pageBegin) permit(PROT_READ | PROT_WRITE);
        if (!s_guarded.written.empty()) watchChanges(doing, work);
    }
    // Whoever writes the same value again and again harms no other thread.
    void watchChanges(const std::string& doing, const std::function<void()>& work) {
        m_before.assign(s_guarded.begin, s_guarded.end);
        m_changed = false;
        guarded(work);
        lookForChange();
        m_before.clear();
        if (m_changed)
            tell("writes", fmt::format("it writes to itself {}: {}", doing, s_guarded.written));
        else
            tell("rewrites",
                 fmt::format("it writes to itself {}, though only what is there already: {}", doing, s_guarded.written),
                 false);
    }
    void lookForChange() {
        m_changed = m_changed || (!m_before.empty() && !std::equal(m_before.begin(), m_before.end(), s_guarded.begin));
    }
    void operation(const char* name, const std::function<void()>& work) { each(fmt::format("in {}", name), work); }

    bool shoot(OxState& state, unsigned x, unsigned y) {
        const float pattern[2] = {0.5f, 0.5f};
        OxCamera& camera = *m_scene.world().camera;
        return camera.InitPrimaryRay(&state, static_cast<int>(x), static_cast<int>(y), pattern) && oxsShootRay(&state);
    }
    // Does something with every eighth hit of the picture.
    void atHits(const std::function<void(OxState&)>& act) {
        const ImageSize& image = m_scene.world().image;
        for (unsigned y = 0; y < image.height; y += 4)
            for (unsigned x = 0; x < image.width; x += 2) {
                OxState state = m_session->primaryState();
                if (shoot(state, x, y)) act(state);
                lookForChange();
            }
    }
    void finite(const char* name, const R3& result) {
        if (!IsFinite(result)) tell("nan", fmt::format("{} gives what is not finite", name));
    }

    void askShader();
    void askLight();
    void askCamera();
    void askRenderingObject();

    const ObjectClass& m_object;
    const TrialSteps& m_step;
    PackageScene m_scene;
    const Session* m_session = nullptr;
    std::vector<std::byte> m_before;  // the object's bytes, while changes are looked for
    bool m_changed = false;
};

void Operations::askShader() {
    auto& shader = dynamic_cast<OxShader&>(*m_scene.object().get());
    operation("Shade", [&] {
        atHits([&](OxState& state) {
            shader.Shade(&state);
            finite("Shade", state.color);
        });
    });
    operation("LightTransparency", [&] {
        atHits([&](OxState& state) {
            R3 direction, origin;
            oxsGetRayDirection(&state, direction);
            oxsGetRayOrigin(&state, origin);
            OxState shadow;
            oxsInitState(&state, &shadow);
            oxsSetRayVisibility(&shadow, RAY_SHADOW);
            oxsSetRay(&shadow, origin, direction, 100.0f);
            shadow.color = White;
            if (!oxsShootRay(&shadow) || !shader.LightTransparency(&shadow)) return;
            finite("LightTransparency", shadow.color);
            if (Session::hasPromisedToBlockLight(shader))
                tell("promise", "it lets light through, though it has promised to block it in this frame");
        });
    });
    operation("EvalBRDF", [&] {
        atHits([&](OxState& state) {
            ProgBRDF brdf;
            shader.EvalBRDF(brdf, state);
        });
    });
}

void Operations::askLight() {
    auto& light = dynamic_cast<OxLight&>(*m_scene.object().get());
    OxShader& surface = *m_scene.world().shaders.front();
    R3 a, b;
    float x = 0.0f, y = 0.0f;
    operation("Illuminate", [&] {
        atHits([&](OxState& state) {
            OxState shadow;
            oxsInitState(&state, &shadow);
            R3 position, direction, intensity;
            float distance = 0.0f;
            oxsGetHitPosition(&state, position);
            if (!light.Illuminate(position, direction, distance, intensity, &shadow, &surface)) return;
            finite("Illuminate", direction);
            finite("Illuminate", intensity);
            if (std::isnan(distance)) tell("nan", "Illuminate gives no distance");
        });
    });
    operation("SamplePosition", [&] { light.SamplePosition(a, 0.25f, 0.75f); });
    operation("SampleDirection", [&] { light.SampleDirection(b, 0.25f, 0.75f); });
    operation("GetIWE", [&] { light.GetIWE(R3(0, 1, 0), R3(0, -1, 0), a); });
    operation("GetNormal", [&] { light.GetNormal(R3(0, 1, 0)); });
    operation("GetSampleProbability", [&] { light.GetSampleProbability(); });
    operation("AsPointLight", [&] { light.AsPointLight(a, b, x); });
    operation("EstimateImportance", [&] { light.EstimateImportance(x, y); });
    operation("GetIlluminanceAngle", [&] { light.GetIlluminanceAngle(); });
}

void Operations::askCamera() {
    auto& camera = dynamic_cast<OxCamera&>(*m_scene.object().get());
    operation("InitPrimaryRay", [&] {
        for (const int at : {0, 7, 15}) {
            OxState state = m_session->primaryState();
            const float pattern[2] = {0.999f, 0.0f};
            if (!camera.InitPrimaryRay(&state, at, at, pattern)) continue;
            finite("InitPrimaryRay", state.ray.origin);
            finite("InitPrimaryRay", state.ray.direction);
        }
    });
    operation("InitPrimaryRays", [&] {
        const float half[4] = {0.5f, 0.5f, 0.5f, 0.5f};
        const float far[4] = {RayInfinity, RayInfinity, RayInfinity, RayInfinity};
        for (const unsigned width : {1u, 2u, 4u}) {
            ISSERay4 rays;
            camera.InitPrimaryRays(4, 4, width, half, half, far, &rays);
        }
    });
}

void Operations::askRenderingObject() {
    auto& ro = dynamic_cast<OxRenderingObject&>(*m_scene.object().get());
    operation("initTile", [&] {
        for (const unsigned thread : {0u, OxRenderingObject::MaxThreads - 1}) ro.initTile(thread, 3);
    });
    operation("initRay", [&] {
        const OxState state = m_session->stateWithoutRecord();
        for (const unsigned thread : {0u, OxRenderingObject::MaxThreads - 1}) ro.initRay(state, 0, thread);
    });
    operation("initRay4", [&] {
        OxState4 state;
        ISSERay4 ray;
        state.ray4 = &ray;
        ro.initRay4(state, 0, 0);
    });
}

// ---- Pictures

struct Picture {
    std::vector<R3> pixels;
    bool failed = false;
    bool drewNumbers = false;  // of the process' own random numbers
    std::size_t threads = 0;   // that finished tiles

    bool operator==(const Picture& other) const {
        return pixels.size() == other.pixels.size() &&
               std::memcmp(pixels.data(), other.pixels.data(), pixels.size() * sizeof(R3)) == 0;
    }
};

Picture pictureOf(PackageScene& scene, const ObjectClass& object, unsigned threads, unsigned passes, bool packets,
                  const std::string& with = "") {
    Workers workers(threads);
    RenderOptions options;
    options.samples = passes;
    options.packets = packets;
    std::set<std::thread::id> busy;
    // The first tiles take so long that no thread renders all by itself before the others have started.
    options.progress = [&](const Progress&) {
        busy.insert(std::this_thread::get_id());
        if (busy.size() < threads) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    };
    RandomState start{1, 2, 3};
    seed48(start.data());
    Picture picture;
    try {
        const RenderResult result = render(scene.world(), workers, options);
        if (result.failure) std::rethrow_exception(result.failure);
        picture.pixels = result.film.pixels();
        if (result.statistics.badSamples)
            tell("nan", fmt::format("{} of {} samples are not finite{}", result.statistics.badSamples,
                                    result.statistics.rays.primary, with));
    } catch (const std::exception& e) {
        tellThrown(object, e.what() + with);
        picture.failed = true;
    } catch (...) {
        tell("exception", "it throws" + with);
        picture.failed = true;
    }
    picture.drewNumbers = randomState() != RandomState{1, 2, 3};
    picture.threads = busy.size();
    return picture;
}

void checkPictures(const ObjectClass& object, const Registry& registry, const TrialSteps& step) {
    PackageScene scene(object, registry);
    if (!scene.complete()) return tell("unrendered", "no package offers what it would take to render it", false);
    step("while it is rendered on one thread");
    const Picture first = pictureOf(scene, object, 1, 2, false), second = pictureOf(scene, object, 1, 2, false);
    if (first.failed || second.failed) return;
    // What is made once, in the first picture, may be made of such numbers.
    if (second.drewNumbers)
        tell("random", "it draws random numbers that are the whole process': its pictures repeat on one thread only",
             false);
    if (!(first == second)) tell("repeats", "its second picture is not the first");
    step("while it is rendered in packets");
    pictureOf(scene, object, 1, 1, true);
    step("while it is rendered on two threads");
    for (unsigned turn = 0; turn < 8 && !second.drewNumbers; ++turn) {
        const Picture both = pictureOf(scene, object, 2, 2, false);
        if (both.failed) return;
        if (!(both == second)) return tell("threads", "its pictures on one thread and on two are not the same");
        if (both.threads > 1 && turn > 1) return;
    }
}

// ---- Values

class RandomValues {
public:
    RandomValues(const ObjectClass& object, unsigned seed) : m_object(object), m_random(seed) {}

    // Sets all parameters; answers what to.
    std::string drive(OxLoadableObject& target) {
        std::string all;
        for (const ParameterDeclaration& p : m_object.parameters) {
            if (p.type == ElementType::FromValue) continue;  // nothing tells what it holds
            auto* bytes = reinterpret_cast<std::byte*>(&target) + p.offset;
            for (unsigned i = 0; i < p.components(); ++i) put(p, i, bytes);
            all += fmt::format("{}{} {}", all.empty() ? " with " : ", ", p.id, describeValue(p, bytes));
        }
        return all;
    }

private:
    void put(const ParameterDeclaration& p, unsigned i, std::byte* bytes) {
        const double value = valueFor(p, i);
        if (p.size == 1) {
            bytes[0] = value > 0.5 ? std::byte{1} : std::byte{0};
        } else if (p.type == ElementType::Float) {
            const auto real = static_cast<float>(value);
            std::memcpy(bytes + 4 * i, &real, 4);
        } else {
            const auto whole = static_cast<std::int32_t>(std::lround(value));
            std::memcpy(bytes + 4 * i, &whole, 4);
        }
    }
    // Both ends as often as all between them.
    double between(double least, double most) {
        const unsigned choice = static_cast<unsigned>(m_random()) % 4;
        if (choice < 2) return choice ? most : least;
        return std::uniform_real_distribution<double>(least, most)(m_random);
    }
    double valueFor(const ParameterDeclaration& p, unsigned i) {
        if (p.type == ElementType::Bool) return static_cast<double>(m_random() % 2);
        if (p.info && p.info->interpretation == "texture") return -1.0;
        if (p.info && !p.info->items.empty())
            return std::next(p.info->items.begin(), static_cast<long>(m_random() % p.info->items.size()))->first;
        if (p.info && !p.info->lowerbound.empty() && !p.info->upperbound.empty())
            return between(bound(p.info->lowerbound, i), bound(p.info->upperbound, i));
        if (p.type == ElementType::Int)
            return heldBy<std::int32_t>(p, i) < 0 ? -1.0 : static_cast<double>(m_random() % 5);
        if (p.info && (p.info->interpretation == "position" || p.info->interpretation == "direction"))
            return std::normal_distribution<double>()(m_random);
        const double held = std::fabs(heldBy<float>(p, i));
        return between(0.0, std::isfinite(held) && held > 0.0 ? 2.0 * held : 1.0);
    }
    // One for all components, or one for each.
    static double bound(const std::string& text, unsigned i) {
        std::istringstream words(text);
        double value = 0.0;
        for (unsigned k = 0; k <= i; ++k) words >> value;
        std::istringstream first(text);
        if (!words) first >> value;
        return value;
    }
    template <class T>
    static T heldBy(const ParameterDeclaration& p, unsigned i) {
        T value;
        std::memcpy(&value, p.defaultBytes.data() + 4 * i, sizeof value);
        return value;
    }

    const ObjectClass& m_object;
    std::mt19937 m_random;
};

void checkValues(const ObjectClass& object, const Registry& registry, const CheckPackageCommand& command,
                 const TrialSteps& step) {
    RandomValues values(object, command.seed);
    for (unsigned i = 0; i < command.pictures; ++i) {
        PackageScene scene(object, registry);
        if (!scene.complete() || object.parameters.empty()) return;
        scene.world().image = {16, 12};
        const std::string with = values.drive(*scene.object().get());
        step("while it is rendered" + with);
        pictureOf(scene, object, 1, 1, false, with);
    }
}

// ---- Stages

// What ended a stage before its time.
void addEnd(const ObjectClass& object, const TrialOutcome& outcome, PackageFindings& findings) {
    const auto add = [&](const char* kind, const std::string& text) { findings.push_back({object.name, kind, text}); };
    switch (outcome.state) {
    case TrialOutcome::Hung: return add("hang", fmt::format("it does not come back {}", outcome.step));
    case TrialOutcome::Crashed: return add("crash", fmt::format("it crashes ({}) {}", outcome.why, outcome.step));
    case TrialOutcome::Exited:
        return add("exit", fmt::format("it ends the process with status {} {}", outcome.why, outcome.step));
    case TrialOutcome::Failed: return add("exception", fmt::format("it throws {}: {}", outcome.step, outcome.why));
    case TrialOutcome::NotTried:
        throw Error(ExitStatus::InputOutput, "there is no process or memory to spare to try the package in");
    case TrialOutcome::Ended: break;
    }
}

}  // namespace

void checkConduct(const ObjectClass& object, const Registry& registry, const CheckPackageCommand& command,
                  PackageFindings& findings) {
    const auto stage = [&](const std::function<void(const TrialSteps&)>& work) {
        const auto named = [&](const TrialSteps& step) {
            nameCrashes([](const char* kind, const std::string& text) { tell(kind, text); });
            work(step);
        };
        const TrialOutcome outcome = tryOut(named, StageLimits);
        for (const std::string& report : outcome.reports) {
            const auto json = nlohmann::json::parse(report, nullptr, false);
            if (json.is_discarded()) continue;
            const PackageFinding finding{object.name, json["kind"], json["text"], json["fault"]};
            const bool known = std::any_of(findings.begin(), findings.end(), [&](const PackageFinding& f) {
                return f.object == finding.object && f.kind == finding.kind && f.kind != Unset;
            });
            if (!known) findings.push_back(finding);
        }
        if (std::none_of(findings.begin(), findings.end(), [&](const PackageFinding& f) {
                return f.object == object.name && (f.kind == "crash" || f.kind == "recursion" || f.kind == "exit");
            }))
            addEnd(object, outcome, findings);
        return outcome.state == TrialOutcome::Ended;
    };
    stage([&](const TrialSteps& step) { checkMemory(object, step); });
    // Where an object does not survive being asked once, rendering it tells nothing new.
    const bool survived = stage([&](const TrialSteps& step) { Operations(object, registry, step).run(); }) &&
                          stage([&](const TrialSteps& step) { checkPictures(object, registry, step); });
    if (survived) stage([&](const TrialSteps& step) { checkValues(object, registry, command, step); });
}

}  // namespace oxbeam
