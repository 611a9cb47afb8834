// The program that decodes pictures: what takes long, it loads once, and each picture is then read by a copy of it.
#include "Engine/Import/ExrStream.h"
#include "Engine/Import/Helper/PictureDecoder.h"
#include "Engine/Import/Helper/Requests.h"
#include "Engine/Import/PictureStream.h"
#include "Engine/Import/RequestStream.h"
#include "Engine/System/LeafFirst.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace oxbeam;
namespace fs = std::filesystem;

// From beside this program, as installed and in the build tree; the host says what its status means.
static const PictureDecoder& decoder() {
    std::error_code none;
    const fs::path folder = fs::read_symlink("/proc/self/exe", none).parent_path();
    for (const char* place : {".", "../lib/oxbeam"}) {
        const fs::path file = folder / place / PictureModule;
        if (!fs::exists(file, none)) continue;
        void* module = openLeafFirst(file);
        if (!module) std::fprintf(stderr, "%s\n", dlerror());
        if (!module) std::exit(ReaderShort);
        if (void* entry = dlsym(module, PictureDecoderEntry))
            return *reinterpret_cast<PictureDecoderFunction*>(entry)();
    }
    std::fprintf(stderr, "there is no '%s' beside this program\n", PictureModule);
    std::exit(ReaderFailed);
}

static std::vector<std::byte> failure(const std::string& why) {
    const PictureHeader none;
    std::vector<std::byte> bytes(sizeof none + why.size());
    std::memcpy(bytes.data(), &none, sizeof none);
    std::memcpy(bytes.data() + sizeof none, why.data(), why.size());
    return bytes;
}

int main(int argc, char** argv) {
    const PictureDecoder& pictures = decoder();
    const auto needs = [](const fs::path& request) {
        std::string name = request.string();
        ExrRequest().takeFrom(name);
        return std::vector<fs::path>{name};
    };
    return serveRequests(argc, argv,
                         {pictures.version(), [&](const fs::path& file) { return answerOf(pictures.read(file)); },
                          [](const std::string& why) { return answerOf(failure(why)); }, needs});
}
