#include "Python/Errors.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Interruption.h"
#include "Engine/World/Places.h"

namespace oxbeam::python {

static std::string textOf(const std::vector<Diagnostic>& errors) {
    std::string text;
    for (const Diagnostic& error : errors) text += (text.empty() ? "" : "\n") + error.text();
    return text;
}

static std::vector<Diagnostic> errorsOf(const Diagnostics& diagnostics) {
    std::vector<Diagnostic> errors;
    for (const Diagnostic& d : diagnostics.sorted())
        if (d.severity == Severity::Error) errors.push_back(d);
    return errors;
}

BadScene::BadScene(const Diagnostics& diagnostics)
    : std::runtime_error(textOf(errorsOf(diagnostics))), errors(errorsOf(diagnostics)) {}

static py::object ours(const char* name) { return py::module_::import("oxbeam._errors").attr(name); }

// Texts of packages and file names need not be UTF-8.
static py::str text(const std::string& message) { return {printable(message)}; }

void warn(const std::string& message) {
    py::module_::import("warnings").attr("warn")(text(message), ours("SceneWarning"), 2);
}

void warn(const Diagnostics& diagnostics) {
    for (const Diagnostic& d : diagnostics.sorted())
        if (d.severity == Severity::Warning) warn(d.text());
}

static void raise(const py::object& type, const std::string& message) {
    PyErr_SetObject(type.ptr(), text(message).ptr());
}

static void raise(const BadScene& scene) {
    py::list errors;
    for (const Diagnostic& d : scene.errors)
        errors.append(ours("SceneFault")(text(d.where.file), d.where.line, d.where.column, text(d.message)));
    const py::object error = ours("SceneError")(text(scene.what()), errors);
    PyErr_SetObject(py::type::of(error).ptr(), error.ptr());
}

static void raise(const Error& error) {
    switch (error.status()) {
    case ExitStatus::InputOutput: return raise(py::reinterpret_borrow<py::object>(PyExc_OSError), error.what());
    case ExitStatus::BadPackage: return raise(ours("PackageError"), error.what());
    default: return raise(py::reinterpret_borrow<py::object>(PyExc_ValueError), error.what());
    }
}

py::custom_type_setup withoutNew() {
    return py::custom_type_setup([](PyHeapTypeObject* type) {
        type->ht_type.tp_new = [](PyTypeObject* of, PyObject*, PyObject*) -> PyObject* {
            PyErr_Format(PyExc_TypeError, "nobody but oxbeam makes objects of %s", of->tp_name);
            return nullptr;
        };
    });
}

void bindErrors() {
    // NOLINTNEXTLINE(performance-unnecessary-value-param): so it is called
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown) std::rethrow_exception(thrown);
        } catch (const BadScene& e) {
            raise(e);
        } catch (const NoSuchName& e) {
            raise(ours("UnknownName"), e.what());
        } catch (const Error& e) {
            raise(e);
        } catch (const Interruption& e) {  // by the end of the process; else the signal's exception is there before it
            raise(py::reinterpret_borrow<py::object>(PyExc_KeyboardInterrupt), e.what());
        } catch (const Closed& e) {
            raise(py::reinterpret_borrow<py::object>(PyExc_ValueError), e.what());
        } catch (const std::logic_error& e) {
            raise(py::reinterpret_borrow<py::object>(PyExc_RuntimeError), e.what());
        }
    });
}

}  // namespace oxbeam::python
