// Writing the text of a scene file.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Primitives/Vec.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace oxbeam {

// Values as a scene file has them.
std::string tomlValue(float value);
std::string tomlValue(const R3& value);
std::string tomlValue(const std::string& text);

class SceneText {
public:
    using Values = std::vector<std::pair<std::string, std::string>>;  // keys, and values as they stand in the file

    explicit SceneText(const Registry& registry) : m_registry(registry) {}

    void comment(const std::string& text);
    // "[image]" or "[[mesh]]", and its keys. Empty values are left out.
    void table(const std::string& header, const Values& values);
    // The table of an object: what is set, and in comments the parameters that keep their defaults.
    void object(const std::string& header, const std::string& name, const Values& values);
    // A name made of what a key may hold, unlike all that this gave out before for the same section, and its keys.
    std::string name(const std::string& kind, const std::string& wanted, const std::string& otherwise);

    const std::string& text() const { return m_text; }

private:
    bool isKey(const std::string& kind, const std::string& name) const;
    void keys(const Values& values);
    void defaults(const ObjectClass& object, const Values& set);

    const Registry& m_registry;
    std::string m_text;
    std::set<std::string> m_names;
};

}  // namespace oxbeam
