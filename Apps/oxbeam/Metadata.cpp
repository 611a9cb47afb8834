#include "Apps/oxbeam/Metadata.h"

#include "Apps/oxbeam/RenderSteps.h"

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

// "1" is the first object, since 0 stands for none.
static std::string objectNames(const World& world) {
    nlohmann::ordered_json names = nlohmann::ordered_json::object();
    for (unsigned i = 0; i < world.geometry.instanceCount(); ++i) names[std::to_string(i + 1)] = world.objectName(i);
    return names.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

PictureFacts factsOf(const RenderCommand& command, const World& world, const Inputs& inputs, double seconds) {
    const std::vector<Aov> aovs = parseAovs(command.aov);
    const bool hasObjects = std::ranges::count(aovs, Aov::Object) > 0;
    return {world.image, world.tone, viewMatrices(world), hasObjects ? objectNames(world) : "", inputs, seconds};
}

Attributes attributesOf(const RenderCommand& command, const PictureFacts& facts, const Film& film) {
    Attributes attributes = {
        Software,
        {"worldToCamera", facts.view.worldToCamera},
        {"worldToNDC", facts.view.worldToNDC},
        {"oxbeam:command", command.text},
        {"oxbeam:sceneHash", hashOfInputs(facts.inputs)},
        {"oxbeam:samples", static_cast<int>(film.passes())},
        {"oxbeam:renderTime", static_cast<float>(facts.seconds)},
        {"oxbeam:packages", packagesAmong(facts.inputs)},
        {"oxbeam:engine", facts.inputs.at("engine")},
    };
    if (command.frame) {
        attributes["oxbeam:frame"] = static_cast<int>(*command.frame);
        attributes["FramesPerSecond"] = static_cast<float>(command.sequence.fps);
    }
    return attributes;
}

ImageOptions pictureOptions(const RenderCommand& command, const PictureFacts& facts, const Film& film) {
    ImageOptions options{command.bits, facts.tone};
    if (film.hasAlpha()) options.alpha = {{"A"}, [&film](std::size_t i, float* to) { *to = film.alpha(i); }};
    options.placement = {film.window(), facts.image};
    options.attributes = isExr(pictureName(command)) ? attributesOf(command, facts, film) : Attributes{Software};
    for (const Aov aov : parseAovs(command.aov)) options.layers.push_back(layerOf(aov, film));
    if (!facts.objects.empty()) options.attributes["oxbeam:objects"] = facts.objects;
    return options;
}

}  // namespace oxbeam
