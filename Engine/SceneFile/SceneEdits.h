// Changing values in the text of a scene file; comments and layout stay as they are.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

struct SceneEdit {
    std::string place;                 // "shader.table", "light.0", "image", "model.0.shader.Steel"
    std::vector<std::string> names;    // of the key: where none of them stands there, the first is written
    std::optional<std::string> value;  // as the file has it, "[1, 0, 0]"; nothing: the key goes
};

// A place that is not in the text is made, at its end. Throws Error(BadScene) where the text is no TOML, and where the edit
// cannot be made of it: the list has no such entry.
OXBEAM_API std::string edited(const std::string& text, const SceneEdit& edit);
// What stands at a place, "mesh.0" or "model.0", is moved there: its `translate`, or the last column of its `matrix`. Throws
// as `edited` does.
OXBEAM_API std::string withTranslation(const std::string& text, const std::string& place, const R3& to);
// With one entry more in a list, after its last one: "[[light]]".
OXBEAM_API std::string withEntry(const std::string& text, const std::string& list);
// Without an entry, and the keys and tables that belong to it. Comments before it stay.
OXBEAM_API std::string withoutEntry(const std::string& text, const std::string& list, std::size_t entry);

}  // namespace oxbeam
