// What a process that reads strangers' files takes away from itself. Whatever a malformed file makes of the library that
// reads it, the system lets it do no more than to read that file and to answer.
#pragma once

#include "Engine/Import/ImportProcess.h"

#include <filesystem>
#include <string>
#include <vector>

namespace oxbeam {

// At the start: no descriptor but the standard ones, no new privileges, no memory for others to look at.
void shedInheritance();

// In a process of a single thread that is about to read, where `readable` are the files and folders that it may read
// from. Answers how it is confined, a line each, "name: text". What this machine does not offer is said there and left
// out; throws std::runtime_error where a limit that every machine has cannot be set.
std::vector<std::string> confine(const ImportLimits& limits, const std::vector<std::filesystem::path>& readable);

}  // namespace oxbeam
