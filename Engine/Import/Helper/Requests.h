// The side of the host's requests that the reading programs share.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace oxbeam {

// Reads one file. What it throws is answered by what makes bytes of a failure.
struct FileReader {
    std::string version;  // of the library that it reads with
    std::function<std::vector<std::byte>(const std::filesystem::path&)> read;
    std::function<std::vector<std::byte>(const std::string& why)> failure;
};

// Answers the host's requests until there are no more: `main` of a program that reads files, started with the seconds
// and the bytes that reading one may take.
int serveRequests(int argc, char** argv, const FileReader& reader);

}  // namespace oxbeam
