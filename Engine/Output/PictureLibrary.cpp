#include "Engine/Output/PictureLibrary.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/PictureStream.h"
#include "Engine/System/LeafFirst.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <dlfcn.h>

#include <future>
#include <mutex>
#include <system_error>

namespace oxbeam {

// By its place beside this library, never by a search. It stays to the end.
static PictureLibrary* loaded() {
    const std::filesystem::path file = engineLibrary().parent_path() / "oxbeam" / PictureModule;
    void* module = openLeafFirst(file);
    void* entry = module ? dlsym(module, PictureLibraryEntry) : nullptr;
    if (!entry)
        throw Error(ExitStatus::InputOutput,
                    fmt::format("what writes pictures other than PNG cannot be loaded: {}", dlerror()));
    return reinterpret_cast<PictureLibraryFunction*>(entry)();
}

// Of the process; whoever ends it waits for a module that is half loaded.
static std::shared_future<PictureLibrary*> loading(bool now) {
    static std::mutex mutex;
    static std::shared_future<PictureLibrary*> begun;
    const std::scoped_lock lock(mutex);
    if (begun.valid()) return begun;
    try {
        if (!now) begun = std::async(std::launch::async, loaded);
    } catch (const std::system_error&) {
        // No thread to spare.
    }
    if (!begun.valid()) begun = std::async(std::launch::deferred, loaded);
    return begun;
}

void preparePictureLibrary() { loading(false); }

PictureLibrary& pictureLibrary() { return *loading(true).get(); }

}  // namespace oxbeam
