// Parameter values as Python's own.
#pragma once

#include "Engine/Packages/ParameterValue.h"
#include "Engine/World/Tone.h"

#include <pybind11/pybind11.h>

namespace oxbeam::python {

namespace py = pybind11;

// Of True, an int, a float, a str, or a list or tuple of numbers; None is no texture. Throws TypeError for anything else.
ParameterValue valueFrom(py::handle object);
// As short as single precision allows: 0.2, not 0.20000000298. A texture that is none is None.
py::object toPython(const ParameterDeclaration& p, const ParameterValue& value);

// All throw Error(Usage) for what a picture cannot be made with.
float exposureFrom(float stops);
ToneCurve curveFrom(const std::string& name);
// The index of a name among those that can be; `what` asks for it.
unsigned indexOf(const std::string& what, const std::string& name, const std::vector<std::string>& names);

}  // namespace oxbeam::python
