// What is left of a part that has been rendered: its film, as a checkpoint that says all that a merge has to know.
#pragma once

#include "Apps/oxbeam/Job.h"
#include "Apps/oxbeam/Metadata.h"
#include "Engine/Output/Checkpoint.h"

#include <nlohmann/json.hpp>

#include <optional>

namespace oxbeam {

// In the header of a part's checkpoints.
struct PartRecord {
    PictureFacts facts;                 // without the inputs, which stand in the header anyway
    nlohmann::ordered_json statistics;  // as of `render`, and of all tries together
};

inline constexpr const char* PartRecordName = "oxbeam:part";
std::string recordText(const PartRecord& record);
// Throws nlohmann::json::exception.
PartRecord recordFrom(const std::string& text);

// Adds what one part, or one try at it, took to what others did: counts and times are summed.
void addStatistics(nlohmann::ordered_json& sum, const nlohmann::ordered_json& more);

// Something is wrong with a result, which is told by the kind.
class BadResult : public Error {
public:
    enum Kind { Damaged, Foreign, Doubled };

    BadResult(Kind kind, ExitStatus status, const std::string& message) : Error(status, message), m_kind(kind) {}
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

// A part's film as it lies in the job's folder, checked against the job. All throw BadResult where it is damaged, of
// another picture, or of another part.
class PartResult {
public:
    // By the process that has read the one before, if there is one.
    PartResult(const Job& job, const JobPart& part, JobFrame frame, const PartResult* before = nullptr);

    // All that was saved, or this throws. Reads the record, too.
    Begun film();
    const PartRecord& record() const { return m_record; }

private:
    [[noreturn]] void foreign(ExitStatus status, const std::string& why) const;
    void requireSamePicture();
    void requirePlace() const;
    void requireFrame() const;

    const Job& m_job;
    const JobPart& m_part;
    JobFrame m_frame;
    std::string m_name;
    std::optional<Checkpoint> m_checkpoint;
    PartRecord m_record;
};

}  // namespace oxbeam
