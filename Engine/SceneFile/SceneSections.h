// What a scene file is made of: its sections, the objects that stand there, and the keys that the scene itself knows.
#pragma once

#include "Engine/Packages/Registry.h"

#include <string>
#include <string_view>
#include <vector>

namespace oxbeam {

struct SceneSection {
    enum Form {
        Table,          // [name]
        Named,          // [name.own]
        TableAndNamed,  // both
        List            // [[name]]
    };

    const char* name;
    Form form;
    std::vector<ObjectKind> kinds;  // of the object there, the first being what is expected; empty: there is none
    const char* preset;             // the object of a table that names none; or null
    std::vector<std::string> keys;  // beside the object's parameters

    bool knows(std::string_view key) const;
};

// In the order in which they are read: what later sections refer to comes first.
const std::vector<SceneSection>& sceneSections();
const SceneSection& sceneSection(std::string_view name);

}  // namespace oxbeam
