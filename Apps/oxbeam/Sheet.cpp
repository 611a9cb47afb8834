#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/OutputFiles.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/Output/ContactSheet.h"

#include <fmt/format.h>

#include <iostream>

namespace oxbeam {

ExitStatus runSheet(const std::vector<std::string>& pictures, const std::string& output, unsigned columns) {
    checkOutput(output, {});
    NamedFiles inputs;
    for (const std::string& file : pictures) inputs.push_back({"the picture", file});
    requireApart({{"--output", output}}, inputs);
    ContactSheet contacts(static_cast<unsigned>(pictures.size()), columns, 320, 214);
    for (const std::string& file : pictures) {
        checkInput(file);
        contacts.add(file, std::filesystem::path(file).stem().string());
    }
    const Sheet sheet = contacts.sheet();
    writeImage(output, sheet.width, sheet.height, sheet.pixels);
    std::cerr << fmt::format("wrote {} ({} x {})\n", output, sheet.width, sheet.height);
    return ExitStatus::Done;
}

}  // namespace oxbeam
