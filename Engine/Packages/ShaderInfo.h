// An object's self-description, as read from its XML document.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace oxbeam {

struct ParameterInfo {
    std::vector<std::string> ids;  // usually one
    std::vector<std::string> aliases;
    std::string longname;
    std::string type;                  // "float", "int" or "bool"
    std::string interpretation;        // "color", "direction", "position", "texture", "enum" or nothing
    std::map<int, std::string> items;  // of an enum: its values and their names
    std::string defaultText;
    std::string lowerbound, upperbound;
    bool logarithmic = false;
    std::string help;
    std::string group;  // longname of the group that it stands in
};

struct ShaderInfo {
    std::string type;  // "renderingobject", "light", "surface", "environment", "camera"; nothing: no document
    std::string package;
    std::string id;
    std::string longname;
    std::vector<ParameterInfo> parameters;
    std::string fault;  // why the text is no such document; nothing where it is one

    // The parameter that goes by this id or alias, or null.
    const ParameterInfo* find(std::string_view name) const;
};

// Reads a document; the result is empty but for the fault where the text is none.
ShaderInfo parseShaderInfo(std::string_view document);

}  // namespace oxbeam
