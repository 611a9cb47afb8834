// Which version of the interface a package is built for.
#pragma once

#include "Oxbeam/OxTypes.h"

// Raised by whatever changes what a package and its host must agree on: a virtual function, a member, or a size of a
// class of the interface, or what an operation of it means. All but the last is recorded in layout.txt.
#define OX_INTERFACE_VERSION 1

#define OX_INTERFACE_PASTE(name, version) name##version
#define OX_INTERFACE_NAME(name, version) OX_INTERFACE_PASTE(name, version)
// oxInterface_<version>, which only a host of that version offers. Every exported object refers to it, so that a host can
// read from the file of a package, before any of its code runs, whether they fit.
#define OX_INTERFACE_SYMBOL OX_INTERFACE_NAME(oxInterface_, OX_INTERFACE_VERSION)

extern "C" OXBEAM_API const int OX_INTERFACE_SYMBOL;
