// The program that reads models.
#include "Engine/Import/Helper/AssimpModel.h"
#include "Engine/Import/Helper/Requests.h"
#include "Engine/Import/ModelStream.h"

#include <assimp/version.h>

using namespace oxbeam;

int main(int argc, char** argv) {
    const std::string version = std::to_string(aiGetVersionMajor()) + '.' + std::to_string(aiGetVersionMinor()) + '.' +
                                std::to_string(aiGetVersionPatch());
    const auto read = [](const std::filesystem::path& file) { return encodeModel(readModel(file)); };
    return serveRequests(argc, argv, {version, read, encodeFailure});
}
