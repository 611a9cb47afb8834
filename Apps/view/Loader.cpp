#include "Apps/view/Loader.h"

#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/view/Rendering.h"
#include "Engine/System/Hash.h"
#include "Engine/System/Interruption.h"

#include <algorithm>
#include <utility>

namespace oxbeam {

namespace fs = std::filesystem;

// There is one window. Set when it is closed: what reads a file then stops.
static std::atomic<bool> s_closing{false};

Loader::Loader() : m_thread([this] { run(); }) { interruptBy(s_closing); }

void Loader::giveUp() { s_closing = true; }

Loader::~Loader() {
    giveUp();
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

// ---- For the window

void Loader::load(Request request) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_request) {
            request.again = request.again && m_request->again;
            request.packages = request.packages || m_request->packages;
            request.changed.merge(m_request->changed);
        }
        m_request = std::move(request);
    }
    m_wake.notify_one();
}

std::optional<Loader::Outcome> Loader::take() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_outcome, std::nullopt);
}

bool Loader::isBusy() const {
    const std::lock_guard lock(m_mutex);
    return m_busy || m_request || m_outcome;
}

static std::uint64_t hashNow(const fs::path& file) {
    try {
        return hashOfFile(file);
    } catch (const Error&) {
        return 0;
    }
}

void Loader::wrote(const fs::path& file) {
    const fs::path key = fs::absolute(file).lexically_normal();
    const std::lock_guard lock(m_mutex);
    m_files[key] = hashNow(key);
}

// ---- The thread

bool Loader::isAsItWas(const Request& request) const {
    if (!request.again || request.packages) return false;
    std::map<fs::path, std::uint64_t> files;
    {
        const std::lock_guard lock(m_mutex);
        files = m_files;
    }
    return std::all_of(request.changed.begin(), request.changed.end(), [&](const fs::path& file) {
        const auto known = files.find(file);
        return known != files.end() && known->second == hashNow(file);
    });
}

// What is said of the folders' packages is said when they were read, not of every scene.
void Loader::renewPackages(const ViewCommand& command, std::vector<std::string>& messages) {
    const auto registry = std::make_shared<Registry>(Registry::Opening::Copies);
    registry->loadPackages(packageFolders(command));
    for (const Diagnostic& remark : registry->remarks().sorted())
        if (remark.severity != Severity::Note) messages.push_back(remark.text());
    m_registries.push_back(registry);
}

Loader::Outcome Loader::perform(const Request& request) {
    Outcome outcome{request, nullptr, nullptr, {}};
    try {
        if (isAsItWas(request)) return outcome;
        if (request.packages || m_registries.empty()) renewPackages(request.command, outcome.messages);
        Say say;
        if (request.again || request.later)
            say = [&](const Diagnostic& said) { outcome.messages.push_back(said.text()); };
        const std::shared_ptr<const Registry> registry = m_registries.back();
        Prepared prepared = prepare(request.command.render, *registry, true, say);
        if (!prepared.world) throw Error(ExitStatus::BadScene, "");      // everything has been said
        if (request.again && prepared.world->geometry.triangles() == 0)  // as of a file that is being written
            throw Error(ExitStatus::BadScene, request.command.render.scene + ": has nothing to show any more");
        Workers workers(prepared.threads);
        build(*prepared.world, workers, "");
        const auto loaded = std::make_shared<Loaded>();
        loaded->info = describe(*prepared.world, *registry);
        loaded->info.file = request.command.render.scene;
        loaded->info.samples = prepared.options.samples;
        loaded->world = std::move(prepared.world);
        loaded->registry = registry;
        loaded->threads = prepared.threads;
        outcome.loaded = loaded;
    } catch (...) {
        outcome.failure = std::current_exception();
    }
    return outcome;
}

void Loader::run() {
    for (;;) {
        Request request;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [&] { return m_ending || (m_request && !m_outcome); });
            if (m_ending) return;
            request = std::move(*std::exchange(m_request, std::nullopt));
            m_busy = true;
        }
        Outcome outcome = perform(request);
        const std::lock_guard lock(m_mutex);
        if (outcome.loaded)
            m_files = outcome.loaded->world->files;
        else if (outcome.failure)
            m_files.clear();
        m_outcome = std::move(outcome);
        m_busy = false;
    }
}

}  // namespace oxbeam
