// Writing pictures.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <filesystem>
#include <vector>

namespace oxbeam {

struct ImageOptions {
    unsigned bits = 8;  // of a PNG: 8 or 16
};

// Throws Error(Usage) where nothing can be written under such a name: unknown extension, or bits that the format does
// not have. For finding out before rendering.
OXBEAM_API void checkImageFormat(const std::filesystem::path& file, const ImageOptions& options = {});

// Writes linear colours, row by row from the top: EXR and HDR as linear floats, PNG and JPEG as sRGB. The picture is
// encoded in memory, written to a temporary file beside the target, read back, and then renamed, so that an old picture
// stays whole until the new one is. Throws Error(InputOutput).
OXBEAM_API void writeImage(const std::filesystem::path& file, unsigned width, unsigned height,
                           const std::vector<R3>& pixels, const ImageOptions& options = {});

}  // namespace oxbeam
