// Loads scenes on a thread of its own: neither the window nor who renders waits for it.
#pragma once

#include "Apps/oxbeam/View.h"
#include "Apps/view/SceneInfo.h"

#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

namespace oxbeam {

// A scene that is ready to be rendered, with the structure that rays are traced through.
struct Loaded {
    std::unique_ptr<World> world;
    std::shared_ptr<const Registry> registry;
    unsigned threads = 1;
    SceneInfo info;  // of the world as it was loaded
};

class Loader {
public:
    struct Request {
        ViewCommand command;
        bool again = false;                            // the scene that is shown, since something has changed:
        bool packages = false;                         // packages have,
        std::set<std::filesystem::path> changed = {};  // and these files
        bool later = false;                            // another than the one that the viewer began with
    };
    struct Outcome {
        Request request;
        std::shared_ptr<Loaded> loaded;  // null where it came to nothing, or nothing has changed
        std::exception_ptr failure;      // why it came to nothing
        std::vector<std::string> messages;
    };

    Loader();
    ~Loader();
    Loader(const Loader&) = delete;
    Loader& operator=(const Loader&) = delete;

    // One request that waits for another to be done has those before it in it.
    void load(Request request);
    std::optional<Outcome> take();
    bool isBusy() const;
    // Nothing will be read any more, here or elsewhere in the process: what is being read is given up.
    void giveUp();
    // The viewer itself has written a file, which is no reason to load it.
    void wrote(const std::filesystem::path& file);

private:
    void run();
    Outcome perform(const Request& request);
    void renewPackages(const ViewCommand& command, std::vector<std::string>& messages);
    bool isAsItWas(const Request& request) const;

    mutable std::mutex m_mutex;  // of all up to the next heading
    std::condition_variable m_wake;
    bool m_ending = false, m_busy = false;
    std::optional<Request> m_request;
    std::optional<Outcome> m_outcome;
    std::map<std::filesystem::path, std::uint64_t> m_files;  // of the last scene, with their hashes; none if it was bad

    // ---- Of this thread alone
    std::vector<std::shared_ptr<const Registry>>
        m_registries;  // whose classes the window may know as long as it is open
    std::thread m_thread;
};

}  // namespace oxbeam
