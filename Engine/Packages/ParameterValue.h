// Writing parameter values into objects.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/Registry.h"

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

    // Unknown names and values of the wrong shape or kind are errors and leave the object as it is; values outside the
    // documented bounds are written, with a warning.
    void write(OxLoadableObject& target, const std::string& name, const SourceLocation& nameAt,
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

// What a parameter takes, for people: "float", "3 floats (color)", "texture", "int: 0 x-Axis, 1 y-Axis", ...
OXBEAM_API std::string describeType(const ParameterDeclaration& p);
// A parameter's bytes as text: "0.5 0.5 0.5", "true", "16".
OXBEAM_API std::string describeValue(const ParameterDeclaration& p, const std::byte* bytes);

}  // namespace oxbeam
