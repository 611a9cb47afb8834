#include "Apps/oxbeam/Job.h"

#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/PictureOptions.h"
#include "Engine/System/InputFile.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <fstream>
#include <set>

namespace oxbeam {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

static constexpr int ThisFormat = 1;

std::vector<JobFrame> framesOf(const JobPart& part) {
    if (part.frames.empty()) return {std::nullopt};
    return {part.frames.begin(), part.frames.end()};
}

std::string Job::nameOf(unsigned part, JobFrame frame) {
    return frame ? fmt::format("{}.{}", part, *frame) : std::to_string(part);
}

fs::path Job::result(unsigned part, JobFrame frame) const {
    return folder / "results" / (nameOf(part, frame) + ".exr");
}
fs::path Job::statistics(unsigned part, JobFrame frame) const {
    return folder / "results" / (nameOf(part, frame) + ".json");
}

std::vector<unsigned> Job::frames() const {
    std::vector<unsigned> all;
    for (const JobPart& part : parts) all.insert(all.end(), part.frames.begin(), part.frames.end());
    std::ranges::sort(all);
    return all;
}

// An absolute path stays as it is.
RenderCommand Job::picture() const {
    RenderCommand made = pictureCommand(options);
    made.text = command;
    made.scene = folder / scene;
    if (isSequence()) made.output = SequenceName;
    for (std::string* file : {&made.model.environment, &made.model.texture})
        if (!file->empty()) *file = folder / *file;
    return made;
}

// ---- Writing

static std::string cropText(const Window& w) { return fmt::format("{},{},{},{}", w.x0, w.y0, w.x1, w.y1); }

static Json jsonOf(const JobPart& part) {
    const Window& w = part.crop;
    Json json = {{"part", part.number}, {"crop", {w.x0, w.y0, w.x1, w.y1}}, {"share", part.share}};
    if (!part.frames.empty()) json["frames"] = part.frames;
    return json;
}

// Shells take what follows the # for a remark.
static std::string partLines(const Job& job, const std::string& program) {
    std::string lines;
    for (const JobPart& part : job.parts)
        lines += fmt::format("{} part ./{}  # {}: {:.2f}%\n", program, part.number,
                             part.frames.empty() ? cropText(part.crop) : "frames " + numbersText(part.frames),
                             100.0 * part.share);
    return lines;
}

// A text that is only for reading may lose what is not UTF-8.
static std::string readable(const std::string& text) {
    return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace));
}

static std::string textOf(const Json& json) try { return json.dump(2) + '\n'; } catch (const Json::type_error&) {
    throw Error(ExitStatus::Usage,
                "the scene, or a file that it reads, has a name that is not UTF-8, which a job cannot tell");
}

void writeJob(const Job& job, const std::string& program) {
    Json parts = Json::array();
    for (const JobPart& part : job.parts) parts.push_back(jsonOf(part));
    const Json json = {{"format", ThisFormat},
                       {"command", readable(job.command)},
                       {"scene", job.scene},
                       {"options", job.options},
                       {"image", {job.image.width, job.image.height}},
                       {"samples", job.samples},
                       {"layers", job.layers},
                       {"alpha", job.alpha},
                       {"inputs", job.inputs},
                       {"files", job.files},
                       {"process_numbers", job.processNumbers},
                       {"parts", parts}};
    storeFile(job.folder / "parts", partLines(job, program));
    storeFile(job.folder / "job.json", textOf(json));
}

// ---- Reading

static JobPart partOf(const Json& json) {
    const auto crop = json.at("crop").get<std::array<unsigned, 4>>();
    JobPart part{json.at("part"), {crop[0], crop[1], crop[2], crop[3]}, json.at("share")};
    if (json.contains("frames")) json.at("frames").get_to(part.frames);
    return part;
}

static Job jobOf(const Json& json) {
    Job job;
    const auto image = json.at("image").get<std::array<unsigned, 2>>();
    job.image = {image[0], image[1]};
    json.at("command").get_to(job.command);
    json.at("scene").get_to(job.scene);
    json.at("options").get_to(job.options);
    json.at("samples").get_to(job.samples);
    json.at("layers").get_to(job.layers);
    json.at("alpha").get_to(job.alpha);
    json.at("inputs").get_to(job.inputs);
    json.at("files").get_to(job.files);
    json.at("process_numbers").get_to(job.processNumbers);
    for (const Json& part : json.at("parts")) job.parts.push_back(partOf(part));
    return job;
}

// By tiles, which the crops are made of.
static bool coverOnce(const std::vector<JobPart>& parts, const ImageSize& image) {
    const auto tiles = [](unsigned pixels) { return (pixels + TileSize - 1) / TileSize; };
    std::vector<bool> covered(std::size_t{tiles(image.width)} * tiles(image.height));
    std::size_t count = 0;
    for (const auto& [number, w, share, frames] : parts) {
        const auto ends = [](unsigned at, unsigned most) { return at == most || (at % TileSize == 0 && at < most); };
        if (w.x0 >= w.x1 || w.y0 >= w.y1 || w.x0 % TileSize || w.y0 % TileSize || !ends(w.x1, image.width) ||
            !ends(w.y1, image.height))
            return false;
        for (unsigned y = w.y0 / TileSize; y < tiles(w.y1); ++y)
            for (unsigned x = w.x0 / TileSize; x < tiles(w.x1); ++x, ++count) {
                auto tile = covered[std::size_t{y} * tiles(image.width) + x];
                if (tile) return false;
                tile = true;
            }
    }
    return count == covered.size();
}

static bool haveFramesOnce(const Job& job) {
    for (const auto& [number, w, share, frames] : job.parts)
        if (frames.empty() || w.x0 || w.y0 || w.x1 != job.image.width || w.y1 != job.image.height) return false;
    const std::vector<unsigned> all = job.frames();
    return std::ranges::adjacent_find(all) == all.end();
}

static void check(const Job& job) {
    const auto side = [](unsigned pixels) { return pixels >= 1 && pixels <= MaxImageSide; };
    if (!side(job.image.width) || !side(job.image.height)) throw std::runtime_error("its picture has no sensible size");
    for (std::size_t i = 0; i < job.parts.size(); ++i)
        if (job.parts[i].number != i + 1) throw std::runtime_error("its parts are not counted from 1");
    if (job.isSequence() && !haveFramesOnce(job)) throw std::runtime_error("its parts do not have each frame once");
    if (!job.isSequence() && !coverOnce(job.parts, job.image))
        throw std::runtime_error("its parts do not cover the picture, each pixel once");
}

Job readJob(const fs::path& folder) {
    const fs::path file = folder / "job.json";
    if (inputFile(file).state != InputFile::Readable)
        throw Error(ExitStatus::InputOutput,
                    fmt::format("'{}' is no folder of a job, which oxbeam split makes: '{}' cannot be read",
                                folder.string(), file.string()));
    std::ifstream stream(file, std::ios::binary);
    try {
        const Json json = Json::parse(stream);
        if (json.at("format") != ThisFormat)
            throw std::runtime_error(
                fmt::format("it is of format {}; expected {}", json.at("format").dump(), ThisFormat));
        Job job = jobOf(json);
        check(job);
        job.folder = fs::absolute(folder / "").lexically_normal().parent_path();
        return job;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        throw Error(ExitStatus::InputOutput, fmt::format("job '{}' is damaged: {}", file.string(), e.what()));
    }
}

void makeFolders(const Job& job) {
    for (const fs::path& folder : {job.folder / "results", job.work()}) {
        std::error_code problem;
        fs::create_directories(folder, problem);
        if (problem) throw cannotWrite(folder, problem.message());
    }
}

// ---- Parts

std::string numbersText(const std::vector<unsigned>& numbers) {
    std::vector<std::string> runs;
    for (std::size_t first = 0, next; first < numbers.size(); first = next) {
        for (next = first + 1; next < numbers.size() && numbers[next] == numbers[next - 1] + 1;) ++next;
        runs.push_back(next == first + 1 ? std::to_string(numbers[first])
                                         : fmt::format("{}-{}", numbers[first], numbers[next - 1]));
    }
    return fmt::format("{}", fmt::join(runs, ", "));
}

std::string partsText(const std::vector<unsigned>& parts) {
    return fmt::format("part{} {}", parts.size() == 1 ? "" : "s", numbersText(parts));
}

std::vector<unsigned> partsWithoutResult(const Job& job) {
    std::set<std::string> names;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(job.folder / "results", missing))
        names.insert(entry.path().filename().string());
    std::vector<unsigned> parts;
    for (const JobPart& part : job.parts) {
        const auto isThere = [&](JobFrame frame) { return names.contains(Job::nameOf(part.number, frame) + ".exr"); };
        if (!std::ranges::all_of(framesOf(part), isThere)) parts.push_back(part.number);
    }
    return parts;
}

}  // namespace oxbeam
