// The module that the package oxbeam stands on.
#include "Python/Aside.h"
#include "Python/Errors.h"
#include "Python/Packages.h"
#include "Python/Picture.h"
#include "Python/SceneState.h"

namespace oxbeam::python {

static void fill(py::module_& module) {
    module.attr("version") = OXBEAM_VERSION;
    bindErrors();
    bindAside(module);
    bindPackages(module);
    bindPicture(module);
    bindScene(module);
}

}  // namespace oxbeam::python

// By hand, and not by pybind11's macro: in an interpreter other than the first, that would wait for its own lock for ever.
// NOLINTNEXTLINE(bugprone-reserved-identifier): so the interpreter looks for it
extern "C" PYBIND11_EXPORT PyObject* PyInit__oxbeam() {
    if (PyInterpreterState_Get() != PyInterpreterState_Main()) {
        PyErr_SetString(PyExc_ImportError, "oxbeam can be imported by the main interpreter of a process only");
        return nullptr;
    }
    try {
        pybind11::detail::get_internals();
        static pybind11::module_::module_def definition;
        auto module = pybind11::module_::create_extension_module("_oxbeam", nullptr, &definition);
        oxbeam::python::fill(module);
        return module.ptr();
    }
    PYBIND11_CATCH_INIT_EXCEPTIONS
}
