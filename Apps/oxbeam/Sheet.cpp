#include "Apps/oxbeam/Commands.h"
#include "Engine/Output/ContactSheet.h"
#include "Engine/Output/ImageFile.h"

#include <fmt/format.h>

#include <iostream>

namespace oxbeam {

ExitStatus runSheet(const std::vector<std::string>& pictures, const std::string& output, unsigned columns) {
    checkImageFormat(output);
    std::vector<LabelledPicture> labelled;
    labelled.reserve(pictures.size());
    for (const std::string& file : pictures) labelled.push_back({file, std::filesystem::path(file).stem().string()});
    const Sheet sheet = contactSheet(labelled, columns, 320, 214);
    writeImage(output, sheet.width, sheet.height, sheet.pixels);
    std::cerr << fmt::format("wrote {} ({} x {})\n", output, sheet.width, sheet.height);
    return ExitStatus::Done;
}

}  // namespace oxbeam
