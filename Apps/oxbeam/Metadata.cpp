#include "Apps/oxbeam/Metadata.h"

#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/Render/ViewMatrices.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

namespace oxbeam {

std::string shellText(const std::vector<std::string>& words) {
    const auto isPlain = [](unsigned char c) {
        return std::isalnum(c) || std::string_view("-_=+.,:/@%").find(static_cast<char>(c)) != std::string_view::npos;
    };
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += ' ';
        if (!word.empty() && std::all_of(word.begin(), word.end(), isPlain)) {
            text += word;
            continue;
        }
        text += '\'';
        for (const char c : word) text += c == '\'' ? "'\\''" : std::string(1, c);
        text += '\'';
    }
    return text;
}

static const Attributes::value_type Software{"Software", "oxbeam " OXBEAM_VERSION};

Attributes attributesOf(const RenderCommand& command, const World& world, const Inputs& inputs, const Film& film,
                        double seconds) {
    const ViewMatrices matrices = viewMatrices(world);
    Attributes attributes = {
        Software,
        {"worldToCamera", matrices.worldToCamera},
        {"worldToNDC", matrices.worldToNDC},
        {"oxbeam:command", command.text},
        {"oxbeam:sceneHash", hashOfInputs(inputs)},
        {"oxbeam:samples", static_cast<int>(film.passes())},
        {"oxbeam:renderTime", static_cast<float>(seconds)},
        {"oxbeam:packages", packagesAmong(inputs)},
        {"oxbeam:engine", inputs.at("engine")},
    };
    if (command.frame) {
        attributes["oxbeam:frame"] = static_cast<int>(*command.frame);
        attributes["FramesPerSecond"] = static_cast<float>(command.sequence.fps);
    }
    return attributes;
}

// "1" is the first object, since 0 stands for none.
static std::string objectNames(const World& world) {
    nlohmann::ordered_json names = nlohmann::ordered_json::object();
    for (unsigned i = 0; i < world.geometry.instanceCount(); ++i) names[std::to_string(i + 1)] = world.objectName(i);
    return names.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ImageOptions pictureOptions(const RenderCommand& command, const World& world, const Inputs& inputs, const Film& film,
                            double seconds) {
    ImageOptions options{command.bits, world.tone};
    if (film.hasAlpha()) options.alpha = {{"A"}, [&film](std::size_t i, float* to) { *to = film.alpha(i); }};
    options.placement = {film.window(), world.image};
    options.attributes =
        isExr(pictureName(command)) ? attributesOf(command, world, inputs, film, seconds) : Attributes{Software};
    for (const Aov aov : parseAovs(command.aov)) {
        options.layers.push_back(layerOf(aov, film));
        if (aov == Aov::Object) options.attributes["oxbeam:objects"] = objectNames(world);
    }
    return options;
}

}  // namespace oxbeam
