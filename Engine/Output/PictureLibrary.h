// What OpenImageIO does for the engine, apart from it. Its Debian build needs 260 libraries, whose relocation takes a
// tenth of a second: they are loaded where there is a picture for them, not whenever a process starts.
#pragma once

#include "Engine/Output/ContactSheet.h"
#include "Engine/Output/Encoding.h"

#include <memory>
#include <string>

namespace oxbeam {

struct SheetCell {
    int x = 0, y = 0, width = 0, height = 0;
    int baseline = 0;  // of its label
};

// What contact sheets are drawn on. What goes wrong is answered in words, nothing where all is well.
class SheetPaper {
public:
    virtual ~SheetPaper() = default;
    // At the bottom of the cell and in its middle, scaled down where it does not fit.
    virtual std::string lay(const Sheet& picture, const SheetCell& cell, const std::string& label) = 0;
    virtual Sheet sheet() const = 0;
};

// A movie that is being written. What goes wrong is answered in words, nothing where all is well.
class MoviePictures {
public:
    virtual ~MoviePictures() = default;
    // Three values a pixel, row by row from the top.
    virtual std::string add(const std::uint8_t* pixels) = 0;
    virtual std::string finish() = 0;
};

class PictureLibrary {
public:
    virtual ~PictureLibrary() = default;
    virtual std::string version() const = 0;
    // Throws what the sink throws; what else goes wrong is answered in words.
    virtual std::string write(FileSink& sink, const Encoding& picture) = 0;
    virtual std::unique_ptr<SheetPaper> paper(unsigned width, unsigned height) = 0;
    // A GIF, into a sink that outlives it and whose exceptions come out of what is called here.
    virtual std::unique_ptr<MoviePictures> movie(FileSink& sink, unsigned width, unsigned height, double fps) = 0;
};

// The module and its one entrance.
inline constexpr const char* PictureModule = "liboxbeam-pictures.so";
inline constexpr const char* PictureLibraryEntry = "oxbeamPictureLibrary";
using PictureLibraryFunction = PictureLibrary*();

// Loads the module where it is not yet, beside whatever else goes on.
void preparePictureLibrary();
// Waits for it. Throws Error(InputOutput) where it cannot be loaded.
PictureLibrary& pictureLibrary();

}  // namespace oxbeam
