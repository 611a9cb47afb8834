// Renderings that are kept to be gone on with: a film's exact sums, as an EXR picture.
#pragma once

#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace oxbeam {

class ImportProcess;
struct ExrRequest;
struct PictureHeader;

// Saves a film while no thread renders into it. Throws Error(InputOutput), and leaves an older checkpoint whole then.
OXBEAM_API void writeCheckpoint(const std::filesystem::path& file, const ImageSize& image, const Film& film,
                                const Attributes& attributes);

// Reads one, in a process of its own, and as an EXR picture only. All members throw Error(InputOutput) where the file is
// missing, cannot be read, is damaged, or no checkpoint.
class OXBEAM_API Checkpoint {
public:
    // Reads what is said of it.
    explicit Checkpoint(const std::filesystem::path& file);
    // The same by the process that has read another one: for many, one after the other.
    Checkpoint(const std::filesystem::path& file, const Checkpoint& before);
    ~Checkpoint();

    std::string name() const { return m_name.string(); }

    // Attributes that it was written with, of those whose names begin with "oxbeam:". They can be relied on once the
    // film is read.
    std::string text(const std::string& name) const;
    double number(const std::string& name) const;
    bool hasAovs() const;
    bool hasAlpha() const;
    const Window& window() const { return m_window; }
    // Of the film that it has to be of. All that was saved is as it was, or this throws.
    Begun begun(const Window& window);

private:
    Error damaged(const std::string& how) const;
    Error refused(const std::string& why) const;
    void open() const;
    void begin();
    PictureHeader ask(const ExrRequest& request, std::uint64_t& rest);
    void readHeader();
    void readFilm(Film& film);
    const std::string& value(const std::string& name, char kind) const;

    std::filesystem::path m_name;
    std::shared_ptr<ImportProcess> m_process;
    Window m_window;
    std::vector<std::string> m_channels;
    std::map<std::string, std::string> m_attributes;
};

}  // namespace oxbeam
