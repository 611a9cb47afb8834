#include "Engine/SceneFile/ObjectReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

namespace oxbeam {

const ObjectClass* ObjectReader::classOf(TableReader& reader) const {
    const auto& [kinds, preset] = std::tie(reader.section().kinds, reader.section().preset);
    const auto given = reader.text("object");
    if (!given && (!preset || reader.has("object"))) {
        if (!reader.has("object"))
            reader.error("object", fmt::format("has no 'object'; expected the name of {}", oneOf(kinds.front())));
        return nullptr;
    }
    const std::string name = given ? *given : preset;
    const ObjectClass* object = m_registry.find(name);
    if (!object) {
        reader.error("object", m_registry.whyMissing(name, kinds));
        if (m_registry.brokenFor(name)) m_diagnostics.blamePackage();
        return nullptr;
    }
    if (!std::count(kinds.begin(), kinds.end(), object->kind)) {
        reader.error("object", fmt::format("'{}' is {}; expected {}{}", name, oneOf(object->kind), oneOf(kinds.front()),
                                           didYouMean(name, m_registry.names(kinds))));
        return nullptr;
    }
    return object;
}

void ObjectReader::setParameters(TableReader& reader, const std::string& place) const {
    const std::string& object = m_world.places.classAt(place).name;
    // What was set over the file comes last: the file may know the same parameter by another of its names.
    for (const bool setOver : {false, true})
        reader.rest([&](const std::string& key, const SourceLocation& at, const toml::node& node) {
            if ((locationOf(node.source()).file != m_file) != setOver) return;
            const std::string about = fmt::format("parameter '{}' of {} ({})", key, reader.label(), object);
            if (const auto value = parameterValue(node, about, m_diagnostics))
                m_world.places.write(place, key, at, *value, m_diagnostics, reader.section().keys);
        });
}

std::optional<unsigned> ObjectReader::addShader(TableReader& reader, const std::string& place) const {
    const ObjectClass* object = classOf(reader);
    if (!object) return std::nullopt;
    m_world.addShader(*object, place);
    setParameters(reader, place);
    return m_world.shaderNumber(place);
}

}  // namespace oxbeam
