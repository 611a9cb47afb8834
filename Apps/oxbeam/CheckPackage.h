// `oxbeam check-package`: finds what is wrong with a package before anybody renders with it.
#pragma once

#include "Engine/Packages/Registry.h"

#include <filesystem>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace oxbeam {

struct CheckPackageCommand {
    std::string file;
    bool json = false;
    bool strict = false;     // differences are faults
    unsigned seed = 1;       // of the values that parameters are driven to
    unsigned pictures = 16;  // that each object is rendered with other values in
};

// Something that is to be said of an object; of none where the package as a whole is meant.
struct PackageFinding {
    std::string object;
    std::string kind;  // "crash", "threads", ..., one word
    std::string text;
    bool fault = true;  // else a difference that may be meant, or something that is good to know
};

using PackageFindings = std::vector<PackageFinding>;

void addCheckPackage(CLI::App& app, CheckPackageCommand& command);
// The folders are where packages are looked for that the objects need around them to be rendered.
ExitStatus runCheckPackage(const CheckPackageCommand& command, const std::vector<std::filesystem::path>& folders);

// ---- Its parts

// Whether the document says what the object declares and what its defaults are.
void checkDocument(const ObjectClass& object, PackageFindings& findings);
// What an object does when it is made, asked and rendered, each time in a process of its own.
void checkConduct(const ObjectClass& object, const Registry& registry, const CheckPackageCommand& command,
                  PackageFindings& findings);

}  // namespace oxbeam
