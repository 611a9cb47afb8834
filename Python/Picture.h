// A picture that was rendered: the film, and all that is said of it.
#pragma once

#include "Engine/Provenance/Provenance.h"

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

namespace oxbeam::python {

namespace py = pybind11;

// Nothing of it changes any more. Arrays that look at the film hold the picture.
struct Picture {
    Picture(const World& world, RenderResult result, std::vector<Aov> aovs, const Making& making);

    Film film;
    ImageSize whole;
    Tone tone;
    std::vector<Aov> aovs;
    RenderStatistics statistics;
    Attributes attributes;
    bool complete;
    double seconds;

    bool has(Aov aov) const { return std::find(aovs.begin(), aovs.end(), aov) != aovs.end(); }
};

void bindPicture(py::module_& module);

}  // namespace oxbeam::python
