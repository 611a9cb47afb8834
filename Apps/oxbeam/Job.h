// A picture that is cut into parts, which any machine renders and any machine may repeat: the folder that says everything.
//
//   JOB/job.json     what the picture is made from, and the parts
//   JOB/parts        the parts' command lines, one each
//   JOB/scene/       the scene and all files that it reads, where they are packed
//   JOB/results/     N.exr, the film of the part N, and N.json, what it took; a part is done when its film is there
//   JOB/work/        checkpoints of parts that are not done, and what those say that render them
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Inputs.h"
#include "Engine/Render/Renderer.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace oxbeam {

struct JobPart {
    unsigned number = 0;  // from 1
    Window crop;          // of whole tiles; the parts' cover the picture, each pixel once
    double share = 0.0;   // of what the whole is expected to cost
};

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

    // Files of a part.
    std::filesystem::path result(unsigned part) const;
    std::filesystem::path statistics(unsigned part) const;
    std::filesystem::path work() const { return folder / "work"; }

    // What rendering the picture takes on a command line: without the output and the crop.
    RenderCommand picture() const;
};

// Writes job.json and parts into the folder, which is there; `program` is how the parts' lines begin.
void writeJob(const Job& job, const std::string& program);
// Throws Error(InputOutput) where there is none, or a damaged one.
Job readJob(const std::filesystem::path& folder);

// "1-3, 7"
std::string numbersText(const std::vector<unsigned>& parts);
// Those without a result, by one look at the folder.
std::vector<unsigned> partsWithoutResult(const Job& job);

}  // namespace oxbeam
