#include "Apps/oxbeam/Versions.h"

#include "Engine/Import/ImportProcess.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/System/Workers.h"

namespace oxbeam {

std::vector<LibraryVersion> libraryVersions() {
    return {{"Embree", embreeVersion()},
            {"oneTBB", schedulerVersion()},
            {"OpenImageIO", imageLibraryVersion()},
            {"Assimp", importReport(ModelProgram).version},
            {"toml++", tomlVersion()}};
}

}  // namespace oxbeam
