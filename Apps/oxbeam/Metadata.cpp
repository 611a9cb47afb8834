#include "Apps/oxbeam/Metadata.h"

#include "Apps/oxbeam/RenderSteps.h"

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

PictureFacts factsOf(const RenderCommand& command, const World& world, const Inputs& inputs, double seconds) {
    const std::vector<Aov> aovs = parseAovs(command.aov);
    const bool hasObjects = std::ranges::count(aovs, Aov::Object) > 0;
    return {world.image, world.tone, viewMatrices(world), hasObjects ? objectNames(world) : "", inputs, seconds};
}

Attributes attributesOf(const RenderCommand& command, const PictureFacts& facts, const Film& film) {
    Attributes attributes = attributesOf(facts.view, {command.text, facts.inputs, film.passes(), facts.seconds});
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
    options.attributes =
        isExr(pictureName(command)) ? attributesOf(command, facts, film) : Attributes{{"Software", software()}};
    for (const Aov aov : parseAovs(command.aov)) options.layers.push_back(layerOf(aov, film));
    if (!facts.objects.empty()) options.attributes["oxbeam:objects"] = facts.objects;
    return options;
}

}  // namespace oxbeam
