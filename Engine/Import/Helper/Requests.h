// The side of the host's requests that the reading programs share.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace oxbeam {

// What is handed back: passes all of it on, piece by piece. May be called twice, first to learn how long it is.
using AnswerSink = std::function<void(const void*, std::size_t)>;
using Answer = std::function<void(const AnswerSink&)>;

// Reads one file. What it throws is answered by a failure.
struct FileReader {
    std::string version;  // of the library that it reads with
    std::function<Answer(const std::filesystem::path&)> read;
    std::function<Answer(const std::string& why)> failure;
    // The files and folders that reading this one needs.
    std::function<std::vector<std::filesystem::path>(const std::filesystem::path&)> needs;
    std::string ifTooLarge = {};  // what a file that takes too much memory is told besides
};

Answer answerOf(std::vector<std::byte> bytes);

// Answers the host's requests until there are no more: `main` of a program that reads files, started with the seconds
// and the bytes that reading one may take. For each file it starts a process of its own, which sees nothing but that
// file; itself it only waits, for the file to be read or the host to be gone. Threads that libraries start here are not
// in that process: `read` is where to start them.
int serveRequests(int argc, char** argv, const FileReader& reader);

}  // namespace oxbeam
