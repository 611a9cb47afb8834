#include "Python/Aside.h"

#include "Engine/System/Interruption.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

namespace oxbeam::python {

// So soon a signal is seen, and progress told.
static constexpr std::chrono::milliseconds Glance{50};

static void lookAtSignals() {
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

// ---- The end of the process

namespace {

// Everything that is under way, to be ended before the interpreter is: a thread that wants its lock afterwards is killed
// in the middle of something. Made and ended with the lock.
class UnderWay {
public:
    explicit UnderWay(std::atomic<bool>& stop) : m_stop(stop) {
        const std::scoped_lock lock(s_mutex);
        if (s_ending) stop = true;
        s_stops.insert(&stop);
    }
    ~UnderWay() {
        const std::scoped_lock lock(s_mutex);
        s_stops.erase(&m_stop);
        s_ended.notify_all();
    }
    UnderWay(const UnderWay&) = delete;
    UnderWay& operator=(const UnderWay&) = delete;

    // In a process that was forked off, where of all threads only the one that did it is left.
    static void forgetAll() { s_stops.clear(); }
    static void endAll() {
        std::unique_lock lock(s_mutex);
        s_ending = true;
        for (std::atomic<bool>* stop : s_stops) *stop = true;
        s_ended.wait_for(lock, std::chrono::seconds(10), [] { return s_stops.empty(); });
    }

private:
    static inline std::mutex s_mutex;
    static inline std::condition_variable s_ended;
    static inline std::set<std::atomic<bool>*> s_stops;
    static inline bool s_ending = false;

    std::atomic<bool>& m_stop;
};

}  // namespace

// ---- Turns

static std::timed_mutex s_turn;
static thread_local bool s_mine = false;
static bool s_orphaned = false;  // whoever had the turn is not in this process

[[noreturn]] static void refuseFork() {
    throw std::logic_error(
        "the engine's threads are not in this process, which was forked off; let "
        "multiprocessing start its processes by 'spawn'");
}

static void afterFork() {
    UnderWay::forgetAll();
    s_orphaned = s_orphaned || !s_turn.try_lock();
    if (!s_orphaned) s_turn.unlock();
}

Turn::Turn() {
    if (s_orphaned) refuseFork();
    if (s_mine) throw std::logic_error("this thread is rendering or loading already, and does one at a time");
    std::atomic<bool> stop{false};
    const UnderWay waiting(stop);
    bool have = false;
    while (!have) {
        {
            const py::gil_scoped_release release;
            have = s_turn.try_lock_for(Glance);
        }
        if (!have) lookAtSignals();
        if (!have && stop) throw Interruption("the process ends");
    }
    s_mine = true;
    interruptBy(Turn::stop());
}

std::atomic<bool>& Turn::stop() {
    static std::atomic<bool> stop{false};
    return stop;
}

Turn::~Turn() {
    s_mine = false;
    stop() = false;
    s_turn.unlock();
}

void requireThreads() {
    static pid_t process = getpid();
    if (process != getpid()) refuseFork();
}

// ---- Work

namespace {

// A thread, and word of its end.
class Work {
public:
    explicit Work(const std::function<void()>& work)
        : m_thread([this, &work] {
              try {
                  work();
              } catch (...) {
                  m_failure = std::current_exception();
              }
              const std::scoped_lock lock(m_mutex);
              m_done = true;
              m_end.notify_one();
          }) {}

    bool endsWithin(std::chrono::milliseconds time) {
        std::unique_lock lock(m_mutex);
        return m_end.wait_for(lock, time, [this] { return m_done; });
    }
    // Of work that has ended.
    const std::exception_ptr& failure() const { return m_failure; }

private:
    std::mutex m_mutex;
    std::condition_variable m_end;
    bool m_done = false;
    std::exception_ptr m_failure;
    std::jthread m_thread;  // uses all above
};

}  // namespace

static std::exception_ptr glance(const std::function<void()>& tick) {
    const py::gil_scoped_acquire acquire;
    try {
        lookAtSignals();
        if (tick) tick();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

void runAside(const std::function<void()>& work, std::atomic<bool>& stop, const std::function<void()>& tick) {
    std::exception_ptr interruption, failure;
    const UnderWay underWay(stop);
    {
        const py::gil_scoped_release release;
        Work thread(work);
        while (!thread.endsWithin(Glance)) {
            if (interruption) continue;
            interruption = glance(tick);
            if (interruption) stop = true;
        }
        failure = thread.failure();
    }
    if (interruption) std::rethrow_exception(interruption);
    if (failure) std::rethrow_exception(failure);
}

void bindAside(py::module_& module) {
    py::module_::import("atexit").attr("register")(py::cpp_function([] {
        const py::gil_scoped_release release;
        UnderWay::endAll();
    }));
    py::module_::import("os").attr("register_at_fork")(py::arg("after_in_child") = py::cpp_function(&afterFork));
    module.attr("__doc__") = "The compiled part of oxbeam; see there.";
}

}  // namespace oxbeam::python
