// Many pictures in one file: GIF, and MP4 by the program ffmpeg.
#pragma once

#include "Engine/Output/ImageFile.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace oxbeam {

// Whether a file's name is that of a movie: .gif or .mp4.
OXBEAM_API bool isMovie(const std::filesystem::path& file);
// That one can be written under such a name. Throws Error(Usage) for what is none or cannot have so many bits,
// Error(InputOutput) where the folder does not take it or the machine has no ffmpeg for it.
OXBEAM_API void checkMovie(const std::filesystem::path& file, const ImageOptions& options = {});

// The file is whole or not there, as a picture is: until `finish` the old one stays.
class OXBEAM_API Movie {
public:
    virtual ~Movie() = default;
    // Linear colours, row by row from the top, of the size that the movie has; tone, exposure and dithering as of a PNG.
    // All pictures are shown for as long as another. Throws Error(InputOutput).
    virtual void add(const std::vector<R3>& pixels, const ImageOptions& options) = 0;
    virtual void finish() = 0;

    static std::unique_ptr<Movie> create(const std::filesystem::path& file, unsigned width, unsigned height,
                                         double framesPerSecond);
};

}  // namespace oxbeam
