#include "Apps/oxbeam/Commands.h"
#include "Engine/Output/ContactSheet.h"
#include "Engine/Output/ImageFile.h"

#include <fmt/format.h>

#include <iostream>

namespace oxbeam {

ExitStatus runSheet(const std::vector<std::string>& pictures, const std::string& output, unsigned columns) {
    checkImageFormat(output);
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
