// What the host and the programs that read files for it agree upon. A request is a number that cannot be guessed, the length
// of a file's name and the name; an answer is the same number, the length of what was made of the file, and that. Numbers
// and lengths are of 64 bits. By its number an answer is known not to be what an earlier file had its reader say.
#pragma once

namespace oxbeam {

// A descriptor that comes with a request has this number in the reader, so that the file behind it has this name there.
inline constexpr int PassedDescriptor = 3;
inline constexpr const char* PassedFile = "/proc/self/fd/3";

// In place of a file's name: what the reader reads with.
inline constexpr const char* VersionRequest = "?";

// How a reader ends that cannot go on: at the file, or at a machine that has no memory and no thread, or no process, for
// it, whatever the file.
inline constexpr int ReaderFailed = 1, ReaderShort = 7, ReaderHasNoProcess = 71;

}  // namespace oxbeam
