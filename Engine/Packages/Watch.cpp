#include "Engine/Packages/Watch.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Packages/Overrides.h"
#include "Engine/Packages/Registry.h"
#include "Engine/System/Sanitizers.h"
#include "Oxbeam/OxCamera.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Oxbeam/OxShader.h"

#include <fmt/format.h>

#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace oxbeam {

namespace {

// ---- What is known of classes

struct Operation {
    const void* function;
    const char* name;
};

struct WatchedClass {
    std::string package, name;
    const char* library;  // that the factory is in, as the loader calls it; null where that is no package
    const std::type_info* type;
    const void* table;  // of virtual functions
    std::vector<Operation> operations;
    bool made = false;
};

// Never taken down: code of packages runs until the process ends. Entries stay where they are; nothing is written any
// more once rendering has begun, so that a handler of a signal may read.
std::mutex s_mutex;
std::deque<WatchedClass>& classes() {
    static auto& all = *new std::deque<WatchedClass>;
    return all;
}

template <class Class, class... Functions>
void addOperations(std::vector<Operation>& operations, const Class* object, const std::vector<const char*>& names,
                   Functions... functions) {
    if (!object) return;
    auto name = names.begin();
    (operations.push_back({virtualFunction(*object, functions), *name++}), ...);
}

std::vector<Operation> operationsOf(const OxLoadableObject& object) {
    std::vector<Operation> all;
    addOperations(all, &object, {"GetShaderInfo", "NewFrame", "Register", "Init"}, &OxLoadableObject::GetShaderInfo,
                  &OxLoadableObject::NewFrame, &OxLoadableObject::Register, &OxLoadableObject::Init);
    addOperations(all, dynamic_cast<const OxShader*>(&object), {"Shade", "Shade4", "EvalBRDF", "LightTransparency"},
                  &OxShader::Shade, &OxShader::Shade4, &OxShader::EvalBRDF, &OxShader::LightTransparency);
    addOperations(all, dynamic_cast<const OxLight*>(&object),
                  {"Illuminate", "Illuminate4", "SamplePosition", "SampleDirection", "GetIWE", "GetNormal",
                   "GetSampleProbability", "AsPointLight", "EstimateImportance", "GetIlluminanceAngle"},
                  &OxLight::Illuminate, &OxLight::Illuminate4, &OxLight::SamplePosition, &OxLight::SampleDirection,
                  &OxLight::GetIWE, &OxLight::GetNormal, &OxLight::GetSampleProbability, &OxLight::AsPointLight,
                  &OxLight::EstimateImportance, &OxLight::GetIlluminanceAngle);
    addOperations(all, dynamic_cast<const OxCamera*>(&object),
                  {"InitCamera", "InitPrimaryRay", "setFocalDistance", "InitPrimaryRays"}, &OxCamera::InitCamera,
                  &OxCamera::InitPrimaryRay, &OxCamera::setFocalDistance, &OxCamera::InitPrimaryRays);
    addOperations(all, dynamic_cast<const OxRenderingObject*>(&object), {"initRay", "initRay4", "initTile"},
                  &OxRenderingObject::initRay, &OxRenderingObject::initRay4, &OxRenderingObject::initTile);
    return all;
}

const void* tableOf(const OxLoadableObject& object) {
    const void* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&object), sizeof table);
    return table;
}

// ---- Where code is

// Path of the library that an address lies in, without taking a lock; null where that is none.
const char* libraryOf(const void* address) {
    dl_find_object found{};
    if (_dl_find_object(const_cast<void*>(address), &found) != 0 || !found.dlfo_link_map) return nullptr;
    return found.dlfo_link_map->l_name;
}

// The loader has one name for each.
const char* packageOf(const char* library) {
    for (const WatchedClass& c : classes())
        if (library && c.library == library) return c.package.c_str();
    return nullptr;
}

// The libraries through which a package's faults reach the host; and the program, which has no name.
bool isRuntime(const char* library) {
    static constexpr std::array names = {"libc.",    "libm.",    "libstdc++.", "libgcc_s.",
                                         "ld-linux", "libasan.", "libubsan.",  "linux-vdso."};
    const char* slash = std::strrchr(library, '/');
    const char* file = slash ? slash + 1 : library;
    return *file == '\0' || std::any_of(names.begin(), names.end(), [&](const char* name) {
        return std::strncmp(file, name, std::strlen(name)) == 0;
    });
}

const void* functionAt(const void* address) {
    return _Unwind_FindEnclosingFunction(
        const_cast<void*>(static_cast<const void*>(static_cast<const std::byte*>(address) + 1)));
}

// Compilers put what rarely runs, as what throws, apart from the function that it belongs to. That one jumps there.
bool jumpsInto(const void* function, const void* apart) {
    const auto* code = static_cast<const std::byte*>(function);
    constexpr std::ptrdiff_t most = 1 << 20;
    for (std::ptrdiff_t i = 0; i < most && functionAt(code + i + 5) == function; ++i) {
        const bool near = code[i] == std::byte{0xE9};                                          // jmp
        const bool branch = code[i] == std::byte{0x0F} && (code[i + 1] >> 4) == std::byte{8};  // jcc
        if (!near && !branch) continue;
        std::int32_t distance;
        const std::byte* end = code + i + (near ? 5 : 6);
        std::memcpy(&distance, end - 4, sizeof distance);
        if (functionAt(end + distance) == apart) return true;
    }
    return false;
}

// ---- Who did it

struct Culprit {
    const char* package = nullptr;
    const char* object = nullptr;
    const char* operation = nullptr;

    explicit operator bool() const { return package; }
};

// The class of an operation. Of several that share it: one of which there are objects, and of those the one that the
// others derive from.
Culprit ownerOf(const void* function, const char* library, bool apart) {
    const WatchedClass* best = nullptr;
    const char* operation = nullptr;
    for (const WatchedClass& c : classes()) {
        if (c.library != library) continue;
        for (const Operation& o : c.operations) {
            if (apart ? libraryOf(o.function) != library || !jumpsInto(o.function, function) : o.function != function)
                continue;
            const bool better =
                !best || (c.made && !best->made) || (c.made == best->made && derives(*best->type, *c.type));
            if (better) best = &c, operation = o.name;
            break;
        }
    }
    return best ? Culprit{best->package.c_str(), best->name.c_str(), operation} : Culprit{};
}

// Goes over the callers, the innermost first.
class Search {
public:
    // Nothing is looked at before the address `from` is met, or where none is given, the runtime's code.
    explicit Search(const void* from = nullptr) : m_from(from) {}

    Culprit run();
    // The same for one of them; false where that is the last.
    bool at(const void* address);
    // The host's code ran innermost, called by the package.
    bool throughHost() const { return m_throughHost; }

private:
    bool frame(_Unwind_Context* context);
    void take(const void* function, const char* library);

    const void* m_from;
    bool m_begun = false;
    const char* m_library = nullptr;  // the culprit's
    Culprit m_culprit;
    bool m_throughHost = false;
    unsigned m_frames = 0;
    std::array<const void*, 16> m_unowned{};  // the last functions that are no operations; recursions repeat them
    unsigned m_unownedCount = 0;
};

std::string nameOf(const Culprit& culprit) {
    if (!culprit.object) return "its code";
    return fmt::format("'{}' of '{}'", culprit.operation, culprit.object);
}

// ---- Exceptions

// Of the last exception that went through watched work of this thread.
struct Thrown {
    Culprit culprit;
    bool throughHost = false;
};
thread_local constinit Thrown s_thrown;
thread_local constinit unsigned s_watching = 0;  // works within each other

}  // namespace

// Called while a handler for an exception is looked for, when the stack is still whole (Itanium C++ ABI: Exception
// Handling, section 1.3). It handles none.
extern "C" [[gnu::used, gnu::visibility("hidden")]] _Unwind_Reason_Code
oxbeamNoteThrown(int, _Unwind_Action actions, _Unwind_Exception_Class, _Unwind_Exception*, _Unwind_Context*);
extern "C" [[gnu::visibility("hidden")]] void oxbeamCallWatched(void (*function)(void*), void* argument);

// Calls a function. Exceptions pass it, noted.
extern "C" [[gnu::naked, gnu::noinline]] void oxbeamCallWatched(void (*)(void*), void*) {
    asm(".cfi_personality 0x1b, oxbeamNoteThrown\n"
        "pushq %rbp\n"
        ".cfi_def_cfa_offset 16\n"
        ".cfi_offset %rbp, -16\n"
        "movq %rdi, %rax\n"
        "movq %rsi, %rdi\n"
        "call *%rax\n"
        "popq %rbp\n"
        ".cfi_def_cfa_offset 8\n"
        "ret\n");
}

extern "C" _Unwind_Reason_Code oxbeamNoteThrown(int, _Unwind_Action actions, _Unwind_Exception_Class,
                                                _Unwind_Exception*, _Unwind_Context*) {
    if (actions & _UA_SEARCH_PHASE) {
        Search search;
        s_thrown = {search.run(), false};
        s_thrown.throughHost = search.throughHost();
    }
    return _URC_CONTINUE_UNWIND;
}

namespace {

Culprit Search::run() {
    _Unwind_Backtrace(
        [](_Unwind_Context* context, void* search) {
            return static_cast<Search*>(search)->frame(context) ? _URC_NO_REASON : _URC_END_OF_STACK;
        },
        this);
    return m_culprit;
}

bool Search::frame(_Unwind_Context* context) {
    int before = 0;  // the address itself, not one behind a call
    const auto ip = _Unwind_GetIPInfo(context, &before);
    if (m_from && std::bit_cast<const void*>(ip) != m_from) return true;
    m_begun = m_begun || m_from != nullptr;
    m_from = nullptr;
    return at(std::bit_cast<const void*>(before ? ip : ip - 1));
}

// The watched work is where the host begins to call packages. Deeper than this there are only recursions.
bool Search::at(const void* address) {
    constexpr unsigned most = 200'000;
    const void* function = functionAt(address);
    if (function == reinterpret_cast<const void*>(&oxbeamCallWatched) || ++m_frames > most) return false;
    const char* library = libraryOf(address);
    if (!library) return true;
    if (isRuntime(library)) return m_begun = true;
    if (!m_begun) return true;
    if (packageOf(library))
        take(function, library);
    else
        m_throughHost = m_throughHost || !m_culprit;
    return !m_culprit.object;
}

void Search::take(const void* function, const char* library) {
    if (!m_culprit) {
        m_culprit.package = packageOf(library);
        m_library = library;
    }
    if (m_library != library || std::count(m_unowned.begin(), m_unowned.end(), function)) return;
    Culprit owner = ownerOf(function, library, false);
    if (!owner) owner = ownerOf(function, library, true);
    if (owner)
        m_culprit = owner;
    else
        m_unowned[m_unownedCount++ % m_unowned.size()] = function;
}

[[noreturn]] void blame(const Culprit& culprit) {
    const auto fail = [&](ExitStatus status, const std::string& what) {
        throw Error(status, fmt::format("{}: {} throws: {}", culprit.package, nameOf(culprit), what));
    };
    try {
        throw;
    } catch (const std::bad_alloc&) {
        fail(ExitStatus::InputOutput, "out of memory");
    } catch (const std::exception& e) {
        fail(ExitStatus::BadPackage, e.what());
    } catch (...) {
        fail(ExitStatus::BadPackage, "an exception of a type of its own");
    }
    std::abort();  // not reached
}

// ---- The end of the process

LastWords s_say = nullptr;

void sayError(const std::string& text) {
    const std::string line = oneLine("oxbeam: error: " + text) + '\n';
    static_cast<void>(write(STDERR_FILENO, line.data(), line.size()) < 0);
}

[[noreturn]] void sayLast(const Culprit& culprit, const char* kind, const std::string& what) {
    const std::string text = fmt::format("{} {}", nameOf(culprit), what);
    if (s_say)
        s_say(kind, text);
    else
        sayError(fmt::format("{}: {}", culprit.package, text));
    _exit(static_cast<int>(ExitStatus::BadPackage));
}

std::atomic<const ExitRescue::Rescue*> s_rescue{nullptr};
std::atomic<unsigned> s_held{0};  // threads that have called exit()

constexpr const char* EndsProcess = "ends the process (exit)";

// What threads keep to themselves is gone on this one by now.
void rescue(const Culprit& culprit) {
    const ExitRescue::Rescue* wanted = s_rescue;
    if (!wanted) return;
    const Error why(ExitStatus::BadPackage, fmt::format("{}: {} {}", culprit.package, nameOf(culprit), EndsProcess));
    try {
        std::thread([&] {
            try {
                (*wanted)(why, s_held);
            } catch (const std::exception& e) {
                sayError(e.what());
            }
        }).join();
    } catch (const std::system_error&) {  // no thread can be had
    }
}

// One thread speaks. Another one that was to go on would take down what the first still needs.
void onExit() {
    if (s_watching == 0) return;
    const Culprit culprit = Search().run();
    if (!culprit) return;
    if (s_held++ > 0)
        while (true) pause();
    rescue(culprit);
    sayLast(culprit, "exit", EndsProcess);
}

// Where a thread has run out of stack, it needs another one to say so.
class SignalStack {
public:
    SignalStack() {
        m_memory = mmap(nullptr, Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m_memory == MAP_FAILED) return;
        stack_t mine{};
        mine.ss_sp = m_memory;
        mine.ss_size = Size;
        sigaltstack(&mine, nullptr);
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
        void* lowest = nullptr;
        pthread_attr_getstack(&attributes, &lowest, &m_size);
        m_lowest = static_cast<std::byte*>(lowest);
        pthread_attr_destroy(&attributes);
    }
    ~SignalStack() {
        if (m_memory == MAP_FAILED) return;
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
        munmap(m_memory, Size);
    }
    SignalStack(const SignalStack&) = delete;
    SignalStack& operator=(const SignalStack&) = delete;

    // A frame of its functions may be larger than the gap below it.
    bool usedUp(const std::byte* pointer) const {
        constexpr std::ptrdiff_t gap = 1 << 17;
        return m_lowest && pointer < m_lowest + gap && pointer > m_lowest - gap;
    }

private:
    static constexpr std::size_t Size = 1 << 17;
    void* m_memory = MAP_FAILED;
    std::byte* m_lowest = nullptr;
    std::size_t m_size = 0;
};

thread_local constinit const SignalStack* s_stack = nullptr;

void useSignalStack() {
    static thread_local const SignalStack stack;
    s_stack = &stack;
}

std::atomic<bool> s_crashesNamed{false};

constexpr std::array Crashes = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

// One thread speaks: others that crash meanwhile wait for it to end the process. Nor is there an end to be made of a
// crash in here.
void onCrash(int number, siginfo_t*, void* context) {
    static std::atomic<pid_t> speaker{0};
    pid_t nobody = 0;
    const pid_t self = gettid();
    if (!speaker.compare_exchange_strong(nobody, self)) {
        while (speaker != self) pause();
        std::signal(number, SIG_DFL);
        return;
    }
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    const auto* ip = std::bit_cast<const void*>(registers[REG_RIP]);
    const auto* sp = std::bit_cast<const std::byte*>(registers[REG_RSP]);
    const bool overflow = number == SIGSEGV && s_stack && s_stack->usedUp(sp);
    Search search(ip);
    Culprit culprit = search.run();
    if (!culprit && !libraryOf(ip)) {  // where no code is: whoever jumped there has just been left
        const void* caller = nullptr;
        std::memcpy(&caller, sp, sizeof caller);
        culprit.package = packageOf(libraryOf(caller));
    }
    if (culprit && overflow) sayLast(culprit, "recursion", "calls itself without end: the stack is used up");
    if (culprit)
        sayLast(culprit, "crash",
                fmt::format("crashes ({}){}", strsignal(number),
                            search.throughHost() ? " in what it calls of the host" : ""));
    std::signal(number, SIG_DFL);
    if (number == SIGABRT) std::raise(number);  // the others happen again
}

}  // namespace

void watchClass(const ObjectClass& object, const OxLoadableObject& prototype) {
    const std::scoped_lock lock(s_mutex);
    const void* table = tableOf(prototype);
    for (const WatchedClass& c : classes())
        if (c.table == table && c.name == object.name) return;
    const char* library = libraryOf(reinterpret_cast<const void*>(object.factory));
    const bool foreign =
        library && !isRuntime(library) && library != libraryOf(reinterpret_cast<const void*>(&watchClass));
    classes().push_back(
        {object.package, object.name, foreign ? library : nullptr, &typeid(prototype), table, operationsOf(prototype)});
}

void noteMade(const std::string& object) {
    const std::scoped_lock lock(s_mutex);
    for (WatchedClass& c : classes())
        if (c.name == object) c.made = true;
}

std::string watchedName(const OxLoadableObject& object) {
    const std::scoped_lock lock(s_mutex);
    const WatchedClass* best = nullptr;
    for (const WatchedClass& c : classes())
        if (c.table == tableOf(object) && (!best || (c.made && !best->made))) best = &c;
    return best ? best->name : std::string();
}

void watchPackages(void (*work)(void*), void* argument) {
    static const bool watchingExits = std::atexit(onExit) == 0;
    static_cast<void>(watchingExits);
    if (s_crashesNamed) useSignalStack();
    const struct Watching {
        Watching() { ++s_watching; }
        ~Watching() { --s_watching; }
    } watching;
    s_thrown = {};
    // The compiler, which sees no more of it than that it calls nobody, would take for granted what it changes.
    void (*volatile const call)(void (*)(void*), void*) = &oxbeamCallWatched;
    try {
        call(work, argument);
    } catch (...) {
        const Thrown thrown = s_thrown;
        if (!thrown.culprit || thrown.throughHost) throw;
        blame(thrown.culprit);
    }
}

// The last that is registered is called first, before anything is taken down that was there when it was: once for each
// thread that calls exit(), since the C library calls none twice.
ExitRescue::ExitRescue(unsigned threads, Rescue rescue) : m_rescue(std::move(rescue)) {
    for (unsigned i = 0; i < threads; ++i) static_cast<void>(std::atexit(onExit));
    s_rescue = &m_rescue;
}

ExitRescue::~ExitRescue() { s_rescue = nullptr; }

void nameCrashes(LastWords say) {
    s_say = say;
    s_crashesNamed = true;
#ifndef OXBEAM_SANITIZED
    for (const int number : Crashes) {
        struct sigaction action {};
        action.sa_sigaction = onCrash;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
        sigaction(number, &action, nullptr);
    }
#endif
}

}  // namespace oxbeam
