// Parameter values as Python's own.
#pragma once

#include "Engine/Packages/ParameterValue.h"

#include <pybind11/pybind11.h>

namespace oxbeam::python {

namespace py = pybind11;

// Of True, an int, a float, a str, or a list or tuple of numbers; None is no texture. Throws TypeError for anything else.
ParameterValue valueFrom(py::handle object);
// As short as single precision allows: 0.2, not 0.20000000298. A texture that is none is None.
py::object toPython(const ParameterDeclaration& p, const ParameterValue& value);

}  // namespace oxbeam::python
