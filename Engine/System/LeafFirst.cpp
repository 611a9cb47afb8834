#include "Engine/System/LeafFirst.h"

#include "Engine/System/LibraryFile.h"

#include <dlfcn.h>
#include <link.h>

#include <set>
#include <string>
#include <vector>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

class LeafFirst {
public:
    // With those that `library` needs; what is there already has all that it needs.
    void openNeeded(const fs::path& library) {
        try {
            for (const std::string& name : LibraryFile(library).needed())
                if (m_seen.insert(name).second && !isLoaded(name)) open(name);
        } catch (const LibraryFault&) {
            // Then the linker says so.
        }
    }

private:
    static bool isLoaded(const std::string& name) {
        void* library = dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (library) dlclose(library);
        return library;
    }

    // By its name, so that the linker decides which file it is; where that is, is asked for to see what it needs.
    void open(const std::string& name) {
        for (const fs::path& folder : m_folders)
            if (std::error_code none; fs::exists(folder / name, none)) {
                openNeeded(folder / name);
                break;
            }
        dlopen(name.c_str(), RTLD_LAZY | RTLD_LOCAL);
    }

    // That the linker looks in.
    static std::vector<fs::path> folders() {
        std::vector<fs::path> found;
        void* self = dlopen(nullptr, RTLD_LAZY);
        Dl_serinfo size{};
        if (!self || dlinfo(self, RTLD_DI_SERINFOSIZE, &size) != 0) return found;
        std::vector<std::max_align_t> memory(size.dls_size / sizeof(std::max_align_t) + 1);
        auto* info = reinterpret_cast<Dl_serinfo*>(memory.data());
        dlinfo(self, RTLD_DI_SERINFOSIZE, info);
        if (dlinfo(self, RTLD_DI_SERINFO, info) == 0)
            for (unsigned i = 0; i < info->dls_cnt; ++i) found.emplace_back(info->dls_serpath[i].dls_name);
        return found;
    }

    std::vector<fs::path> m_folders = folders();
    std::set<std::string> m_seen;
};

}  // namespace

void* openLeafFirst(const fs::path& library) {
    LeafFirst().openNeeded(library);
    return dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL);
}

}  // namespace oxbeam
