// Renderings that are kept to be gone on with: a film's exact sums, as an EXR picture.
#pragma once

#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"

#include <filesystem>
#include <memory>
#include <string>

namespace oxbeam {

// Saves a film while no thread renders into it. Throws Error(InputOutput), and leaves an older checkpoint whole then.
OXBEAM_API void writeCheckpoint(const std::filesystem::path& file, const ImageSize& image, const Film& film,
                                const Attributes& attributes);

// All members throw Error(InputOutput) where the file is missing, damaged, or no checkpoint.
class OXBEAM_API Checkpoint {
public:
    // Reads what is said of it.
    explicit Checkpoint(const std::filesystem::path& file);
    ~Checkpoint();

    // Attributes that it was written with.
    std::string text(const std::string& name) const;
    double number(const std::string& name) const;
    bool hasAovs() const;
    // Of the film that it has to be of.
    Begun begun(const Window& window);

private:
    struct File;
    Error damaged(const std::string& how) const;

    std::filesystem::path m_name;
    std::unique_ptr<File> m_file;
};

}  // namespace oxbeam
