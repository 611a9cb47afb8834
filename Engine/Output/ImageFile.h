// Writing pictures.
#pragma once

#include "Engine/Render/Aovs.h"
#include "Engine/Render/ViewMatrices.h"
#include "Engine/System/StoredFile.h"
#include "Engine/World/Tone.h"
#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace oxbeam {

// What is said of a picture in its header, by names that the field knows or that start with "oxbeam:".
using Attribute = std::variant<std::string, int, float, Matrix44>;
using Attributes = std::map<std::string, Attribute>;

// A picture that is the part `window` of a whole one.
struct Placement {
    Window window;
    ImageSize whole;
};

struct ImageOptions {
    unsigned bits = 8;  // of a PNG or TIFF: 8 or 16
    Tone tone = {};     // of PNG, JPEG and TIFF
    // One channel, which the colours are multiplied by: kept so in EXR, and divided by in PNG and TIFF. Other formats
    // are written without it.
    std::optional<Layer> alpha = {};
    // Dithering goes by the place in the whole picture.
    std::optional<Placement> placement = {};  // none: the picture is whole
    // What follows is kept by EXR alone; the others keep the attribute "Software".
    std::vector<Layer> layers = {};  // channels beside the colours
    Attributes attributes = {};
    bool compress = true;
};

// Whether a file's name is that of an EXR picture.
OXBEAM_API bool isExr(const std::filesystem::path& file);
// Of a picture for a display, which exposure and tone curve are for.
OXBEAM_API bool isForDisplay(const std::filesystem::path& file);
// Of a picture that has room for alpha.
OXBEAM_API bool hasRoomForAlpha(const std::filesystem::path& file);
// The formats' endings, without the point.
OXBEAM_API const std::vector<std::string>& imageFormats();

// Throws Error(Usage) where nothing can be written under such a name: unknown extension, or bits that the format does
// not have. For finding out before rendering.
OXBEAM_API void checkImageFormat(const std::filesystem::path& file, const ImageOptions& options = {});
// The same where its format has no pictures as large.
OXBEAM_API void checkImageSize(const std::filesystem::path& file, unsigned width, unsigned height);

// Begins to load, beside what else there is to do, what writing such a picture takes: for TIFF and HDR a tenth of a
// second. For those who know early what they are going to write; throws Error(Usage) as the check does.
OXBEAM_API void prepareToWrite(const std::filesystem::path& file);

// Writes linear colours, row by row from the top: EXR and HDR as linear floats, PNG, JPEG and TIFF as sRGB, which those
// of 8 bits are dithered for. An old picture stays whole until the new one is. Throws Error(InputOutput).
OXBEAM_API void writeImage(const std::filesystem::path& file, unsigned width, unsigned height,
                           const std::vector<R3>& pixels, const ImageOptions& options = {});
// The same into a sink, which is not finished here; the file's name says the format.
OXBEAM_API void writeImage(FileSink& sink, const std::filesystem::path& file, unsigned width, unsigned height,
                           const std::vector<R3>& pixels, const ImageOptions& options = {});
// An EXR picture that has the options' layers and no colours beside them; rows are asked for as they are written, so that
// it takes no memory to speak of.
OXBEAM_API void writeLayers(FileSink& sink, const std::filesystem::path& file, unsigned width, unsigned height,
                            const ImageOptions& options);

// Of OpenImageIO, which writes TIFF and HDR, as the library that is loaded says it; or why there is none.
OXBEAM_API std::string imageLibraryVersion();

}  // namespace oxbeam
