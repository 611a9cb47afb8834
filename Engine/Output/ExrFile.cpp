#include "Engine/Output/ExrFile.h"

#include "Engine/System/System.h"

#include <openexr.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace oxbeam {

namespace {

// What the library, which is written in C, calls back with: nothing may be thrown through it.
struct Target {
    FileSink& sink;
    std::exception_ptr failure;
    std::mutex mutex;
    std::string why;  // the first thing that went wrong, by the library's word

    void say(const std::string& what) {
        const std::scoped_lock lock(mutex);
        if (why.empty()) why = what;
    }
};

std::int64_t put(exr_const_context_t, void* to, const void* bytes, std::uint64_t size, std::uint64_t offset,
                 exr_stream_error_func_ptr_t) {
    auto& target = *static_cast<Target*>(to);
    if (target.failure) return -1;
    try {
        target.sink.seek(offset);
        target.sink.write({static_cast<const unsigned char*>(bytes), size});
        return static_cast<std::int64_t>(size);
    } catch (...) {
        target.failure = std::current_exception();
        return -1;
    }
}

// What the library says of a call that goes wrong, to the thread that called: the file itself is locked meanwhile.
thread_local char lastWords[256] = "";
void hear(exr_const_context_t, exr_result_t, const char* why) { std::snprintf(lastWords, sizeof lastWords, "%s", why); }

// One that is being written, of one part.
class ExrFile {
public:
    ExrFile(const std::filesystem::path& name, Target& target) : m_target(target) {
        exr_context_initializer_t with = EXR_DEFAULT_CONTEXT_INITIALIZER;
        with.user_data = &target;
        with.write_fn = put;
        with.error_handler_fn = hear;
        lastWords[0] = '\0';
        require(exr_start_write(&m_file, name.c_str(), EXR_WRITE_FILE_DIRECTLY, &with));
        require(exr_set_longname_support(m_file, 1));
        require(exr_add_part(m_file, nullptr, EXR_STORAGE_SCANLINE, nullptr));
    }
    ExrFile(const ExrFile&) = delete;
    ExrFile& operator=(const ExrFile&) = delete;
    ~ExrFile() { finish(); }

    // Writes what is left, the table of where each block is.
    exr_result_t finish() { return m_file ? exr_finish(&m_file) : EXR_ERR_SUCCESS; }
    // That a call of the library has gone well.
    void require(exr_result_t result) const {
        if (result == EXR_ERR_SUCCESS) return;
        m_target.say(*lastWords ? lastWords : exr_get_default_error_message(result));
        throw result;
    }
    operator exr_context_t() const { return m_file; }

private:
    Target& m_target;
    exr_context_t m_file = nullptr;
};

}  // namespace

// ---- What is said of a picture

static void setAttribute(const ExrFile& file, const std::string& name, const Attribute& value) {
    struct Setter {
        const ExrFile& file;
        const char* name;

        exr_result_t operator()(const std::string& text) const {
            return exr_attr_set_string(file, 0, name, text.c_str());
        }
        exr_result_t operator()(int whole) const { return exr_attr_set_int(file, 0, name, whole); }
        exr_result_t operator()(float number) const { return exr_attr_set_float(file, 0, name, number); }
        exr_result_t operator()(const Matrix44& matrix) const {
            exr_attr_m44f_t m;
            std::copy_n(matrix.data(), 16, m.m);
            return exr_attr_set_m44f(file, 0, name, &m);
        }
    };
    file.require(std::visit(Setter{file, name.c_str()}, value));
}

// As the field writes it, in local time.
static std::string now() {
    const std::time_t time = std::time(nullptr);
    std::tm parts{};
    localtime_r(&time, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &parts)};
}

static void writeHeader(const ExrFile& file, const Encoding& picture) {
    const ImageOptions& options = picture.options;
    const Placement placed =
        options.placement.value_or(Placement{{0, 0, picture.width, picture.height}, {picture.width, picture.height}});
    const auto at = [](unsigned x, unsigned y) {
        return exr_attr_v2i_t{{static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)}};
    };
    const Window& w = placed.window;
    const exr_attr_box2i_t data{at(w.x0, w.y0), at(w.x1 - 1, w.y1 - 1)};
    const exr_attr_box2i_t display{at(0, 0), at(placed.whole.width - 1, placed.whole.height - 1)};
    const exr_attr_v2f_t center{};
    file.require(exr_initialize_required_attr(file, 0, &display, &data, 1.0f, &center, 1.0f, EXR_LINEORDER_INCREASING_Y,
                                              options.compress ? EXR_COMPRESSION_ZIP : EXR_COMPRESSION_NONE));
    for (const std::string& channel : picture.channels)
        file.require(exr_add_channel(file, 0, channel.c_str(), EXR_PIXEL_FLOAT, EXR_PERCEPTUALLY_LOGARITHMIC, 1, 1));
    setAttribute(file, "capDate", now());
    for (const auto& [name, value] : options.attributes) setAttribute(file, name, value);
    file.require(exr_write_header(file));
}

// ---- Pixels

namespace {

// The blocks of a file, on some threads: each fetches the next and compresses it, and writes it when those before are
// written.
class Blocks {
public:
    Blocks(const ExrFile& file, const Encoding& picture) : m_file(file), m_picture(picture) {
        std::int32_t rows = 1;
        file.require(exr_get_scanlines_per_chunk(file, 0, &rows));
        m_rows = static_cast<unsigned>(rows);
        m_count = (picture.height + m_rows - 1) / m_rows;
    }

    // Throws the result of what goes wrong.
    void write() {
        // What is small, or not compressed, is written before a thread has started.
        constexpr std::size_t much = 1u << 20;  // bytes
        const bool alone = m_picture.rowBytes() * m_picture.height < much || !m_picture.options.compress;
        const unsigned threads = alone ? 1 : std::min(threadBudget().rendering, m_count);
        {
            std::vector<std::jthread> others;
            try {
                while (others.size() + 1 < threads) others.emplace_back([this] { work(); });
            } catch (const std::system_error&) {
                // Fewer, then.
            }
            work();
        }
        m_file.require(m_result);
    }

private:
    struct Pipeline;
    void work();
    std::optional<unsigned> next();
    void end(exr_result_t result);
    void encode(Pipeline& pipeline, unsigned block);
    // Whether it is the block's turn, after waiting for it.
    bool await(unsigned block) {
        std::unique_lock lock(m_mutex);
        m_turn.wait(lock, [&] { return m_written == block || m_result != EXR_ERR_SUCCESS; });
        return m_result == EXR_ERR_SUCCESS;
    }
    static exr_result_t awaitTurn(exr_encode_pipeline_t* pipeline) {
        const auto& [blocks, block] = *static_cast<const std::pair<Blocks*, unsigned>*>(pipeline->encoding_user_data);
        return blocks->await(block) ? EXR_ERR_SUCCESS : EXR_ERR_WRITE_IO;
    }

    const ExrFile& m_file;
    const Encoding& m_picture;
    unsigned m_rows = 1, m_count = 0;
    std::mutex m_mutex;
    std::condition_variable m_turn;
    unsigned m_next = 0, m_written = 0;
    exr_result_t m_result = EXR_ERR_SUCCESS;  // of all so far
};

// A thread's own.
struct Blocks::Pipeline {
    explicit Pipeline(exr_const_context_t to, std::size_t numbers) : file(to), values(numbers) {}
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;
    ~Pipeline() { exr_encoding_destroy(file, &pipeline); }

    exr_const_context_t file;
    exr_encode_pipeline_t pipeline = EXR_ENCODE_PIPELINE_INITIALIZER;
    bool begun = false;
    std::vector<float> values;  // of the block, pixel by pixel
    std::pair<Blocks*, unsigned> turn{};
};

std::optional<unsigned> Blocks::next() {
    const std::scoped_lock lock(m_mutex);
    if (m_next == m_count || m_result != EXR_ERR_SUCCESS) return std::nullopt;
    return m_next++;
}

// Of a block whose turn it was, or of none.
void Blocks::end(exr_result_t result) {
    const std::scoped_lock lock(m_mutex);
    if (result == EXR_ERR_SUCCESS)
        ++m_written;
    else if (m_result == EXR_ERR_SUCCESS)
        m_result = result;
    m_turn.notify_all();
}

void Blocks::work() try {
    Pipeline pipeline(m_file, std::size_t{m_rows} * m_picture.width * m_picture.channels.size());
    while (const auto block = next()) {
        encode(pipeline, *block);
        end(EXR_ERR_SUCCESS);
    }
} catch (exr_result_t result) {
    end(result);
} catch (const std::bad_alloc&) {
    end(EXR_ERR_OUT_OF_MEMORY);
}

void Blocks::encode(Pipeline& p, unsigned block) {
    const unsigned first = block * m_rows, end = std::min(first + m_rows, m_picture.height);
    const std::size_t width = m_picture.width;
    m_picture.put(first * width, end * width, p.values.data());
    const unsigned top = m_picture.options.placement ? m_picture.options.placement->window.y0 : 0;
    exr_chunk_info_t chunk{};
    m_file.require(exr_write_scanline_chunk_info(m_file, 0, static_cast<int>(top + first), &chunk));
    const bool begins = !std::exchange(p.begun, true);
    m_file.require((begins ? exr_encoding_initialize : exr_encoding_update)(m_file, 0, &chunk, &p.pipeline));
    for (int c = 0; c < p.pipeline.channel_count; ++c) {
        exr_coding_channel_info_t& channel = p.pipeline.channels[c];
        const auto at = std::ranges::find(m_picture.channels, channel.channel_name) - m_picture.channels.begin();
        channel.user_pixel_stride = static_cast<std::int32_t>(m_picture.channels.size() * sizeof(float));
        channel.user_line_stride = static_cast<std::int32_t>(m_picture.rowBytes());
        channel.encode_from_ptr = reinterpret_cast<const std::uint8_t*>(p.values.data() + at);
    }
    p.turn = {this, block};
    p.pipeline.encoding_user_data = &p.turn;
    if (begins) {
        m_file.require(exr_encoding_choose_default_routines(m_file, 0, &p.pipeline));
        p.pipeline.yield_until_ready_fn = awaitTurn;
    }
    m_file.require(exr_encoding_run(m_file, 0, &p.pipeline));
}

}  // namespace

void writeExr(FileSink& sink, const Encoding& picture) {
    Target target{sink, nullptr, {}, {}};
    bool good = true;
    try {
        ExrFile file(picture.file, target);
        writeHeader(file, picture);
        Blocks(file, picture).write();
        file.require(file.finish());
    } catch (exr_result_t) {
        good = false;
    }
    if (target.failure) std::rethrow_exception(target.failure);
    if (!good) throw cannotWrite(picture.file, target.why);
}

}  // namespace oxbeam
