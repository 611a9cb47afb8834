// The one thread that owns world, session and film. It takes changes between passes and, by cancelling, within them.
#pragma once

#include "Apps/view/Developer.h"
#include "Apps/view/Loader.h"
#include "Apps/view/Pacer.h"
#include "Apps/view/SceneInfo.h"

#include <chrono>
#include <deque>
#include <exception>
#include <functional>

namespace oxbeam {

// What a change may touch; on the rendering thread.
struct Rendering {
    World& world;
    const FrameLoop& loop;
    const Registry& registry;
    double seconds = 0.0;  // that went into the film
};

// For the window's thread, which never waits for the other.
class RenderThread {
public:
    using Change = std::function<void(Rendering&)>;
    struct Posted {
        Change change;
        bool rebuilds = false;  // objects, lights or instances
    };

    RenderThread();
    ~RenderThread();
    RenderThread(const RenderThread&) = delete;
    RenderThread& operator=(const RenderThread&) = delete;

    // Renders this scene from now on, with these changes, instead of the one before and all changes to that.
    void show(std::shared_ptr<Loaded> loaded, std::vector<Posted> changes = {});
    // To be done as soon as may be; another picture begins then. An Error that it throws becomes a message.
    void change(Change change);
    // The same for what makes objects, lights or instances others: what the window knows of them follows.
    void rebuild(Change change);
    void post(Posted posted);
    // What these changes lead to is rendered too, at the same sizes and with the same samples; the others lead back. One
    // pass of each comes first, then all of the one, and all of the other.
    void compare(std::vector<Posted> there, std::vector<Posted> back);
    void compareNoMore();
    // To be done when a full pass is complete; the picture goes on.
    void atRest(Change use);
    // Nothing moves any more: a full picture may begin at once.
    void rest();

    Developer& developer() { return m_developer; }
    // Null before there is any.
    std::shared_ptr<const SceneInfo> scene() const;
    // What ended the rendering for good; null while all is well.
    std::exception_ptr failure() const;
    // What was said since the last call.
    std::vector<std::string> takeMessages();
    void say(const std::string& message);

    struct Pulse {
        std::uint64_t pictures = 0, coarsePictures = 0;  // that were begun and came to be
        unsigned divider = 1, passes = 0, samples = 1;   // of the one under way
        unsigned moving = 1;  // the divider of the last one that was made while something moved
        bool done = false;    // all passes are
        double raysPerSecond = 0.0, secondsLeft = 0.0;
        std::vector<double> cancelling;  // seconds from each of the last changes within a pass to its end
    };
    Pulse pulse() const;

private:
    struct Using;
    struct Next {
        std::shared_ptr<Loaded> loaded;
        std::vector<Posted> changes;
    };

    void run();
    bool takeNext(Next& next);
    void render(Next& next);
    bool apply(Rendering& rendering, const std::vector<Posted>& changes);
    struct Compared {
        std::vector<Posted> there, back;
    };
    unsigned passesWanted() const;
    bool takeTurns(FrameLoop& loop, Rendering& rendering);
    void turn(Rendering& rendering);
    bool isAskedForFilm() const;
    bool takeChanges(Rendering& rendering, bool atRest);
    bool attempt(const std::function<void()>& what);
    void begin(FrameLoop& loop, World& world, unsigned divider, unsigned samples);
    void step(FrameLoop& loop);
    bool waitForMore(bool coarse);
    bool ending() const;
    void tell(const World& world, const Registry& registry);
    void notePulse(const FrameLoop& loop);

    Developer m_developer;

    mutable std::mutex m_mutex;  // of all up to the next heading
    std::condition_variable m_wake;
    std::vector<Posted> m_changes;
    std::optional<Next> m_next;
    std::deque<Change> m_atRest;
    bool m_ending = false, m_rest = false;
    FrameLoop* m_loop = nullptr;
    bool m_mayCancel = false;                                          // a pass of what is at rest is under way
    std::optional<std::chrono::steady_clock::time_point> m_cancelled;  // when that was wished for
    std::shared_ptr<const SceneInfo> m_scene;
    std::exception_ptr m_failure;
    std::vector<std::string> m_messages;
    Pulse m_pulse;

    // ---- Of the rendering thread alone
    Pacer m_pacer;
    FrameInfo m_frame;
    ImageSize m_whole;
    std::optional<Compared> m_compared;
    bool m_other = false;       // the world is that of the other of the two
    bool m_firstPasses = true;  // of the two that are compared there is to be one pass each
    bool m_moving = true;       // what is rendered has just been changed
    bool m_failed = false;      // a package has ended the frame; the next change begins another
    double m_seconds = 0.0;
    std::thread m_thread;
};

}  // namespace oxbeam
