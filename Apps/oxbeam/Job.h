// A picture, or a sequence, that is cut into parts, which any machine renders and any machine may repeat: the folder that
// says everything.
//
//   JOB/job.json     what the picture is made from, and the parts
//   JOB/parts        the parts' command lines, one each
//   JOB/scene/       the scene and all files that it reads, where they are packed
//   JOB/results/     N.exr, the film of the part N, and N.json, what it took; a part is done when its film is there. Of a
//                    sequence N.F.exr and N.F.json for each of the part's frames
//   JOB/work/        checkpoints of parts that are not done, and what those say that render them
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Inputs.h"
#include "Engine/Render/Renderer.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

struct JobPart {
    unsigned number = 0;                // from 1
    Window crop;                        // of whole tiles; the parts' cover the picture, each pixel once
    double share = 0.0;                 // of what the whole is expected to cost
    std::vector<unsigned> frames = {};  // of a sequence, of which it renders these; the crop is the whole picture then
};

// What a part has one film of: itself, or a frame.
using JobFrame = std::optional<unsigned>;
std::vector<JobFrame> framesOf(const JobPart& part);

struct Job {
    std::filesystem::path folder;
    std::string command;               // that it was made by
    std::string scene;                 // as seen from the folder, or an absolute path
    std::vector<std::string> options;  // words of `render`; files as the scene
    ImageSize image;
    unsigned samples = 1;
    bool layers = false, alpha = false;        // the films keep them
    Inputs inputs;                             // that all parts share, see sharedInputs
    std::map<std::string, std::string> files;  // hashes of what is packed, by names as seen from the folder
    bool processNumbers = false;               // some object's random numbers are the whole process'
    std::vector<JobPart> parts;

    // Of a sequence, in order.
    std::vector<unsigned> frames() const;
    bool isSequence() const { return !parts.empty() && !parts.front().frames.empty(); }
    // Files of a part: its number with another ending, ".exr" or ".json".
    static std::string nameOf(unsigned part, JobFrame frame);
    std::filesystem::path result(unsigned part, JobFrame frame) const;
    std::filesystem::path statistics(unsigned part, JobFrame frame) const;
    std::filesystem::path work() const { return folder / "work"; }

    // What rendering the picture takes on a command line: without the output and the crop.
    RenderCommand picture() const;
};

// Writes job.json and parts into the folder, which is there; `program` is how the parts' lines begin. Throws
// Error(InputOutput), and Error(Usage) for names of files that are not UTF-8.
void writeJob(const Job& job, const std::string& program);
// Throws Error(InputOutput) where there is none, or a damaged one.
Job readJob(const std::filesystem::path& folder);
// Those for results and work, which many a way of copying leaves out where they are empty. Throws Error(InputOutput).
void makeFolders(const Job& job);

// "1-3, 7"
std::string numbersText(const std::vector<unsigned>& numbers);
// "parts 1-3, 7"
std::string partsText(const std::vector<unsigned>& parts);
// Those without a result, by one look at the folder.
std::vector<unsigned> partsWithoutResult(const Job& job);
// How a sequence is told from a picture on the command line: some name that stands for all of its files.
inline constexpr const char* SequenceName = "{frame}.exr";

}  // namespace oxbeam
