// What was found in the window, for others: the scene's file, pictures, a command line.
#pragma once

#include "Apps/view/Document.h"
#include "Engine/SceneFile/SceneEdits.h"

#include <filesystem>

namespace oxbeam {

// The text of a scene file in such a folder with what has been changed since it was read or saved; all else as it stands.
// Throws Error.
std::string withChanges(const std::string& text, const Document& document, const SceneInfo& scene,
                        const std::filesystem::path& folder);
// Writes a scene with the changes to a file: the text of the one that was opened, or the scene that is made around a model.
// Throws Error.
void saveScene(const std::filesystem::path& file, const ViewCommand& command, const Document& document,
               const SceneInfo& scene);

// The command line that renders just this. Throws Error(Usage) where none can: see Document::needsFile.
std::string commandLine(const ViewCommand& command, const Document& document, const SceneInfo& scene,
                        const std::string& picture, unsigned samples);
// The film as `oxbeam render` writes it, with what that says of it; `text` is the command line that makes the same.
// Throws Error.
void writePicture(const std::filesystem::path& file, const ViewCommand& command, const std::string& text,
                  const Tone& tone, const Rendering& rendering);
// "scene-1.png", or the next number for which there is no file in the working folder.
std::filesystem::path nextPicture(const std::string& scene);

}  // namespace oxbeam
