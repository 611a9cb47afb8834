// What goes wrong in the engine, as exceptions of Python's.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"

#include <pybind11/pybind11.h>

#include <stdexcept>

namespace oxbeam::python {

namespace py = pybind11;

// All that is wrong with a scene.
struct BadScene : std::runtime_error {
    explicit BadScene(const Diagnostics& diagnostics);

    std::vector<Diagnostic> errors;
};

// A scene was closed.
struct Closed : std::logic_error {
    using std::logic_error::logic_error;
};

// warnings.warn, which may raise.
void warn(const std::string& message);
void warn(const Diagnostics& diagnostics);

// NoSuchName becomes UnknownName, a KeyError; BadValue and Error(Usage) ValueError, Error(InputOutput) OSError, BadScene
// SceneError, Error(BadPackage) PackageError, std::logic_error RuntimeError.
void bindErrors();

// Of classes whose objects are made by this module alone: without it, __new__ gives objects with nothing in them.
py::custom_type_setup withoutNew();

}  // namespace oxbeam::python
