#include "Apps/oxbeam/PartResult.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace oxbeam {

using Json = nlohmann::ordered_json;

// ---- The record

std::string recordText(const PartRecord& record) {
    const PictureFacts& f = record.facts;
    const Json json = {{"image", {f.image.width, f.image.height}},
                       {"exposure", f.tone.exposure},
                       {"tone", static_cast<unsigned>(f.tone.curve)},
                       {"worldToCamera", f.view.worldToCamera},
                       {"worldToNDC", f.view.worldToNDC},
                       {"objects", f.objects},
                       {"seconds", f.seconds},
                       {"statistics", record.statistics}};
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

PartRecord recordFrom(const std::string& text) {
    const Json json = Json::parse(text);
    PartRecord record;
    PictureFacts& f = record.facts;
    const auto image = json.at("image").get<std::array<unsigned, 2>>();
    f.image = {image[0], image[1]};
    json.at("exposure").get_to(f.tone.exposure);
    f.tone.curve = static_cast<ToneCurve>(std::min(json.at("tone").get<std::size_t>(), toneCurveNames().size() - 1));
    json.at("worldToCamera").get_to(f.view.worldToCamera);
    json.at("worldToNDC").get_to(f.view.worldToNDC);
    json.at("objects").get_to(f.objects);
    json.at("seconds").get_to(f.seconds);
    record.statistics = json.at("statistics");
    return record;
}

// What is the same for all parts, and what is as much as any of them took.
static bool isShared(const std::string& name) {
    static const std::vector<std::string> names = {"passes", "triangles", "structure", "lights", "dropped_triangles"};
    return std::ranges::count(names, name) > 0;
}

static bool isMost(const std::string& name) { return name == "threads" || name == "peak_bytes"; }

void addStatistics(Json& sum, const Json& more) {
    for (const auto& [name, value] : more.items()) {
        Json& to = sum[name];
        if (to.is_null() || isShared(name))
            to = value;
        else if (value.is_object())
            addStatistics(to, value);
        else if (value.is_boolean())
            to = to.get<bool>() && value.get<bool>();
        else if (isMost(name))
            to = std::max(to, value);
        else if (value.is_number_float())
            to = to.get<double>() + value.get<double>();
        else if (value.is_number())
            to = to.get<std::uint64_t>() + value.get<std::uint64_t>();
    }
}

// ---- The film

PartResult::PartResult(const Job& job, const JobPart& part, JobFrame frame, const PartResult* before)
    : m_job(job), m_part(part), m_frame(frame), m_name(job.result(part.number, frame)) {
    try {
        if (before)
            m_checkpoint.emplace(m_name, *before->m_checkpoint);
        else
            m_checkpoint.emplace(m_name);
        requireSamePicture();
        requirePlace();
        requireFrame();
    } catch (const BadResult&) {
        throw;
    } catch (const Error& e) {
        throw BadResult(BadResult::Damaged, ExitStatus::InputOutput, e.what());
    }
}

void PartResult::foreign(ExitStatus status, const std::string& why) const {
    throw BadResult(BadResult::Foreign, status, fmt::format("'{}' is of another picture: {}", m_name, why));
}

void PartResult::requireSamePicture() {
    Inputs inputs;
    try {
        inputs = inputsFrom(m_checkpoint->text(InputsName));
        m_record = recordFrom(m_checkpoint->text(PartRecordName));
    } catch (const nlohmann::json::exception& e) {
        throw BadResult(BadResult::Damaged, ExitStatus::InputOutput,
                        fmt::format("'{}' is damaged: what it was made from cannot be read", m_name));
    }
    const Differences found = differencesOf(m_job.inputs, sharedInputs(inputs));
    if (!found.words.empty()) foreign(found.status, fmt::format("{}", fmt::join(found.words, "; ")));
    if (m_checkpoint->hasAovs() != m_job.layers)
        foreign(ExitStatus::Usage, fmt::format("it has {}layers", m_job.layers ? "no " : ""));
    m_record.facts.inputs = inputs;
}

void PartResult::requirePlace() const {
    const auto same = [](const Window& a, const Window& b) {
        return a.x0 == b.x0 && a.y0 == b.y0 && a.x1 == b.x1 && a.y1 == b.y1;
    };
    const Window& w = m_checkpoint->window();
    if (same(w, m_part.crop)) return;
    for (const JobPart& other : m_job.parts)
        if (same(w, other.crop))
            throw BadResult(BadResult::Doubled, ExitStatus::InputOutput,
                            fmt::format("'{}' holds the pixels of part {}", m_name, other.number));
    foreign(ExitStatus::Usage, fmt::format("its pixels, {},{},{},{}, are those of no part", w.x0, w.y0, w.x1, w.y1));
}

void PartResult::requireFrame() const {
    if (!m_frame) return;
    if (const std::string& frame = m_record.facts.inputs.at("--frames"); frame != std::to_string(*m_frame))
        throw BadResult(BadResult::Doubled, ExitStatus::InputOutput,
                        fmt::format("'{}' holds the frame {}", m_name, frame));
}

Begun PartResult::film() {
    try {
        Begun begun = m_checkpoint->begun(m_part.crop);
        if (const unsigned passes = begun.film.passes();
            passes != m_job.samples || begun.film.begunPasses() != m_job.samples)
            foreign(ExitStatus::Usage, fmt::format("it has {} passes, not {}", passes, m_job.samples));
        return begun;
    } catch (const BadResult&) {
        throw;
    } catch (const Error& e) {
        throw BadResult(BadResult::Damaged, ExitStatus::InputOutput, e.what());
    }
}

}  // namespace oxbeam
