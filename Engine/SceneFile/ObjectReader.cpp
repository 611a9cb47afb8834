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

void ObjectReader::writeParameters(TableReader& reader, const ObjectClass& object, OxLoadableObject& target) const {
    const auto textures = [&](const std::string& name) { return m_textures.idFor(name, object.name); };
    ParameterWriter writer(object, reader.label(), m_diagnostics, textures, m_textures.names(), reader.section().keys);
    // What was set over the file comes last: the file may know the same parameter by another of its names.
    for (const bool setOver : {false, true})
        reader.rest([&](const std::string& key, const SourceLocation& at, const toml::node& node) {
            if ((locationOf(node.source()).file != m_file) != setOver) return;
            const std::string about = fmt::format("parameter '{}' of {} ({})", key, reader.label(), object.name);
            if (const auto value = parameterValue(node, about, m_diagnostics)) writer.write(target, key, at, *value);
        });
}

std::optional<unsigned> ObjectReader::addShader(TableReader& reader, World& world) const {
    const ObjectClass* object = classOf(reader);
    if (!object) return std::nullopt;
    OxShader& shader = world.addShader(*object);
    const auto number = static_cast<unsigned>(world.shaders.size()) - 1;
    writeParameters(reader, *object, shader);
    return number;
}

}  // namespace oxbeam
