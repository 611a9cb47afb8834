// What the rendering thread tells of its world.
#pragma once

#include "Apps/view/SceneInfo.h"

#include <filesystem>
#include <vector>

namespace oxbeam {

struct ViewCommand;

// Where packages are looked for.
std::vector<std::filesystem::path> packageFolders(const ViewCommand& command);
// All but the file and the samples; the geometry must be built.
SceneInfo describe(const World& world, const Registry& registry);

}  // namespace oxbeam
