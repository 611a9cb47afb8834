// Calling packages, and telling whose fault it is when that goes wrong. Nothing is noted while their code runs: who
// called whom is read from the stack afterwards.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Oxbeam/OxLoadableObject.h"

#include <atomic>
#include <functional>
#include <string>

namespace oxbeam {

struct ObjectClass;

// From here on, what a package does within the class is known by its name. The object is one of that class, fresh.
void watchClass(const ObjectClass& object, const OxLoadableObject& prototype);

// An object of one of these was made: of classes that share an operation, it is one of those.
void noteMade(const std::string& object);

// Name of the class that an object is of; nothing where none is known.
OXBEAM_API std::string watchedName(const OxLoadableObject& object);

// Does work that calls packages. What their code throws leaves it as Error(BadPackage), or Error(InputOutput) where it is
// that there is no memory, which names the package, the object and its operation; exceptions of the host's own leave it
// as they are. Where their code ends the process by exit(), that is said and the status is 4.
OXBEAM_API void watchPackages(void (*work)(void*), void* argument);

template <class Work>
void watchPackages(Work&& work) {
    watchPackages([](void* argument) { (*static_cast<Work*>(argument))(); }, &work);
}

// While it exists: where a package's code ends the process by exit() within watched work, `rescue` is called before that is
// said and the process ends with status 4, on a thread of its own. Those that have called exit() are held, and counted in
// `held`; others go on. What it throws is told beside. For one rendering at a time, on so many threads.
class OXBEAM_API ExitRescue {
public:
    using Rescue = std::function<void(const Error& why, const std::atomic<unsigned>& held)>;

    ExitRescue(unsigned threads, Rescue rescue);
    ~ExitRescue();
    ExitRescue(const ExitRescue&) = delete;
    ExitRescue& operator=(const ExitRescue&) = delete;

private:
    Rescue m_rescue;
};

// Takes what is said last: "crash", "recursion" or "exit", and of whom and in which operation.
using LastWords = void (*)(const char* kind, const std::string& text);

// From here on a crash in the code of a package says whose it was, on standard error unless `say` is given, and ends the
// process with status 4; one elsewhere does what it did before. Work that watchPackages does may also run out of stack;
// elsewhere that is a crash like others. For programs: the process' signal handlers are theirs to choose.
OXBEAM_API void nameCrashes(LastWords say = nullptr);

}  // namespace oxbeam
