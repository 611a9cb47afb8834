// The module that writes TIFF and HDR pictures and draws contact sheets with OpenImageIO.
#include "Engine/Output/PictureLibrary.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <exception>

using namespace oxbeam;

namespace {

// ---- What is said of a picture

OIIO::TypeDesc typeOf(const Encoding& picture) {
    return picture.valueBytes == 4   ? OIIO::TypeDesc::FLOAT
           : picture.valueBytes == 2 ? OIIO::TypeDesc::UINT16
                                     : OIIO::TypeDesc::UINT8;
}

// The colour space of a TIFF would go where cameras put what they know. The library writes that wrongly through a proxy,
// and that there is none it reports as an error, after a file that is good.
bool isTiff(const Encoding& picture) { return picture.format == "tiff"; }

OIIO::ImageSpec specOf(const Encoding& picture) {
    const bool display = picture.valueBytes < 4;
    OIIO::ImageSpec spec(static_cast<int>(picture.width), static_cast<int>(picture.height),
                         static_cast<int>(picture.channels.size()), typeOf(picture));
    spec.channelnames = picture.channels;
    if (!isTiff(picture)) spec["oiio:ColorSpace"] = display ? "sRGB" : "Linear";
    if (picture.options.alpha && display) {
        spec.alpha_channel = 3;
        spec["oiio:UnassociatedAlpha"] = 1;  // the colours are divided by it here already
    }
    const Attributes& attributes = picture.options.attributes;
    if (const auto software = attributes.find("Software"); software != attributes.end())
        spec.attribute("Software", std::get<std::string>(software->second));
    return spec;
}

// ---- Writing

// What encoders write to. Nothing must be thrown through them: some are written in C.
class SinkProxy : public OIIO::Filesystem::IOProxy {
public:
    SinkProxy(FileSink& sink, const std::filesystem::path& file) : IOProxy(file.string(), Write), m_sink(sink) {}

    const char* proxytype() const override { return "sink"; }
    std::size_t size() const override { return m_sink.size(); }
    std::size_t pwrite(const void* data, std::size_t size, std::int64_t offset) override {
        if (m_failure) return 0;
        try {
            m_sink.seek(static_cast<std::uint64_t>(offset));
            m_sink.write({static_cast<const unsigned char*>(data), size});
            return size;
        } catch (...) {
            m_failure = std::current_exception();
            return 0;
        }
    }
    std::size_t write(const void* data, std::size_t size) override {
        const std::size_t written = pwrite(data, size, m_pos);
        m_pos += static_cast<std::int64_t>(written);
        return written;
    }
    void throwFailure() const {
        if (m_failure) std::rethrow_exception(m_failure);
    }

private:
    FileSink& m_sink;
    std::exception_ptr m_failure;
};

// Some megabytes of rows at a time.
bool writeRows(OIIO::ImageOutput& output, const Encoding& picture) {
    constexpr std::size_t most = 8u << 20;  // bytes
    const OIIO::ImageSpec& spec = output.spec();
    const auto width = static_cast<std::size_t>(spec.width);
    const int together = static_cast<int>(std::max<std::size_t>(1, most / picture.rowBytes()));
    std::vector<float> values((picture.rowBytes() * static_cast<std::size_t>(std::min(together, spec.height)) + 3) /
                              sizeof(float));
    bool good = true;
    for (int y = 0; y < spec.height && good; y += together) {
        const int end = std::min(y + together, spec.height);
        picture.put(width * static_cast<std::size_t>(y), width * static_cast<std::size_t>(end), values.data());
        good = output.write_scanlines(spec.y + y, spec.y + end, 0, typeOf(picture), values.data());
    }
    return good;
}

std::string writeTo(FileSink& sink, const Encoding& picture) {
    SinkProxy proxy(sink, picture.file);
    const auto output = OIIO::ImageOutput::create(picture.format);
    if (!output) return OIIO::geterror();
    output->set_ioproxy(&proxy);
    bool good = output->open(picture.file.string(), specOf(picture));
    good = good && writeRows(*output, picture);
    good = output->close() && good;
    proxy.throwFailure();
    if (good && (!output->has_error() || isTiff(picture))) return {};
    const std::string why = output->geterror();
    return why.empty() ? "its encoder gives no reason" : why;
}

// ---- Movies

class Gif final : public MoviePictures {
public:
    Gif(FileSink& sink, unsigned width, unsigned height, double fps)
        : m_proxy(sink, "movie.gif"),
          m_spec(static_cast<int>(width), static_cast<int>(height), 3, OIIO::TypeDesc::UINT8),
          m_output(OIIO::ImageOutput::create("gif")) {
        // The format counts hundredths of a second, in two bytes.
        const int rate[2] = {100, static_cast<int>(std::lround(std::clamp(100.0 / fps, 1.0, 65535.0)))};
        m_spec.attribute("FramesPerSecond", OIIO::TypeRational, rate);
    }

    std::string add(const std::uint8_t* pixels) override {
        if (!m_output) return OIIO::geterror();
        const auto mode = m_begun ? OIIO::ImageOutput::AppendSubimage : OIIO::ImageOutput::Create;
        if (!m_begun) m_output->set_ioproxy(&m_proxy);
        m_begun = true;
        const bool good =
            m_output->open("movie.gif", m_spec, mode) && m_output->write_image(OIIO::TypeDesc::UINT8, pixels);
        return said(good);
    }
    std::string finish() override { return said(m_output->close()); }

private:
    std::string said(bool good) const {
        m_proxy.throwFailure();
        if (good && !m_output->has_error()) return {};
        const std::string why = m_output->geterror();
        return why.empty() ? "its encoder gives no reason" : why;
    }

    SinkProxy m_proxy;
    OIIO::ImageSpec m_spec;
    std::unique_ptr<OIIO::ImageOutput> m_output;  // goes before the proxy
    bool m_begun = false;
};

// ---- Contact sheets

constexpr int LargestFont = 15, SmallestFont = 8;
constexpr const char* Font = "DejaVuSans";
constexpr float PaperColor[] = {0.9f, 0.9f, 0.9f}, Ink[] = {0.01f, 0.01f, 0.01f};

OIIO::ImageBuf blank(unsigned width, unsigned height) {
    return OIIO::ImageBuf(OIIO::ImageSpec(static_cast<int>(width), static_cast<int>(height), 3, OIIO::TypeDesc::FLOAT));
}

// The largest size of a picture's shape that fits a cell; pictures are not enlarged.
OIIO::ImageBuf fitted(const OIIO::ImageBuf& picture, const SheetCell& cell) {
    const int w = picture.spec().width, h = picture.spec().height;
    const double scale = std::min({1.0, static_cast<double>(cell.width) / w, static_cast<double>(cell.height) / h});
    const int newWidth = std::max(1, static_cast<int>(w * scale)), newHeight = std::max(1, static_cast<int>(h * scale));
    if (newWidth == w && newHeight == h) return picture;
    return OIIO::ImageBufAlgo::resize(picture, "", 0.0f, OIIO::ROI(0, newWidth, 0, newHeight, 0, 1, 0, 3));
}

// The largest size of text that a label is readable in and that fits the cell, if any does.
int fontSize(const std::string& label, const SheetCell& cell) {
    int size = LargestFont;
    while (size > SmallestFont && OIIO::ImageBufAlgo::text_size(label, size, Font).width() > cell.width) --size;
    return size;
}

class Paper final : public SheetPaper {
public:
    Paper(unsigned width, unsigned height) : m_paper(blank(width, height)) {
        OIIO::ImageBufAlgo::fill(m_paper, PaperColor);
    }

    std::string lay(const Sheet& picture, const SheetCell& cell, const std::string& label) override {
        OIIO::ImageBuf whole = blank(picture.width, picture.height);
        whole.set_pixels(whole.roi(), OIIO::TypeDesc::FLOAT, picture.pixels.data());
        const OIIO::ImageBuf small = fitted(whole, cell);
        const int left = cell.x + (cell.width - small.spec().width) / 2;
        const int top = cell.y + cell.height - small.spec().height;
        const bool drawn =
            OIIO::ImageBufAlgo::paste(m_paper, left, top, 0, 0, small) &&
            OIIO::ImageBufAlgo::render_text(m_paper, cell.x + cell.width / 2, cell.baseline, label,
                                            fontSize(label, cell), Font, Ink, OIIO::ImageBufAlgo::TextAlignX::Center);
        return drawn ? "" : m_paper.geterror();
    }

    Sheet sheet() const override {
        const OIIO::ImageSpec& spec = m_paper.spec();
        Sheet sheet{static_cast<unsigned>(spec.width), static_cast<unsigned>(spec.height), {}};
        sheet.pixels.resize(std::size_t{sheet.width} * sheet.height);
        m_paper.get_pixels(m_paper.roi(), OIIO::TypeDesc::FLOAT, sheet.pixels.data());
        return sheet;
    }

private:
    OIIO::ImageBuf m_paper;
};

// ---- The entrance

class Library final : public PictureLibrary {
public:
    std::string version() const override {
        const int version = OIIO::openimageio_version();
        return std::to_string(version / 10000) + '.' + std::to_string(version / 100 % 100) + '.' +
               std::to_string(version % 100);
    }
    std::string write(FileSink& sink, const Encoding& picture) override { return writeTo(sink, picture); }
    std::unique_ptr<SheetPaper> paper(unsigned width, unsigned height) override {
        return std::make_unique<Paper>(width, height);
    }
    std::unique_ptr<MoviePictures> movie(FileSink& sink, unsigned width, unsigned height, double fps) override {
        return std::make_unique<Gif>(sink, width, height, fps);
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) PictureLibrary* oxbeamPictureLibrary() {
    static Library library;
    return &library;
}
