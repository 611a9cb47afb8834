#include "Engine/Output/PictureLibrary.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Sanitizers.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <dlfcn.h>

#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

namespace oxbeam {

static Error cannotLoad(const std::string& why) {
    return {ExitStatus::InputOutput,
            fmt::format("what writes TIFF and HDR pictures and draws contact sheets cannot be loaded: {}", why)};
}

// By its place beside this library, never by a search. It stays to the end.
static std::string load(PictureLibrary*& library) {
    const std::filesystem::path file = engineLibrary().parent_path() / "oxbeam" / PictureModule;
    void* module = dlopen(file.c_str(), RTLD_LAZY | RTLD_LOCAL);
    void* entry = module ? dlsym(module, PictureLibraryEntry) : nullptr;
    if (!entry) return dlerror();
    library = reinterpret_cast<PictureLibraryFunction*>(entry)();
    return {};
}

// On a thread on which nobody catches anything: some libraries throw where they are loaded and cannot have a thread, and
// neither they nor the linker survive that such an exception goes on. So it ends the program, as it does one that is
// linked with them. No `std::async`, which catches.
static std::shared_future<PictureLibrary*> begin() {
    auto result = std::make_shared<std::promise<PictureLibrary*>>();
    std::shared_future<PictureLibrary*> begun = result->get_future().share();
    const auto work = [result] {
        PictureLibrary* library = nullptr;
        const std::string why = load(library);
        if (library)
            result->set_value(library);
        else
            result->set_exception(std::make_exception_ptr(cannotLoad(why)));
    };
#ifdef OXBEAM_SANITIZED  // the search for leaks fails over what a thread has loaded that is gone
    work();
#else
    std::thread(work).detach();
#endif
    return begun;
}

// Of the process.
static std::shared_future<PictureLibrary*> loading() {
    static std::mutex mutex;
    static std::shared_future<PictureLibrary*> begun;
    const std::scoped_lock lock(mutex);
    if (!begun.valid()) begun = begin();
    return begun;
}

void preparePictureLibrary() try { loading(); } catch (const std::system_error&) {
    // No thread to spare, as whoever needs it will be told.
}

PictureLibrary& pictureLibrary() try { return *loading().get(); } catch (const std::system_error& e) {
    throw cannotLoad(e.what());
}

}  // namespace oxbeam
