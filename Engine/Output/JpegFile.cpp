#include "Engine/Output/JpegFile.h"

#include <cstddef>
#include <cstdio>  // which the next relies on

#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <exception>

namespace oxbeam {

static_assert(LongestJpegSide == JPEG_MAX_DIMENSION);

static constexpr int Quality = 92;  // of 100

namespace {

// What libjpeg, which is written in C, calls back with. It is left by a jump, never by an exception; its own way out of
// an error is the end of the process.
struct Target {
    jpeg_destination_mgr destination{};
    jpeg_error_mgr errors{};
    FileSink& sink;
    std::exception_ptr failure{};
    char why[JMSG_LENGTH_MAX] = "";
    std::jmp_buf way{};
    std::array<unsigned char, 1 << 16> buffer{};

    explicit Target(FileSink& to) : sink(to) {}
};

Target& targetOf(jpeg_compress_struct* jpeg) { return *static_cast<Target*>(jpeg->client_data); }

void rewind(jpeg_compress_struct* jpeg) {
    Target& target = targetOf(jpeg);
    target.destination.next_output_byte = target.buffer.data();
    target.destination.free_in_buffer = target.buffer.size();
}

void put(jpeg_compress_struct* jpeg, std::size_t size) {
    Target& target = targetOf(jpeg);
    try {
        target.sink.write({target.buffer.data(), size});
    } catch (...) {
        target.failure = std::current_exception();
    }
    if (target.failure) std::longjmp(target.way, 1);
    rewind(jpeg);
}

// What is free of the buffer counts for nothing here.
boolean putAll(jpeg_compress_struct* jpeg) {
    put(jpeg, targetOf(jpeg).buffer.size());
    return TRUE;
}

void putRest(jpeg_compress_struct* jpeg) {
    const Target& target = targetOf(jpeg);
    put(jpeg, target.buffer.size() - target.destination.free_in_buffer);
}

void leave(jpeg_common_struct* jpeg) {
    auto& target = *static_cast<Target*>(jpeg->client_data);
    jpeg->err->format_message(jpeg, target.why);
    std::longjmp(target.way, 1);
}

void sayNothing(jpeg_common_struct*) {}

struct Jpeg {
    explicit Jpeg(Target& target) {
        writing.client_data = &target;
        writing.err = jpeg_std_error(&target.errors);
        target.errors.error_exit = leave;
        target.errors.output_message = sayNothing;
        target.destination.init_destination = rewind;
        target.destination.empty_output_buffer = putAll;
        target.destination.term_destination = putRest;
    }
    Jpeg(const Jpeg&) = delete;
    Jpeg& operator=(const Jpeg&) = delete;
    ~Jpeg() { jpeg_destroy_compress(&writing); }

    jpeg_compress_struct writing{};
};

}  // namespace

// What cameras write of a picture: who made it, and that its colours are sRGB (CIPA DC-008, "Exif 2.3": a TIFF file of two
// lists without any pixels).
static std::string exifOf(const Encoding& picture) {
    std::string software;
    if (const auto found = picture.options.attributes.find("Software"); found != picture.options.attributes.end())
        software = std::get<std::string>(found->second);
    software.resize(std::max<std::size_t>(software.size() + 1, 5));  // shorter ones would stand in the list itself
    std::string exif("Exif\0\0II\x2a\0", 10);
    const auto number = [&exif](std::uint32_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i) exif += static_cast<char>(value >> 8 * i & 255);
    };
    const auto entry = [&](std::uint32_t tag, std::uint32_t type, std::size_t count, std::uint32_t value) {
        number(tag, 2), number(type, 2), number(static_cast<std::uint32_t>(count), 4), number(value, 4);
    };
    enum Type : std::uint32_t { Ascii = 2, Short = 3, Long = 4, Undefined = 7 };
    constexpr std::uint32_t first = 8, list = 2 + 2 * 12 + 4, second = first + list, text = second + list;
    constexpr std::uint32_t version = 0x30333230;  // "0230"
    number(first, 4);
    number(2, 2), entry(0x131, Ascii, software.size(), text), entry(0x8769, Long, 1, second), number(0, 4);
    number(2, 2), entry(0x9000, Undefined, 4, version), entry(0xa001, Short, 1, 1), number(0, 4);
    return exif + software;
}

static void begin(jpeg_compress_struct& jpeg, Target& target, const Encoding& picture, const std::string& exif) {
    jpeg_create_compress(&jpeg);
    jpeg.dest = &target.destination;
    jpeg.image_width = picture.width;
    jpeg.image_height = picture.height;
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_RGB;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, Quality, TRUE);
    jpeg_start_compress(&jpeg, TRUE);
    jpeg_write_marker(&jpeg, JPEG_APP0 + 1, reinterpret_cast<const JOCTET*>(exif.data()),
                      static_cast<unsigned>(exif.size()));
}

// Whether all went well. Nothing between here and libjpeg has anything to take down when it is jumped over.
static bool write(Jpeg& jpeg, Target& target, const Encoding& picture, const std::string& exif,
                  std::vector<unsigned char>& row) {
    if (setjmp(target.way)) return false;
    begin(jpeg.writing, target, picture, exif);
    for (std::size_t y = 0; y < picture.height; ++y) {
        picture.put(y * picture.width, (y + 1) * picture.width, row.data());
        JSAMPROW rows[] = {row.data()};
        jpeg_write_scanlines(&jpeg.writing, rows, 1);
    }
    jpeg_finish_compress(&jpeg.writing);
    return true;
}

void writeJpeg(FileSink& sink, const Encoding& picture) {
    Target target(sink);
    Jpeg jpeg(target);
    const std::string exif = exifOf(picture);
    std::vector<unsigned char> row(picture.rowBytes());
    const bool good = write(jpeg, target, picture, exif, row);
    if (target.failure) std::rethrow_exception(target.failure);
    if (!good) throw cannotWrite(picture.file, target.why);
}

}  // namespace oxbeam
