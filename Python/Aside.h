// Work of the engine while Python waits for it: without the interpreter's lock, and with an eye on signals.
#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <functional>

namespace oxbeam::python {

namespace py = pybind11;

// What makes objects of packages or asks them anything is done by one thread of the process at a time, as packages know
// one scene only.
class Turn {
public:
    // Waits with the interpreter's lock given away. Throws what a signal's handler does, and std::logic_error where this
    // thread has the turn already, as in what it is called for progress, or another had it when the process was forked off.
    Turn();
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // Of whoever has the turn: what reads files ends soon after it is set.
    static std::atomic<bool>& stop();
};

// Does work on a thread of its own and returns when it has ended. Meanwhile other Python threads run, and this one calls
// `tick` now and then, with the lock. What `tick` or a signal's handler throws sets `stop`, which the work is to end soon
// for, and is thrown on when it has; else what the work throws is.
void runAside(const std::function<void()>& work, std::atomic<bool>& stop, const std::function<void()>& tick = {});

// Threads do not go along with a fork: throws std::logic_error in a process that was forked off after the engine had some.
void requireThreads();

void bindAside(py::module_& module);

}  // namespace oxbeam::python
