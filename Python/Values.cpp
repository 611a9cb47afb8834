#include "Python/Values.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdlib>

namespace oxbeam::python {

// Of a Python int; throws ValueError beyond 64 bits.
static std::int64_t wholeFrom(py::handle object) {
    const long long whole = PyLong_AsLongLong(object.ptr());
    if (whole != -1 || !PyErr_Occurred()) return whole;
    PyErr_Clear();
    throw py::value_error(fmt::format("{} is beyond what a parameter holds", std::string(py::str(object))));
}

static py::type_error noValue(py::handle object) {
    return py::type_error(fmt::format("expected True or False, a number, a text or a list of numbers, not {}",
                                      std::string(py::str(py::type::of(object).attr("__name__")))));
}

static ParameterValue::Number numberFrom(py::handle object) {
    if (PyFloat_Check(object.ptr())) return PyFloat_AS_DOUBLE(object.ptr());
    if (PyLong_Check(object.ptr()) && !PyBool_Check(object.ptr())) return wholeFrom(object);
    throw noValue(object);
}

ParameterValue valueFrom(py::handle object) {
    if (object.is_none()) return {std::int64_t{-1}, {}};
    if (PyBool_Check(object.ptr())) return {object.ptr() == Py_True, {}};
    if (PyUnicode_Check(object.ptr())) return {object.cast<std::string>(), {}};
    if (PyList_Check(object.ptr()) || PyTuple_Check(object.ptr())) {
        std::vector<ParameterValue::Number> numbers;
        for (const py::handle number : object) numbers.push_back(numberFrom(number));
        return {std::move(numbers), {}};
    }
    const ParameterValue::Number number = numberFrom(object);
    if (const auto* whole = std::get_if<std::int64_t>(&number)) return {*whole, {}};
    return {std::get<double>(number), {}};
}

static double shortest(double value) {
    return std::strtod(fmt::format("{}", static_cast<float>(value)).c_str(), nullptr);
}

static py::object toPython(const ParameterValue::Number& number) {
    if (const auto* whole = std::get_if<std::int64_t>(&number)) return py::int_(*whole);
    return py::float_(shortest(std::get<double>(number)));
}

py::object toPython(const ParameterDeclaration& p, const ParameterValue& value) {
    struct Objects {
        py::object operator()(bool v) const { return py::bool_(v); }
        py::object operator()(std::int64_t v) const { return py::int_(v); }
        py::object operator()(double v) const { return py::float_(shortest(v)); }
        py::object operator()(const std::string& v) const { return py::str(v); }
        py::object operator()(const std::vector<ParameterValue::Number>& v) const {
            py::tuple numbers(v.size());
            for (std::size_t i = 0; i < v.size(); ++i) numbers[i] = python::toPython(v[i]);
            return numbers;
        }
    };
    const auto* whole = std::get_if<std::int64_t>(&value.data);
    if (whole && *whole == -1 && isTexture(p)) return py::none();
    return std::visit(Objects(), value.data);
}

float exposureFrom(float stops) {
    if (!(stops >= -MostExposure && stops <= MostExposure))
        throw Error(ExitStatus::Usage,
                    fmt::format("exposure: expected {:g} to {:g}, not {:g}", -MostExposure, MostExposure, stops));
    return stops;
}

unsigned indexOf(const std::string& what, const std::string& name, const std::vector<std::string>& names) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end())
        throw Error(ExitStatus::Usage, fmt::format("{}: expected one of {}, not '{}'{}", what, fmt::join(names, ", "),
                                                   name, didYouMean(name, names)));
    return static_cast<unsigned>(found - names.begin());
}

ToneCurve curveFrom(const std::string& name) { return static_cast<ToneCurve>(indexOf("tone", name, toneCurveNames())); }

}  // namespace oxbeam::python
