// One parameter's field: a slider, a colour, a switch, a list, as its declaration says.
#pragma once

#include "Engine/Packages/ParameterValue.h"

#include <optional>

namespace oxbeam {

// The number that a scene file writes shortest for this float.
double shortest(float value);

// Draws it with its label left out; the new value where somebody has changed it.
std::optional<ParameterValue> drawField(const ParameterDeclaration& p, const ParameterValue& value,
                                        const std::vector<std::string>& textures);

}  // namespace oxbeam
