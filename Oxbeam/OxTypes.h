// Basic names of the host interface.
#pragma once

using Oxvoid = void;
using Oxint = int;
using Oxuint = unsigned int;
using Oxfloat = float;

// Marks what the host's shared library offers to packages and to programs that embed it.
#define OXBEAM_API __attribute__((visibility("default")))

// A service that is small enough to be compiled into every caller. The host's library keeps an exported copy of
// each (Engine/Host/OxFunctions.cpp); elsewhere the inlined code stays private to the library it is compiled into.
#if defined(OXBEAM_EMIT_SERVICES)
#define OX_SERVICE [[gnu::used]] inline OXBEAM_API
#elif defined(OXBEAM_BUILDING)
#define OX_SERVICE inline OXBEAM_API
#else
#define OX_SERVICE inline
#endif
