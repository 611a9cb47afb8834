// Writing parameter values into objects.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/Registry.h"
#include "Primitives/Vec.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace oxbeam {

// A value as somebody wrote it. A list of integers is a list of integers, not of reals.
struct ParameterValue {
    using Number = std::variant<std::int64_t, double>;

    std::variant<bool, std::int64_t, double, std::string, std::vector<Number>> data;
    SourceLocation where;

    // "a real number", "a list of 3 numbers", ...
    std::string kind() const;
};

// Writes values into one object, by position and size, and says what is wrong with them.
class OXBEAM_API ParameterWriter {
public:
    // Id of a texture by name, if there is one by that name.
    using TextureByName = std::function<std::optional<int>(const std::string&)>;

    // `label` names the object for messages, for example "shader 'table'"; `otherNames` are what may be meant by an
    // unknown name beside a parameter.
    ParameterWriter(const ObjectClass& object, std::string label, Diagnostics& diagnostics, TextureByName textures,
                    std::vector<std::string> textureNames = {}, std::vector<std::string> otherNames = {});

    // Unknown names and values of the wrong shape or kind are errors, leave the object as it is and answer null; values
    // outside the documented bounds are written, with a warning.
    const ParameterDeclaration* write(OxLoadableObject& target, const std::string& name, const SourceLocation& nameAt,
                                      const ParameterValue& value);

private:
    std::string about(const ParameterDeclaration& p) const;
    void wrongKind(const ParameterDeclaration& p, const ParameterValue& value);
    ElementType typeFor(const ParameterDeclaration& p, const ParameterValue& value);
    std::optional<std::int64_t> byName(const ParameterDeclaration& p, const ParameterValue& value);
    std::optional<std::vector<double>> numbersOf(const ParameterDeclaration& p, ElementType type,
                                                 const ParameterValue& value);
    bool encode(const ParameterDeclaration& p, ElementType type, const ParameterValue& value, std::byte* bytes);
    void checkBounds(const ParameterDeclaration& p, const std::vector<double>& numbers, const SourceLocation& where);

    const ObjectClass& m_object;
    std::string m_label;
    Diagnostics& m_diagnostics;
    TextureByName m_textures;
    std::vector<std::string> m_textureNames, m_otherNames;
};

// Where an object keeps a parameter of its class. Declarations are counted from its start as one that can be loaded.
inline std::byte* memberOf(OxLoadableObject& object, const ParameterDeclaration& p) {
    return reinterpret_cast<std::byte*>(&object) + p.offset;
}
inline const std::byte* memberOf(const OxLoadableObject& object, const ParameterDeclaration& p) {
    return reinterpret_cast<const std::byte*>(&object) + p.offset;
}
// What the bytes of a parameter mean, as a value that writes the same bytes. Integers that are textures stay such.
OXBEAM_API ParameterValue valueOf(const ParameterDeclaration& p, const std::byte* bytes);
// Of a colour, a position or a direction.
inline ParameterValue valueOf(const R3& v) {
    return {std::vector<ParameterValue::Number>{double{v.x}, double{v.y}, double{v.z}}, {}};
}
// A value as a scene file has it: "0.5", "[1, 0, 0]", "true", "\"wood\"".
OXBEAM_API std::string textOf(const ParameterValue& value);

// The parameter holds the id of a texture.
OXBEAM_API bool isTexture(const ParameterDeclaration& p);
// What a parameter takes, for people: "float", "3 floats (color)", "texture", "int: 0 x-Axis, 1 y-Axis", ...
OXBEAM_API std::string describeType(const ParameterDeclaration& p);
// A parameter's bytes as text: "0.5 0.5 0.5", "true", "16".
OXBEAM_API std::string describeValue(const ParameterDeclaration& p, const std::byte* bytes);

}  // namespace oxbeam
