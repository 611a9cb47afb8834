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

Attributes attributesOf(const RenderCommand& command, const World& world, const Inputs& inputs, const Film& film,
                        double seconds) {
    return attributesOf(world, {command.text, inputs, film.passes(), seconds});
}

ImageOptions pictureOptions(const RenderCommand& command, const World& world, const Inputs& inputs, const Film& film,
                            double seconds) {
    ImageOptions options{command.bits, world.tone};
    if (film.hasAlpha()) options.alpha = {{"A"}, [&film](std::size_t i, float* to) { *to = film.alpha(i); }};
    options.placement = {film.window(), world.image};
    options.attributes = isExr(pictureName(command)) ? attributesOf(command, world, inputs, film, seconds)
                                                     : Attributes{{"Software", software()}};
    for (const Aov aov : parseAovs(command.aov)) {
        options.layers.push_back(layerOf(aov, film));
        if (aov == Aov::Object) options.attributes["oxbeam:objects"] = objectNames(world);
    }
    return options;
}

}  // namespace oxbeam
