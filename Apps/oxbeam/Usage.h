// What is wrong with a command line.
#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace oxbeam {

// One line. What was not understood comes before what is missing, which may be no more than its consequence.
std::string usageError(const CLI::App& app, const CLI::ParseError& error);

}  // namespace oxbeam
