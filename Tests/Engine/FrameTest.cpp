// Frames as a whole: nothing that makes them faster may change them, and they take no memory while they are rendered.
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/System/System.h"
#include "Tests/Support/SceneText.h"
#include "Tests/Support/TestWorld.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

using namespace oxbeam::test;

static std::atomic<bool> s_counting{false};
static std::atomic<unsigned> s_allocations{0};

void* operator new(std::size_t size) {
    if (s_counting) ++s_allocations;
    if (void* memory = std::malloc(size ? size : 1)) return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (s_counting) ++s_allocations;
    return std::malloc(size ? size : 1);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

static const fs::path folder = TEST_REFERENCE;

static std::unique_ptr<World> referenceScene() {
    Diagnostics diagnostics;
    auto world = loadScene(folder / "frame.toml", registry(), diagnostics);
    EXPECT_FALSE(diagnostics.hasErrors());
    return world;
}

// On every processor, with any instruction set and number of threads. Where the picture differs, it and the difference
// stay in the working directory.
TEST(Frame, ThePictureIsTheReferenceBitForBit) {
    OIIO::ImageBuf reference((folder / "frame.exr").string());
    ASSERT_TRUE(reference.read(0, 0, true, OIIO::TypeDesc::FLOAT)) << reference.geterror();
    const auto isas = processor().isas;
    std::vector<std::pair<unsigned, std::string>> ways = {{1, isas[0]}, {48, isas[0]}};
    for (const std::string& isa : isas) ways.emplace_back(2, isa);
    for (const auto& [threads, isa] : ways) {
        RenderOptions options;
        options.samples = 2;
        const auto world = referenceScene();
        auto pixels = renderWorld(*world, options, threads, isa).film.pixels();
        const OIIO::ImageSpec spec(static_cast<int>(world->image.width), static_cast<int>(world->image.height), 3,
                                   OIIO::TypeDesc::FLOAT);
        const OIIO::ImageBuf picture(spec, pixels.data());
        const auto same = OIIO::ImageBufAlgo::compare(picture, reference, 0.0f, 0.0f);
        EXPECT_EQ(same.nfail, 0u) << threads << " threads, " << isa << "; largest difference " << same.maxerror;
        if (same.nfail == 0) continue;
        picture.write("frame_rendered.exr");
        OIIO::ImageBufAlgo::absdiff(picture, reference).write("frame_difference.exr");
    }
}

TEST(Frame, NothingIsAllocatedAfterTheFirstTile) {
    s_counting = true;
    const auto world = referenceScene();
    s_counting = false;
    EXPECT_GT(s_allocations, 100u) << "those of the library are counted";
    RenderOptions options;
    options.progress = [](const Progress& progress) { s_counting = progress.done < 1.0; };
    s_allocations = 0;
    renderWorld(*world, options, 1);
    EXPECT_EQ(s_allocations, 0u);
}
