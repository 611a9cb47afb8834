// The module that the package oxbeam stands on.
#include "Python/Aside.h"
#include "Python/Errors.h"
#include "Python/Packages.h"
#include "Python/Picture.h"
#include "Python/SceneState.h"

PYBIND11_MODULE(_oxbeam, module) {
    using namespace oxbeam::python;
    module.attr("version") = OXBEAM_VERSION;
    bindErrors();
    bindAside(module);
    bindPackages(module);
    bindPicture(module);
    bindScene(module);
}
