// `oxbeam merge`: the parts of a picture, put together.
#pragma once

#include "Apps/oxbeam/Commands.h"

namespace CLI {
class App;
}

namespace oxbeam {

struct MergeCommand {
    std::string job;     // its folder
    std::string output;  // the picture
    std::string only;    // frames of a sequence, or nothing for all
    std::string stats;   // file, or nothing
    bool force = false;
    bool quiet = false;
};

inline constexpr const char* MergeOutputHelp =
    "Picture to write: .png, .jpg, .tif, .exr or .hdr; of a sequence, with {frame:04} for the number in its name, or a "
    ".gif or .mp4 of all frames";
void addMerge(CLI::App& app, MergeCommand& command);
ExitStatus runMerge(const MergeCommand& command);

// What keeps the parts from being merged. Says all of it; Done where nothing does.
struct Unmerged {
    ExitStatus status = ExitStatus::Done;
    std::vector<unsigned> useless;  // parts whose results are no good
};
// The same, and does not throw for what is wrong with the parts.
Unmerged tryMerge(const MergeCommand& command);

// That the picture can be written. Throws Error.
void checkMergeOutput(const MergeCommand& command);

}  // namespace oxbeam
