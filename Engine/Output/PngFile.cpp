#include "Engine/Output/PngFile.h"

#include <png.h>

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstdio>
#include <exception>
#include <new>

namespace oxbeam {

namespace {

// What libpng, which is written in C, calls back with. It is left by a jump, never by an exception.
struct Target {
    FileSink& sink;
    std::exception_ptr failure;
    char why[128] = "";
};

void put(png_structp png, png_bytep bytes, std::size_t size) {
    auto& target = *static_cast<Target*>(png_get_io_ptr(png));
    try {
        target.sink.write({bytes, size});
    } catch (...) {
        target.failure = std::current_exception();
    }
    if (target.failure) png_error(png, "its bytes cannot be put anywhere");
}

void leave(png_structp png, png_const_charp why) {
    auto& target = *static_cast<Target*>(png_get_error_ptr(png));
    std::snprintf(target.why, sizeof target.why, "%s", why);
    png_longjmp(png, 1);
}

struct Png {
    explicit Png(Target& target)
        : writing(png_create_write_struct(PNG_LIBPNG_VER_STRING, &target, leave, [](png_structp, png_const_charp) {})),
          info(writing ? png_create_info_struct(writing) : nullptr) {}
    Png(const Png&) = delete;
    Png& operator=(const Png&) = delete;
    ~Png() { png_destroy_write_struct(&writing, &info); }

    png_structp writing;
    png_infop info;
};

}  // namespace

static void writeHeader(const Png& png, const Encoding& picture) {
    png_set_IHDR(png.writing, png.info, picture.width, picture.height, static_cast<int>(8 * picture.valueBytes),
                 picture.channels.size() == 4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB_gAMA_and_cHRM(png.writing, png.info, PNG_sRGB_INTENT_ABSOLUTE);
    const auto software = picture.options.attributes.find("Software");
    if (software != picture.options.attributes.end()) {
        png_text text{};
        text.compression = PNG_TEXT_COMPRESSION_NONE;
        text.key = const_cast<char*>("Software");
        text.text = const_cast<char*>(std::get<std::string>(software->second).c_str());
        png_set_text(png.writing, png.info, &text, 1);
    }
    // Dithered pixels gain nothing by being predicted from their neighbours.
    png_set_filter(png.writing, PNG_FILTER_TYPE_BASE, PNG_NO_FILTERS);
    png_write_info(png.writing, png.info);
    if (picture.valueBytes == 2 && std::endian::native == std::endian::little) png_set_swap(png.writing);
}

static void writeRows(const Png& png, const Encoding& picture, std::vector<unsigned char>& row) {
    for (std::size_t y = 0; y < picture.height; ++y) {
        picture.put(y * picture.width, (y + 1) * picture.width, row.data());
        png_write_row(png.writing, row.data());
    }
}

// Whether all went well. Nothing between here and libpng has anything to take down when it is jumped over.
static bool write(const Png& png, const Encoding& picture, std::vector<unsigned char>& row) {
    if (setjmp(png_jmpbuf(png.writing))) return false;
    writeHeader(png, picture);
    writeRows(png, picture, row);
    png_write_end(png.writing, png.info);
    return true;
}

void writePng(FileSink& sink, const Encoding& picture) {
    Target target{sink, nullptr};
    const Png png(target);
    if (!png.info) throw std::bad_alloc();
    png_set_write_fn(png.writing, &target, put, [](png_structp) {});
    std::vector<unsigned char> row(picture.rowBytes());
    const bool good = write(png, picture, row);
    if (target.failure) std::rethrow_exception(target.failure);
    if (!good) throw cannotWrite(picture.file, target.why);
}

}  // namespace oxbeam
