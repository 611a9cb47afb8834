// The program that reads models.
#include "Engine/Import/Helper/AssimpModel.h"
#include "Engine/Import/Helper/Requests.h"
#include "Engine/Import/ModelStream.h"

#include <assimp/version.h>

#include <memory>

using namespace oxbeam;

int main(int argc, char** argv) {
    const std::string version = std::to_string(aiGetVersionMajor()) + '.' + std::to_string(aiGetVersionMinor()) + '.' +
                                std::to_string(aiGetVersionPatch());
    const auto read = [](const std::filesystem::path& file) -> Answer {
        return [model = std::make_shared<const Model>(readModel(file))](const AnswerSink& sink) {
            encodeModel(*model, sink);
        };
    };
    const auto failure = [](const std::string& why) -> Answer {
        return [why](const AnswerSink& sink) { encodeFailure(why, sink); };
    };
    // The model itself may be a link to elsewhere.
    const auto needs = [](const std::filesystem::path& file) {
        return std::vector<std::filesystem::path>{file.parent_path(), file};
    };
    return serveRequests(argc, argv, {version, read, failure, needs, ImportAdvice});
}
