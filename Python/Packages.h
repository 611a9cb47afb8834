// The packages of the process, and what their objects say of themselves.
#pragma once

#include "Engine/Packages/Registry.h"

#include <pybind11/pybind11.h>

namespace oxbeam::python {

namespace py = pybind11;

// With the packages beside the library, which are loaded when they are first asked for.
Registry& registry();
// Throws UnknownName, with the name that was probably meant.
const ObjectClass& objectClass(const std::string& name);

void bindPackages(py::module_& module);

}  // namespace oxbeam::python
