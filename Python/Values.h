// Parameter values as Python's own.
#pragma once

#include "Engine/Packages/ParameterValue.h"
#include "Engine/World/Tone.h"

#include <fmt/format.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace oxbeam::python {

namespace py = pybind11;

// ---- Arguments

// What can be given for a type, in words.
template <class T>
struct Expected {
    static std::string words() {
        if constexpr (std::is_floating_point_v<T>) return "a number";
        if constexpr (std::is_integral_v<T>) return "an integer of less than 64 bits";
        return "a text";
    }
};
template <class T>
struct Expected<std::optional<T>> : Expected<T> {};
template <class T>
struct Expected<std::vector<T>> {
    static std::string words() { return "a list, each " + Expected<T>::words(); }
};
template <class T, std::size_t N>
struct Expected<std::array<T, N>> {
    static std::string words() { return fmt::format("{} values, each {}", N, Expected<T>::words()); }
};
template <>
struct Expected<std::filesystem::path> {
    static std::string words() { return "the name of a file"; }
};
template <>
struct Expected<bool> {
    static std::string words() { return "True or False"; }
};

// An argument by its name. Throws TypeError.
template <class T>
T argument(const char* name, py::handle given) try {
    return given.cast<T>();
} catch (const py::cast_error&) {
    throw py::type_error(
        fmt::format("{}: expected {}, not {}", name, Expected<T>::words(), std::string(py::repr(given))));
}

// One that may be among those that were given. Throws TypeError.
template <class T>
void takeFrom(const py::dict& given, const char* name, T& to) {
    if (given.contains(name)) to = argument<T>(name, given[name]);
}

// ---- Values

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
